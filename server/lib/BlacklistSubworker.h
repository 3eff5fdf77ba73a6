// Keeps a client where it ought to be. While a client has a good signal, the radios around refuse it, so that it does
// not wander; when the signal falls they are opened, and the load balancer looks for a better place. Carries out what
// the load balancer has decided, too. The changes are gathered in the radios' probe lists and told to the APs once a
// second; what is gathered while balancing is paused is lost on purpose.
//
// Works only with balancing on. On the domain worker's thread, like all sub-workers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "IRrmSubworker.h"
#include "protocol/ClientEvent.h"

namespace rrm {

struct Radio;

class BlacklistSubworker final : public IRrmSubworker {
 public:
  explicit BlacklistSubworker(RrmWorker& worker);

  void force_optimization() override {}
  // Acts on rrm-assoc-state-changed, and takes whatever it is given.
  bool process_message(const JsonReader& json, protocol::Command command, const std::shared_ptr<ApEntry>& ap) override;
  // Tells the APs what was gathered.
  void process_timer() override;
  void stop() override {}

  // A client of a radio has a new level in dBm: above the upper threshold the neighbours are closed for it, else
  // opened. 0 means that the client has gone.
  void assoc_changed(const MacAddr& client, std::int32_t rssi, const ApEntry& ap, const std::string& ssid,
                     std::int32_t radio);
  // The client is to be refused everywhere around its radio.
  void block_around(const MacAddr& client, const ApEntry& ap, const std::string& ssid, std::int32_t radio);
  // The client is to be sent away from all around its destination.
  void disassociate_around(const MacAddr& client, const ApEntry& ap, const std::string& ssid);

 private:
  enum TimerId : std::uint32_t { timer_send = 0 };
  void set_timer(std::int32_t delay);

  void process_assoc_state_changed(protocol::ClientEvent event, std::string_view state, ApEntry& ap);
  void follow_level(const protocol::ClientEvent& event, ApEntry& ap, Radio& radio);
  bool is_newer_elsewhere(const MacAddr& client, const ApEntry& ap, std::int64_t assoc_time) const;
  void send_disassoc_requests();
  void send_blacklists();
  void forget_gathered();
};

}  // namespace rrm
