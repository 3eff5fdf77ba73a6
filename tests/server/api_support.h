// What the tests of the command interface share: a server with three domains, and a way to ask it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <initializer_list>
#include <string>

#include "Api.h"
#include "core/version.h"
#include "server/server_support.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace rrm::testing {

// "hall" in the pattern "office", "lab" and "yard" under the common settings.
inline constexpr const char* site = R"({"global":{},"common":{},
    "patterns":[{"pattern":"office","use_tpc":0,"client_max_age":40},{"pattern":"shop"}],
    "domains":[{"domain":"hall","pattern":"office","time_zone":"-2:00"},
               {"domain":"lab","pattern":"common","time_zone":"3:00"},{"domain":"yard","pattern":"common"}]})";

// A domain's settings when all have their defaults.
inline const std::string default_settings =
    R"("use_dunva_rrm_scan":1,"use_dca":1,"use_tpc":1,"use_hd_mode":1,"dca_threshold":25,"ap_rssi_threshold_2g":-70,)"
    R"("ap_rssi_threshold_5g":-70,"ap_rssi_threshold_6g":-70,"hysteresis_2g":2,"hysteresis_5g":2,"hysteresis_6g":2,)"
    R"("optimization_time":"00:00","use_optimization_time":0,"use_optimization_event":1,"away_timeout":300,)"
    R"("blacklist_thr_low":-75,"blacklist_thr_high":-65,"blacklist_timeout":30,"load_balance_sta_low":5,)"
    R"("load_balance_sta_high":20,"roam_attempt_timeout":600,"sta_load_balance_period":60,)"
    R"("load_balance_roam_count_min":2,"load_balance_roam_count_max":4,"use_all_ap_balance":0,"use_balance":1,)"
    R"("client_rssi_renew":15,"client_max_age":20,"client_try_no_balance":2,"no_balance_enterprise":0,)"
    R"("use_rrm_report":1,"report_days_to_live":93,"use_80211k":1,"use_80211r":1,"use_80211r_2g_cross_band":1,)"
    R"("use_80211v":0,"fbt_reassoc_deadline":1000,"fbt_over_ds":0)";

class ApiTest : public ::testing::Test {
 protected:
  ApiTest() { saved(); }

  // The answers as texts, "no answer" for none. The request is what stands under the family's key.
  std::string cfg(const std::string& request) {
    return text_of(api.process_cfg_command(server, JsonReader(request.c_str())));
  }
  std::string ask(const std::string& request) {
    return text_of(api.process_rrm_command(server, JsonReader(request.c_str())));
  }
  std::string vrrp(const std::string& request) {
    return text_of(api.process_vrrp_command(server, JsonReader(request.c_str())));
  }
  // The answer to a question about the server, with these members behind those of every such answer.
  std::string of_server(const std::string& members = "") const {
    return R"({"version":"2.1","server":")" + config.hostname() + R"(","morvane_version":")" + build_version + "\"" +
           (members.empty() ? "" : ",") + members + "}";
  }

  // Whether the configuration was written to its file since the last look.
  bool saved() { return std::filesystem::remove(file); }
  std::size_t restarts() const { return capture.count(std::string("MorVane version ") + build_version + " start\n"); }
  void run_domains(std::initializer_list<const char*> domains) {
    for (const char* domain : domains) server.receive(ap_message("subscribe-request", domain));
    capture.clear();
  }

  Capture capture;
  TempDir directory;
  const std::string file = directory.file("rrm.json");
  GlobalConfig config{file, site};
  TestServer server{&config};
  Api api;

 private:
  static std::string text_of(const Api::Answer& answer) { return answer.value_or("no answer"); }
};

}  // namespace rrm::testing
