#include "model/Radios.h"

#include <algorithm>
#include <array>
#include <utility>

#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/json_fields.h"
#include "model/keys.h"

namespace rrm {
namespace {

template <class Predicate>
bool any_radio(const Radios& radios, Predicate predicate) {
  return std::any_of(radios.list.begin(), radios.list.end(), predicate);
}

bool takes_11kv(const Radio& radio) {
  return radio.status && radio.locked_80211v == 0;
}

// The radio objects of an array, each by its id or, without one, by its place; `kind` is the word of the log line.
template <class Read>
void read_list(Radios& radios, const JsonReader& array, const char* kind, Read read) {
  std::array<bool, Radios::count> named{};
  for (int i = 0; i < array.size(); ++i) {
    const JsonReader element = array.at(i);
    if (element.empty()) continue;
    const std::int32_t id = get_int_or(element, "id", i);
    if (id < 0) continue;
    Radio* radio = radios.find(id);
    if (radio == nullptr) {
      RRM_LOG(LOG_WARNING, "Skip invalid %sradio id=%d, radios_count=%zu", kind, id, radios.list.size());
      continue;
    }
    named[static_cast<std::size_t>(id)] = true;
    read(*radio, element);
  }
  for (Radio& radio : radios.list) {
    if (!named[static_cast<std::size_t>(radio.id)]) radio.blank();
  }
}

// True if `fits` holds for every pair of radios with the same id.
template <class Predicate>
bool all_pairs(const Radios& mine, const Radios& other, Predicate fits) {
  return std::all_of(mine.list.begin(), mine.list.end(), [&](const Radio& radio) {
    const Radio* peer = other.find(radio.id);
    return peer == nullptr || fits(radio, *peer);
  });
}

// Applies to the enabled radios of a band, or of the channel's band where that is 0.
template <class Apply>
void for_each_on_band(Radios& radios, std::int32_t channel, std::int32_t band, Apply apply) {
  const std::int32_t wanted = band_or_that_of(band, channel);
  if (wanted == 0) return;
  for (Radio& radio : radios.list) {
    if (radio.status && radio.band == wanted) apply(radio);
  }
}

}  // namespace

Radios::Radios(const DomainConfig& config, const MacAddr& base) {
  list.reserve(count);
  for (std::size_t id = 0; id < count; ++id) list.emplace_back(config, static_cast<std::int32_t>(id), base);
}

Radio* Radios::find(std::int32_t id) {
  return const_cast<Radio*>(std::as_const(*this).find(id));
}

const Radio* Radios::find(std::int32_t id) const {
  return id >= 0 && static_cast<std::size_t>(id) < list.size() ? &list[static_cast<std::size_t>(id)] : nullptr;
}

const Radio* Radios::find_on_band(std::int32_t band, std::int32_t channel) const {
  const Radio* first_of_band = nullptr;
  for (const Radio& radio : list) {
    if (!radio.status || radio.band != band) continue;
    if (radio.channel == channel) return &radio;
    if (first_of_band == nullptr) first_of_band = &radio;
  }
  return first_of_band;
}

void Radios::set_macs(const MacAddr& base) {
  for (Radio& radio : list) radio.set_mac(base);
}

void Radios::from_json(const JsonReader& json, ChannelPools& pools, bool apply_vaps, bool list_flag) {
  const JsonReader array = json.get_array(field::radio_list.message);
  if (!array.empty()) {
    read_list(*this, array, "", [&](Radio& radio, const JsonReader& element) {
      radio.from_json(element, pools, first_message, apply_vaps, list_flag);
    });
  }
  first_message = false;
}

void Radios::restore(const JsonReader& json, ChannelPools& pools) {
  const JsonReader array = json.get(field::radio_list.backup);
  if (!array.empty()) {
    read_list(*this, array, "restore ",
              [&](Radio& radio, const JsonReader& element) { radio.restore(element, pools); });
  }
  first_message = false;
}

void Radios::dump_json(JsonWriter& object) const {
  object.add_int("received", received);
  JsonWriter interfaces = JsonWriter::array(object, field::radio_list.backup);
  for (const Radio& radio : list) {
    JsonWriter entry = JsonWriter::object(interfaces, nullptr);
    radio.dump_json(entry);
  }
}

void Radios::write_radios(JsonWriter& object) const {
  JsonWriter array = JsonWriter::array(object, field::radio_list.message);
  for (const Radio& radio : list) {
    if (radio.status) radio.write_radio_config(array);
  }
}

bool Radios::any_on_air() const {
  return any_radio(*this, [](const Radio& radio) { return radio.status && radio.channel != 0; });
}

bool Radios::any_11k() const {
  return any_radio(*this, [](const Radio& radio) { return radio.vaps.any_11k(); });
}

bool Radios::any_11r() const {
  return any_radio(*this, [](const Radio& radio) { return radio.vaps.any_11r(); });
}

bool Radios::any_balancer_free() const {
  return any_radio(*this, [](const Radio& radio) { return radio.locked_balancer == 0; });
}

bool Radios::any_11v() const {
  return any_radio(*this, [](const Radio& radio) { return takes_11kv(radio) && radio.vaps.any_11v(); });
}

bool Radios::any_11kv() const {
  return any_radio(
      *this, [](const Radio& radio) { return takes_11kv(radio) && (radio.vaps.any_11v() || radio.vaps.any_11k()); });
}

bool Radios::any_off_profile() const {
  return any_radio(*this, [](const Radio& radio) { return radio.off_profile(); });
}

bool Radios::update_priorities() {
  bool changed = false;
  for (Radio& radio : list) changed = radio.update_priority() || changed;
  return changed;
}

void Radios::mark_lists_stale() {
  for (Radio& radio : list) radio.lists_stale = true;
}

bool Radios::vaps_equal(const Radios& other) const {
  return all_pairs(*this, other, [](const Radio& a, const Radio& b) { return a.equivalent_vaps(b); });
}

bool Radios::channels_equal(const Radios& other) const {
  return all_pairs(*this, other, [](const Radio& a, const Radio& b) { return a.equivalent_channel(b); });
}

bool Radios::all_settings_equal(const Radios& other) const {
  return std::all_of(list.begin(), list.end(), [&](const Radio& radio) {
    const Radio* peer = other.find(radio.id);
    return peer != nullptr && radio.equal_settings(*peer);
  });
}

void Radios::set_validate_power(const Radios& other) {
  for (Radio& radio : list) {
    if (const Radio* peer = other.find(radio.id)) radio.set_validate_power(*peer);
  }
}

bool Radios::any_lower_power(const Radios& other) const {
  return any_radio(*this, [&](const Radio& mine) {
    return any_radio(other,
                     [&](const Radio& theirs) { return mine.channel == theirs.channel && mine.power < theirs.power; });
  });
}

void Radios::mark_conflicted(std::int32_t channel, std::int32_t band) {
  for_each_on_band(*this, channel, band, [](Radio& radio) { radio.conflicted = true; });
}

std::int32_t Radios::lower_power_on_band(std::int32_t channel, std::int32_t a, std::int32_t b, std::int32_t band) {
  std::int32_t largest = 0;
  for_each_on_band(*this, channel, band, [&](Radio& radio) { largest = std::max(largest, radio.lower_power(a, b)); });
  return largest;
}

}  // namespace rrm
