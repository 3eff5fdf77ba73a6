// A site whose clients are steered, and what its APs say of them. Four APs on the sessions 1 to 4, each with radio 0 on
// 2.4 GHz, 1 on 5 GHz and 2 on 6 GHz, all with "office":
//
//   C  hears  A  <- hear each other ->  B        D  hears nobody, and nobody hears it
//
// No plan is made, and the first blacklists have been sent, when a test begins.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "BlacklistSubworker.h"
#include "LoadBalancerSubworker.h"
#include "domain/domain_support.h"
#include "support/builders.h"

namespace rrm::testing {

inline const char* const ap_a = "00:11:22:33:0A:00";
inline const char* const ap_b = "00:11:22:33:0B:00";
inline const char* const ap_c = "00:11:22:33:0C:00";
inline const char* const ap_d = "00:11:22:33:0D:00";

// The client, as it is sent and as it is told.
inline const char* const phone = "0a:00:00:00:00:01";
inline const char* const phone_told = "0A:00:00:00:00:01";

inline std::uint32_t session_of(const char* ap) {
  return static_cast<std::uint32_t>(mac(ap).to_number() >> 8 & 0xf) - 9;
}

// With the default pools.
inline std::string radio_mac(const char* ap, std::int32_t radio) {
  return mac(ap).plus(16 * radio).to_string();
}

// What an AP says of the client.
inline MessageJson client_message(const char* cmd, const char* ap, int radio) {
  return a_message(cmd, ap).with("radio", radio).with("sta-mac", phone).with("ssid", "office");
}
inline MessageJson associated(const char* ap, int radio, int rssi) {
  return client_message("rrm-client-assoc", ap, radio).with("rssi", rssi).with("no-balance", 0).with("need-ack", 1);
}
inline MessageJson left(const char* ap, int radio) {
  return client_message("rrm-client-disassoc", ap, radio);
}
inline MessageJson all_left(const char* ap) {
  return a_message("rrm-disassoc-all-clients", ap);
}
inline MessageJson level(const char* ap, int radio, int rssi) {
  return client_message("rrm-assoc-state-changed", ap, radio).with("rssi", rssi).with("state", "stable");
}

// What radios heard of a client.
inline std::string heard_entry(int rssi, const char* station = phone, const char* ssid = "office") {
  ObjectText entry;
  entry.set("mac", std::string(station));
  entry.set("ssid", std::string(ssid));
  entry.set("rssi", rssi);
  return entry.text();
}
inline std::string heard_by(int radio, const std::vector<std::string>& entries) {
  ObjectText element;
  element.set("id", radio);
  element.set_raw("probe-list", array_text(entries));
  return element.text();
}
inline MessageJson probe_response(const char* ap, const std::vector<std::string>& radios) {
  return a_message("rrm-probe-response", ap).with_raw("radios", array_text(radios));
}
inline MessageJson heard(const char* ap, int radio, int rssi) {
  return probe_response(ap, {heard_by(radio, {heard_entry(rssi)})});
}

// What an AP is told, as the journal has it.
inline std::string told_ap(const char* ap, const std::string& text) {
  return "SEND " + std::to_string(session_of(ap)) + R"( {"service":"rrm","version":"2.4","cmd":")" + text;
}
inline std::string told_radios(const char* ap, const char* cmd, const std::vector<std::string>& radios) {
  return told_ap(
      ap, std::string(cmd) + R"(","ap-mac":")" + ap + R"(","domain":"lab","radios":)" + array_text(radios) + "}");
}
inline std::string acknowledged(const char* ap, int radio) {
  return told_ap(ap, R"(rrm-client-assoc-ack","domain":"lab","ap-mac":")" + std::string(ap) + R"(","sta-mac":")" +
                         phone_told + R"(","radio":)" + std::to_string(radio) + R"(,"ssid":"office"})");
}
inline std::string asked(const char* ap, const std::vector<int>& radios) {
  std::vector<std::string> list;
  for (const int radio : radios) {
    list.push_back(R"({"id":)" + std::to_string(radio) + R"(,"probe-list":[{"ssid":"office","mac":")" + phone_told +
                   R"(","timeout":0}]})");
  }
  return told_radios(ap, "rrm-probe-request", list);
}
// A radio's lists of one client each.
inline std::string block(int radio) {
  return R"({"id":)" + std::to_string(radio) + R"(,"blacklist":[{"mac":")" + phone_told +
         R"(","action":"block","timeout":30}]})";
}
inline std::string unblock(int radio) {
  return R"({"id":)" + std::to_string(radio) + R"(,"blacklist":[{"mac":")" + phone_told + R"(","action":"unblock"}]})";
}
inline std::string blacklisted(const char* ap, const std::vector<std::string>& radios) {
  return told_radios(ap, "rrm-blacklist", radios);
}
inline std::string ordered_off(const char* ap, int radio) {
  return told_radios(ap, "rrm-disassoc-request",
                     {R"({"id":)" + std::to_string(radio) + R"(,"diassoc-list":[{"mac":")" + phone_told +
                      R"(","ssid":"office","timeout":30}]})"});
}

class SteeringTest : public DomainTest {
 protected:
  SteeringTest() { settings.force_delay = 100000; }

  void start_site() {
    start();
    subscribe_site();
    advance(10);
    journal.take();
  }
  void subscribe_site() {
    for (const char* each : {ap_a, ap_b, ap_c, ap_d}) {
      subscribe(session_of(each), a_subscribe(each)
                                      .with_radio(a_2ghz_radio().with_vap(0, "office"))
                                      .with_radio(a_5ghz_radio().with_vap(0, "office"))
                                      .with_radio(a_6ghz_radio().with_vap(0, "office")));
    }
    hears(ap_a, ap_b);
    hears(ap_b, ap_a);
    hears(ap_c, ap_a);
  }
  // A client at the edge of ap_a, about which ap_b and ap_c have been asked.
  void start_query() {
    start_site();
    tell(associated(ap_a, 1, -80));
    ASSERT_THAT(sent(), ::testing::ElementsAre(asked(ap_b, {1}), asked(ap_c, {1})));
  }

  void hears(const char* listener, const char* other) {
    ap(listener)->visible_members.insert(mac(radio_mac(other, 1)), a_neighbour(-60, 36));
  }

  Radio& radio(const char* own, std::size_t id) { return ap(own)->radios.list[id]; }
  // So many other clients of a radio.
  void crowd(const char* own, std::size_t id, std::int32_t count) {
    for (std::int32_t i = 1; i <= count; ++i) {
      radio(own, id).assoc.add_client(MacAddr::from_number(0x0a0000010000 + static_cast<std::uint64_t>(i)), -60,
                                      "office", false, false);
    }
  }
  bool has_client(const char* own, std::size_t id) { return radio(own, id).assoc.find_client(mac(phone)) != nullptr; }
  bool is_expected(const char* own, std::size_t id) {
    return radio(own, id).assoc.find_expected(mac(phone)) != nullptr;
  }
  void expect_client(const char* own, std::size_t id) {
    radio(own, id).assoc.add_expected(mac(phone), {mac(ap_d), 1, 30});
  }
  bool is_member(const char* own, std::size_t id) { return radio(own, id).problist.members().contains(mac(phone)); }

  void tell(const MessageJson& message) { receive(1, message); }
  // The same within a pass that has not ended.
  void tell_within_pass(const MessageJson& message) { process(1, message.text()); }

  // Balancing is paused while the plan measures.
  void lock_balancing(bool lock) {
    locked([lock](RrmWorker& lab) { lab.set_load_balancer_lock(lock); });
  }
  // It did not answer in the present cycle.
  void fall_silent(const char* own) {
    for (const auto& [key, each] : aps()) each->active = key != mac(own);
    ASSERT_EQ(aps().move_inactive_to(unanswered_aps(), 30), 1u);
  }

  // What was journalled, without the tick's line and the lines of the worker's own way to its sub-workers.
  std::vector<std::string> told() {
    std::vector<std::string> lines = journal.take();
    std::erase_if(lines, [](const std::string& line) {
      return line.starts_with("TRACE Domain lab state") || line.starts_with("TRACE process_message ");
    });
    return lines;
  }
  // What was sent, all of it or of one command.
  std::vector<std::string> sent(const std::string& cmd = "") {
    std::vector<std::string> lines = journal.take();
    const std::string wanted = R"("cmd":")" + cmd;
    std::erase_if(lines, [&](const std::string& line) {
      return !line.starts_with("SEND") || line.find(wanted) == std::string::npos;
    });
    return lines;
  }
};

}  // namespace rrm::testing
