// The envelope of what arrives at a domain worker, as values. A message is judged here once; whoever handles it sees a
// `Command` and never compares texts again.
#pragma once

#include <optional>

namespace rrm {

class JsonReader;

namespace protocol {

enum class Command {
  // From the server's own threads.
  drop_session,
  stop_load_balancer,
  // From an access point.
  subscribe_request,
  unsubscribe_request,
  rrm_response,
  rrm_mode_response,
  rrm_config_changed,
  rrm_assoc_state_changed,
  rrm_client_assoc,
  rrm_client_disassoc,
  rrm_probe_response,
  rrm_disassoc_all_clients,
  rrm_sta_roam,
};

// The word of the wire for a command.
const char* command_name(Command command);

// The command of a valid message, empty for anything that must be dropped: an unknown service, a command that the
// service does not know, or an access point's message without `ap-mac`.
std::optional<Command> validate(const JsonReader& message);

}  // namespace protocol
}  // namespace rrm
