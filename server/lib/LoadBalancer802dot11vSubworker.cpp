#include "LoadBalancer802dot11vSubworker.h"

#include <algorithm>
#include <vector>

#include "RrmWorker.h"
#include "TpcDcaSubworker.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/json_fields.h"
#include "protocol/keys.h"
#include "protocol/messages.h"
#include "steering/transition_lists.h"

namespace rrm {
namespace {

namespace key = protocol::key;
using protocol::ClientEvent;

constexpr std::int32_t arrival_seconds = 5;  // that a client has to arrive where it was sent

// How many clients each enabled radio should move, beginning anew the count of lighter peers. Radios that move none are
// left out.
struct RoamOrder {
  std::int32_t radio = 0;
  std::int32_t count = 0;
};

std::vector<RoamOrder> take_roam_orders(ApEntry& ap, const DomainConfig& config) {
  std::vector<RoamOrder> orders;
  for (Radio& radio : ap.radios.list) {
    if (!radio.status) continue;
    const std::int32_t count = roam_count(ap, radio, config);
    radio.roam_peers = 0;
    radio.roam_peer_clients = 0;
    if (count > 0) orders.push_back({radio.id, count});
  }
  return orders;
}

}  // namespace

LoadBalancer802dot11vSubworker::LoadBalancer802dot11vSubworker(RrmWorker& worker) : IRrmSubworker(worker) {
  set_timer(config_.sta_load_balance_period);
}

// A timer that is set again with no delay by its own call would never fall due.
void LoadBalancer802dot11vSubworker::set_timer(std::int32_t delay) {
  timers_.replace(
      timer_balance, [this] { process_timer(); }, std::max(delay, 1));
}

bool LoadBalancer802dot11vSubworker::process_message(const JsonReader& json, protocol::Command command,
                                                     const std::shared_ptr<ApEntry>& ap) {
  switch (command) {
    case protocol::Command::rrm_client_assoc:
      process_client_assoc(protocol::read_client_event(json), *ap);
      return true;
    case protocol::Command::rrm_client_disassoc:
      process_client_disassoc(protocol::read_client_event(json), *ap);
      return true;
    case protocol::Command::rrm_sta_roam:
      process_client_roam(protocol::read_client_event(json), get_mac(json, key::target_mac), *ap);
      return true;
    default:
      return false;
  }
}

// Time

void LoadBalancer802dot11vSubworker::process_timer() {
  if (lists_pending_) optimize_lists();
  optimize_clients();
  set_timer(config_.sta_load_balance_period);
}

void LoadBalancer802dot11vSubworker::force_optimization() {
  RRM_LOG(LOG_TRACE, "Forced 802.11v optimization;");
  optimize_lists();
  optimize_clients();
  set_timer(config_.sta_load_balance_period);
}

void LoadBalancer802dot11vSubworker::planning_update_802dot11v(bool restart) {
  if (!config_.use_80211v) return;
  lists_pending_ = true;
  if (restart) {
    RRM_LOG(LOG_TRACE, "Planning 802.11v optimization (timer restarted)");
    set_timer(config_.force_delay);
  } else {
    RRM_LOG(LOG_TRACE, "Planning 802.11v optimization (without timer restart)");
  }
}

// Lists

void LoadBalancer802dot11vSubworker::optimize_lists() {
  if (!config_.use_80211v) return;
  if (worker_.load_balancer_lock()) {
    RRM_LOG(LOG_TRACE, "Load balancer is blocked");
    lists_pending_ = true;
    return;
  }
  RRM_LOG(LOG_TRACE, "802.11v optimization started for each AP");
  for (const auto& [mac, ap] : aps_) worker_.tpc_dca().post_tpc_results_ap(*ap, true, false, true);
  commit_priorities();
  lists_pending_ = false;
}

bool LoadBalancer802dot11vSubworker::fill_lists(const ApEntry& ap, JsonWriter& array) const {
  return write_transition_list(aps_, ap, config_, array);
}

void LoadBalancer802dot11vSubworker::commit_priorities() {
  for (const auto& [mac, ap] : aps_) {
    for (Radio& radio : ap->radios.list) {
      radio.sent_priority = radio.priority;
      radio.lists_stale = false;
    }
  }
}

// Clients

void LoadBalancer802dot11vSubworker::optimize_clients() {
  if (!config_.use_80211v || !config_.use_balance) {
    RRM_LOG(LOG_TRACE, "Skip optimize_clients (use_80211v=%d use_balance=%d)", config_.use_80211v, config_.use_balance);
    return;
  }
  for (const auto& [mac, ap] : aps_) {
    if (needs_load_balance(*ap)) {
      optimize_clients_of(*ap);
    } else {
      RRM_LOG(LOG_TRACE, "AP(%s): no radios need load balance", ap->mac.to_string().c_str());
    }
  }
}

void LoadBalancer802dot11vSubworker::optimize_clients_of(ApEntry& ap) {
  JsonWriter message = protocol::sta_overload(ap.mac);
  JsonWriter list = JsonWriter::array(message, key::neighbour_list);
  if (!write_overload_list(aps_, ap, config_, list)) return;
  const std::vector<RoamOrder> orders = take_roam_orders(ap, config_);
  if (orders.empty()) return;
  JsonWriter radios = JsonWriter::array(message, key::radios);
  for (const RoamOrder& order : orders) {
    JsonWriter object = JsonWriter::object(radios, nullptr);
    object.add_int(key::id, order.radio);
    object.add_int(key::roam_count, order.count);
  }
  worker_.send(message, ap.session);
}

void LoadBalancer802dot11vSubworker::process_client_assoc(const ClientEvent& event, ApEntry& ap) {
  RRM_LOG(LOG_TRACE, "Assocc client %s rssi %d radio_id %d ssid %s (ap %s)", event.station.c_str(), event.rssi,
          event.radio, event.ssid.c_str(), ap.mac.to_string().c_str());
  if (!event.complete()) return;
  Radio* const radio = find_radio(ap, event.radio, "802.11v assoc");
  if (radio == nullptr) return;
  radio->assoc.add_client(event.client, event.rssi, event.ssid.c_str(), event.no_balance, false);
  finish_roam(event.client, *radio);
  update_priority(ap, *radio);
}

// A client that was sent here has left where it came from, whether that AP has noticed or not. It has not left where it
// has just arrived, if an AP ordered it to itself.
void LoadBalancer802dot11vSubworker::finish_roam(const MacAddr& client, Radio& radio) {
  const ExpectedClient* found = radio.assoc.find_expected(client);
  if (found == nullptr) return;
  const ExpectedClient expected = *found;
  const std::string client_text = client.to_string();
  RRM_LOG(LOG_TRACE, "Assoc: client(%s) was roamed by 802.11v, removing from expected list", client_text.c_str());
  radio.assoc.remove_expected(client);
  const auto source = aps_.find_by_any_mac(expected.source);
  Radio* const source_radio = source != nullptr ? source->radios.find(expected.radio) : nullptr;
  if (source_radio == nullptr || source_radio == &radio) return;
  RRM_LOG(LOG_TRACE, "Assoc: removing client(%s) from AP(%s) assoc clients list", client_text.c_str(),
          source->mac.to_string().c_str());
  source_radio->assoc.remove_client(client);
}

void LoadBalancer802dot11vSubworker::process_client_disassoc(const ClientEvent& event, ApEntry& ap) {
  RRM_LOG(LOG_TRACE, "Disassocc client %s (ap %s)", event.station.c_str(), ap.mac.to_string().c_str());
  if (!event.complete()) return;
  Radio* const radio = find_radio(ap, event.radio, "802.11v disassoc");
  if (radio == nullptr) return;
  const AssocClient* known = radio->assoc.find_client(event.client);
  if (known != nullptr && known->ssid == event.ssid) radio->assoc.remove_client(event.client);
  update_priority(ap, *radio);
}

void LoadBalancer802dot11vSubworker::process_client_roam(const ClientEvent& event, const MacAddr& target,
                                                         const ApEntry& ap) {
  const auto target_ap = aps_.storage().find(target);
  if (target_ap == nullptr) {
    RRM_LOG(LOG_ERROR, "No target ap with mac %s", target.to_string().c_str());
    return;
  }
  Radio* const radio = target_ap->radios.find(event.radio);
  if (radio == nullptr) {
    RRM_LOG(LOG_WARNING, "Skip 802.11v roam: target radio_id=%d invalid/disabled for ap=%s", event.radio,
            target_ap->mac.to_string().c_str());
    return;
  }
  radio->assoc.add_expected(event.client, {ap.mac, event.radio, arrival_seconds});
  RRM_LOG(LOG_ERROR, "New expected sta(%s) added to AP(%s)", event.client.to_string().c_str(),
          target_ap->mac.to_string().c_str());
}

void LoadBalancer802dot11vSubworker::update_priority(const ApEntry& ap, Radio& radio) {
  const std::uint32_t before = radio.priority;
  if (!radio.update_priority()) return;
  RRM_LOG(LOG_TRACE, "Ap(%s) priority changed to %d (was %d), need to update lists on aps;", ap.mac.to_string().c_str(),
          static_cast<int>(radio.priority), static_cast<int>(before));
  planning_update_802dot11v(false);
}

}  // namespace rrm
