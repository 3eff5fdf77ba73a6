#include "LoadBalancerSubworker.h"

#include <optional>
#include <utility>
#include <vector>

#include "BlacklistSubworker.h"
#include "RrmWorker.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "model/json_fields.h"
#include "protocol/keys.h"
#include "protocol/messages.h"
#include "steering/surroundings.h"

namespace rrm {
namespace {

namespace key = protocol::key;
using protocol::ClientEvent;

constexpr std::int32_t query_seconds = 5;
constexpr std::size_t overload_length = 255;  // messages that may wait in the worker's queue

void forget_expected(ApEntry& ap, const MacAddr& client, const std::string& ssid) {
  for (Radio& radio : ap.radios.list) {
    if (!radio.status || radio.assoc.find_expected(client) == nullptr) continue;
    if (radio.vaps.find(ssid) != nullptr) radio.assoc.remove_expected(client);
  }
}

}  // namespace

bool LoadBalancerSubworker::process_message(const JsonReader& json, protocol::Command command,
                                            const std::shared_ptr<ApEntry>& ap) {
  switch (command) {
    case protocol::Command::rrm_client_assoc:
      process_client_assoc(protocol::read_client_event(json), *ap);
      return true;
    case protocol::Command::rrm_client_disassoc:
      process_client_disassoc(protocol::read_client_event(json), *ap);
      return true;
    case protocol::Command::rrm_probe_response:
      process_probe_response(json, *ap);
      return true;
    case protocol::Command::rrm_disassoc_all_clients:
      process_client_disassoc_all(*ap);
      return true;
    default:
      return false;
  }
}

// What clients do

void LoadBalancerSubworker::process_client_assoc(const ClientEvent& event, ApEntry& ap) {
  if (!config_.use_balance) return;
  const bool paused = worker_.balancing_paused();
  RRM_LOG(LOG_TRACE, "Assocc client %s rssi %d radio_id %d ssid %s no_balance %d send_ack %d lock_balancer %d (ap %s)",
          event.station.c_str(), event.rssi, event.radio, event.ssid.c_str(), event.no_balance, event.need_ack, paused,
          ap.mac.to_string().c_str());
  if (!event.complete()) return;
  Radio* const radio = find_radio(ap, event.radio, "assoc");
  if (radio == nullptr) return;
  accept_client(event, ap, *radio, paused);
}

// A client that was sent here is not asked about again, nor is one that must not be balanced.
void LoadBalancerSubworker::accept_client(const ClientEvent& event, ApEntry& ap, Radio& radio, bool paused) {
  if (event.no_balance) {
    radio.problist.remove(event.client);
    probe_requests_.erase(event.client);
  }
  radio.assoc.add_client(event.client, event.rssi, event.ssid.c_str(), event.no_balance, event.need_ack);
  const bool crowded = radio.assoc.load() > config_.load_balance_sta_low;
  const bool was_expected = radio.assoc.find_expected(event.client) != nullptr;
  forget_expected(ap, event.client, event.ssid);
  if (event.no_balance) forget_expected_around(ap, event.client, event.ssid);
  if (!paused) {
    worker_.blacklist().assoc_changed(event.client, event.rssi, ap, event.ssid, radio.id);
    const bool badly_placed = crowded || event.rssi <= config_.blacklist_thr_low;
    const bool may_move = !was_expected && !event.no_balance;
    if (badly_placed && may_move && start_query(ap, radio, event.client, event.ssid)) return;
  }
  acknowledge(ap, radio, event.client, event.ssid);
}

void LoadBalancerSubworker::forget_expected_around(const ApEntry& ap, const MacAddr& client, const std::string& ssid) {
  for (const auto& [mac, other] : aps_) {
    if (other.get() != &ap && is_around(*other, ap, config_)) forget_expected(*other, client, ssid);
  }
}

void LoadBalancerSubworker::process_client_disassoc(const ClientEvent& event, ApEntry& ap) {
  const bool paused = worker_.balancing_paused();
  RRM_LOG(LOG_TRACE, "Disassocc client %s lock_balancer %d (ap %s)", event.station.c_str(), paused,
          ap.mac.to_string().c_str());
  if (!event.complete()) return;
  Radio* const radio = find_radio(ap, event.radio, "disassoc");
  if (radio == nullptr) return;
  std::int32_t last_rssi = 0;
  const AssocClient* known = radio->assoc.find_client(event.client);
  if (known != nullptr && known->ssid == event.ssid) {
    last_rssi = known->rssi;
    radio->assoc.remove_client(event.client);
    radio->problist.remove(event.client);
  }
  end_query(event.client);
  if (!paused && last_rssi != 0 && last_rssi > config_.blacklist_thr_low) {
    worker_.blacklist().assoc_changed(event.client, 0, ap, event.ssid, radio->id);
  }
}

void LoadBalancerSubworker::process_client_disassoc_all(ApEntry& ap) {
  RRM_LOG(LOG_TRACE, "Disassocc all clients");
  struct Gone {
    MacAddr client;
    std::string ssid;
    Radio* radio;
  };
  // All radios are empty before the first query ends: a client on two of them would else be acknowledged on the other.
  std::vector<Gone> all_gone;
  for (Radio& radio : ap.radios.list) {
    for (const auto& [client, record] : radio.assoc.clients()) all_gone.push_back({client, record.ssid, &radio});
    radio.assoc.clear();
  }
  for (const Gone& gone : all_gone) {
    end_query(gone.client);
    gone.radio->problist.remove(gone.client);
    worker_.blacklist().assoc_changed(gone.client, 0, ap, gone.ssid, gone.radio->id);
  }
}

// Queries

bool LoadBalancerSubworker::start_query(const ApEntry& ap, const Radio& radio, const MacAddr& client,
                                        const std::string& ssid) {
  probe_requests_.start(client, radio.mac, query_seconds, ssid);
  if (post_probe_req(ap, client, ssid, 0, radio.band)) return true;
  end_query(client);
  return false;
}

void LoadBalancerSubworker::end_query(const MacAddr& client) {
  const ProbeRequest* query = probe_requests_.find(client);
  if (query == nullptr) return;
  const MacAddr source = query->source;
  const std::string ssid = query->ssid;
  probe_requests_.erase(client);
  acknowledge_at(source, client, ssid);
}

// An AP that does not hear the client's own is out of the client's reach.
bool LoadBalancerSubworker::post_probe_req(const ApEntry& ap, const MacAddr& client, const std::string& ssid,
                                           std::int32_t timeout, std::int32_t band) {
  RRM_LOG(LOG_TRACE, "post_probe_req enter");
  bool any = false;
  for (const auto& [mac, other] : aps_) {
    if (other.get() == &ap || !is_around(*other, ap, config_)) continue;
    if (send_probe_request(*other, client, ssid, timeout, band)) any = true;
  }
  return any;
}

// A client of the 2.4 GHz band may be better off on any band, one of another band only on that.
bool LoadBalancerSubworker::send_probe_request(const ApEntry& ap, const MacAddr& client, const std::string& ssid,
                                               std::int32_t timeout, std::int32_t band) {
  if (!config_.use_balance) return false;
  std::vector<const Radio*> asked;
  for (const Radio& radio : ap.radios.list) {
    if (!is_steered(radio, ssid)) continue;
    if ((band == 5 || band == 6) && radio.band != band) continue;
    if (radio.assoc.load() >= config_.load_balance_sta_high) continue;
    asked.push_back(&radio);
    probe_requests_.add_waiting(client, radio.mac);
  }
  if (asked.empty()) return false;
  const JsonWriter message = protocol::probe_request(domain_, ap.mac, asked, client, ssid, timeout);
  worker_.broadcast_buffer_add(message.to_string(), ap.session);
  return true;
}

void LoadBalancerSubworker::process_probe_response(const JsonReader& json, ApEntry& ap) {
  const JsonReader radios = json.get_array(key::radios);
  for (int i = 0; i < radios.size(); ++i) {
    const JsonReader element = radios.at(i);
    const Radio* const radio = find_radio(ap, element.get_int(key::id), "probe-response");
    if (radio != nullptr && !take_probe_answers(element.get_array(key::probe_list), ap, *radio)) return;
  }
}

// A radio that hears the client no better than the upper threshold has answered, but is no destination. False for an
// entry that names no client or no network.
bool LoadBalancerSubworker::take_probe_answers(const JsonReader& probe_list, const ApEntry& ap, const Radio& radio) {
  const std::string ap_text = ap.mac.to_string();
  for (int i = 0; i < probe_list.size(); ++i) {
    const JsonReader entry = probe_list.at(i);
    const char* station = entry.get_string(key::mac);
    const char* ssid = entry.get_string(key::ssid);
    const std::int32_t rssi = entry.get_int(key::rssi);
    RRM_LOG(LOG_TRACE, "Probe response client %s ssid %s radio_id %d rssi %d size %d (ap %s)", station, ssid, radio.id,
            rssi, radio.assoc.load(), ap_text.c_str());
    if (*station == '\0' || *ssid == '\0') return false;
    const MacAddr client = MacAddr::parse(station);
    if (rssi < 0 && rssi > config_.blacklist_thr_high) {
      RRM_LOG(LOG_TRACE, "Probe response client %s put (ap %s)", station, ap_text.c_str());
      probe_requests_.put_response(client, radio.mac, rssi, ssid);
    }
    probe_requests_.take_waiting(client, radio.mac, ssid);
  }
  return true;
}

// Acknowledgements

void LoadBalancerSubworker::acknowledge(const ApEntry& ap, Radio& radio, const MacAddr& client,
                                        const std::string& ssid) {
  if (!radio.assoc.take_ack(client, ssid)) return;
  worker_.send(protocol::client_assoc_ack(domain_, ap.mac, client, radio.id, ssid), ap.session);
}

// The AP may be silent in the present cycle: its client waits all the same.
void LoadBalancerSubworker::acknowledge_at(const MacAddr& source, const MacAddr& client, const std::string& ssid) {
  for (const ApMap* set : {&aps_, &unanswered_aps_}) {
    const auto [ap, radio] = set->find_radio(source);
    if (radio != nullptr) return acknowledge(*ap, *radio, client, ssid);
  }
}

// Decisions

void LoadBalancerSubworker::process_timer() {
  for (const auto& [client, query] : probe_requests_.tick()) {
    log_problist_drop(client.to_string());
    process_result(client, query);
  }
  watch_overload();
}

// In a pause no AP would hear of a move, and the client would never be acknowledged: so it stays.
void LoadBalancerSubworker::process_result(const MacAddr& client, const ProbeRequest& query) {
  const auto [source_ap, source_radio] = aps_.find_radio(query.source);
  if (source_radio == nullptr) {
    RRM_LOG(LOG_WARNING, "Skip balancing: source radio_id not found for src_ap=%s", query.source.to_string().c_str());
    return acknowledge_at(query.source, client, query.ssid);
  }
  const AssocClient* known = source_radio->assoc.find_client(client);
  const SteeringSource source{source_radio->assoc.load(), known != nullptr ? known->rssi : 0};
  RRM_LOG(LOG_TRACE, "LoadBalancer: radio %d client %s src_ap %s size %d sta_low %d rssi %d", source_radio->id,
          client.to_string().c_str(), query.source.to_string().c_str(), source.load, config_.load_balance_sta_low,
          source.rssi);
  const std::optional<SteeringChoice> choice = choose_destination(aps_, config_, client, query);
  if (!choice) {
    RRM_LOG(LOG_TRACE, "LoadBalancer: no find result for %s", client.to_string().c_str());
  } else {
    RRM_LOG(LOG_TRACE, "dst_ap %s radio %d min_size %d min_rssi %d", choice->mac.to_string().c_str(), choice->radio->id,
            choice->load, choice->rssi);
    if (worth_moving(source, *choice, config_) && !worker_.balancing_paused()) {
      move(client, query, source_radio->id, *choice);
    } else {
      RRM_LOG(LOG_TRACE, "LoadBalancer: no balancer");
    }
  }
  // Whoever was ordered off is no longer there to be acknowledged. One whose AP could not be told stays.
  acknowledge(*source_ap, *source_radio, client, query.ssid);
}

void LoadBalancerSubworker::move(const MacAddr& client, const ProbeRequest& query, std::int32_t source_radio,
                                 const SteeringChoice& destination) {
  Radio& radio = *destination.radio;
  radio.problist.release(client);
  radio.assoc.add_expected(client, {query.source, source_radio, config_.blacklist_timeout});
  worker_.blacklist().block_around(client, *destination.ap, query.ssid, radio.id);
  worker_.blacklist().disassociate_around(client, *destination.ap, query.ssid);
}

// Steering makes messages of its own: when the worker cannot keep up, it pauses.
void LoadBalancerSubworker::watch_overload() {
  if (worker_.queue_length() > overload_length && !worker_.pause_goes_on()) worker_.pause_load_balancer();
}

}  // namespace rrm
