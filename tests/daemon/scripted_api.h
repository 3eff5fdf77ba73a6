// The interface with a server that answers what a test has written down, question by question, and the controller's
// records of its access points.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "RRM.h"
#include "daemon/ActiveApStorage.h"
#include "daemon/ApiZAL.h"
#include "daemon/recording_platform.h"
#include "json/JsonReader.h"

namespace zal::testing {

class ScriptedApi final : public ApiZAL {
 public:
  using ApiZAL::ApiZAL;

  // The whole command, and the text of its answer. Only what is written down may be asked.
  void answer(const std::string& command, const std::string& text) { answers_[command] = text; }
  // The command cannot be carried out.
  void give_no_answer(const std::string& command) { answers_[command] = std::nullopt; }
  // All that was asked, in order.
  std::vector<std::string> asked;

  Answer process_cfg_command(rrm::RRM&, const rrm::JsonReader& request) override { return look_up("cfg", request); }
  Answer process_rrm_command(rrm::RRM&, const rrm::JsonReader& request) override { return look_up("rrm", request); }
  Answer process_vrrp_command(rrm::RRM&, const rrm::JsonReader& request) override { return look_up("vrrp", request); }

 private:
  Answer look_up(const std::string& family, const rrm::JsonReader& request) {
    asked.push_back("{\"" + family + "\":" + request.to_string() + "}");
    const auto found = answers_.find(asked.back());
    if (found == answers_.end()) {
      ADD_FAILURE() << "nobody expected " << asked.back();
      return std::nullopt;
    }
    if (!found->second) throw std::runtime_error("out of order");
    return found->second;
  }

  std::map<std::string, Answer> answers_;
};

class ScriptedApiTest : public ::testing::Test {
 protected:
  ScriptedApiTest() { Platform::instance().reset(); }

  void know(const std::string& mac, const std::string& ip, const std::string& location,
            const std::string& board = "NVA-3wz") {
    know_record(mac, R"({"ip":")" + ip + R"(","location":")" + location + R"(","board-type":")" + board + "\"}");
  }
  void know_record(const std::string& mac, const std::string& record) {
    storage_.update(MacAddr::from_str(mac), record);
  }
  static MacAddr mac(const std::string& text) { return MacAddr::from_str(text); }

  // Every text that a server could answer with: none, a failure of either kind, and what is no answer to the question.
  struct BadAnswer {
    const char* name;
    std::optional<std::string> text;
  };
  static std::vector<BadAnswer> failures() {
    return {{"status", R"({"version":"2.1","status":"failure"})"},
            {"error", R"({"version":"2.1","error":"domain not found"})"},
            {"error that is null", R"({"error":null})"}};
  }
  static std::vector<BadAnswer> malformed() {
    return {{"nothing", ""},       {"no JSON", "nonsense"}, {"half", R"({"domains":[{"name":"lab")"},
            {"null", "null"},      {"array", "[]"},         {"number", "7"},
            {"empty object", "{}"}};
  }

  // Nothing runs: it only stands for one that is there.
  rrm::GlobalConfig config_{"", "{}"};
  rrm::RRM server_{&config_};
  ActiveApStorage storage_;
  ScriptedApi api_{&server_, storage_};
};

}  // namespace zal::testing
