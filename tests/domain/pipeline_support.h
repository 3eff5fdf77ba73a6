// A domain whose plan is the test's own: what it answers, and when.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "domain/domain_support.h"

namespace rrm::testing {

class Pipeline : public DomainTest {
 protected:
  // A plan that answers at once, with whatever `planned` holds.
  Pipeline() {
    settings.use_80211r = false;
    optimization = [this](OptimizationContext& context, const std::atomic<bool>&) {
      seen = std::make_unique<OptimizationContext>(std::move(context));
      OptimizationResult result;
      result.radios = planned;
      result.success = success;
      result.error_message = error;
      return result;
    };
  }
  ~Pipeline() override { worker.reset(); }

  void start_with(std::initializer_list<const char*> macs, const RadioJson& radio = a_5ghz_radio()) {
    start();
    std::uint32_t session = 1;
    for (const char* mac : macs) subscribe(session++, a_subscribe(mac).with_radio(radio));
  }
  void answer_mode(std::uint32_t session, const char* mac, const RadioJson& radio = a_5ghz_radio()) {
    receive(session, a_message("rrm-mode-response", mac).with_radio(radio));
  }
  void answer_scan(std::uint32_t session, const char* mac, const RadioJson& radio = a_5ghz_radio()) {
    receive(session, a_message("rrm-response", mac).with_radio(radio).with_heard({}));
  }
  TpcDcaSubworker& pipeline() { return worker->tpc_dca(); }
  // An AP's radio 1.
  Radio& radio(const char* mac) { return ap(mac)->radios.list[1]; }
  // A plan in which the AP's radio 1 stands on this channel.
  Radios moved(const char* mac, std::int32_t channel) {
    Radios radios = ap(mac)->radios;
    radios.list[1].channel = channel;
    return radios;
  }
  static std::string ask_mode(std::uint32_t session, const std::string& mac) {
    return "SEND " + std::to_string(session) +
           R"( {"service":"rrm","version":"2.4","cmd":"rrm-request-mode","domain":"lab","ap-mac":")" + mac + R"("})";
  }
  static std::string ask_scan(std::uint32_t session, const std::string& mac, int delay, const std::string& text,
                              const std::string& list, int fast) {
    return "SEND " + std::to_string(session) +
           R"( {"service":"rrm","version":"2.4","cmd":"rrm-update","domain":"lab","ap-mac":")" + mac +
           R"(","rrm-scan-delay":)" + std::to_string(delay) + R"(,"rrm-scan-channels":")" + text +
           R"(","rrm-scan-channels-list":[)" + list + R"(],"dunva-rrm-scanning":)" + std::to_string(fast) + "}";
  }
  // What was journalled, without the lines of the tick and of the 802.11v balancer's timer.
  std::vector<std::string> told() {
    std::vector<std::string> lines = journal.take();
    std::erase_if(lines, [](const std::string& line) {
      return line.starts_with("TRACE Domain lab state") || line.starts_with("TRACE Skip optimize_clients");
    });
    return lines;
  }

  PlanResult planned;
  bool success = true;
  std::string error;
  std::unique_ptr<OptimizationContext> seen;  // by the plan
};

}  // namespace rrm::testing
