#include "support/messages.h"

#include <algorithm>

namespace rrm::testing {
namespace {

std::string joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ",") + part;
  return text;
}

}  // namespace

std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + '"';
}

std::string array_text(const std::vector<std::string>& elements) {
  return "[" + joined(elements) + "]";
}

void ObjectText::set(const std::string& key, const std::string& value) {
  set_raw(key, quoted(value));
}

void ObjectText::set_raw(const std::string& key, const std::string& json) {
  const auto known =
      std::find_if(members_.begin(), members_.end(), [&](const auto& member) { return member.first == key; });
  if (known != members_.end()) {
    known->second = json;
  } else {
    members_.emplace_back(key, json);
  }
}

void ObjectText::remove(const std::string& key) {
  std::erase_if(members_, [&](const auto& member) { return member.first == key; });
}

std::string ObjectText::text() const {
  std::vector<std::string> parts;
  for (const auto& [key, value] : members_) parts.push_back(quoted(key) + ":" + value);
  return "{" + joined(parts) + "}";
}

RadioJson::RadioJson(int id, int channel, const std::string& available_channels) {
  with("id", id).with("status", 1).with("channel", channel).with("band", id == 0 ? 2 : id == 1 ? 5 : 6);
  with("power", 14).with("power-max", 20).with("power-min", 5).with("bandwidth", 20);
  with("primary-channel", "none").with("available-channels", available_channels);
  with("locked-for-balancer", 0).with("locked-for-80211v", 0);
}

RadioJson& RadioJson::with_vap(int id, const std::string& ssid, bool dot11k) {
  ObjectText vap;
  vap.set("id", id);
  vap.set("ssid", ssid);
  vap.set("802dot11k", dot11k ? 1 : 0);
  vaps_.push_back(vap.text());
  return *this;
}

std::string RadioJson::text() const {
  ObjectText whole = object_;
  if (!vaps_.empty()) whole.set_raw("vaps", array_text(vaps_));
  return whole.text();
}

RadioJson a_2ghz_radio(int channel, const std::string& available_channels) {
  return RadioJson(0, channel, available_channels);
}

RadioJson a_5ghz_radio(int channel, const std::string& available_channels) {
  return RadioJson(1, channel, available_channels);
}

RadioJson a_6ghz_radio(int channel, const std::string& available_channels) {
  return RadioJson(2, channel, available_channels);
}

HeardJson::HeardJson(const std::string& bssid, int channel, int rssi) {
  with("bssid", bssid).with("channel", channel).with("tx-power", 14).with("bandwidth", 20).with("rssi", rssi);
  with("primary-channel", "none");
}

MessageJson::MessageJson(const std::string& cmd, const std::string& ap_mac) {
  with("service", "rrm").with("version", "2.4").with("cmd", cmd).with("ap-mac", ap_mac).with("domain", "lab");
}

MessageJson& MessageJson::with_radio(const RadioJson& radio) {
  radios_.push_back(radio.text());
  return *this;
}

MessageJson& MessageJson::with_heard(const std::vector<HeardJson>& round) {
  std::vector<std::string> entries;
  for (const HeardJson& heard : round) entries.push_back(heard.text());
  rounds_.push_back(array_text(entries));
  return *this;
}

std::string MessageJson::text() const {
  ObjectText whole = object_;
  if (!radios_.empty()) whole.set_raw("radios", array_text(radios_));
  if (!rounds_.empty()) whole.set_raw("rf-environment", array_text(rounds_));
  return whole.text();
}

MessageJson a_message(const std::string& cmd, const std::string& ap_mac) {
  return MessageJson(cmd, ap_mac);
}

MessageJson a_subscribe(const std::string& ap_mac) {
  ObjectText factory;
  factory.set("board", "NVA-3wz");
  factory.set("hw", "1.0");
  factory.set("serial", "SN" + ap_mac.substr(ap_mac.size() > 5 ? ap_mac.size() - 5 : 0));
  factory.set("mac", ap_mac);
  return MessageJson("subscribe-request", ap_mac).with_raw("factory", factory.text());
}

}  // namespace rrm::testing
