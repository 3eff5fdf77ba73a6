// Steers clients by BSS transition management (802.11v), which leaves the choice to the AP and the client. It keeps at
// each AP a list of neighbours with priorities by load, sent anew when something in it changed, and tells an overloaded
// AP how many clients to move, and where to. A roam that an AP has ordered raises the load of its target at once, so
// that the next client does not follow the same way.
//
// Works only with 802.11v on, the moving of clients also only with balancing on. On the domain worker's thread, like
// all sub-workers.
#pragma once

#include <cstdint>
#include <memory>

#include "IRrmSubworker.h"
#include "protocol/ClientEvent.h"

namespace rrm {

class JsonWriter;
struct Radio;

class LoadBalancer802dot11vSubworker final : public IRrmSubworker {
 public:
  explicit LoadBalancer802dot11vSubworker(RrmWorker& worker);

  // Both jobs, now.
  void force_optimization() override;
  // Takes rrm-client-assoc, rrm-client-disassoc and rrm-sta-roam.
  bool process_message(const JsonReader& json, protocol::Command command, const std::shared_ptr<ApEntry>& ap) override;
  // The lists, if a change of them is pending, and the moving of clients.
  void process_timer() override;
  void stop() override {}

  // The lists are to be rebuilt at the next timer, with `restart` soon.
  void planning_update_802dot11v(bool restart);
  // Adds the list for one AP to an array; true if it differs from what was sent last.
  bool fill_lists(const ApEntry& ap, JsonWriter& array) const;
  // All APs have been told the present priorities.
  void commit_priorities();

 private:
  enum TimerId : std::uint32_t { timer_balance = 0 };
  void set_timer(std::int32_t delay);

  void optimize_lists();
  void optimize_clients();
  void optimize_clients_of(ApEntry& ap);

  void process_client_assoc(const protocol::ClientEvent& event, ApEntry& ap);
  void process_client_disassoc(const protocol::ClientEvent& event, ApEntry& ap);
  void process_client_roam(const protocol::ClientEvent& event, const MacAddr& target, const ApEntry& ap);
  void finish_roam(const MacAddr& client, Radio& radio);
  void update_priority(const ApEntry& ap, Radio& radio);

  bool lists_pending_ = false;
};

}  // namespace rrm
