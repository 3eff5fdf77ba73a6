#include "ApEntry.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/json_fields.h"

namespace rrm {
namespace {

bool same_letter(char a, char b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return lower(a) == lower(b);
}

bool starts_with_ignoring_case(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin(), same_letter);
}

bool contains_ignoring_case(std::string_view text, std::string_view part) {
  return std::search(text.begin(), text.end(), part.begin(), part.end(), same_letter) != text.end();
}

struct PlatformModels {
  ApPlatform platform;
  std::initializer_list<std::string_view> prefixes;
};

bool matches(const PlatformModels& models, std::string_view board) {
  return std::any_of(models.prefixes.begin(), models.prefixes.end(),
                     [&](std::string_view prefix) { return starts_with_ignoring_case(board, prefix); });
}

std::size_t count_links(const Radios& radios) {
  std::size_t count = 0;
  for (const Radio& radio : radios.list) {
    for (const auto& [ssid, vap] : radio.vaps) count += vap.fbt_links.size();
  }
  return count;
}

}  // namespace

// The first list that matches decides. A board with "-SX" carries another chipset than its namesake.
ApPlatform platform_of_board(const std::string& board) {
  static const PlatformModels lists[] = {
      {ApPlatform::fast_path, {"NXA-12WZ", "NVA-12WZ", "NXA-2WZ", "NVA-2WZ"}},
      {ApPlatform::brix, {"NVA-3wz", "NXA-3wz"}},
      {ApPlatform::realtek,
       {"NVA-1K", "NVA-2K", "NXA-2K", "NVA-20K", "NXA-20K", "NVA-200K", "NVA-3K", "NXA-3K", "NVA-30K", "NXA-30K"}},
  };
  if (contains_ignoring_case(board, "-SX")) return ApPlatform::unknown;
  for (const PlatformModels& models : lists) {
    if (matches(models, board)) return models.platform;
  }
  return ApPlatform::unknown;
}

const char* platform_name(ApPlatform platform) {
  switch (platform) {
    case ApPlatform::brix:
      return "BRIX";
    case ApPlatform::fast_path:
      return "FastPath";
    case ApPlatform::realtek:
      return "Realtek";
    default:
      return "Unknown";
  }
}

ApFactory factory_from_json(const JsonReader& object) {
  return {object.get_string("board"), object.get_string("hw"), object.get_string("serial"), get_mac(object, "mac")};
}

ApEntry::ApEntry(const DomainConfig& domain_config, const MacAddr& ap_mac, const BaseSession& ap_session,
                 const ApFactory& ap_factory)
    : platform(platform_of_board(ap_factory.board)),
      mac(ap_mac),
      config(&domain_config),
      radios(domain_config, ap_mac),
      session(ap_session),
      factory(ap_factory) {}

MacAddr ApEntry::get_radio_mac(std::int32_t radio_id) const {
  if (const Radio* radio = radios.find(radio_id)) return radio->mac;
  RRM_LOG(LOG_WARNING, "get_radio_mac fallback to base_mac=%s for invalid/disabled radio_id=%d",
          mac.to_string().c_str(), radio_id);
  return mac;
}

void ApEntry::read_radios(const JsonReader& json, ChannelPools& channels, bool apply_vaps, bool list_flag) {
  const std::size_t links = count_links(radios);
  radios.from_json(json, channels, apply_vaps, list_flag);
  if (count_links(radios) < links) fbt_changed = true;
}

void ApEntry::dump_json(JsonWriter& object) const {
  object.add_string("mac", mac.to_string());
  object.add_int("active", active);
  object.add_int("ap-mac-count", static_cast<std::int32_t>(ap_mac_count));
  object.add_int("use-wildcard-80211r", use_wildcard_80211r);
  JsonWriter radio_object = JsonWriter::object(object, "radios");
  radios.dump_json(radio_object);
  JsonWriter members = JsonWriter::array(object, "visible-members");
  visible_members.dump_json(members);
  JsonWriter rogues = JsonWriter::array(object, "visible-rogue");
  visible_rogue.dump_json(rogues);
}

void ApEntry::dump_fbt_json(JsonWriter& object) const {
  JsonWriter array = JsonWriter::array(object, "radios");
  for (const Radio& radio : radios.list) {
    JsonWriter entry = JsonWriter::object(array, nullptr);
    entry.add_int("id", radio.id);
    JsonWriter vaps = JsonWriter::array(entry, "vaps");
    radio.vaps.dump_json_full(vaps);
  }
}

void ApEntry::restore(const JsonReader& json, ChannelPools& channels) {
  ap_mac_count = static_cast<std::uint32_t>(get_int_or(json, "ap-mac-count", default_mac_count));
  use_wildcard_80211r = get_flag_or(json, "use-wildcard-80211r", false);
  const JsonReader radio_object = json.get("radios");
  if (!radio_object.empty()) radios.restore(radio_object, channels);
  visible_members.restore(json.get("visible-members"));
  visible_rogue.restore(json.get("visible-rogue"));
}

std::shared_ptr<ApEntry> ApEntry::clone_entry() const {
  std::shared_ptr<ApEntry> clone(new ApEntry(*this));
  clone->session = no_session;
  return clone;
}

}  // namespace rrm
