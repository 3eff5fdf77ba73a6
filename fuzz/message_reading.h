// What a domain does with a message of an AP, told from the message and from how the domain stands just before it.
#pragma once

#include <cstdint>
#include <optional>

#include "RrmWorker.h"
#include "json/JsonReader.h"
#include "protocol/IncomingMessage.h"

namespace zal::fuzz {

struct MessageReading {
  std::optional<rrm::protocol::Command> command;  // none: the message is dropped
  const rrm::ApEntry* ap = nullptr;               // whom it is about; null for an AP that is new or unknown
  bool reads_radios = false;
};

// With the domain locked.
MessageReading reading_of(rrm::RrmWorker& domain, bool server_enabled, const rrm::JsonReader& message,
                          std::uint32_t session);

// The objects of a message's or a backup's array of radios that stand for one of an AP's three, with the radio's
// number.
template <class Visit>
void for_each_radio(const rrm::JsonReader& array, Visit visit) {
  for (int place = 0; place < array.size(); ++place) {
    const rrm::JsonReader radio = array.at(place);
    const std::int32_t id = radio.has("id") ? radio.get_int("id") : place;
    if (!radio.empty() && id >= 0 && id < 3) visit(id, radio);
  }
}

}  // namespace zal::fuzz
