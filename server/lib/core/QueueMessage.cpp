#include "core/QueueMessage.h"

#include <utility>

namespace rrm {

QueueMessage::QueueMessage(JsonReader&& message, const BaseSession& peer) : session(peer), json(std::move(message)) {}

QueueMessage::QueueMessage(std::string&& text, const BaseSession& peer)
    : session(peer), json(static_cast<const char*>(nullptr)), serialized(std::move(text)) {}

std::string_view QueueMessage::text() const {
  return serialized.empty() ? std::string_view(json.to_string()) : std::string_view(serialized);
}

}  // namespace rrm
