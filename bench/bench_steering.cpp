// How what steering tells the APs grows with the site: 802.11k lists, 802.11v lists and 802.11r links, one pass over
// all APs each.
//
// The campus of campus.h with 802.11k, r and v on in all four networks. A heard list concerns the 60 radios that an AP
// hears, so a pass should double with the site. The lists of all APs and the links concern every pair of APs: what
// should stay the same is the time for each radio looked at and for each link. A link costs its place in its VAP's list
// and its share of what links have in common; the copy is the one that every optimisation makes of the domain. The
// messages are fbt-info for all APs, as a cycle that changed all links sends them: their length is what would wait for
// the sockets then.
//
// Grows along one dimension, the number of APs. Before any time is taken the links of a small site are compared with
// those of the plain version, and the neighbours of all lists are counted. Times are CPU time of the thread, the median
// of several rounds; the growth is the median of the ratios within each round. The links of 1000 APs are some 36
// million, so there is one linked site at a time.
#include <malloc.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>
#include <vector>

#include "campus.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "planning/fbt_links.h"
#include "protocol/messages.h"
#include "steering/transition_lists.h"
#include "tests/planning/plain_fbt_links.h"

namespace {

using namespace rrm;
using namespace zal::bench;

constexpr int link_rounds = 3;
constexpr int sizes[] = {250, 500, 1000};

ApMap make_steered_campus(const DomainConfig& config, int count) {
  ApMap site = make_campus(config, count);
  for (const auto& [mac, ap] : site) {
    for (Radio& radio : ap->radios.list) {
      for (auto& [ssid, vap] : radio.vaps) vap.use_802dot11k = vap.use_802dot11r = vap.use_802dot11v = true;
    }
  }
  return site;
}

DomainConfig settings(bool use_80211k, bool use_80211v) {
  DomainConfig config;
  config.use_80211k = use_80211k;
  config.use_80211v = use_80211v;
  config.use_all_ap_balance = false;
  return config;
}

// Lists

constexpr int heard_radios = 60;

struct Lists {
  const char* name;
  int rounds;
  DomainConfig config;
  std::function<void(const ApMap&, const ApEntry&, JsonWriter&)> write;
  bool all = false;           // other APs, heard or not
  int listed = heard_radios;  // neighbours in each list
};

double radios_looked_at(const Lists& lists, int count) {
  return static_cast<double>(count) * (lists.all ? 3.0 * (count - 1) : heard_radios);
}

JsonWriter list_of(const Lists& lists, const ApMap& site, const ApEntry& ap) {
  JsonWriter message;
  JsonWriter array = JsonWriter::array(message, "802dot11k");
  lists.write(site, ap, array);
  return message;
}

void check_lists(const Lists& lists, const ApMap& site) {
  for (const auto& [mac, ap] : site) {
    const int listed = JsonReader(list_of(lists, site, *ap).to_string()).get_array("802dot11k").size();
    if (listed == lists.listed) continue;
    std::fprintf(stderr, "%s: a list of %d neighbours instead of %d\n", lists.name, listed, lists.listed);
    std::exit(EXIT_FAILURE);
  }
}

// CPU milliseconds for the lists of all APs, as texts; `bytes` is their length.
double time_lists(const Lists& lists, const ApMap& site, std::size_t& bytes) {
  StopWatch watch;
  bytes = 0;
  for (const auto& [mac, ap] : site) bytes += std::string_view(list_of(lists, site, *ap).to_string()).size();
  return watch.lap();
}

void bench_lists(const Lists& lists) {
  std::vector<ApMap> sites;
  for (const int count : sizes) {
    sites.push_back(make_steered_campus(lists.config, count));
    check_lists(lists, sites.back());
  }
  std::vector<std::vector<double>> times(sites.size());
  std::vector<std::size_t> bytes(sites.size());
  for (int round = 0; round < lists.rounds; ++round) {
    for (std::size_t i = 0; i < sites.size(); ++i) times[i].push_back(time_lists(lists, sites[i], bytes[i]));
  }
  for (std::size_t i = 0; i < sites.size(); ++i) {
    const double time = median(times[i]);
    std::printf("%-16s %5d %8d %10.2f %13.1f %12.1f", lists.name, sizes[i], lists.listed, time,
                1e6 * time / radios_looked_at(lists, sizes[i]), static_cast<double>(bytes[i]) / 1024 / sizes[i]);
    if (i > 0) {
      std::vector<double> ratios;
      for (std::size_t round = 0; round < times[i].size(); ++round) {
        ratios.push_back(times[i][round] / times[i - 1][round]);
      }
      std::printf("   x %.2f", median(ratios));
    }
    std::printf("\n");
  }
}

// Links

std::size_t count_links(const ApMap& site) {
  std::size_t links = 0;
  for (const auto& [mac, ap] : site) {
    for (const Radio& radio : ap->radios.list) {
      for (const auto& [ssid, vap] : radio.vaps) links += vap.fbt_links.size();
    }
  }
  return links;
}

double allocated_bytes() {
  const struct mallinfo2 info = mallinfo2();
  return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

struct LinkRun {
  double first = 0;
  double steady = 0;
  double messages = 0;
  double message_bytes = 0;
  double copy = 0;
  double bytes = 0;
  double copy_bytes = 0;
  std::size_t links = 0;
};

LinkRun run_links(const DomainConfig& config, int count) {
  LinkRun run;
  ApMap site = make_steered_campus(config, count);
  fill_key_holders(site, false);
  malloc_trim(0);
  const double before = allocated_bytes();
  StopWatch watch;
  const bool linked = update_fbt_links(site, config, false);
  run.first = watch.lap();
  run.bytes = allocated_bytes() - before;
  for (const auto& [mac, ap] : site) ap->fbt_changed = false;
  watch.lap();
  const bool changed = update_fbt_links(site, config, false);
  run.steady = watch.lap();
  run.links = count_links(site);
  if (!linked || changed || run.links != 36u * static_cast<std::size_t>(count) * static_cast<std::size_t>(count - 1)) {
    std::fprintf(stderr, "the links of %d APs are not complete after one pass\n", count);
    std::exit(EXIT_FAILURE);
  }
  const double linked_bytes = allocated_bytes();
  watch.lap();
  const ApMap copy = site.clone();
  run.copy = watch.lap();
  run.copy_bytes = allocated_bytes() - linked_bytes;
  watch.lap();
  for (const auto& [mac, ap] : site) {
    const JsonWriter message = protocol::fbt_info(*ap, site, config);
    run.message_bytes += static_cast<double>(std::string_view(message.to_string()).size());
  }
  run.messages = watch.lap();
  return run;
}

double median_of(const std::vector<LinkRun>& runs, double LinkRun::*value) {
  std::vector<double> values;
  for (const LinkRun& run : runs) values.push_back(run.*value);
  return median(values);
}

void bench_links(const DomainConfig& config) {
  for (const int count : sizes) {
    std::vector<LinkRun> runs;
    for (int round = 0; round < link_rounds; ++round) runs.push_back(run_links(config, count));
    const auto links = static_cast<double>(runs.front().links);
    const double first = median_of(runs, &LinkRun::first);
    const double steady = median_of(runs, &LinkRun::steady);
    const double bytes = median_of(runs, &LinkRun::bytes);
    std::printf("%5d %11.0f %9.0f %8.1f %10.0f %9.1f %8.1f %9.1f %9.1f %9.1f %11.0f %8.1f\n", count, links, first,
                1e6 * first / links, steady, 1e6 * steady / links, bytes / links, bytes / 1048576,
                median_of(runs, &LinkRun::copy), median_of(runs, &LinkRun::copy_bytes) / 1048576,
                median_of(runs, &LinkRun::messages), median_of(runs, &LinkRun::message_bytes) / 1048576);
  }
}

bool same_as_plain(const DomainConfig& config, int count) {
  ApMap ours = make_steered_campus(config, count);
  fill_key_holders(ours, false);
  ApMap plain = ours.clone();
  update_fbt_links(ours, config, false);
  testing::plain_update_fbt_links(plain, config, false);
  return testing::describe_links(ours) == testing::describe_links(plain);
}

}  // namespace

int main() {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  silence_logs();
  if (!same_as_plain(DomainConfig(), 20)) {
    std::fprintf(stderr, "the links of a site of 20 APs differ from the plain version's\n");
    return EXIT_FAILURE;
  }
  const auto write_11k = [](const ApMap& aps, const ApEntry& ap, JsonWriter& array) {
    aps.write_802dot11k(ap, array, ap.visible_members);
  };
  const auto write_11v = [](const ApMap& aps, const ApEntry& ap, JsonWriter& array) {
    write_transition_list(aps, ap, *ap.config, array);
  };
  std::printf("lists              APs   listed         ms  ns per radio   KiB per AP   growth\n");
  bench_lists({"802.11k heard", 9, settings(true, false), write_11k});
  bench_lists({"802.11v heard", 9, settings(false, true), write_11v});
  // Of each network and radio number a list takes so many.
  bench_lists({"802.11v all", 3, settings(true, true), write_11v, true, 3 * transition_list_limit});
  std::printf("\n");
  std::printf(
      "  APs       links  first ms  ns each  steady ms   ns each   B each       MiB   copy ms  copy MiB messages ms    "
      " "
      " MiB\n");
  bench_links(settings(true, true));
  return EXIT_SUCCESS;
}
