#include "fuzz/offered_channels.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/fuzz.h"
#include "fuzz/message_reading.h"

namespace zal::fuzz {

namespace {

using rrm::ChannelPools;
using rrm::JsonReader;

constexpr std::int32_t bands[] = {2, 5, 6};

bool is_band(std::int32_t band) {
  return std::find(std::begin(bands), std::end(bands), band) != std::end(bands);
}

// By the channel plan of IEEE 802.11 alone.
std::int32_t usual_band(std::int32_t channel) {
  if (channel >= 1 && channel <= 14) return 2;
  if (channel >= 36 && channel <= 165) return 5;
  return channel >= 166 && channel <= 233 ? 6 : 0;
}

// Of a channel on a radio of this band, 0 for an unknown one. The numbers from 166 on are those of 6 GHz.
std::int32_t band_on(std::int32_t radio_band, std::int32_t channel) {
  if (channel < 1 || channel > 233) return 0;
  if (channel >= 166) return radio_band == 6 ? 6 : 0;
  return radio_band != 0 ? radio_band : usual_band(channel);
}

std::vector<std::int32_t> numbers_in(std::string_view text) {
  std::vector<std::int32_t> numbers;
  std::string digits;
  for (const char c : std::string(text) + ' ') {
    if (c >= '0' && c <= '9') {
      digits += c;
    } else if (!digits.empty()) {
      const std::size_t first = std::min(digits.find_first_not_of('0'), digits.size());
      const bool is_long = digits.size() - first > 9;
      if (first < digits.size()) numbers.push_back(is_long ? INT32_MAX : std::atoi(digits.c_str()));
      digits.clear();
    }
  }
  return numbers;
}

std::vector<std::int32_t> channels_of_text(const JsonReader& radio) {
  return numbers_in(radio.get_string("available-channels"));
}

std::vector<std::int32_t> channels_of_array(const JsonReader& radio) {
  const JsonReader list = radio.get("available-channels");
  std::vector<std::int32_t> channels;
  for (int i = 0; i < list.size(); ++i) channels.push_back(list.get_int(i));
  return channels;
}

// What it may use, and where it is though it may not.
std::vector<std::int32_t> offered_channels(const JsonReader& radio, std::vector<std::int32_t> channels) {
  const std::int32_t present = radio.get_int("channel");
  const bool is_off_list = !channels.empty() && std::find(channels.begin(), channels.end(), present) == channels.end();
  if (radio.get_int("status") != 0 && is_off_list) channels.push_back(present);
  return channels;
}

std::set<OfferedChannels::Offer> offers_on(std::int32_t radio_band, const std::vector<std::int32_t>& channels) {
  std::set<OfferedChannels::Offer> offers;
  for (const std::int32_t channel : channels) {
    const std::int32_t band = band_on(radio_band, channel);
    if (band != 0) offers.emplace(band, channel);
  }
  return offers;
}

// What a text of a scan order lists.
std::vector<std::int32_t> listed(const JsonReader& lists, std::int32_t band) {
  return numbers_in(lists.get_string(std::to_string(band).c_str()));
}

bool is_ascending(const std::vector<std::int32_t>& channels) {
  return std::adjacent_find(channels.begin(), channels.end(), std::greater_equal<>()) == channels.end();
}

}  // namespace

void OfferedChannels::read_message(const JsonReader& radios) {
  for_each_radio(radios, [this](std::int32_t, const JsonReader& radio) { read(radio, channels_of_text(radio)); });
  ever_allowed_.insert(allowed_.begin(), allowed_.end());
}

void OfferedChannels::read_backup(const JsonReader& radios) {
  for_each_radio(radios, [this](std::int32_t, const JsonReader& radio) { read(radio, channels_of_array(radio)); });
  ever_allowed_.insert(allowed_.begin(), allowed_.end());
}

void OfferedChannels::read(const JsonReader& radio, std::vector<std::int32_t> permitted) {
  const std::vector<std::int32_t> channels = offered_channels(radio, std::move(permitted));
  const std::int32_t band = radio.get_int("band");
  const std::int32_t inferred = usual_band(radio.get_int("channel"));
  const std::set<Offer> told = offers_on(is_band(band) ? band : inferred, channels);
  allowed_.insert(told.begin(), told.end());
  if (radio.has("band")) {
    due_.insert(told.begin(), told.end());
  } else {  // a band that the radio has from before
    for (const std::int32_t any : bands) allowed_.merge(offers_on(any, channels));
  }
}

void OfferedChannels::check(const ChannelPools& pools) const {
  std::set<Offer> pooled;
  for (std::size_t band = 0; band < pools.size(); ++band) {
    std::int32_t last = 0;
    for (const std::int32_t channel : pools[band]) {
      require(channel > last, "the channels of a pool ascend from 1");
      last = channel;
      pooled.emplace(static_cast<std::int32_t>(band), channel);
    }
  }
  require(std::includes(allowed_.begin(), allowed_.end(), pooled.begin(), pooled.end()),
          "a pool holds what an AP has offered on its band");
  require(std::includes(pooled.begin(), pooled.end(), due_.begin(), due_.end()), "what an AP has offered is in a pool");
}

void OfferedChannels::check_order(const JsonReader& order, const ChannelPools& pools) const {
  const bool of_pools = order.get_int("dunva-rrm-scanning") != 0;
  const JsonReader lists = order.get("rrm-scan-channels-list").at(0);
  for (const std::int32_t band : bands) {
    const std::vector<std::int32_t> channels = listed(lists, band);
    require(is_ascending(channels), "a scan order lists channels in their order, each once");
    for (const std::int32_t channel : channels) {
      const bool is_known = of_pools ? pools.at(static_cast<std::size_t>(band)).contains(channel)
                                     : ever_allowed_.contains({band, channel});
      require(is_known, "a scan order lists channels that APs offer on the band");
    }
  }
  std::vector<std::int32_t> plain = listed(lists, 2);
  const std::vector<std::int32_t> of_5ghz = listed(lists, 5);
  plain.insert(plain.end(), of_5ghz.begin(), of_5ghz.end());
  require(numbers_in(order.get_string("rrm-scan-channels")) == plain, "the plain list is that of 2.4 and 5 GHz");
}

}  // namespace zal::fuzz
