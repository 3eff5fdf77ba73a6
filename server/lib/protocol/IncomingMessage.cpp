#include "protocol/IncomingMessage.h"

#include <array>
#include <string_view>

#include "core/QueueMessage.h"
#include "json/JsonReader.h"
#include "protocol/keys.h"

namespace rrm::protocol {
namespace {

struct CommandWord {
  Command command;
  const char* service;
  const char* word;
};

// In the order of the enumeration, so that a command is its own index.
constexpr std::array command_words{
    CommandWord{Command::drop_session, service_name::rrm_internal, "drop-session"},
    CommandWord{Command::stop_load_balancer, service_name::rrm_internal, "stop-load-balancer"},
    CommandWord{Command::subscribe_request, service_name::rrm, "subscribe-request"},
    CommandWord{Command::unsubscribe_request, service_name::rrm, "unsubscribe-request"},
    CommandWord{Command::rrm_response, service_name::rrm, "rrm-response"},
    CommandWord{Command::rrm_mode_response, service_name::rrm, "rrm-mode-response"},
    CommandWord{Command::rrm_config_changed, service_name::rrm, "rrm-config-changed"},
    CommandWord{Command::rrm_assoc_state_changed, service_name::rrm, "rrm-assoc-state-changed"},
    CommandWord{Command::rrm_client_assoc, service_name::rrm, "rrm-client-assoc"},
    CommandWord{Command::rrm_client_disassoc, service_name::rrm, "rrm-client-disassoc"},
    CommandWord{Command::rrm_probe_response, service_name::rrm, "rrm-probe-response"},
    CommandWord{Command::rrm_disassoc_all_clients, service_name::rrm, "rrm-disassoc-all-clients"},
    CommandWord{Command::rrm_sta_roam, service_name::rrm, "rrm-sta-roam"},
};

constexpr bool words_stand_in_order() {
  for (std::size_t i = 0; i < command_words.size(); ++i) {
    if (command_words[i].command != static_cast<Command>(i)) return false;
  }
  return command_words.back().command == Command::rrm_sta_roam;
}
static_assert(words_stand_in_order());

}  // namespace

const char* command_name(Command command) {
  return command_words[static_cast<std::size_t>(command)].word;
}

std::optional<Command> validate(const JsonReader& message) {
  const std::string_view spoken_service = message.get_string(key::service);
  const std::string_view spoken_word = message.get_string(key::cmd);
  if (spoken_service == service_name::rrm && *message.get_string(key::ap_mac) == '\0') return std::nullopt;
  for (const CommandWord& known : command_words) {
    if (spoken_service == known.service && spoken_word == known.word) return known.command;
  }
  return std::nullopt;
}

}  // namespace rrm::protocol
