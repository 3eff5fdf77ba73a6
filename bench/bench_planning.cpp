// How a planning run grows with the site: deep copy, two channel passes, power run, as the optimisation thread does
// them.
//
// The site imitates an office campus: APs on a square grid 12 m apart, three radios each (2.4 GHz at 20 MHz, 5 GHz and
// 6 GHz at 80 MHz) with four networks, addresses numbered serially out of one block. Every AP hears the radios of its
// 20 nearest neighbours, 60 entries, at levels of a log-distance model with a fixed shadow per pair, and six strangers.
// Every radio stands off its list at first, so in the first pass every radio moves. The seed is fixed.
//
// Grows along one dimension, the number of APs. Before any time is taken the plan of a small site is compared with that
// of the plain version. Times are CPU time of the thread, the median of several rounds over all sizes; the growth is
// the median of the ratios within each round.
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "core/log.h"
#include "planning/dca.h"
#include "planning/tpc.h"
#include "tests/planning/describe.h"
#include "tests/planning/plain_dca.h"
#include "tests/planning/plain_tpc.h"

namespace {

using namespace rrm;

constexpr std::size_t neighbours_heard = 20;
constexpr double metres_apart = 12;
constexpr int rounds = 15;
constexpr int sizes[] = {125, 250, 500, 1000, 2000};

const ChannelSet channels_24{1, 6, 11};
const ChannelSet channels_5{36,  40,  44,  48,  52,  56,  60,  64,  100, 104, 108, 112,
                            116, 120, 124, 128, 132, 136, 140, 149, 153, 157, 161};

ChannelSet channels_6() {
  std::vector<std::int32_t> channels;
  for (std::int32_t channel = 169; channel <= 221; channel += 4) channels.push_back(channel);
  return ChannelSet(channels);
}

struct Position {
  double x;
  double y;
};

double distance(const Position& a, const Position& b) {
  return std::hypot(a.x - b.x, a.y - b.y);
}

std::vector<Position> grid(int count) {
  const int side = static_cast<int>(std::ceil(std::sqrt(count)));
  std::vector<Position> positions;
  for (int i = 0; i < count; ++i) positions.push_back({metres_apart * (i % side), metres_apart * (i / side)});
  return positions;
}

std::vector<std::size_t> nearest_of(const std::vector<Position>& positions, std::size_t self) {
  std::vector<std::size_t> order;
  for (std::size_t i = 0; i < positions.size(); ++i) {
    if (i != self) order.push_back(i);
  }
  const auto wanted = order.begin() + static_cast<std::ptrdiff_t>(std::min(neighbours_heard, order.size()));
  std::partial_sort(order.begin(), wanted, order.end(), [&](std::size_t a, std::size_t b) {
    const double da = distance(positions[self], positions[a]);
    const double db = distance(positions[self], positions[b]);
    return da != db ? da < db : a < b;
  });
  order.erase(wanted, order.end());
  return order;
}

void set_up_radio(Radio& radio, std::int32_t band, std::int32_t channel, std::int32_t width,
                  const ChannelSet& permitted) {
  radio.status = true;
  radio.band = band;
  radio.channel = channel;
  radio.bandwidth = width;
  radio.available_channels = permitted;
  radio.power = 20;
  radio.power_min = 5;
  radio.power_max = 23;
  for (std::int32_t id = 0; id < 4; ++id) {
    VapEntry vap;
    vap.id = id;
    vap.ssid = "network-" + std::to_string(id);
    vap.mac = radio.mac.plus(id);
    radio.vaps.insert(vap);
  }
}

std::shared_ptr<ApEntry> make_ap(const DomainConfig& config, std::uint64_t index) {
  const MacAddr mac = MacAddr::from_number(0x001122000000 + 48 * index);
  auto ap = std::make_shared<ApEntry>(config, mac, BaseSession{}, ApFactory{"NVA-3K", "1.0", "SN", mac});
  ap->radios.received = true;
  set_up_radio(ap->radios.list[0], 2, 3, 20, channels_24);
  set_up_radio(ap->radios.list[1], 5, 165, 80, channels_5);
  set_up_radio(ap->radios.list[2], 6, 233, 80, channels_6());
  return ap;
}

Neighbour heard(const Radio& radio, double level) {
  Neighbour neighbour;
  neighbour.rssi = static_cast<std::int32_t>(level);
  neighbour.channel = radio.channel;
  neighbour.band = radio.band;
  neighbour.bandwidth = radio.bandwidth;
  neighbour.primary = 256;
  return neighbour;
}

// Uniform in [0, count); the standard distributions differ between libraries.
std::uint32_t pick(std::mt19937& random, std::uint32_t count) {
  return static_cast<std::uint32_t>(random() % count);
}

void hear_strangers(ApEntry& ap, std::mt19937& random) {
  for (int i = 0; i < 6; ++i) {
    const Radio& like = ap.radios.list[pick(random, 3)];
    const double level = -60 - static_cast<double>(pick(random, 35));
    Neighbour stranger = heard(like, level);
    const auto& permitted = like.available_channels;
    stranger.channel = permitted.begin()[pick(random, static_cast<std::uint32_t>(permitted.size()))];
    ap.visible_rogue.insert(MacAddr::from_number(0xEE0000000000 + random()), stranger);
  }
}

// The settings must outlive the site.
ApMap make_site(const DomainConfig& config, int count) {
  std::mt19937 random(20240229);
  const std::vector<Position> positions = grid(count);
  std::vector<std::shared_ptr<ApEntry>> aps;
  for (int i = 0; i < count; ++i) aps.push_back(make_ap(config, static_cast<std::uint64_t>(i)));
  ApMap site;
  for (std::size_t i = 0; i < aps.size(); ++i) {
    for (const std::size_t other : nearest_of(positions, i)) {
      const double shadow = static_cast<double>(pick(random, 9)) - 4;
      const double level = -30 - 32 * std::log10(distance(positions[i], positions[other])) + shadow;
      for (const Radio& radio : aps[other]->radios.list) aps[i]->visible_members.insert(radio.mac, heard(radio, level));
    }
    hear_strangers(*aps[i], random);
    site.insert(aps[i]->mac, aps[i]);
  }
  return site;
}

double cpu_milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

struct Times {
  double copy = 0;
  double pass_1 = 0;
  double pass_2 = 0;
  double power = 0;
  double total() const { return copy + pass_1 + pass_2 + power; }
};

class StopWatch {
 public:
  double lap() {
    const double now = cpu_milliseconds();
    return now - std::exchange(last_, now);
  }

 private:
  double last_ = cpu_milliseconds();
};

struct Run {
  Times times;
  ChannelPassSummary first;
  ChannelPassSummary second;
  PowerRunSummary power;
};

// Every run starts without memory left over from an earlier one, so that all sizes pay for theirs alike.
Run plan(const ApMap& site, const DomainConfig& config) {
  malloc_trim(0);
  Run run;
  PlanResult channels;
  PlanResult power;
  SpectrumTable table;
  StopWatch watch;
  ApMap copy = site.clone();
  run.times.copy = watch.lap();
  run.first = run_dca_pass(table, copy, config, channels);
  run.times.pass_1 = watch.lap();
  run.second = run_dca_pass(table, copy, config, channels);
  run.times.pass_2 = watch.lap();
  run.power = run_tpc(copy, config, power);
  run.times.power = watch.lap();
  return run;
}

bool same_as_plain(int count) {
  const DomainConfig config;
  ApMap ours = make_site(config, count);
  ApMap plain = ours.clone();
  PlanResult our_results;
  PlanResult plain_results;
  SpectrumTable table;
  testing::PlainTable plain_table;
  for (int pass = 0; pass < 2; ++pass) {
    run_dca_pass(table, ours, config, our_results);
    testing::plain_dca_pass(plain_table, plain, config, plain_results);
  }
  run_tpc(ours, config, our_results);
  testing::plain_tpc(plain, config, plain_results);
  return testing::describe_radios(ours) == testing::describe_radios(plain) &&
         testing::describe(our_results) == testing::describe(plain_results);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double median_of(const std::vector<Run>& runs, double (*value)(const Times&)) {
  std::vector<double> values;
  for (const Run& run : runs) values.push_back(value(run.times));
  return median(values);
}

// Size against size within each round, so that whatever slows the machine down for a while slows both.
double growth(const std::vector<Run>& smaller, const std::vector<Run>& larger) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < larger.size(); ++i) ratios.push_back(larger[i].times.total() / smaller[i].times.total());
  return median(ratios);
}

void print_row(int count, const std::vector<Run>& runs, const std::vector<Run>* smaller) {
  std::printf(
      "%5d %6d %9.2f %9.2f %9.2f %9.2f %9.2f", count, 3 * count, median_of(runs, [](const Times& t) { return t.copy; }),
      median_of(runs, [](const Times& t) { return t.pass_1; }),
      median_of(runs, [](const Times& t) { return t.pass_2; }), median_of(runs, [](const Times& t) { return t.power; }),
      median_of(runs, [](const Times& t) { return t.total(); }));
  smaller != nullptr ? std::printf("   x %.2f", growth(*smaller, runs)) : std::printf("         ");
  const Run& run = runs.front();
  std::printf("   moved %zu + %zu, lowered %zu, raised %zu\n", run.first.moved, run.second.moved, run.power.lowered,
              run.power.raised);
}

void silent(const char*, int, const char*, int, const char*, va_list) {}

}  // namespace

int main() {
  set_log_hook(silent);
  if (!same_as_plain(100)) {
    std::fprintf(stderr, "the plan of a site of 100 APs differs from the plain version's\n");
    return EXIT_FAILURE;
  }
  const DomainConfig config;
  std::vector<ApMap> sites;
  for (const int count : sizes) sites.push_back(make_site(config, count));

  std::vector<std::vector<Run>> runs(sites.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < sites.size(); ++i) runs[i].push_back(plan(sites[i], config));
  }
  std::printf("  APs radios   copy ms pass 1 ms pass 2 ms  power ms  total ms   growth\n");
  for (std::size_t i = 0; i < sites.size(); ++i) {
    if (runs[i].front().first.moved != 3 * sites[i].size()) {
      std::fprintf(stderr, "not every radio moved in the first pass\n");
      return EXIT_FAILURE;
    }
    print_row(sizes[i], runs[i], i == 0 ? nullptr : &runs[i - 1]);
  }
  return EXIT_SUCCESS;
}
