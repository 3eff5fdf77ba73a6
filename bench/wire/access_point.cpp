#include "access_point.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace zal::bench {
namespace {

constexpr int radio_pool = 16;
constexpr int addresses_of_ap = 64;  // a multiple of what its three radios need

struct RadioKind {
  int band;
  int channel;
  const char* channels;
};

constexpr std::array<RadioKind, 3> radio_kinds{{
    {2, 1, "1 6 11"},
    {5, 36, "36 40 44 48 52 56 60 64 100 104 108 112 116 120 124 128 132 136 140"},
    {6, 165, "165 169 173 177 181 185 189 193 197 201 205 209 213 217 221 225"},
}};

std::string mac_text(std::uint64_t address) {
  std::array<char, 18> text{};
  const auto byte = [address](int place) { return static_cast<unsigned>(address >> (8 * place) & 0xff); };
  std::snprintf(text.data(), text.size(), "%02X:%02X:%02X:%02X:%02X:%02X", byte(5), byte(4), byte(3), byte(2), byte(1),
                byte(0));
  return text.data();
}

std::uint64_t ap_address(std::size_t index) {
  return 0x02a000000000 + index * addresses_of_ap;
}

std::string field(const char* key, const std::string& text) {
  return std::string("\"") + key + "\":\"" + text + "\"";
}

std::string field(const char* key, int number) {
  return std::string("\"") + key + "\":" + std::to_string(number);
}

}  // namespace

AccessPoint::AccessPoint(std::size_t index, std::string domain) : index_(index), domain_(std::move(domain)) {}

std::string AccessPoint::envelope(const char* command) const {
  return "{" + field("service", "rrm") + "," + field("version", "2.4") + "," + field("cmd", command) + "," +
         field("ap-mac", mac_text(ap_address(index_))) + "," + field("domain", domain_);
}

std::string AccessPoint::radios(int vaps) const {
  std::string list;
  for (int id = 0; id < 3; ++id) {
    const RadioKind& kind = radio_kinds[static_cast<std::size_t>(id)];
    std::string vap_list;
    for (int vap = 0; vap < vaps; ++vap) {
      vap_list += (vap == 0 ? "{" : ",{") + field("id", vap) + "," + field("ssid", "network-" + std::to_string(vap)) +
                  "," + field("mac", mac_text(ap_address(index_) + static_cast<std::uint64_t>(id * radio_pool + vap))) +
                  "," + field("802dot11k", 1) + "," + field("802dot11r", 0) + "," + field("802dot11v", 0) + "}";
    }
    list += (id == 0 ? "{" : ",{") + field("id", id) + "," + field("status", 1) + "," + field("channel", kind.channel) +
            "," + field("band", kind.band) + "," + field("power", 17) + "," + field("power-max", 20) + "," +
            field("power-min", 5) + ",\"antenna-configuration\":{" + field("antenna-gain", 3) + "," +
            field("cable-loss", 0) + "}," + field("bandwidth", 20) + "," + field("primary-channel", "") + "," +
            field("available-channels", kind.channels) + "," + field("mac-offset", id * radio_pool) + "," +
            field("radio-mac-count", radio_pool) + "," + field("locked-for-tpc", 0) + "," + field("locked-for-dca", 0) +
            "," + field("locked-for-balancer", 0) + "," + field("locked-for-80211v", 0) + ",\"vaps\":[" + vap_list +
            "]}";
  }
  return ",\"radios\":[" + list + "]";
}

std::string AccessPoint::subscription() const {
  return envelope("subscribe-request") + ",\"factory\":{" + field("board", "board-a") + "," + field("hw", "1v4") + "," +
         field("serial", "SN" + std::to_string(index_)) + "," + field("mac", mac_text(ap_address(index_))) + "}," +
         field("ap-mac-count", 48) + "," + field("use-wildcard-80211r", 0) + radios(8) + "}";
}

std::string AccessPoint::association(std::size_t client) const {
  return envelope("rrm-client-assoc") + "," + field("radio", 1) + "," + field("rssi", -70) + "," +
         field("sta-mac", client_address(client)) + "," + field("ssid", "network-0") + "," + field("no-balance", 0) +
         "," + field("need-ack", 1) + "}";
}

std::string AccessPoint::client_address(std::size_t client) const {
  return mac_text(0x06b000000000 + (static_cast<std::uint64_t>(index_) << 16) + client);
}

std::string AccessPoint::modes() const {
  return envelope("rrm-mode-response") + radios(8) + "}";
}

std::string AccessPoint::scan_answer(std::size_t rounds, std::size_t heard) const {
  std::string list;
  for (std::size_t i = 0; i < heard; ++i) {
    const std::size_t radio = i % radio_kinds.size();
    const RadioKind& kind = radio_kinds[radio];
    const std::size_t other = index_ + 1 + i / radio_kinds.size();
    list += (list.empty() ? "{" : ",{") + field("bssid", mac_text(ap_address(other) + radio * radio_pool)) + "," +
            field("channel", kind.channel) + "," + field("band", kind.band) + "," + field("tx-power", 17) + "," +
            field("bandwidth", 20) + "," + field("rssi", -50 - static_cast<int>(i % 40)) + "," +
            field("primary-channel", "") + "}";
  }
  std::string all;
  for (std::size_t i = 0; i < rounds; ++i) all += (i == 0 ? "[" : ",[") + list + "]";
  return envelope("rrm-response") + radios(8) + ",\"rf-environment\":[" + all + "]}";
}

}  // namespace zal::bench
