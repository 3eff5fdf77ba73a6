// How what steering tells the APs grows with the site: 802.11k lists, 802.11v lists and 802.11r links, one pass over
// all APs each.
//
// The campus of campus.h with 802.11k, r and v on in all four networks. A list of what is heard concerns the 100 radios
// of the domain that an AP hears, so a pass should double with the site; the list of all APs and the links concern
// every pair of APs, so a pass is quadratic. What should stay the same is the time for each radio looked at and for
// each link. A link costs its place in its VAP's list and its share of what links have in common; the copy is the one
// that every optimisation makes of the domain. The messages are fbt-info, as a cycle that changed all links sends them
// to every AP; some of the APs are asked for theirs.
//
// Grows along one dimension, the number of APs. Before any time is taken the links of a small site are compared with
// those of the plain version, and the neighbours of some lists at every size are counted. Times are CPU time of the
// thread, the median of several rounds over all sizes; the growth is the median of the ratios within each round. The
// links of 1000 APs are some 36 million and take a gigabyte with their copy, so there is one linked site at a time, and
// none larger.
#include <malloc.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Measures.h"
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

constexpr int rounds = 3;
constexpr const char* flat = "1.1";  // growth of the time for one thing when the site doubles

// What was measured at one size, round by round.
struct Series {
  int count;
  std::vector<double> values;
};

double median_ratio(const Series& smaller, const Series& larger) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < larger.values.size(); ++i) ratios.push_back(larger.values[i] / smaller.values[i]);
  return median(ratios);
}

void add_series(Measures& measures, const std::string& what, const char* unit, const std::vector<Series>& sizes) {
  for (const Series& size : sizes) {
    measures.add({what + "/" + std::to_string(size.count) + " APs", median(size.values), unit});
  }
}

void add_growth(Measures& measures, const std::string& what, const std::vector<Series>& sizes) {
  for (std::size_t i = 1; i < sizes.size(); ++i) {
    const std::string size = std::to_string(sizes[i].count);
    measures.add({"growth of " + what + "/" + size + " APs", median_ratio(sizes[i - 1], sizes[i]), "x", {}, flat});
  }
}

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

constexpr int heard_radios = static_cast<int>(members_heard);

struct Lists {
  const char* name;
  DomainConfig config;
  std::vector<int> sizes;
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

// Of some APs all over the site.
void check_lists(const Lists& lists, const ApMap& site) {
  std::size_t place = 0;
  for (const auto& [mac, ap] : site) {
    if (place++ % 16 != 0) continue;
    const int listed = JsonReader(list_of(lists, site, *ap).to_string()).get_array("802dot11k").size();
    if (listed == lists.listed) continue;
    std::fprintf(stderr, "%s: a list of %d neighbours instead of %d\n", lists.name, listed, lists.listed);
    std::exit(EXIT_FAILURE);
  }
}

// CPU nanoseconds for each radio looked at, when the lists of all APs are written as texts.
double time_lists(const Lists& lists, const ApMap& site) {
  StopWatch watch;
  std::size_t bytes = 0;
  for (const auto& [mac, ap] : site) bytes += std::string_view(list_of(lists, site, *ap).to_string()).size();
  const double time = watch.lap();
  if (bytes == 0) std::exit(EXIT_FAILURE);
  return 1e6 * time / radios_looked_at(lists, static_cast<int>(site.size()));
}

void bench_lists(Measures& measures, const Lists& lists) {
  std::vector<ApMap> sites;
  std::vector<Series> times;
  for (const int count : lists.sizes) {
    sites.push_back(make_steered_campus(lists.config, count));
    check_lists(lists, sites.back());
    times.push_back({count, {}});
  }
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sites.size(); ++i) times[i].values.push_back(time_lists(lists, sites[i]));
  }
  add_series(measures, std::string(lists.name) + ", a radio looked at", "ns", times);
  add_growth(measures, lists.name, times);
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

// Of each link: CPU nanoseconds, bytes.
struct LinkRun {
  double first = 0;
  double steady = 0;
  double copy = 0;
  double message = 0;
  double bytes = 0;
  double copy_bytes = 0;
  double message_bytes = 0;
};

// Requires: all VAPs of a network are linked.
void time_messages(LinkRun& run, const ApMap& site, const DomainConfig& config) {
  constexpr std::size_t one_in = 8;
  std::size_t place = 0;
  double links = 0;
  StopWatch watch;
  for (const auto& [mac, ap] : site) {
    if (place++ % one_in != 0) continue;
    const JsonWriter message = protocol::fbt_info(*ap, site, config);
    run.message_bytes += static_cast<double>(std::string_view(message.to_string()).size());
    links += 36.0 * static_cast<double>(site.size() - 1);
  }
  run.message = 1e6 * watch.lap() / links;
  run.message_bytes /= links;
}

LinkRun run_links(const DomainConfig& config, int count) {
  LinkRun run;
  ApMap site = make_steered_campus(config, count);
  fill_key_holders(site, false);
  malloc_trim(0);
  const std::size_t wanted = 36 * static_cast<std::size_t>(count) * static_cast<std::size_t>(count - 1);
  const auto links = static_cast<double>(wanted);
  const double before = allocated_bytes();
  StopWatch watch;
  const bool linked = update_fbt_links(site, config, false);
  run.first = 1e6 * watch.lap() / links;
  run.bytes = (allocated_bytes() - before) / links;
  for (const auto& [mac, ap] : site) ap->fbt_changed = false;
  watch.lap();
  const bool changed = update_fbt_links(site, config, false);
  run.steady = 1e6 * watch.lap() / links;
  if (!linked || changed || count_links(site) != wanted) {
    std::fprintf(stderr, "the links of %d APs are not complete after one pass\n", count);
    std::exit(EXIT_FAILURE);
  }
  const double linked_bytes = allocated_bytes();
  watch.lap();
  const ApMap copy = site.clone();
  run.copy = 1e6 * watch.lap() / links;
  run.copy_bytes = (allocated_bytes() - linked_bytes) / links;
  time_messages(run, site, config);
  return run;
}

std::vector<Series> series_of(const std::vector<int>& sizes, const std::vector<std::vector<LinkRun>>& runs,
                              double LinkRun::*value) {
  std::vector<Series> series;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    Series& size = series.emplace_back(Series{sizes[i], {}});
    for (const LinkRun& run : runs[i]) size.values.push_back(run.*value);
  }
  return series;
}

void bench_links(Measures& measures, const DomainConfig& config) {
  const std::vector<int> sizes{125, 250, 500, 1000};
  std::vector<std::vector<LinkRun>> runs(sizes.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sizes.size(); ++i) runs[i].push_back(run_links(config, sizes[i]));
  }
  const auto add = [&](const std::string& what, double LinkRun::*time, double LinkRun::*bytes = nullptr) {
    add_series(measures, what + ", a link", "ns", series_of(sizes, runs, time));
    if (bytes != nullptr) add_series(measures, what + ", a link", "B", series_of(sizes, runs, bytes));
    add_growth(measures, what, series_of(sizes, runs, time));
  };
  add("first update of the links", &LinkRun::first, &LinkRun::bytes);
  add("update that changes nothing", &LinkRun::steady);
  add("copy of a linked site", &LinkRun::copy, &LinkRun::copy_bytes);
  add("fbt-info", &LinkRun::message, &LinkRun::message_bytes);
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

int main(int argc, char** argv) {
  Measures measures(argc, argv);
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
  const std::vector<int> linear{250, 500, 1000, 2000};
  const std::vector<int> quadratic{125, 250, 500};
  bench_lists(measures, {"802.11k list, heard", settings(true, false), linear, write_11k});
  bench_lists(measures, {"802.11v list, heard", settings(false, true), linear, write_11v});
  // Of each network and radio number a list takes so many.
  const int listed = static_cast<int>(Radios::count) * transition_list_limit;
  bench_lists(measures, {"802.11v list, all APs", settings(true, true), quadratic, write_11v, true, listed});
  bench_links(measures, settings(true, true));
  measures.write();
  return EXIT_SUCCESS;
}
