// What the daemon answers, told to people. Each function takes the JSON text of an answer, one object, and gives lines
// that end with a line break; one that is no such answer throws std::runtime_error. What an answer leaves out is shown
// as "-". Bands come in their order, everything else in the order of the answer.
#pragma once

#include <string>

namespace controller {

// Answers to the management's requests.
std::string tell_common(const std::string& answer);
std::string tell_sessions(const std::string& answer);
std::string tell_stat(const std::string& answer);
std::string tell_roaming(const std::string& answer);
std::string tell_ap(const std::string& answer);
std::string tell_reports(const std::string& answer);

// Answers of the server's own interface. Each of them throws also if the answer tells a failure.
std::string tell_api_sessions(const std::string& answer);
std::string tell_api_sessions_removed(const std::string& answer);
std::string tell_api_groups(const std::string& answer);
std::string tell_api_group(const std::string& answer);
std::string tell_api_ap(const std::string& answer);
std::string tell_api_optimization(const std::string& answer);
std::string tell_api_reports(const std::string& answer);
std::string tell_api_report(const std::string& answer);

// Throws std::runtime_error, with the reason, if an answer of the server's own interface is empty, no JSON object, or
// tells a failure.
void refuse_failure(const std::string& answer);

}  // namespace controller
