#include "events.h"

#include <algorithm>
#include <iterator>

#include "core/log.h"
#include "json/JsonReader.h"
#include "trace.h"
#include "zal/MacAddr.h"
#include "zal/alarm.h"

namespace {

std::function<void(const std::string&)> domain_changed_hook;

enum class Grade { warn, error, error_mac };

// An event that ends in one log line; a %s in the text is the payload.
struct LoggedEvent {
  int id;
  Grade grade;
  const char* text;
};

constexpr LoggedEvent logged_events[] = {
    {0, Grade::warn, "Incoming message validation failed"},
    {1, Grade::warn, "Incoming message version failed"},
    {2, Grade::error, "broadcast_buffer_add json null"},
    {3, Grade::error_mac, "Send subscribe-response 'fail' due to invalid MAC parameters"},
    {4, Grade::error, "Exception at processing message on worker '%s'"},
    {5, Grade::error, "Unhandled exception at worker '%s'"},
    {6, Grade::error, "Exception at processing message on default worker"},
    {7, Grade::error, "ws_send tmp_json null"},
    {8, Grade::error, "Can't send msg to websocket"},
    {10, Grade::error, "Exception at processing message on websock-server-worker"},
    {11, Grade::error_mac, "Invalid VAP MAC"},
    {12, Grade::error, "Exception at processing stop_domain_event. Location: '%s'"},
    {13, Grade::error, "Exception at processing message for location '%s'"},
    {14, Grade::error, "send_message json null"},
    {15, Grade::error, "'%s' worker absent."},
    {16, Grade::error, "Error call delete_old_reports_in_domain '%s'"},
    {17, Grade::error, "Incorrect time in report_delete_at_time_utc: '%s'"},
    {18, Grade::error, "Error while save radio report for location '%s'"},
    {19, Grade::warn, "Query reports list exit with error code. Location: %s"},
    {20, Grade::warn, "Query last radio report exit with error code. Location: %s"},
    {21, Grade::warn, "Report not found. Report Id: '%s'"},
    {22, Grade::warn, "import_from_report exited with error"},
};

constexpr int event_domain_changed = 23;
constexpr int event_optimization_status = 24;
constexpr unsigned last_status = 5;  // the thread computes; nothing for the controller to know

void log_event(const LoggedEvent& event, const std::string* payload) {
  const char* text = payload ? payload->c_str() : "";
  if (event.grade == Grade::warn)
    trace.warn(event.text, text);
  else if (event.grade == Grade::error_mac && payload)
    trace.error_mac(zal::MacAddr::from_str(*payload), event.text, text);
  else
    trace.error(event.text, text);
}

void raise_alarm(const std::string* payload) {
  const rrm::JsonReader change(payload ? payload->c_str() : "");
  if (!change.has("location") || !change.has("status"))
    return trace.warn("Optimization status changed: param corrupted");
  const auto status = static_cast<unsigned>(change.get_int("status"));
  if (status > last_status) return trace.warn("Optimization status changed: unknown status");
  if (status < last_status)
    zal::emit_alarm_MORVANE_OPTIMIZATION_STATUS_CHANGED(change.get_string("location"),
                                                        zal::MorvaneOptimizationEventType{static_cast<int>(status)});
}

}  // namespace

void install_report_hooks() {
  rrm::set_log_hook(on_library_log);
  rrm::set_event_hook(on_library_event);
}

void set_domain_changed_hook(std::function<void(const std::string&)> hook) {
  domain_changed_hook = std::move(hook);
}

void on_library_log(const char*, int, const char*, int level, const char* format, va_list args) {
  const bool is_one_bit = level >= 1 && level <= 128 && (level & (level - 1)) == 0;
  if (is_one_bit) trace.ap_lib_limited_ap(format, args);
}

void on_library_event(const int& event_id, const std::shared_ptr<std::string>& payload) {
  if (event_id == event_domain_changed) {
    if (payload) domain_changed_hook(*payload);
  } else if (event_id == event_optimization_status) {
    raise_alarm(payload.get());
  } else {
    const auto* const event = std::find_if(std::begin(logged_events), std::end(logged_events),
                                           [event_id](const LoggedEvent& known) { return known.id == event_id; });
    if (event != std::end(logged_events)) log_event(*event, payload.get());
  }
}
