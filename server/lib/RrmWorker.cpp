#include "RrmWorker.h"

#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

#include "BlacklistSubworker.h"
#include "LoadBalancer802dot11vSubworker.h"
#include "LoadBalancerSubworker.h"
#include "RRM.h"
#include "TpcDcaSubworker.h"
#include "core/QueueMessage.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "model/json_fields.h"
#include "model/mac_params.h"
#include "protocol/keys.h"
#include "protocol/version.h"

namespace rrm {
namespace {

constexpr std::int32_t idle_sleep_us = 10000;
constexpr std::size_t most_closed_sessions = 1024;  // their last messages come soon
constexpr std::int32_t balance_period = 1;          // seconds
constexpr std::int32_t load_balancer_pause = 60;    // seconds

namespace key = protocol::key;
using protocol::Command;
using protocol::SubscribeFailure;

// The record of a subscribe's factory; empty unless all of it is there.
std::optional<ApFactory> read_factory(const JsonReader& json) {
  const JsonReader object = json.get(key::factory);
  for (const char* part : {key::board, key::hw, key::serial, key::mac}) {
    if (*object.get_string(part) == '\0') return std::nullopt;
  }
  return factory_from_json(object);
}

// Stores what the message says; a missing key says no. True if that is new.
bool take_wildcard_setting(const JsonReader& json, ApEntry& ap) {
  const bool wildcard = get_flag(json, key::use_wildcard_80211r);
  return std::exchange(ap.use_wildcard_80211r, wildcard) != wildcard;
}

void erase_ap(ApMap& set, const std::shared_ptr<ApEntry>& ap) {
  set.erase_from_index(ap);
  const auto node = std::find_if(set.begin(), set.end(), [&](const auto& entry) { return entry.second == ap; });
  if (node != set.end()) set.erase_node(node);
}

// An AP that returned under another of its addresses stands in the set under that one; it is known by its own as well.
std::shared_ptr<ApEntry> find_ap(const ApMap& set, const MacAddr& mac) {
  if (auto found = set.find_by_any_mac(mac)) return found;
  const auto node = std::find_if(set.begin(), set.end(), [&](const auto& entry) { return entry.second->mac == mac; });
  return node != set.end() ? node->second : nullptr;
}

std::int32_t count_of(const ApMap& set) {
  return static_cast<std::int32_t>(set.size());
}

void write_set(const ApMap& set, JsonWriter& object, const char* name, void (ApMap::*dump)(JsonWriter&) const) {
  JsonWriter array = JsonWriter::array(object, name);
  (set.*dump)(array);
}

template <class T, class... Arguments>
T* add_subworker(std::vector<std::unique_ptr<IRrmSubworker>>& subworkers, Arguments&&... arguments) {
  auto subworker = std::make_unique<T>(std::forward<Arguments>(arguments)...);
  T* const made = subworker.get();
  subworkers.push_back(std::move(subworker));
  return made;
}

// Nothing is counted; the readers of the answer expect the keys.
void write_metrics(JsonWriter& details) {
  JsonWriter metrics = JsonWriter::object(details, "metrics");
  for (const char* what : {"rrm-response", "rrm-mode-response", "rrm-config-changed", "timer-request-modes",
                           "timer-request-scan", "timer-optimize"}) {
    metrics.add_int((std::string(what) + "-expected").c_str(), 0);
    metrics.add_int((std::string(what) + "-count").c_str(), 0);
  }
}

}  // namespace

// Life

RrmWorker::RrmWorker(GlobalConfig* global_config, const DomainConfig& settings, const std::string& domain, RRM* server,
                     std::int32_t time_zone, std::int32_t queue_capacity, OptimizationThread::Body optimization)
    : Worker(domain, server, idle_sleep_us, queue_capacity, true),
      global_(global_config),
      config_(settings),
      time_zone_offset_(time_zone) {
  tpc_dca_ = add_subworker<TpcDcaSubworker>(subworkers_, *this, std::move(optimization));
  blacklist_ = add_subworker<BlacklistSubworker>(subworkers_, *this);
  load_balancer_ = add_subworker<LoadBalancerSubworker>(subworkers_, *this);
  load_balancer_802dot11v_ = add_subworker<LoadBalancer802dot11vSubworker>(subworkers_, *this);
  if (config_.use_balance || config_.use_80211v) arm_balance_timer();
}

RrmWorker::~RrmWorker() = default;

bool RrmWorker::connect() {
  RRM_LOG(LOG_TRACE, "Start worker %s", name.c_str());
  MutexLock lock(mutex);
  arm_tick();
  return true;
}

void RrmWorker::disconnect() {
  RRM_LOG(LOG_TRACE, "Stop worker %s", name.c_str());
  MutexLock lock(mutex);
  timers_.remove(timer_periodic);
  for (const auto& subworker : subworkers_) subworker->stop();
}

// The tick and the balance timer share their id, so neither may replace it.
void RrmWorker::arm_tick() {
  const auto tick = [this] {
    mutex.assert_held();
    process_timer_message();
  };
  timers_.add(tick, timer_periodic, config_.tick);
}

void RrmWorker::arm_balance_timer() {
  const auto balance = [this] {
    mutex.assert_held();
    process_timer_balance();
  };
  timers_.add(balance, timer_periodic, balance_period);
}

void RrmWorker::stop_if_empty() {
  if (aps_.empty() && deleted_aps_.empty() && unanswered_aps_.empty()) request_stop();
}

// The loop

void RrmWorker::before_messages() {
  timers_.run_due();
  for (const auto& subworker : subworkers_) subworker->run_timers();
}

void RrmWorker::after_messages() {
  std::deque<std::shared_ptr<QueueMessage>> outbound;
  {
    MutexLock lock(mutex);
    outbound.swap(broadcast_buffer_);
  }
  // One by one out of the buffer: the texts of a whole domain may be large.
  for (; !outbound.empty(); outbound.pop_front()) {
    QueueMessage& message = *outbound.front();
    if (message.serialized.empty()) {
      owner->send_message(message.json.to_string(), message.session);
    } else {
      owner->send_text(std::move(message.serialized), message.session);
    }
  }
}

// For the sub-workers

std::string RrmWorker::reports_path() const {
  return global_->global().reports_path;
}

ApMap& RrmWorker::aps() {
  mutex.assert_held();
  return aps_;
}

ApMap& RrmWorker::deleted_aps() {
  mutex.assert_held();
  return deleted_aps_;
}

ApMap& RrmWorker::unanswered_aps() {
  mutex.assert_held();
  return unanswered_aps_;
}

ChannelPools& RrmWorker::channel_pools() {
  mutex.assert_held();
  return channel_pools_;
}

TpcDcaSubworker& RrmWorker::tpc_dca() {
  mutex.assert_held();
  return *tpc_dca_;
}

BlacklistSubworker& RrmWorker::blacklist() {
  mutex.assert_held();
  return *blacklist_;
}

LoadBalancerSubworker& RrmWorker::load_balancer() {
  mutex.assert_held();
  return *load_balancer_;
}

LoadBalancer802dot11vSubworker& RrmWorker::load_balancer_802dot11v() {
  mutex.assert_held();
  return *load_balancer_802dot11v_;
}

bool RrmWorker::use_wildcard_80211r() const {
  return global_->global().use_wildcard_80211r;
}

void RrmWorker::set_load_balancer_lock(bool lock) {
  mutex.assert_held();
  load_balancer_lock_ = lock;
}

bool RrmWorker::load_balancer_lock() const {
  mutex.assert_held();
  return load_balancer_lock_;
}

void RrmWorker::pause_load_balancer() {
  mutex.assert_held();
  load_balancer_stop_ = true;
  load_balancer_counter_ = load_balancer_pause / config_.tick;
}

bool RrmWorker::pause_goes_on() const {
  mutex.assert_held();
  return load_balancer_stop_ && load_balancer_counter_ != 1;
}

bool RrmWorker::balancing_paused() const {
  mutex.assert_held();
  return load_balancer_stop_ || load_balancer_lock_;
}

void RrmWorker::send(const JsonWriter& message, const BaseSession& session) {
  owner->send_text(message.to_string(), session);
}

void RrmWorker::broadcast_buffer_add(const char* text, const BaseSession& session) {
  mutex.assert_held();
  if (text == nullptr) {
    RRM_LOG(LOG_ERROR, "broadcast_buffer_add msg null");
    emit_event_plain(2);
    return;
  }
  broadcast_buffer_.push_back(std::make_shared<QueueMessage>(std::string(text), session));
}

void RrmWorker::raise_domain_changed() const {
  emit_event_text(23, name);
}

// Messages

void RrmWorker::process_message(JsonReader& json, BaseSession& session) {
  if (process_internal_ipc_msg(json)) return;
  const auto command = protocol::validate(json);
  if (!command) {
    RRM_LOG(LOG_WARNING, "Incoming message validation failed");
    emit_event_plain(0);
    return;
  }
  try {
    dispatch(*command, json, session);
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Exception at processing message on worker '%s': %s", name.c_str(), error.what());
    emit_event_text(4, name);
  }
}

void RrmWorker::dispatch(Command command, const JsonReader& json, const BaseSession& session) {
  if (command == Command::drop_session) return process_drop_session(session);
  if (command == Command::stop_load_balancer) return pause_load_balancer();

  const MacAddr mac = MacAddr::parse(json.get_string(key::ap_mac));
  RRM_LOG(LOG_TRACE, "process_message %s for %s", protocol::command_name(command), mac.to_string().c_str());
  if (command == Command::subscribe_request) return process_subscribe_request(json, session, mac);
  if (!protocol::check_version(json, protocol::version)) {
    RRM_LOG(LOG_WARNING, "Incoming message version failed");
    emit_event_plain(1);
    return;
  }
  dispatch_from_known_ap(command, json, session, mac);
}

void RrmWorker::dispatch_from_known_ap(Command command, const JsonReader& json, const BaseSession& session,
                                       const MacAddr& mac) {
  switch (command) {
    case Command::unsubscribe_request:
      return process_unsubscribe(session, mac);
    case Command::rrm_config_changed:
      return process_config_changed(json, session, mac);
    case Command::rrm_response:
    case Command::rrm_mode_response:
      tpc_dca_->process_message(json, command, aps_.find_for_session(mac, session));
      return;
    default:
      return process_balancer_cmd(command, json, mac);
  }
}

void RrmWorker::process_drop_session(const BaseSession& session) {
  raise_domain_changed();
  for (const auto& [mac, ap] : aps_) {
    if (ap->session.id == session.id) ap->session_dropped = true;
  }
  aps_.move_session_to(deleted_aps_, session);
  unanswered_aps_.drop_session(session);
  stop_if_empty();
}

void RrmWorker::process_unsubscribe(const BaseSession& session, const MacAddr& mac) {
  if (const auto ap = aps_.find_by_any_mac(mac)) {
    if (ap->session.id != session.id) return;
    tpc_dca_->force_optimization();
    erase_ap(aps_, ap);
  } else if (const auto silent = unanswered_aps_.find_by_any_mac(mac)) {
    if (silent->session.id == session.id) erase_ap(unanswered_aps_, silent);
  }
}

void RrmWorker::process_config_changed(const JsonReader& json, const BaseSession& session, const MacAddr& mac) {
  if (const auto active = aps_.find_by_any_mac(mac)) {
    change_config(aps_, active, json, session, mac);
  } else if (const auto silent = unanswered_aps_.find_by_any_mac(mac)) {
    RRM_LOG(LOG_TRACE, "To unanswered rrm change request");
    change_config(unanswered_aps_, silent, json, session, mac);
  } else if (const auto gone = deleted_aps_.find_by_any_mac(mac)) {
    RRM_LOG(LOG_TRACE, "To deleted rrm change request");
    change_config(deleted_aps_, gone, json, session, mac);
  }
}

void RrmWorker::change_config(ApMap& set, const std::shared_ptr<ApEntry>& ap, const JsonReader& json,
                              const BaseSession& session, const MacAddr& mac) {
  process_exists_ap(Command::rrm_config_changed, json, session, mac, *ap, false);
  set.reindex(ap);
  tpc_dca_->post_tpc_results_ap(*ap, true, true, false);
}

// What clients do is for the sub-workers that steer them.
void RrmWorker::process_balancer_cmd(Command command, const JsonReader& json, const MacAddr& mac) {
  auto ap = aps_.find_by_any_mac(mac);
  if (ap == nullptr) {
    ap = unanswered_aps_.find_by_any_mac(mac);
    if (ap == nullptr) return;
    RRM_LOG(LOG_TRACE, "To unanswered rrm balancer cmd");
  }
  process_balancer_ap(command, json, ap);
}

// The load balancer comes first; what it does not take, or may not, is the 802.11v balancer's.
void RrmWorker::process_balancer_ap(Command command, const JsonReader& json, const std::shared_ptr<ApEntry>& ap) {
  RRM_LOG(LOG_TRACE, "process_message balancer %s for %s", protocol::command_name(command),
          ap->mac.to_string().c_str());
  if (command == Command::rrm_assoc_state_changed) {
    blacklist_->process_message(json, command, ap);
    return;
  }
  const bool balanced = config_.use_balance && ap->radios.any_balancer_free();
  if (balanced && load_balancer_->process_message(json, command, ap)) return;
  if (config_.use_80211v && ap->radios.any_11v()) load_balancer_802dot11v_->process_message(json, command, ap);
}

// Subscribes

void RrmWorker::process_subscribe_request(const JsonReader& json, const BaseSession& session, const MacAddr& mac) {
  if (!global_->enabled()) return refuse_subscribe(SubscribeFailure::server_disabled, session, mac);
  if (!protocol::check_version(json, protocol::version)) {
    return refuse_subscribe(SubscribeFailure::not_served, session, mac);
  }
  const auto factory = read_factory(json);
  if (!factory) return refuse_subscribe(SubscribeFailure::not_served, session, mac);
  if (is_closed(session)) {
    RRM_LOG(LOG_TRACE, "process_message: session %u is being closed", session.id);
    return;
  }

  if (const auto active = aps_.find_by_any_mac(mac)) {
    RRM_LOG(LOG_TRACE, "To exists subscribe request");
    resubscribe_known(aps_, active, json, session, mac);
  } else if (const auto gone = deleted_aps_.find_by_any_mac(mac)) {
    resubscribe_deleted(gone, json, session, mac);
  } else if (const auto silent = unanswered_aps_.find_by_any_mac(mac)) {
    RRM_LOG(LOG_TRACE, "To unanswered subscribe request");
    resubscribe_known(unanswered_aps_, silent, json, session, mac);
  } else {
    subscribe_new(*factory, json, session, mac);
  }
}

// It stays in its set: a silent AP until the pipeline takes it back.
void RrmWorker::resubscribe_known(ApMap& set, const std::shared_ptr<ApEntry>& ap, const JsonReader& json,
                                  const BaseSession& session, const MacAddr& mac) {
  update_session(*ap, session);
  process_exists_ap(Command::subscribe_request, json, session, mac, *ap, false);
  set.reindex(ap);
  accept_subscribe(*ap);
}

// During a scan a returning AP would be missed by the plan, so there is a new one.
void RrmWorker::resubscribe_deleted(const std::shared_ptr<ApEntry>& ap, const JsonReader& json,
                                    const BaseSession& session, const MacAddr& mac) {
  const bool scanning = tpc_dca_->scanning();
  RRM_LOG(LOG_TRACE, "To delete subscribe request, scan state %d", scanning);
  update_session(*ap, session);
  process_exists_ap(Command::subscribe_request, json, session, mac, *ap, scanning);
  accept_subscribe(*ap);
  aps_.insert(mac, ap);
  raise_domain_changed();
  erase_ap(deleted_aps_, ap);
}

void RrmWorker::subscribe_new(const ApFactory& factory, const JsonReader& json, const BaseSession& session,
                              const MacAddr& mac) {
  RRM_LOG(LOG_TRACE, "NEW subscribe request");
  const auto ap = std::make_shared<ApEntry>(config_, mac, session, factory);
  ap->ap_mac_count = static_cast<std::uint32_t>(
      get_int_or(json, key::ap_mac_count, static_cast<std::int32_t>(ApEntry::default_mac_count)));
  ap->use_wildcard_80211r = get_flag(json, key::use_wildcard_80211r);
  ap->radios.from_json(json, channel_pools_, true, false);
  if (!check_mac_params(*ap)) {
    RRM_LOG(LOG_ERROR, "Send subscribe-response 'fail' due to invalid MAC parameters");
    emit_event_text(3, mac.to_string());
    return refuse_subscribe(SubscribeFailure::invalid_mac_parameters, session, mac);
  }
  aps_.insert(mac, ap);
  raise_domain_changed();
  if (ap->radios.any_on_air()) {
    if (config_.use_80211v) ap->radios.update_priorities();
    tpc_dca_->force_optimization();
  }
  accept_subscribe(*ap);
}

void RrmWorker::accept_subscribe(const ApEntry& ap) {
  const auto add_list = [&, &tpc_dca = *tpc_dca_](JsonWriter& settings) { tpc_dca.add_neighbour_list(ap, settings); };
  send(protocol::subscribe_success(name, ap, config_, add_list), ap.session);
  tpc_dca_->post_results_802dot11r_ap(ap, true, true);
}

void RrmWorker::refuse_subscribe(SubscribeFailure failure, const BaseSession& session, const MacAddr& mac) {
  send(protocol::subscribe_failure(failure, mac), session);
  owner->drop_session_at_websock_worker(session, false);
  forget_closed_session(session);
}

void RrmWorker::update_session(ApEntry& ap, const BaseSession& session) {
  if (ap.session.id == session.id) return;
  const BaseSession before = std::exchange(ap.session, session);
  if (std::exchange(ap.session_dropped, false)) return;
  owner->drop_session_at_websock_worker(before, true);
  forget_closed_session(before);
}

// Nobody tells of the end of a session that is closed by order. Whatever else it had subscribed would stay for ever,
// asked in every cycle and never answering, and so would whatever it subscribes before its end. A restored AP has no
// session yet.
void RrmWorker::forget_closed_session(const BaseSession& session) {
  const auto is_of_session = [&](const auto& known) { return known.second->session.id == session.id; };
  if (session.id == no_session.id) return;
  if (!is_closed(session)) closed_sessions_.push_back(session.id);
  if (closed_sessions_.size() > most_closed_sessions) closed_sessions_.pop_front();
  if (std::any_of(aps_.begin(), aps_.end(), is_of_session) ||
      std::any_of(unanswered_aps_.begin(), unanswered_aps_.end(), is_of_session)) {
    process_drop_session(session);
  }
}

bool RrmWorker::is_closed(const BaseSession& session) const {
  return std::find(closed_sessions_.begin(), closed_sessions_.end(), session.id) != closed_sessions_.end();
}

// What a known AP says anew about itself. Its record is compared with a scratch one made of the message alone; reading
// that fills the channel pools too. A changed channel alone is no reason for a new plan, nor are new limits, which are
// taken before the comparison. A message without radios leaves those of the record as they are, limits included, but is
// not equal to them.
void RrmWorker::process_exists_ap(Command command, const JsonReader& json, const BaseSession& session,
                                  const MacAddr& mac, ApEntry& ap, bool force) {
  if (ap.session.id != session.id) throw std::out_of_range("invalid exist session");
  Radios scratch(config_, mac);
  scratch.from_json(json, channel_pools_, true, false);

  const bool vaps_same = ap.radios.vaps_equal(scratch);
  const bool channels_same = ap.radios.channels_equal(scratch);
  const bool priority_changed = ap.radios.update_priorities();
  const bool wildcard_changed = command == Command::subscribe_request && take_wildcard_setting(json, ap);
  const ListUpdates updates = list_updates(scratch, vaps_same, channels_same, priority_changed, wildcard_changed);

  if (!json.get_array(key::radios).empty()) ap.radios.set_validate_power(scratch);
  const bool settings_same = scratch.all_settings_equal(ap.radios);
  if (!vaps_same || !settings_same) raise_domain_changed();
  ap.read_radios(json, channel_pools_, !vaps_same, !channels_same);
  if (force || !settings_same) {
    replan_without_neighbours(ap, force);
  } else {
    plan_list_updates(updates);
  }
}

void RrmWorker::replan_without_neighbours(ApEntry& ap, bool force) {
  RRM_LOG(LOG_TRACE, "Not-equivalent or force (%d) subscribe request", force);
  ap.visible_members.clear();
  ap.visible_rogue.clear();
  tpc_dca_->force_optimization();
}

// Which of the lists that neighbours are sent the change concerns.
RrmWorker::ListUpdates RrmWorker::list_updates(const Radios& reported, bool vaps_same, bool channels_same,
                                               bool priority_changed, bool wildcard_changed) const {
  ListUpdates updates;
  const bool picture_changed = !(vaps_same && channels_same);
  if (config_.use_80211v && reported.any_11kv()) {
    updates.transition_lists = picture_changed || priority_changed;
    RRM_LOG(LOG_EVENT, "process_exists_ap update_802dot11kv %d (%d/%d/%d)", updates.transition_lists, vaps_same,
            channels_same, priority_changed);
  } else if (config_.use_80211k && reported.any_11k()) {
    updates.plain_lists = picture_changed;
    RRM_LOG(LOG_EVENT, "process_exists_ap update_802dot11k %d (%d/%d)", updates.plain_lists, vaps_same, channels_same);
  }
  if (config_.use_80211r) {
    updates.links = wildcard_changed || !vaps_same;
    RRM_LOG(LOG_EVENT, "process_exists_ap update_802dot11r %d", updates.links);
  }
  return updates;
}

void RrmWorker::plan_list_updates(const ListUpdates& updates) {
  if (updates.transition_lists) load_balancer_802dot11v_->planning_update_802dot11v(true);
  if (updates.plain_lists) tpc_dca_->planning_update_802dot11k();
  if (updates.links) tpc_dca_->planning_update_802dot11r();
}

// Restoring

void RrmWorker::restore(const JsonReader& backup) {
  mutex.assert_held();
  tpc_dca_->restore(backup.get_int("rrm-status"), backup.get_int("fbt-status"), config_.away_timeout);
  for (const char* set : {"aps", "unanswered-aps", "deleted-aps"}) {
    const JsonReader array = backup.get(set);
    if (array.empty()) return;  // a backup that has not got this far has no more
    restore_ap_map(deleted_aps_, array);
  }
}

void RrmWorker::restore_ap_map(ApMap& target, const JsonReader& array) {
  for_each_element(array, [&](const JsonReader& json) {
    mutex.assert_held();
    restore_ap(target, json);
  });
}

void RrmWorker::restore_ap(ApMap& target, const JsonReader& json) {
  const MacAddr mac = get_mac(json, key::mac);
  const ApFactory factory{json.get_string(key::board), json.get_string(key::hw), json.get_string(key::serial), mac};
  const std::string mac_text = mac.to_string();
  if (factory.board.empty() || factory.hw.empty() || factory.serial.empty()) {
    RRM_LOG(LOG_WARNING, "Can't read factory settings from backup for ap '%s'", mac_text.c_str());
    return;
  }
  RRM_LOG(LOG_TRACE, "Restore ap '%s' from backup", mac_text.c_str());
  const auto ap = std::make_shared<ApEntry>(config_, mac, no_session, factory);
  ap->restore(json, channel_pools_);
  ap->delete_ttl = away_ticks(config_);
  if (!check_mac_params(*ap)) {
    RRM_LOG(LOG_ERROR, "Can't restore ap '%s' from backup due to invalid MAC parameters", mac_text.c_str());
    emit_event_text(3, mac_text);
    return;
  }
  target.insert(mac, ap);
}

// Time

void RrmWorker::process_timer_message() {
  log_state();
  const std::size_t erased = deleted_aps_.tick_ttl();
  if (erased != 0) replan_after_departure();
  stop_if_empty();
  if (erased != 0) raise_domain_changed();
  if (load_balancer_counter_ > 0) --load_balancer_counter_;
  if (load_balancer_counter_ == 0) load_balancer_stop_ = false;
  forget_lost_sessions();
  arm_tick();
}

// The word that a session has ended may overtake the session's subscribe, come before there is a domain, or be lost in
// a flood, and of a session that another domain has closed there is none. Such an AP would stay for ever: asked in
// every cycle, never answering, and on every list of its neighbours. As long as orders wait, the word may be among
// them.
void RrmWorker::forget_lost_sessions() {
  if (queue.size(queue.force) != 0) return;
  std::map<std::uint32_t, BaseSession> lost;
  for (const ApMap* set : {&aps_, &unanswered_aps_}) {
    for (const auto& [mac, ap] : *set) {
      if (!owner->has_session(ap->session)) lost.emplace(ap->session.id, ap->session);
    }
  }
  for (const auto& [id, session] : lost) {
    RRM_LOG(LOG_TRACE, "Session %u has ended unnoticed", id);
    process_drop_session(session);
  }
}

// What the counters of messages count is nothing; operators' scripts expect them in the line.
void RrmWorker::log_state() const {
  RRM_LOG(LOG_TRACE,
          "Domain %s state (%d) aps: %zu unanswered_aps: %zu aps_to_delete: %zu queued: %zu load_balancer_lock: %d "
          "load_balancer_stop: %d counter: %d Metrics: subscribe-request 0/0 unsubscribe-request 0/0 rrm-response 0/0 "
          "rrm-mode-response 0/0 rrm-config-changed 0/0 timer-request-modes 0/0 timer-request-scan 0/0 "
          "timer-optimize 0/0",
          name.c_str(), static_cast<int>(tpc_dca_->rrm_status()), aps_.size(), unanswered_aps_.size(),
          deleted_aps_.size(), static_cast<std::size_t>(queue.size()), load_balancer_lock_, load_balancer_stop_,
          load_balancer_counter_);
}

// The last AP that was gone will not come back: those that are left share the air among them.
void RrmWorker::replan_after_departure() {
  if (!deleted_aps_.empty() || aps_.empty() || tpc_dca_->scanning()) return;
  if (config_.use_80211v) {
    for (const auto& [mac, ap] : aps_) ap->radios.mark_lists_stale();
  }
  tpc_dca_->force_optimization();
}

void RrmWorker::process_timer_balance() {
  for (const auto& [mac, ap] : aps_) {
    for (Radio& radio : ap->radios.list) {
      radio.assoc.tick_expected();
      const bool prioritised = config_.use_80211v || radio.locked_80211v == 0;
      if (prioritised && radio.update_priority()) load_balancer_802dot11v_->planning_update_802dot11v(false);
    }
  }
  if (config_.use_balance) load_balancer_->process_timer();
  arm_balance_timer();
}

// Entrances for other threads

bool RrmWorker::force_optimization() {
  mutex.assert_held();
  switch (tpc_dca_->rrm_status()) {
    case RrmStatus::DELAY_BEFORE_OPT_FORCE:
      RRM_LOG(LOG_TRACE, "Force optimization already planned domain %s", name.c_str());
      return true;
    case RrmStatus::IDLE:
    case RrmStatus::DELAY_BEFORE_OPT:
    case RrmStatus::TPC_COMPUTING:
      if (tpc_dca_->force_optimization_from_api()) return true;
      break;
    case RrmStatus::WAIT_MODE_RESPONSE:
    case RrmStatus::WAIT_SCAN_RESULTS:
      break;
  }
  RRM_LOG(LOG_TRACE, "NOT Planning optimization domain %s status %d", name.c_str(),
          static_cast<int>(tpc_dca_->rrm_status()));
  return false;
}

std::vector<RrmWorker::ApSession> RrmWorker::ap_sessions() const {
  mutex.assert_held();
  std::vector<ApSession> sessions;
  for (const ApMap* set : {&unanswered_aps_, &deleted_aps_, &aps_}) {
    for (const auto& [mac, ap] : *set) sessions.push_back({ap->mac, ap->session});
  }
  return sessions;
}

bool RrmWorker::report_ap(const MacAddr& mac, ApForm form, JsonWriter& writer) const {
  mutex.assert_held();
  const std::pair<const ApMap*, const char*> sets[] = {
      {&aps_, "active-ap"}, {&deleted_aps_, "deleted-ap"}, {&unanswered_aps_, "unanswered-ap"}};
  for (const auto& [set, key] : sets) {
    const auto ap = find_ap(*set, mac);
    if (ap == nullptr) continue;
    JsonWriter object = JsonWriter::object(writer, key);
    form == ApForm::links ? ap->dump_fbt_json(object) : ap->dump_json(object);
    return true;
  }
  return false;
}

RrmWorker::ApCounts RrmWorker::ap_counts() const {
  mutex.assert_held();
  return {count_of(aps_), count_of(unanswered_aps_), count_of(deleted_aps_)};
}

void RrmWorker::report_status(JsonWriter& writer) {
  mutex.assert_held();
  JsonWriter details = JsonWriter::object(writer, "details");
  details.add_string("name", name);
  write_metrics(details);
  details.add_int("ap-count", count_of(aps_));
  details.add_int("unanswered-ap-count", count_of(unanswered_aps_));
  details.add_int("deleted-ap-count", count_of(deleted_aps_));
  details.add_int("queue-size", static_cast<std::int32_t>(queue.size()));
  details.add_int("rrm-status", static_cast<std::int32_t>(tpc_dca_->rrm_status()));
  details.add_int("fbt-status", tpc_dca_->fbt_status());
  write_set(aps_, details, "aps", &ApMap::dump_factory_json);
  write_set(unanswered_aps_, details, "unanswered-aps", &ApMap::dump_factory_json);
  write_set(deleted_aps_, details, "deleted-aps", &ApMap::dump_factory_json);
}

void RrmWorker::report_details(JsonWriter& writer) {
  mutex.assert_held();
  report_status(writer);
  write_set(aps_, writer, "aps", &ApMap::dump_json);
  write_set(unanswered_aps_, writer, "unanswered-aps", &ApMap::dump_json);
  write_set(deleted_aps_, writer, "deleted-aps", &ApMap::dump_json);
}

}  // namespace rrm
