#include "ApiZAL.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "answers.h"
#include "commands.h"
#include "json/JsonWriter.h"
#include "trace.h"

namespace {

using rrm::JsonReader;
using rrm::JsonWriter;

constexpr std::size_t answer_block = std::size_t{64} * 1024;  // most answers fit in one
constexpr const char* failure_text = R"({"status":"failure"})";

}  // namespace

// Commands

rrm::Api::Answer ApiZAL::run(const std::string& command) {
  trace.ap("Morvane API request sent:");
  trace.ap_limited("%s", command.c_str());
  Answer answer = dispatch(command);
  trace.ap("Morvane API response got:");
  trace.ap_limited("%s", answer ? answer->c_str() : "<null>");
  return answer;
}

// A command that nobody takes, or that its taker has nothing to say about, is answered as a failure; one that could not
// be carried out is not answered.
rrm::Api::Answer ApiZAL::dispatch(const std::string& command) {
  if (server_ == nullptr) return std::nullopt;
  try {
    const JsonReader request(command.c_str());
    Answer answer;
    if (request.has("cfg")) {
      answer = process_cfg_command(*server_, request.get("cfg"));
    } else if (request.has("rrm")) {
      answer = process_rrm_command(*server_, request.get("rrm"));
    } else if (request.has("vrrp")) {
      answer = process_vrrp_command(*server_, request.get("vrrp"));
    }
    return answer ? answer : failure_text;
  } catch (const std::exception& error) {
    trace.error("Morvane API request failed: %s", error.what());
    return std::nullopt;
  }
}

JsonReader ApiZAL::ask(const std::string& command, const std::string& no_answer) {
  const Answer text = run(command);
  if (!text) throw ApiFailure(no_answer);
  JsonReader answer(text->c_str(), answer_block);
  if (answers::is_failure(answer)) throw ApiFailure(answers::failure);
  return answer;
}

JsonReader ApiZAL::ask_domain(const std::string& domain) {
  JsonReader answer =
      ask(commands::domain(domain), "no answer on morvane api request for specific location '" + domain + "'");
  if (answer.get_object("details").empty()) throw ApiFailure(answers::malformed);
  return answer;
}

std::vector<std::string> ApiZAL::configured_domains() {
  const JsonReader answer =
      ask(commands::configured_domains(), "no answer on morvane api request for configured ap-locations");
  if (!answer.get("domains").is_array()) throw ApiFailure(answers::malformed);
  std::vector<std::string> names;
  answers::for_each(answer.get("domains"),
                    [&](const JsonReader& domain) { names.push_back(domain.get_string("name")); });
  return names;
}

std::vector<ApiZAL::Session> ApiZAL::ask_sessions() {
  const JsonReader answer = ask(commands::sessions(), "no answer on morvane api request for sessions");
  const JsonReader list = answer.get("websock-sessions");
  if (!list.is_array()) throw ApiFailure(answers::malformed);
  std::vector<Session> sessions;
  answers::for_each(list, [&](const JsonReader& entry) {
    sessions.push_back({entry.get_string("peer"), entry.get_int("id")});
  });
  return sessions;
}

std::map<std::string, ApiZAL::Domain> ApiZAL::ask_domains() {
  const JsonReader answer = ask(commands::domains(), "no answer on morvane api request for domains");
  const JsonReader list = answer.get("domains");
  if (!list.is_array()) throw ApiFailure(answers::malformed);
  std::map<std::string, Domain> domains;
  answers::for_each(list, [&](const JsonReader& entry) {
    const std::string name = entry.get_string("name");
    if (!name.empty()) domains[name] = {entry.get_int("ap-count"), entry.get_int("unanswered-ap-count")};
  });
  return domains;
}

// Locations and sessions

bool ApiZAL::morvane_common(std::string& answer, std::string& error) {
  trace.ap("Morvane HL-API: get_common");
  return answers::attempt(error, [&] {
    struct Counts {
      int server = 0;
      int controller = 0;
    };
    std::map<std::string, Counts> locations;
    active_aps_.for_each([&](const zal::MacAddr&, const ActiveApStorage::Record& record) {
      if (answers::has_ip(*record) && record->get_location()) ++locations[*record->get_location()].controller;
      return false;
    });
    for (const auto& [name, domain] : ask_domains()) {
      locations[name].server = domain.ap_count + domain.unanswered_ap_count;
    }
    JsonWriter json;
    JsonWriter array = JsonWriter::array(json, "array");
    for (const auto& [location, counts] : locations) {
      JsonWriter entry = JsonWriter::object(array, nullptr);
      entry.add_string("ap-location", location);
      entry.add_int("ap-morvane", counts.server);
      entry.add_int("ap-count", counts.controller);
    }
    answer = json.to_string();
  });
}

bool ApiZAL::morvane_sessions(const std::optional<std::string>& location, std::string& answer, std::string& error) {
  trace.ap("Morvane HL-API: get_sessions: location: %s", location ? location->c_str() : "<no location given>");
  return answers::attempt(error, [&] {
    std::map<std::string, int> ids;  // the youngest session of each peer
    for (const Session& session : ask_sessions()) {
      int& id = ids.try_emplace(session.peer, session.id).first->second;
      id = std::max(id, session.id);
    }
    using Key = std::pair<std::string, zal::MacAddr>;  // by location, then by address
    std::map<Key, ActiveApStorage::Record> connected;
    active_aps_.for_each([&](const zal::MacAddr& mac, const ActiveApStorage::Record& record) {
      const std::string place = record->get_location().value_or("");
      const bool wanted = !location || place == *location;
      if (wanted && answers::has_ip(*record) && ids.contains(*record->get_ip())) connected[{place, mac}] = record;
      return false;
    });
    JsonWriter json;
    JsonWriter array = JsonWriter::array(json, "array");
    for (const auto& [key, record] : connected) {
      JsonWriter entry = JsonWriter::object(array, nullptr);
      entry.add_string("ap-mac", key.second.to_string());
      entry.add_string("ap-ip", *record->get_ip());
      entry.add_int("session-id", ids[*record->get_ip()]);
      entry.add_string("ap-board-type", record->get_board_type().value_or(""));
      entry.add_string("ap-location", key.first);
    }
    answer = json.to_string();
  });
}

bool ApiZAL::morvane_clear_sessions(const std::optional<zal::MacAddr>& mac, std::string& answer, std::string& error) {
  const std::string mac_text = mac ? mac->to_string() : "";
  trace.ap("Morvane HL-API: rem_sessions: mac: %s", mac ? mac_text.c_str() : "<no mac given>");
  return answers::attempt(error, [&] {
    const ActiveApStorage::Record record = mac ? active_aps_.find(*mac) : nullptr;
    std::vector<int> ids;
    for (const Session& session : ask_sessions()) {
      const bool of_ap = record != nullptr && record->get_ip() == session.peer;
      if (!mac || of_ap) ids.push_back(session.id);
    }
    if (ids.empty() && mac) throw ApiFailure("there is no session for given mac: " + mac_text);
    if (!ids.empty() && !run(commands::drop_sessions(ids))) {
      throw ApiFailure("no answer on morvane api request for clear sessions");
    }
    answer.clear();
  });
}

bool ApiZAL::morvane_optimize(const std::string& location, std::string& answer, std::string& error) {
  trace.ap("Morvane HL-API: optimize: location: %s", location.c_str());
  return answers::attempt(error, [&] {
    constexpr int first_started = 2;  // waiting for modes, for the scan, or for the delay of a forced request
    constexpr int last_started = 4;
    const int status = ask_domain(location).get_object("details").get_int("rrm-status");
    if (status >= first_started && status <= last_started) throw ApiFailure("optimization already started");
    ask(commands::optimize(location), "no answer on morvane api request for optimization");
    answer.clear();
  });
}

bool ApiZAL::morvane_role(std::int32_t& role, std::string& error) {
  return answers::attempt(error, [&] {
    const JsonReader answer = ask(commands::role(), "no answer on morvane api request for vrrp role");
    const std::string name = answer.get_string("role");
    if (name != "master" && name != "backup") throw ApiFailure(answers::failure);
    role = name == "master" ? 1 : 2;
  });
}
