// Where the server library's reports go: its log lines into the rate-limited log, its numbered events into log lines,
// the mark of a domain whose backup is due, and the controller's alarm. The hooks run on any thread of the server.
#pragma once

#include <cstdarg>
#include <functional>
#include <memory>
#include <string>

// Hands both hooks to the library. Before any other thread is started.
void install_report_hooks();

// What event 23 calls with the name of a domain that changed. Set on the main thread before the server exists; until
// then a call raises std::bad_function_call.
void set_domain_changed_hook(std::function<void(const std::string& domain)> hook);

// The hooks themselves. The library's level must be one single bit of the lowest eight; the rest of the lines is
// dropped.
void on_library_log(const char* file, int line, const char* function, int level, const char* format, va_list args);
// A number without a meaning here is passed over: the queues report their overflows under numbers above the table, and
// log them themselves.
void on_library_event(const int& event_id, const std::shared_ptr<std::string>& payload);
