#include "fuzz/message_reading.h"

#include <initializer_list>

#include "TpcDcaSubworker.h"
#include "protocol/keys.h"
#include "protocol/version.h"

namespace zal::fuzz {

namespace {

using rrm::ApEntry;
using rrm::ApMap;
using rrm::JsonReader;
using rrm::MacAddr;
using rrm::RrmStatus;
using rrm::RrmWorker;
using rrm::protocol::Command;

const ApEntry* first_of(std::initializer_list<const ApMap*> sets, const MacAddr& mac) {
  for (const ApMap* set : sets) {
    if (const auto ap = set->find_by_any_mac(mac)) return ap.get();
  }
  return nullptr;
}

bool has_whole_factory(const JsonReader& message) {
  const JsonReader factory = message.get("factory");
  for (const char* key : {"board", "hw", "serial", "mac"}) {
    if (*factory.get_string(key) == '\0') return false;
  }
  return true;
}

MessageReading reading_of_subscribe(RrmWorker& domain, const JsonReader& message, const MacAddr& mac) {
  if (!has_whole_factory(message)) return {};
  return {Command::subscribe_request, first_of({&domain.aps(), &domain.deleted_aps(), &domain.unanswered_aps()}, mac),
          true};
}

// An answer counts while it is waited for, and from the AP's own address.
MessageReading reading_of_answer(RrmWorker& domain, Command command, const MacAddr& mac, std::uint32_t session) {
  const RrmStatus awaited =
      command == Command::rrm_response ? RrmStatus::WAIT_SCAN_RESULTS : RrmStatus::WAIT_MODE_RESPONSE;
  const auto ap = domain.aps().find(mac);
  const bool counts = ap != nullptr && ap->session.id == session && domain.tpc_dca().rrm_status() == awaited;
  return {command, ap.get(), counts};
}

MessageReading reading_of_change(RrmWorker& domain, const MacAddr& mac, std::uint32_t session) {
  const ApEntry* const ap = first_of({&domain.aps(), &domain.unanswered_aps(), &domain.deleted_aps()}, mac);
  return {Command::rrm_config_changed, ap, ap != nullptr && ap->session.id == session};
}

}  // namespace

MessageReading reading_of(RrmWorker& domain, bool server_enabled, const JsonReader& message, std::uint32_t session) {
  const auto command = rrm::protocol::validate(message);
  if (!command || !rrm::protocol::check_version(message, rrm::protocol::version)) return {};
  const MacAddr mac = MacAddr::parse(message.get_string("ap-mac"));
  switch (*command) {
    case Command::drop_session:
    case Command::stop_load_balancer:
      return {};
    case Command::subscribe_request:
      return server_enabled ? reading_of_subscribe(domain, message, mac) : MessageReading{};
    case Command::rrm_config_changed:
      return reading_of_change(domain, mac, session);
    case Command::rrm_mode_response:
    case Command::rrm_response:
      return reading_of_answer(domain, *command, mac, session);
    default:
      return {command, first_of({&domain.aps(), &domain.unanswered_aps()}, mac), false};
  }
}

}  // namespace zal::fuzz
