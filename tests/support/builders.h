// Builders of the records of the domain model, so that a test says only what matters to it:
//
//   auto ap =
//   an_ap().mac("00:11:22:00:00:00").with_radio(a_radio().channel(36).vap(a_vap("office").k())).build(config);
//
// Radios are enabled and get the ids 0, 1, 2 in the order of with_radio; those left out stay as an AP record makes
// them. The settings must outlive what is built with them.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ApEntry.h"
#include "model/ApMap.h"

namespace rrm::testing {

inline MacAddr mac(const std::string& text) {
  return MacAddr::parse(text.c_str());
}

inline BaseSession a_session(std::uint32_t id) {
  BaseSession session{};
  session.id = id;
  return session;
}

class VapBuilder {
 public:
  explicit VapBuilder(std::string ssid) { vap_.ssid = std::move(ssid); }

  VapBuilder& id(std::int32_t value) { return vap_.id = value, *this; }
  // Without this the address is the radio's plus the id.
  VapBuilder& mac(const std::string& text) { return vap_.mac = testing::mac(text), *this; }
  VapBuilder& k(bool on = true) { return vap_.use_802dot11k = on, *this; }
  VapBuilder& r(bool on = true) { return vap_.use_802dot11r = on, *this; }
  VapBuilder& v(bool on = true) { return vap_.use_802dot11v = on, *this; }
  VapBuilder& keyholders(const std::string& r0, const std::string& r1, const std::string& key) {
    vap_.fbt_r0_keyholder = r0;
    vap_.fbt_r1_keyholder = r1;
    vap_.fbt_rrb_key = key;
    return *this;
  }
  VapBuilder& link(const std::string& r0, const std::string& r1, const std::string& key) {
    vap_.fbt_links.push_back({r0, r1, key});
    return *this;
  }

  VapEntry build() const { return vap_; }
  VapEntry build(const Radio& radio) const {
    VapEntry vap = vap_;
    if (vap.mac.is_zero()) vap.mac = radio.mac.plus(vap.id);
    return vap;
  }

 private:
  VapEntry vap_;
};

inline VapBuilder a_vap(const std::string& ssid) {
  return VapBuilder(ssid);
}

class RadioBuilder {
 public:
  RadioBuilder& disabled() {
    return set([](Radio& r) { r.status = false; });
  }
  RadioBuilder& channel(std::int32_t value) {
    return set([=](Radio& r) { r.channel = value; });
  }
  // Without this the band is the channel's.
  RadioBuilder& band(std::int32_t value) {
    return set([=](Radio& r) { r.band = value; }, band_given_);
  }
  RadioBuilder& bandwidth(std::int32_t value) {
    return set([=](Radio& r) { r.bandwidth = value; });
  }
  RadioBuilder& primary(std::int32_t code) {
    return set([=](Radio& r) { r.primary_channel = code; });
  }
  RadioBuilder& power(std::int32_t value) {
    return set([=](Radio& r) { r.power = value; });
  }
  RadioBuilder& power_range(std::int32_t lowest, std::int32_t highest) {
    return set([=](Radio& r) { r.power_min = lowest, r.power_max = highest; });
  }
  RadioBuilder& power_changed(std::int32_t step) {
    return set([=](Radio& r) { r.power_changed = step; });
  }
  // -1 leaves a limit out.
  RadioBuilder& eirp_range(std::int32_t lowest, std::int32_t highest) {
    return set([=](Radio& r) { r.eirp_min = lowest, r.eirp_max = highest; });
  }
  RadioBuilder& eirp(std::int32_t value) {
    return set([=](Radio& r) { r.eirp = value; });
  }
  RadioBuilder& antenna(std::int32_t gain, std::int32_t loss) {
    return set([=](Radio& r) { r.has_antenna = true, r.antenna_gain = gain, r.cable_loss = loss; });
  }
  RadioBuilder& available(std::initializer_list<std::int32_t> channels) {
    return set([set = ChannelSet(channels)](Radio& r) { r.available_channels = set; });
  }
  RadioBuilder& tpc_managed() {
    return set([](Radio& r) { r.tpc_managed = true; });
  }
  RadioBuilder& dca_managed() {
    return set([](Radio& r) { r.dca_managed = true; });
  }
  RadioBuilder& locked_tpc() {
    return set([](Radio& r) { r.locked_tpc = 1; });
  }
  RadioBuilder& locked_dca() {
    return set([](Radio& r) { r.locked_dca = 1; });
  }
  RadioBuilder& locked_balancer() {
    return set([](Radio& r) { r.locked_balancer = 1; });
  }
  RadioBuilder& locked_80211v() {
    return set([](Radio& r) { r.locked_80211v = 1; });
  }
  RadioBuilder& pool(std::int32_t offset, std::int32_t count) {
    return set([=](Radio& r) {
      r.mac_offset = offset, r.max_mac_count = count;
      r.set_mac(r.base_mac);
    });
  }
  RadioBuilder& vap(const VapBuilder& vap) {
    return set([vap](Radio& r) { r.vaps.insert(vap.build(r)); });
  }
  RadioBuilder& client(const std::string& station, std::int32_t rssi, const std::string& ssid) {
    return set([=](Radio& r) { r.assoc.add_client(testing::mac(station), rssi, ssid.c_str(), false, false); });
  }
  // Anything else.
  RadioBuilder& with(std::function<void(Radio&)> edit) { return set(std::move(edit)); }

  void apply(Radio& radio) const {
    radio.status = true;
    for (const auto& edit : edits_) edit(radio);
    if (!band_given_) radio.band = band_of_channel(radio.channel);
  }
  Radio build(const DomainConfig& config, std::int32_t id = 0, const MacAddr& base = MacAddr()) const {
    Radio radio(config, id, base);
    apply(radio);
    return radio;
  }

 private:
  RadioBuilder& set(std::function<void(Radio&)> edit) { return edits_.push_back(std::move(edit)), *this; }
  RadioBuilder& set(std::function<void(Radio&)> edit, bool& mark) { return mark = true, set(std::move(edit)); }

  std::vector<std::function<void(Radio&)>> edits_;
  bool band_given_ = false;
};

inline RadioBuilder a_radio() {
  return RadioBuilder();
}

// Heard at a level, on a channel; the band is the channel's unless it is given.
inline Neighbour a_neighbour(std::int32_t rssi, std::int32_t channel, std::int32_t bandwidth = 20) {
  Neighbour neighbour;
  neighbour.rssi = rssi;
  neighbour.channel = channel;
  neighbour.band = band_of_channel(channel);
  neighbour.bandwidth = bandwidth;
  return neighbour;
}

class ApBuilder {
 public:
  ApBuilder& mac(const std::string& text) { return mac_ = testing::mac(text), *this; }
  ApBuilder& board(const std::string& name) { return factory_.board = name, *this; }
  ApBuilder& serial(const std::string& number) { return factory_.serial = number, *this; }
  ApBuilder& session(std::uint32_t id) { return session_ = a_session(id), *this; }
  ApBuilder& with_radio(const RadioBuilder& radio) { return radios_.push_back(radio), *this; }
  ApBuilder& hears(const std::string& bssid, const Neighbour& neighbour) {
    return with([=](ApEntry& ap) { ap.visible_members.insert(testing::mac(bssid), neighbour); });
  }
  ApBuilder& hears_rogue(const std::string& bssid, const Neighbour& neighbour) {
    return with([=](ApEntry& ap) { ap.visible_rogue.insert(testing::mac(bssid), neighbour); });
  }
  ApBuilder& received() {
    return with([](ApEntry& ap) { ap.radios.received = true; });
  }
  ApBuilder& active() {
    return with([](ApEntry& ap) { ap.active = true; });
  }
  ApBuilder& ttl(std::int32_t ticks) {
    return with([=](ApEntry& ap) { ap.delete_ttl = ticks; });
  }
  // Anything else.
  ApBuilder& with(std::function<void(ApEntry&)> edit) { return edits_.push_back(std::move(edit)), *this; }

  // Requires: at most three radios.
  std::shared_ptr<ApEntry> build(const DomainConfig& config) const {
    auto ap = std::make_shared<ApEntry>(config, mac_, session_, factory_);
    for (std::size_t i = 0; i < radios_.size(); ++i) radios_[i].apply(ap->radios.list.at(i));
    for (const auto& edit : edits_) edit(*ap);
    return ap;
  }

 private:
  MacAddr mac_ = testing::mac("00:11:22:00:00:00");
  ApFactory factory_{"NVA-1K", "1.0", "SN0001", mac_};
  BaseSession session_ = a_session(1);
  std::vector<RadioBuilder> radios_;
  std::vector<std::function<void(ApEntry&)>> edits_;
};

inline ApBuilder an_ap() {
  return ApBuilder();
}

// A set of APs, each under its own MAC.
inline ApMap a_set(std::initializer_list<std::shared_ptr<ApEntry>> aps) {
  ApMap set;
  for (const auto& ap : aps) set.insert(ap->mac, ap);
  return set;
}

}  // namespace rrm::testing
