// What a domain keeps in memory for each thing that it knows: an AP as it subscribed, the same AP after a scan in which
// it heard 300 neighbours, a client on a radio, and what steering remembers of a client.
//
// The APs come by the same road as in the server: their messages are read, with three radios of four networks each,
// and three scan rounds in which 100 radios of the domain and 200 strangers are heard. What is counted is what stays
// once the messages are gone: the bytes that the heap gives out, and the resident set of the process, by thousands of
// records each. What is kept is counted again before a figure is given.
#include <malloc.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Config.h"
#include "Measures.h"
#include "campus.h"
#include "json/JsonReader.h"
#include "model/ApMap.h"
#include "model/AssocMap.h"
#include "steering/ProbeRequestMap.h"
#include "steering/RrmProblist.h"
#include "tests/support/messages.h"

namespace {

using namespace rrm;
using namespace zal::bench;

constexpr std::size_t ap_count = 2000;
constexpr std::size_t radios = 3000;
constexpr std::size_t clients_each = 30;
constexpr std::size_t answers_each = 12;
constexpr int rounds = 3;
constexpr int channels[] = {6, 36, 69};
constexpr int widths[] = {20, 80, 80};

struct Memory {
  double allocated;
  double resident;
};

// Without what the heap keeps for later.
Memory memory_now() {
  malloc_trim(0);
  const struct mallinfo2 heap = mallinfo2();
  std::ifstream statm("/proc/self/statm");
  std::size_t whole = 0;
  std::size_t resident = 0;
  statm >> whole >> resident;
  return {static_cast<double>(heap.uordblks + heap.hblkhd),
          static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE))};
}

void add_per(Measures& measures, const std::string& what, std::size_t count, const Memory& before) {
  const Memory now = memory_now();
  const auto each = [&](double bytes) { return bytes / static_cast<double>(count); };
  measures.add({"allocated/" + what, each(now.allocated - before.allocated), "B"});
  measures.add({"resident/" + what, each(now.resident - before.resident), "B"});
}

void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", what);
  std::exit(EXIT_FAILURE);
}

MacAddr ap_mac(std::size_t index) {
  return MacAddr::from_number(0x001122000000 + 48 * (index % ap_count));
}
MacAddr radio_mac(std::size_t index) {
  return ap_mac(index / Radios::count).plus(static_cast<std::int32_t>(16 * (index % Radios::count)));
}
MacAddr client_mac(std::size_t index) {
  return MacAddr::from_number(0x3C0000000000 + std::uint64_t{index} * 0x9E3779B1u % (std::uint64_t{1} << 40));
}

std::string subscription(std::size_t index) {
  using namespace rrm::testing;
  MessageJson message = a_subscribe(ap_mac(index).to_string());
  for (RadioJson radio : {a_2ghz_radio(6), a_5ghz_radio(36), a_6ghz_radio(69)}) {
    for (int vap = 0; vap < 4; ++vap) radio.with_vap(vap, "network-" + std::to_string(vap));
    message.with_radio(radio);
  }
  return message.text();
}

rrm::testing::HeardJson heard(const MacAddr& bssid, std::size_t radio, std::size_t place) {
  const int level = -40 - static_cast<int>(place % 50);
  rrm::testing::HeardJson entry(bssid.to_string(), channels[radio], level);
  return entry.with("bandwidth", widths[radio]);
}

// The radios of the APs that follow, and strangers whom nobody else hears.
std::string scan_answer(std::size_t index) {
  std::vector<rrm::testing::HeardJson> round;
  for (std::size_t i = 0; i < members_heard; ++i) {
    round.push_back(heard(radio_mac(Radios::count * (index + 1) + i), i % Radios::count, i));
  }
  for (std::size_t i = 0; i < strangers_heard; ++i) {
    round.push_back(
        heard(MacAddr::from_number(0xE80000000000 + std::uint64_t{index} * strangers_heard + i), i % Radios::count, i));
  }
  rrm::testing::MessageJson message("rrm-response", ap_mac(index).to_string());
  for (int i = 0; i < rounds; ++i) message.with_heard(round);
  return message.text();
}

void subscribe(ApMap& domain, const DomainConfig& config, ChannelPools& pools, std::size_t index) {
  const std::string text = subscription(index);
  const JsonReader json(text.c_str());
  const auto ap =
      std::make_shared<ApEntry>(config, ap_mac(index), BaseSession{}, factory_from_json(json.get("factory")));
  ap->read_radios(json, pools, true, false);
  domain.insert(ap->mac, ap);
}

void answer_scan(ApMap& domain, std::size_t index) {
  const std::string text = scan_answer(index);
  const JsonReader json(text.c_str());
  ApEntry& ap = *domain.find(ap_mac(index));
  domain.fill_from_json_rf_environment(ap, json.get("rf-environment"));
  require(ap.visible_members.size() == members_heard && ap.visible_rogue.size() == strangers_heard,
          "an AP does not hear its neighbours");
  require(ap.radios.list.back().vaps.size() == 4, "a radio lacks networks");
}

void measure_aps(Measures& measures) {
  const DomainConfig config;
  ChannelPools pools;
  const Memory before = memory_now();
  ApMap domain;
  for (std::size_t i = 0; i < ap_count; ++i) subscribe(domain, config, pools, i);
  add_per(measures, "AP that subscribed", domain.size(), before);
  for (std::size_t i = 0; i < ap_count; ++i) answer_scan(domain, i);
  add_per(measures, "AP with 300 neighbours", domain.size(), before);
  const ApMap copy = domain.clone();
  add_per(measures, "AP with 300 neighbours and its copy in a plan", copy.size(), before);
}

// Every radio has clients of its own.
template <class Store, class Add, class Held>
void measure_clients(Measures& measures, const char* what, Add add, Held held) {
  std::vector<Store> stores(radios);
  const Memory before = memory_now();
  for (std::size_t i = 0; i < radios * clients_each; ++i) add(stores[i / clients_each], client_mac(i));
  for (const Store& store : stores) require(held(store) == clients_each, "a client is missing");
  add_per(measures, what, std::size_t{radios} * clients_each, before);
}

void measure_queries(Measures& measures) {
  const Memory before = memory_now();
  ProbeRequestMap queries;
  for (std::size_t i = 0; i < radios * clients_each; ++i) {
    const MacAddr client = client_mac(i);
    queries.start(client, radio_mac(i), 5, "network-1");
    for (std::size_t answer = 0; answer < answers_each; ++answer) {
      queries.put_response(client, radio_mac(i + answer), -60, "network-1");
    }
  }
  require(queries.size() == std::size_t{radios} * clients_each, "a query is missing");
  require(queries.find(client_mac(0))->responses.size() == answers_each, "an answer is missing");
  add_per(measures, "client asked after, heard by 12 radios", queries.size(), before);
}

}  // namespace

int main(int argc, char** argv) {
  Measures measures(argc, argv);
  silence_logs();
  measure_aps(measures);
  measure_clients<AssocMap>(
      measures, "associated client",
      [](AssocMap& radio, const MacAddr& client) { radio.add_client(client, -60, "network-1", false, false); },
      [](const AssocMap& radio) { return radio.clients().size(); });
  measure_clients<AssocMap>(
      measures, "client expected on a radio",
      [](AssocMap& radio, const MacAddr& client) {
        radio.add_expected(client, {radio_mac(0), 1, 5});
      },
      [](const AssocMap& radio) { return radio.expected().size(); });
  measure_clients<RrmProblist>(
      measures, "blocked client", [](RrmProblist& radio, const MacAddr& client) { radio.add(client, 60); },
      [](const RrmProblist& radio) { return radio.members().size(); });
  measure_queries(measures);
  measures.write();
  return EXIT_SUCCESS;
}
