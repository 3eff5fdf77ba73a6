// An AP's record, fed with any text: as the AP's message with its envelope, as the answer to its scan and as its entry
// in a backup.
#include <string>

#include "fuzz/fuzz.h"
#include "fuzz/silence.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/ApMap.h"
#include "protocol/IncomingMessage.h"
#include "protocol/keys.h"
#include "protocol/version.h"

namespace {

using namespace rrm;
using zal::fuzz::require;

std::shared_ptr<ApEntry> new_ap(const DomainConfig& config) {
  return std::make_shared<ApEntry>(config, MacAddr::from_number(0x001122000000), no_session, ApFactory{});
}

std::string dump(const ApEntry& ap) {
  JsonWriter object;
  ap.dump_json(object);
  return object.to_string();
}

void require_sound(const Radio& radio) {
  require(radio.band == 0 || radio.band == 2 || radio.band == 5 || radio.band == 6, "a radio's band is one of four");
  require(radio.primary_channel % 256 == 0 && radio.primary_channel >= 0 && radio.primary_channel <= 1024,
          "a position is one of five");
  require(radio.status || (!radio.tpc_managed && !radio.dca_managed), "no plan holds a disabled radio");
  for (const auto& [ssid, vap] : radio.vaps) {
    require(vap.mac.in_pool(radio.mac, radio.max_mac_count), "a VAP lies in its radio's pool");
  }
}

void require_sound(const ApEntry& ap, const ChannelPools& pools) {
  require(ap.radios.list.size() == Radios::count, "an AP has three radios");
  for (const Radio& radio : ap.radios.list) require_sound(radio);
  for (const std::size_t band : {0U, 1U, 3U, 4U}) require(pools.at(band).empty(), "three bands have channels");
}

void read_envelope(const JsonReader& json) {
  if (const auto command = protocol::validate(json)) {
    require(json.get_string("cmd") == std::string(protocol::command_name(*command)), "a command is what was said");
  }
  if (protocol::check_version(json, protocol::version)) {
    require(json.get_string("version") != std::string(), "a version was told");
  }
}

void read_message(const JsonReader& json, const DomainConfig& config) {
  const auto ap = new_ap(config);
  ChannelPools pools;
  ap->radios.from_json(json, pools, true, false);
  require_sound(*ap, pools);
  ap->radios.from_json(json, pools, true, false);
  require_sound(*ap, pools);
  for (Radio& radio : ap->radios.list) {
    radio.lower_power(-60, -70);
    radio.raise_power(-90, -70, -72);
  }
  ApMap set;
  set.insert(ap->mac, ap);
  set.fill_from_json_rf_environment(*ap, json.get("rf-environment"));
  JsonWriter document;
  JsonWriter list = JsonWriter::array(document, "802dot11k");
  set.write_802dot11k(*ap, list, ap->visible_members);
  require(!JsonReader(dump(*set.clone().find(ap->mac)).c_str()).empty(), "what an AP writes can be read");
}

std::string restored(const std::string& text, const DomainConfig& config) {
  const auto ap = new_ap(config);
  ChannelPools pools;
  ap->restore(JsonReader(text.c_str()), pools);
  require_sound(*ap, pools);
  return dump(*ap);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const DomainConfig config;
  zal::fuzz::silence_logs();
  const std::string text(reinterpret_cast<const char*>(data), size);
  const JsonReader message(text.c_str());
  read_envelope(message);
  read_message(message, config);
  // The first time a backup may still hold what is not restored.
  const std::string settled = restored(restored(text, config), config);
  require(restored(settled, config) == settled, "what was restored is written as it was");
  return 0;
}
