// Where the orders are given: the gateway under test, the crowd at its other end, and what the orders so far must have
// come to. Each order is checked as it is answered; what is wrong fails the test. One thread plays the controller and
// the main loop in turn.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "load/crowd.h"
#include "load/expected_config.h"
#include "load/gateway.h"
#include "whole_site/dice.h"

namespace load {

class Stage {
 public:
  using Fields = zal::bus::Fields;
  struct Ports {
    int of_crowd = 0;
    int other = 0;
  };

  Stage(Gateway& gateway, const Crowd& crowd, std::uint64_t seed, Ports ports, const std::string& reports_path);

  // Orders, and their answers as JSON.
  Json ask(const Json& request);
  // A question about the server: its answer begins with who answers, and this is the rest.
  Json ask_server(const Json& request);
  void expect_answer(const Json& request, const Json& expected);
  void expect_failure(const Json& request) { expect_answer(request, {{"status", "failure"}}); }
  // A message of the bus that is answered by one message of that type, by one with a text, or not at all.
  Fields reply_to(int type, const Fields& fields, int reply_type);
  Json text_of_reply_to(int type, const Fields& fields, int reply_type);
  void order(int type, const Fields& fields = {});
  // The result of a request of the management. Empty if it failed, which it may only for one of these reasons.
  std::optional<Json> manage(const Fields& request, const std::vector<std::string>& reasons);

  // What the orders so far have come to.
  bool is_serving() const { return config.global.at("enabled") == 1 && is_master; }
  bool may_run(const std::string& domain) const { return is_serving() && config.domains.contains(domain); }
  void expect_config(const Json& request, const Json& answer);
  // An order of the pair, and a setup, in the state that the gateway is in.
  void send_vrrp_state(int state);
  void send_setup(const ExpectedConfig& next);
  void order_role(bool master, bool with_domains);
  void set_global(const Json& section);
  // The controller's records of these access points.
  void tell_records(const std::vector<KnownAp>& aps);
  void drop(const std::vector<int>& ids, bool by_bus);
  std::vector<int> session_ids();

  // What every answer about an access point, a domain, a report or a list of sessions must look like.
  void expect_ap(const std::string& domain, const std::string& mac, const Json& rest);
  void expect_details(const std::string& domain, const Json& rest);
  void expect_overview(const Json& rest);
  void expect_report(const Json& report, const std::string& domain);
  void expect_sessions(const Json& list, const std::optional<std::string>& location);

  // Chances.
  std::string any_domain() { return dice.one_of(crowd.domains()); }
  std::string an_unknown_domain() { return "nowhere-" + std::to_string(dice.below(100)); }
  const KnownAp& any_ap() { return dice.one_of(crowd.access_points()); }
  std::string any_pattern();  // or "common"
  std::optional<std::string> a_free_pattern();
  std::string a_new_pattern() { return "pattern-" + std::to_string(++patterns_made_); }
  std::string any_time_zone();
  Json any_values(const std::vector<Key>& keys);
  Json wrong_values(const std::vector<Key>& keys);

  // The order that is under way did more than to be refused.
  void fulfilled() { is_fulfilled = true; }

  Gateway& gateway;
  const Crowd& crowd;
  whole_site::Dice dice;
  const Ports ports;
  const std::string reports_path;

  ExpectedConfig config;
  bool is_master = false;
  int vrrp_state = 3;
  std::map<std::string, KnownAp> records;  // of the controller, by address
  std::set<int> dropped;                   // sessions, by id
  std::set<int> dropped_early;             // of these, those that may not have had their first writable event
  bool is_fulfilled = false;

 private:
  using Steady = std::chrono::steady_clock;

  Json value_of(const Key& key, bool wrong);

  int patterns_made_ = 0;
  std::map<int, Steady::time_point> seen_;  // when each session was first told of
};

// One kind of order.
struct Order {
  // Whether it can come to anything, or is refused or acknowledged whatever the state of things.
  enum class Outcome { fulfilled, bare };

  const char* name;
  void (*issue)(Stage& stage);
  Outcome outcome = Outcome::fulfilled;
};

// Questions and orders that change nothing but the controller's own records and the log's filter.
const std::vector<Order>& questions();
// Edits of the configuration, refused or not, that leave every access point where it is.
const std::vector<Order>& edits();
// What costs access points their sessions. Each ends with all domains in service, save for those that are not
// configured.
const std::vector<Order>& upheavals();

// Brings every domain of the crowd into service.
void add_missing_domains(Stage& stage);

}  // namespace load
