// A controller that says only what a test tells it to, for a simulation without sockets.
#pragma once

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sim/simulation.h"
#include "sites.h"
#include "steering_lines.h"

namespace sim::testing {

class ScriptedController : public ::testing::Test {
 protected:
  using Json = nlohmann::ordered_json;

  // Time that the test drives, milliseconds.
  Millis now_ = 1000;
  std::vector<std::string> log_;

  std::vector<SteeringEvent> events_;

  Simulation& start(const std::string& text) {
    site_ = parse_site(text);
    simulation_ = std::make_unique<Simulation>(
        site_, [this](const std::string& line) { log_.push_back(line); },
        [this](const SteeringEvent& event) { events_.push_back(event); });
    return *simulation_;
  }

  // What has befallen the clients since the last call.
  std::vector<std::string> events() { return lines_of(std::exchange(events_, {})); }

  std::string mac(std::size_t ap) const { return site_.access_points[ap].mac.text(); }

  // What the AP has sent since the last call.
  std::vector<Json> sent(std::size_t ap) {
    std::vector<Json> messages;
    for (const std::string& text : simulation_->take_outgoing(ap)) {
      messages.push_back(Json::parse(text));
    }
    return messages;
  }

  std::vector<std::string> sent_commands(std::size_t ap) {
    std::vector<std::string> commands;
    for (const Json& message : sent(ap)) {
      commands.push_back(message["cmd"]);
    }
    return commands;
  }

  void say(std::size_t ap, const std::string& command, const Json& more = Json::object()) {
    Json message = {{"service", "rrm"}, {"version", "2.4"}, {"cmd", command}, {"ap-mac", mac(ap)}, {"domain", "lab"}};
    message.update(more);
    simulation_->received(ap, message.dump(), now_);
  }

  // The answer to a subscription, from a controller that balances clients.
  void accept(std::size_t ap, const Json& more = Json::object()) {
    Json config = {{"use-load-balance", 1}, {"radios", Json::array()}};
    config.update(more);
    say(ap, "subscribe-response", {{"status", "success"}, {"config", config}});
  }

  void subscribe(std::size_t ap, const Json& more = Json::object()) {
    simulation_->connected(ap, now_);
    accept(ap, more);
    sent(ap);
  }

  void subscribe_all() {
    for (std::size_t ap = 0; ap < simulation_->size(); ++ap) {
      subscribe(ap);
    }
  }

  void pass(Millis milliseconds) {
    now_ += milliseconds;
    simulation_->tick(now_);
  }

  void order_scan(std::size_t ap) {
    say(ap, "rrm-update",
        {{"rrm-scan-delay", 0},
         {"dunva-rrm-scanning", 1},
         {"rrm-scan-channels-list", Json::array({{{"2", "1 6 11"}, {"5", "36 52 100"}, {"6", "165 181"}}})}});
  }

  static Json plan(int channel, int power) {
    return {{"radios", Json::array({{{"id", 1}, {"channel", channel}, {"power", power}}})}};
  }

  Site site_;
  std::unique_ptr<Simulation> simulation_;
};

}  // namespace sim::testing
