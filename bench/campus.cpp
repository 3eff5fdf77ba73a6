#include "campus.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>

#include "core/log.h"

namespace zal::bench {
namespace {

using namespace rrm;

// An AP hears all three radios of so many neighbours, and of one more the one at 2.4 GHz, which carries farthest.
constexpr std::size_t heard_whole = (members_heard - 1) / 3;
static_assert(3 * heard_whole + 1 == members_heard);
constexpr double metres_apart = 12;

const ChannelSet channels_24{1, 6, 11};
const ChannelSet channels_5{36,  40,  44,  48,  52,  56,  60,  64,  100, 104, 108, 112,
                            116, 120, 124, 128, 132, 136, 140, 149, 153, 157, 161};

ChannelSet channels_6() {
  std::vector<std::int32_t> channels;
  for (std::int32_t channel = 169; channel <= 221; channel += 4) channels.push_back(channel);
  return ChannelSet(channels);
}

struct Place {
  int column;
  int row;
};

int square_distance(const Place& a, const Place& b) {
  const int columns = a.column - b.column;
  const int rows = a.row - b.row;
  return columns * columns + rows * rows;
}

double metres(const Place& a, const Place& b) {
  return metres_apart * std::sqrt(square_distance(a, b));
}

std::vector<Place> grid(int count) {
  const int side = static_cast<int>(std::ceil(std::sqrt(count)));
  std::vector<Place> places;
  for (int i = 0; i < count; ++i) places.push_back({i % side, i / side});
  return places;
}

// Nearest first, of several as near the first.
std::vector<std::size_t> nearest_of(const std::vector<Place>& places, std::size_t self, std::size_t count) {
  std::vector<std::pair<int, std::size_t>> order;
  for (std::size_t i = 0; i < places.size(); ++i) {
    if (i != self) order.emplace_back(square_distance(places[self], places[i]), i);
  }
  const auto wanted = order.begin() + static_cast<std::ptrdiff_t>(std::min(count, order.size()));
  std::partial_sort(order.begin(), wanted, order.end());
  std::vector<std::size_t> nearest;
  std::transform(order.begin(), wanted, std::back_inserter(nearest), [](const auto& other) { return other.second; });
  return nearest;
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

Neighbour as_heard_at(double level, const Radio& radio) {
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

void hear_members(ApEntry& ap, const std::vector<Place>& places, std::size_t self,
                  const std::vector<std::shared_ptr<ApEntry>>& aps, std::mt19937& random) {
  std::vector<NeighbourMap::value_type> heard;
  for (const std::size_t other : nearest_of(places, self, heard_whole + 1)) {
    const double shadow = static_cast<double>(pick(random, 9)) - 4;
    const double level = -30 - 32 * std::log10(metres(places[self], places[other])) + shadow;
    for (const Radio& radio : aps[other]->radios.list) {
      if (heard.size() < members_heard) heard.emplace_back(radio.mac, as_heard_at(level, radio));
    }
  }
  ap.visible_members.insert_all(std::move(heard));
}

void hear_strangers(ApEntry& ap, std::mt19937& random) {
  std::vector<NeighbourMap::value_type> heard;
  for (std::size_t i = 0; i < strangers_heard; ++i) {
    const Radio& like = ap.radios.list[i % Radios::count];
    Neighbour stranger = as_heard_at(-60 - static_cast<double>(pick(random, 35)), like);
    const auto& permitted = like.available_channels;
    stranger.channel = permitted.begin()[pick(random, static_cast<std::uint32_t>(permitted.size()))];
    heard.emplace_back(MacAddr::from_number(0xEE0000000000 + random()), stranger);
  }
  ap.visible_rogue.insert_all(std::move(heard));
}

void silent(const char*, int, const char*, int, const char*, va_list) {}

}  // namespace

ApMap make_campus(const DomainConfig& config, int count) {
  std::mt19937 random(20240229);
  const std::vector<Place> places = grid(count);
  std::vector<std::shared_ptr<ApEntry>> aps;
  for (int i = 0; i < count; ++i) aps.push_back(make_ap(config, static_cast<std::uint64_t>(i)));
  ApMap site;
  for (std::size_t i = 0; i < aps.size(); ++i) {
    hear_members(*aps[i], places, i, aps, random);
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

double StopWatch::lap() {
  const double now = cpu_milliseconds();
  return now - std::exchange(last_, now);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void silence_logs() {
  set_log_hook(silent);
}

}  // namespace zal::bench
