#include "BlacklistSubworker.h"

#include <algorithm>
#include <string_view>

#include "LoadBalancerSubworker.h"
#include "RrmWorker.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "protocol/keys.h"
#include "protocol/messages.h"
#include "steering/blacklisting.h"

namespace rrm {
namespace {

constexpr std::int32_t first_delay = 10;  // seconds
constexpr std::int32_t period = 1;        // seconds

}  // namespace

BlacklistSubworker::BlacklistSubworker(RrmWorker& worker) : IRrmSubworker(worker) {
  set_timer(first_delay);
}

void BlacklistSubworker::set_timer(std::int32_t delay) {
  timers_.replace(
      timer_send, [this] { process_timer(); }, delay);
}

bool BlacklistSubworker::process_message(const JsonReader& json, protocol::Command command,
                                         const std::shared_ptr<ApEntry>& ap) {
  if (command == protocol::Command::rrm_assoc_state_changed && config_.use_balance) {
    const std::string_view state = json.get_string(protocol::key::state);
    process_assoc_state_changed(protocol::read_client_event(json), state, *ap);
  }
  return true;
}

// Levels

void BlacklistSubworker::process_assoc_state_changed(protocol::ClientEvent event, std::string_view state, ApEntry& ap) {
  const bool paused = worker_.balancing_paused();
  RRM_LOG(LOG_TRACE, "Assocc state change client %s rssi %d state %.*s radio_id %d ssid %s (ap %s) lock_balancer %d",
          event.station.c_str(), event.rssi, static_cast<int>(state.size()), state.data(), event.radio,
          event.ssid.c_str(), ap.mac.to_string().c_str(), paused);
  if (paused || !event.complete()) return;
  if (state == "unstable") event.rssi = config_.blacklist_thr_low;
  Radio* const radio = ap.radios.find(event.radio);
  if (radio != nullptr && radio->assoc.find_client(event.client) != nullptr) follow_level(event, ap, *radio);
}

void BlacklistSubworker::follow_level(const protocol::ClientEvent& event, ApEntry& ap, Radio& radio) {
  const AssocClient before = *radio.assoc.find_client(event.client);
  radio.assoc.set_rssi(event.client, event.rssi);
  if (before.no_balance) return;
  const bool low = event.rssi <= config_.blacklist_thr_low;
  if (low && before.rssi != 0 && before.rssi > config_.blacklist_thr_low) {
    assoc_changed(event.client, event.rssi, ap, event.ssid, radio.id);
  }
  if (low && !is_newer_elsewhere(event.client, ap, before.assoc_time)) {
    worker_.load_balancer().start_query(ap, radio, event.client, event.ssid);
  } else if (event.rssi != 0 && event.rssi > config_.blacklist_thr_high) {
    worker_.load_balancer().end_query(event.client);
  }
}

// The client has moved on to another AP since, and this one has not noticed yet.
bool BlacklistSubworker::is_newer_elsewhere(const MacAddr& client, const ApEntry& ap, std::int64_t assoc_time) const {
  const auto is_newer = [&](const Radio& radio) {
    const AssocClient* there = radio.assoc.find_client(client);
    return there != nullptr && there->assoc_time >= assoc_time;
  };
  return std::any_of(aps_.begin(), aps_.end(), [&](const auto& node) {
    const auto& radios = node.second->radios.list;
    return node.second.get() != &ap && std::any_of(radios.begin(), radios.end(), is_newer);
  });
}

void BlacklistSubworker::assoc_changed(const MacAddr& client, std::int32_t rssi, const ApEntry& ap,
                                       const std::string& ssid, std::int32_t radio) {
  const bool good = rssi != 0 && rssi > config_.blacklist_thr_high;
  mark_around(aps_, config_, client, ap, ssid, radio, good);
}

void BlacklistSubworker::block_around(const MacAddr& client, const ApEntry& ap, const std::string& ssid,
                                      std::int32_t radio) {
  mark_around(aps_, config_, client, ap, ssid, radio, true);
}

void BlacklistSubworker::disassociate_around(const MacAddr& client, const ApEntry& ap, const std::string& ssid) {
  order_off_around(aps_, config_, client, ap, ssid);
}

// Telling the APs

void BlacklistSubworker::process_timer() {
  if (!worker_.balancing_paused()) {
    send_disassoc_requests();
    send_blacklists();
  }
  forget_gathered();
  set_timer(period);
}

void BlacklistSubworker::send_disassoc_requests() {
  const auto waits = [](const Radio& radio) { return !radio.problist.disassoc().empty(); };
  for (const auto& [mac, ap] : aps_) {
    if (std::none_of(ap->radios.list.begin(), ap->radios.list.end(), waits)) continue;
    worker_.broadcast_buffer_add(protocol::disassoc_request(domain_, *ap).to_string(), ap->session);
  }
}

void BlacklistSubworker::send_blacklists() {
  const auto waits = [](const Radio& radio) { return !radio.problist.changes().empty(); };
  for (const auto& [mac, ap] : aps_) {
    for (Radio& radio : ap->radios.list) radio.problist.tick();
    if (std::none_of(ap->radios.list.begin(), ap->radios.list.end(), waits)) continue;
    worker_.broadcast_buffer_add(protocol::blacklist(domain_, *ap).to_string(), ap->session);
  }
}

void BlacklistSubworker::forget_gathered() {
  for (const ApMap* set : {&aps_, &deleted_aps_, &unanswered_aps_}) {
    for (const auto& [mac, ap] : *set) {
      for (Radio& radio : ap->radios.list) {
        radio.problist.clear_changes();
        radio.problist.clear_disassoc();
      }
    }
  }
}

}  // namespace rrm
