#include "TpcDcaSubworker.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

#include "LoadBalancer802dot11vSubworker.h"
#include "RrmWorker.h"
#include "core/clock.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "planning/fbt_links.h"
#include "protocol/keys.h"
#include "protocol/messages.h"

namespace rrm {
namespace {

constexpr std::int64_t day = 86400;             // seconds
constexpr std::int32_t thread_poll_period = 1;  // seconds

// The generator serves the 802.11r keys only.
void seed_random_generator() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  std::srand(static_cast<unsigned>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count()));
}

// Seconds until it is `time_of_day` (seconds) again in a zone so far east of UTC; never 0.
std::int64_t seconds_until(std::int64_t time_of_day, std::int64_t zone_offset, std::int64_t wall_seconds) {
  const std::int64_t delay = time_of_day - zone_offset - wall_seconds % day;
  if (delay > 0) return delay;
  return delay + day > 0 ? delay + day : delay + 2 * day;
}

// The payload of event 24.
std::string status_text(const std::string& domain, RrmStatus status) {
  JsonWriter location;
  location.add_string("location", domain);
  std::string text = location.to_string();
  text.pop_back();
  return text + ", \"status\":" + std::to_string(static_cast<std::int32_t>(status)) + "}";
}

// What one AP can scan: the channels that its enabled radios may use, by band.
ChannelPools own_scan_channels(const Radios& radios) {
  ChannelPools channels;
  for (const Radio& radio : radios.list) {
    if (!radio.status) continue;
    for (const std::int32_t channel : radio.available_channels) {
      const std::int32_t band = radio.radio_band_of(channel);
      if (band != 0) channels[static_cast<std::size_t>(band)].insert(channel);
    }
  }
  return channels;
}

}  // namespace

// Life

TpcDcaSubworker::TpcDcaSubworker(RrmWorker& worker, OptimizationThread::Body optimization)
    : IRrmSubworker(worker), thread_(std::move(optimization)) {
  seed_random_generator();
}

void TpcDcaSubworker::stop() {
  thread_.stop();
}

void TpcDcaSubworker::restore(std::int32_t rrm_status, std::int32_t fbt_status, std::int32_t delay) {
  vrrp_restore_pending_ = true;
  fbt_status_ = fbt_status;
  rrm_status_ = restored_status(rrm_status);
  forget_thread();
  worker_.set_load_balancer_lock(false);
  raise_status();
  set_timer(timer_vrrp, delay);
}

RrmStatus TpcDcaSubworker::restored_status(std::int32_t number) const {
  switch (static_cast<RrmStatus>(number)) {
    case RrmStatus::IDLE:
    case RrmStatus::DELAY_BEFORE_OPT:
    case RrmStatus::DELAY_BEFORE_OPT_FORCE:
      return static_cast<RrmStatus>(number);
    case RrmStatus::WAIT_MODE_RESPONSE:
    case RrmStatus::WAIT_SCAN_RESULTS:
    case RrmStatus::TPC_COMPUTING:
      RRM_LOG(LOG_WARNING, "Restore domain %s: mid-cycle rrm-status %d remapped to DELAY_BEFORE_OPT_FORCE",
              domain_.c_str(), number);
      return RrmStatus::DELAY_BEFORE_OPT_FORCE;
  }
  RRM_LOG(LOG_WARNING, "Restore domain %s: unknown rrm-status %d remapped to IDLE", domain_.c_str(), number);
  return RrmStatus::IDLE;
}

void TpcDcaSubworker::process_timer_vrrp() {
  vrrp_restore_pending_ = false;
  if (rrm_status_ != RrmStatus::IDLE) {
    RRM_LOG(LOG_TRACE, "VRRP restore timer: restarting optimization pipeline on domain %s from state %d",
            domain_.c_str(), static_cast<int>(rrm_status_));
    forget_thread();
    go_idle();
    force_optimization();
  }
  if (fbt_status_ == 1 || (fbt_status_ == 0 && config_.use_80211r)) planning_update_802dot11r();
}

// State

// Timers that are due together all run, also one that an earlier of them has replaced: that one must do nothing.
void TpcDcaSubworker::set_timer(TimerId id, std::int32_t delay) {
  const auto callback = [this, id, setting = ++timer_settings_[id]] {
    if (setting == timer_settings_[id]) expire(id);
  };
  timers_.replace(id, callback, delay);
}

void TpcDcaSubworker::expire(TimerId id) {
  switch (id) {
    case timer_pipeline:
      return process_timer();
    case timer_802dot11k:
      return process_timer_802dot11k();
    case timer_802dot11r:
      return process_timer_802dot11r();
    case timer_vrrp:
    case timer_count:
      return process_timer_vrrp();
  }
}

void TpcDcaSubworker::remove_timer(TimerId id) {
  ++timer_settings_[id];
  timers_.remove(id);
}

bool TpcDcaSubworker::has_work() const {
  if (config_.use_dca || config_.use_tpc) return true;
  return !config_.use_all_ap_balance && (config_.use_80211k || config_.use_80211v || config_.use_balance);
}

void TpcDcaSubworker::raise_status() const {
  emit_event_text(24, status_text(domain_, rrm_status_));
}

void TpcDcaSubworker::raise_domain_changed() const {
  emit_event_text(23, domain_);
}

void TpcDcaSubworker::set_status(RrmStatus status) {
  rrm_status_ = status;
  raise_status();
}

void TpcDcaSubworker::go_idle() {
  set_status(RrmStatus::IDLE);
  worker_.set_load_balancer_lock(false);
}

bool TpcDcaSubworker::scanning() const {
  return rrm_status_ == RrmStatus::WAIT_MODE_RESPONSE || rrm_status_ == RrmStatus::WAIT_SCAN_RESULTS;
}

void TpcDcaSubworker::process_timer() {
  switch (rrm_status_) {
    case RrmStatus::IDLE:
      return;
    case RrmStatus::DELAY_BEFORE_OPT:
    case RrmStatus::DELAY_BEFORE_OPT_FORCE:
      return process_timer_request_modes();
    case RrmStatus::WAIT_MODE_RESPONSE:
      return process_timer_request_scan();
    case RrmStatus::WAIT_SCAN_RESULTS:
      return process_timer_optimize();
    case RrmStatus::TPC_COMPUTING:
      return check_optimization_complete();
  }
}

// Planning

void TpcDcaSubworker::planning_request_modes(bool force) {
  if (!has_work()) {
    remove_timer(timer_pipeline);
    go_idle();
    return plan_lists_without_cycle();
  }
  if (force) {
    remove_timer(timer_802dot11k);
    remove_timer(timer_802dot11r);
    fbt_status_ = 0;
  }
  const std::int64_t delay = force ? config_.force_delay : seconds_to_optimization_time();
  if (delay > 0) {
    plan_cycle(force ? RrmStatus::DELAY_BEFORE_OPT_FORCE : RrmStatus::DELAY_BEFORE_OPT,
               static_cast<std::int32_t>(delay));
  } else {
    plan_nothing();
  }
}

// There is nothing to measure, but where all APs count as neighbours their lists need no measurement.
void TpcDcaSubworker::plan_lists_without_cycle() {
  if (config_.use_all_ap_balance) {
    if (config_.use_80211v) {
      worker_.load_balancer_802dot11v().planning_update_802dot11v(true);
    } else if (config_.use_80211k) {
      planning_update_802dot11k();
    }
  }
  if (config_.use_80211r) planning_update_802dot11r();
}

// 0 where no time of day is set, or the system cannot tell the time.
std::int64_t TpcDcaSubworker::seconds_to_optimization_time() const {
  if (!config_.use_optimization_time) return 0;
  const std::int32_t zone_offset = worker_.time_zone_offset();
  RRM_LOG(LOG_TRACE, "Optimization time %d sec %s time_zone_offset %d sec", config_.optimization_time_seconds,
          config_.optimization_time.c_str(), zone_offset);
  const auto now = wall_seconds();
  if (!now) return 0;
  const std::int64_t delay = seconds_until(config_.optimization_time_seconds, zone_offset, *now);
  RRM_LOG(LOG_TRACE, "Optimization interval %d", static_cast<int>(delay));
  return delay;
}

void TpcDcaSubworker::plan_cycle(RrmStatus status, std::int32_t delay) {
  const RrmStatus old_status = std::exchange(rrm_status_, status);
  worker_.set_load_balancer_lock(false);
  RRM_LOG(LOG_TRACE, "Planning domain %s update %d after %d sec", domain_.c_str(), static_cast<int>(status), delay);
  set_timer(timer_pipeline, delay);
  if (old_status == status) return;
  raise_domain_changed();
  raise_status();
}

void TpcDcaSubworker::plan_nothing() {
  remove_timer(timer_pipeline);
  raise_domain_changed();
  go_idle();
}

// Asking for modes

void TpcDcaSubworker::process_timer_request_modes() {
  RRM_LOG(LOG_TRACE, "Send rrm-request-mode messages on domain %s", domain_.c_str());
  for (ChannelSet& pool : worker_.channel_pools()) pool.clear();  // the answers fill them again
  take_back_unanswered();
  aps_.move_without_radio_to(unanswered_aps_, away_ticks(config_));
  if (aps_.empty()) {
    take_back_unanswered();
    RRM_LOG(LOG_TRACE, "not optimization scan on domain %s", domain_.c_str());
    go_idle();
    return planning_request_modes(false);
  }
  remove_timer(timer_802dot11k);
  post_request_mode();
  wait_for_mode_responses();
}

void TpcDcaSubworker::take_back_unanswered() {
  aps_.take_all_from(unanswered_aps_);
  aps_.clear_received();
  aps_.reset_cycle_flags();
}

void TpcDcaSubworker::post_request_mode() {
  RRM_LOG(LOG_TRACE, "Post request mode");
  for (const auto& [mac, ap] : aps_) {
    worker_.broadcast_buffer_add(protocol::request_mode(domain_, ap->mac).to_string(), ap->session);
  }
}

void TpcDcaSubworker::wait_for_mode_responses() {
  worker_.set_load_balancer_lock(true);
  set_status(RrmStatus::WAIT_MODE_RESPONSE);
  set_timer(timer_pipeline, config_.mode_response_wait);
}

// Asking for a scan

void TpcDcaSubworker::process_timer_request_scan() {
  const std::size_t dropped = aps_.move_inactive_to(unanswered_aps_, away_ticks(config_));
  RRM_LOG(LOG_TRACE, "Send rrm-update messages on domain %s size %zu drop %d", domain_.c_str(), aps_.size(),
          static_cast<int>(dropped));
  if (aps_.empty()) {
    aps_.take_all_from(unanswered_aps_);
    if (!start_remediation()) return delay_cycle("Optimization scan");
  } else {
    scan_time_ = expected_scan_time();
    aps_.clear_received();
    post_force_update();
  }
  planning_optimize();
}

// Nobody has answered: APs on a forbidden channel are planned all the same, without a scan. False if there are none.
bool TpcDcaSubworker::start_remediation() {
  const bool any =
      std::any_of(aps_.begin(), aps_.end(), [](const auto& node) { return node.second->radios.any_off_profile(); });
  if (!any) return false;
  RRM_LOG(LOG_TRACE, "Off-profile remediation without mode-response on domain %s", domain_.c_str());
  mark_off_profile_aps_ready_for_remediation();
  ignore_threshold_from_now();
  scan_time_ = 0;
  return true;
}

std::int32_t TpcDcaSubworker::expected_scan_time() const {
  if (config_.use_dunva_rrm_scan) return config_.dunva_scan_time * config_.dunva_scan_count;
  const ChannelPools& pools = worker_.channel_pools();
  const std::size_t most = std::max({std::size_t{14}, pools[5].size(), pools[6].size()});
  return (static_cast<std::int32_t>(most) * 7 / 10 + 1) * config_.scan_step_time;
}

// In the ordinary mode one AP scans after the other.
void TpcDcaSubworker::post_force_update() {
  RRM_LOG(LOG_TRACE, "Post rrm-update");
  const bool fast = config_.use_dunva_rrm_scan;
  std::int32_t place = 0;
  for (const auto& [mac, ap] : aps_) {
    const std::int32_t delay = fast ? 0 : place++ * scan_time_;
    const JsonWriter message = protocol::scan_order(
        domain_, ap->mac, delay, fast ? worker_.channel_pools() : own_scan_channels(ap->radios), fast);
    worker_.broadcast_buffer_add(message.to_string(), ap->session);
  }
}

void TpcDcaSubworker::planning_optimize() {
  set_status(RrmStatus::WAIT_SCAN_RESULTS);
  mark_off_profile_aps_ready_for_remediation();
  const bool complete = std::all_of(aps_.begin(), aps_.end(), [](const auto& node) {
    return node.second->radios.received && node.second->radios.any_on_air();
  });
  if (complete) {
    RRM_LOG(LOG_TRACE, "Start optimize now on domain %s", domain_.c_str());
    return process_timer_optimize();
  }
  const std::int32_t delay = scan_time_ * 3 + 1;
  RRM_LOG(LOG_TRACE, "Start optimize after %d sec on domain %s", delay, domain_.c_str());
  set_timer(timer_pipeline, delay);
}

void TpcDcaSubworker::mark_off_profile_aps_ready_for_remediation() {
  bool any = false;
  for (const auto& [mac, ap] : aps_) {
    if (!ap->radios.any_off_profile()) continue;
    ap->radios.received = true;
    ap->active = true;
    any = true;
  }
  if (!any) return;
  ignore_threshold_from_now();
  RRM_LOG(LOG_TRACE, "Off-profile APs marked ready for remediation on domain %s", domain_.c_str());
}

// Answers

bool TpcDcaSubworker::process_message(const JsonReader& json, protocol::Command command,
                                      const std::shared_ptr<ApEntry>& ap) {
  switch (command) {
    case protocol::Command::rrm_mode_response:
      if (has_work() && rrm_status_ == RrmStatus::WAIT_MODE_RESPONSE) process_mode_response(json, ap);
      return true;
    case protocol::Command::rrm_response:
      if (has_work() && rrm_status_ == RrmStatus::WAIT_SCAN_RESULTS) process_response(json, ap);
      return true;
    default:
      return false;
  }
}

void TpcDcaSubworker::process_mode_response(const JsonReader& json, const std::shared_ptr<ApEntry>& ap) {
  read_radios(json, ap);
  ap->active = true;
  wait_for_mode_responses();
}

void TpcDcaSubworker::process_response(const JsonReader& json, const std::shared_ptr<ApEntry>& ap) {
  read_radios(json, ap);
  aps_.fill_from_json_rf_environment(*ap, json.get(protocol::key::rf_environment));
  ap->radios.received = true;
  planning_optimize();
}

void TpcDcaSubworker::read_radios(const JsonReader& json, const std::shared_ptr<ApEntry>& ap) {
  ChannelPools& pools = worker_.channel_pools();
  Radios reported = ap->radios;
  reported.from_json(json, pools, true, false);
  const bool channels_differ = !ap->radios.channels_equal(reported);
  ap->read_radios(json, pools, true, channels_differ);
  aps_.reindex(ap);
}

// Computing

void TpcDcaSubworker::process_timer_optimize() {
  mark_off_profile_aps_ready_for_remediation();
  const std::size_t dropped = aps_.move_silent_to(unanswered_aps_, away_ticks(config_));
  RRM_LOG(LOG_TRACE, "Start optimization on domain %s size %zu drop %d", domain_.c_str(), aps_.size(),
          static_cast<int>(dropped));
  if (!aps_.empty()) return launch_optimization_thread();
  aps_.take_all_from(unanswered_aps_);
  delay_cycle("Optimization");
}

void TpcDcaSubworker::launch_optimization_thread() {
  OptimizationContext context;
  context.aps = aps_.clone();
  context.config = config_;
  context.do_dca = config_.use_dca;
  context.do_tpc = config_.use_tpc;
  context.force_dca = ignore_dca_threshold_;
  context.do_report = config_.use_rrm_report && (config_.use_tpc || config_.use_dca);
  context.domain = domain_;
  context.reports_path = worker_.reports_path();
  thread_.start(std::move(context));
  set_status(RrmStatus::TPC_COMPUTING);
  set_timer(timer_pipeline, thread_poll_period);
}

void TpcDcaSubworker::check_optimization_complete() {
  if (!thread_.done()) return set_timer(timer_pipeline, thread_poll_period);
  thread_.join();
  use_result(thread_.take_result());
  take_back_unanswered();
  go_idle();
  if (std::exchange(rerun_pending_, false)) {
    force_optimization();
  } else {
    planning_request_modes(false);
  }
  RRM_LOG(LOG_TRACE, "Optimization on domain %s finished", domain_.c_str());
}

void TpcDcaSubworker::use_result(const std::unique_ptr<OptimizationResult>& result) {
  if (result == nullptr) {
    RRM_LOG(LOG_WARNING, "Optimization thread completed on domain %s but no result was produced", domain_.c_str());
  } else if (result->success) {
    apply_result(*result);
    post_tpc_results(true);
    update_802dot11r();
  } else if (!result->error_message.empty()) {
    RRM_LOG(LOG_WARNING, "Optimization cancelled or failed: %s", result->error_message.c_str());
  } else {
    RRM_LOG(LOG_WARNING, "Optimization on domain %s finished unsuccessfully with no error message", domain_.c_str());
  }
}

void TpcDcaSubworker::apply_result(const OptimizationResult& result) {
  for (const auto& [mac, planned] : result.radios) {
    const auto ap = aps_.find_by_any_mac(mac);
    if (ap == nullptr) continue;
    for (const Radio& radio : planned.list) apply_radio(*ap, radio);
  }
}

void TpcDcaSubworker::apply_radio(ApEntry& ap, const Radio& planned) {
  Radio* const radio = ap.radios.find(planned.id);
  if (radio == nullptr) return;
  const std::int32_t old_channel = std::exchange(radio->channel, planned.channel);
  radio->power = planned.power;
  radio->power_changed = planned.power_changed;
  radio->refresh_eirp();
  radio->conflicted = planned.conflicted;
  radio->primary_channel = planned.primary_channel;
  radio->normalize_primary_channel();
  if (radio->channel != old_channel && radio->channel >= 1) {
    radio->set_neighbour_channel(aps_, radio->mac, radio->channel);
  }
}

void TpcDcaSubworker::post_tpc_results(bool with_radios) {
  RRM_LOG(LOG_TRACE, "Post tpc-results");
  for (const auto& [mac, ap] : aps_) post_tpc_results_ap(*ap, false, with_radios, false);
  worker_.load_balancer_802dot11v().commit_priorities();
}

void TpcDcaSubworker::post_tpc_results_ap(const ApEntry& ap, bool direct, bool with_radios, bool only_if_changed) {
  JsonWriter message = protocol::rrm_info(ap, config_, with_radios);
  const AddedList added = add_neighbour_list(ap, message);
  if (added != AddedList::none_or_plain) {
    const std::string mac = ap.mac.to_string();
    if (added == AddedList::unchanged && only_if_changed) {
      RRM_LOG(LOG_TRACE, "802.11kv list has not changed on %s, no need to send new one", mac.c_str());
      return;
    }
    RRM_LOG(LOG_TRACE,
            "802.11kv list has changed (or has no actual lists after reboot) on %s, sending new 802.11kv list",
            mac.c_str());
  }
  post(message, ap, direct);
}

void TpcDcaSubworker::post(const JsonWriter& message, const ApEntry& ap, bool direct) {
  if (direct) {
    worker_.send(message, ap.session);
  } else {
    worker_.broadcast_buffer_add(message.to_string(), ap.session);
  }
}

// Lists and links

// APs that have just gone stay in the plain lists until they are dropped.
AddedList TpcDcaSubworker::add_neighbour_list(const ApEntry& ap, JsonWriter& message) const {
  if (config_.use_80211v && ap.radios.any_11kv()) {
    JsonWriter list = JsonWriter::array(message, protocol::key::neighbour_list);
    return worker_.load_balancer_802dot11v().fill_lists(ap, list) ? AddedList::changed : AddedList::unchanged;
  }
  if (config_.use_80211k && ap.radios.any_11k()) {
    JsonWriter list = JsonWriter::array(message, protocol::key::neighbour_list);
    aps_.write_802dot11k(ap, list, ap.visible_members);
    deleted_aps_.write_802dot11k(ap, list, ap.visible_members);
  }
  return AddedList::none_or_plain;
}

bool TpcDcaSubworker::between_cycles() const {
  return rrm_status_ == RrmStatus::IDLE || rrm_status_ == RrmStatus::DELAY_BEFORE_OPT;
}

void TpcDcaSubworker::planning_update_802dot11k() {
  if (config_.use_80211k && between_cycles()) {
    RRM_LOG(LOG_TRACE, "Planning update 802dot11k domain %s", domain_.c_str());
    set_timer(timer_802dot11k, config_.force_delay);
  } else {
    RRM_LOG(LOG_TRACE, "NOT Planning update 802dot11k domain %s status %d", domain_.c_str(),
            static_cast<int>(rrm_status_));
  }
}

void TpcDcaSubworker::update_802dot11k() {
  RRM_LOG(LOG_TRACE, "Update  domain %s", domain_.c_str());
  planning_update_802dot11k();
}

void TpcDcaSubworker::process_timer_802dot11k() {
  if (config_.use_80211k && between_cycles()) {
    RRM_LOG(LOG_TRACE, "Process update 802dot11k domain %s", domain_.c_str());
    post_tpc_results(false);
  } else {
    RRM_LOG(LOG_TRACE, "Not update 802dot11k domain %s", domain_.c_str());
  }
}

void TpcDcaSubworker::planning_update_802dot11r() {
  if (vrrp_restore_pending_) {
    fbt_status_ = 1;
  } else if (config_.use_80211r && between_cycles()) {
    RRM_LOG(LOG_TRACE, "Planning update 802dot11r domain %s", domain_.c_str());
    set_timer(timer_802dot11r, config_.force_delay);
    fbt_status_ = 1;
  } else {
    RRM_LOG(LOG_TRACE, "NOT Planning update 802dot11r domain %s", domain_.c_str());
  }
}

void TpcDcaSubworker::process_timer_802dot11r() {
  if (config_.use_80211r && between_cycles()) {
    RRM_LOG(LOG_TRACE, "Process update 802dot11r domain %s", domain_.c_str());
    update_802dot11r();
    raise_domain_changed();  // the links must reach the backup
  } else {
    RRM_LOG(LOG_TRACE, "Not update 802dot11r domain %s", domain_.c_str());
  }
}

void TpcDcaSubworker::update_802dot11r() {
  if (!config_.use_80211r) return;
  const bool wildcard = worker_.use_wildcard_80211r();
  RRM_LOG(LOG_TRACE, "Update 802dot11r domain %s", domain_.c_str());
  fill_key_holders(aps_, wildcard);
  RRM_LOG(LOG_TRACE, "morvane use_wildcard_80211r=%d", wildcard);
  const bool changed = update_fbt_links(aps_, config_, wildcard);
  RRM_LOG(LOG_TRACE, "FBT settings changed = %d", changed);
  fbt_status_ = 0;
  if (changed) post_results_802dot11r();
}

void TpcDcaSubworker::post_results_802dot11r() {
  for (const auto& [mac, ap] : aps_) {
    post_results_802dot11r_ap(*ap, false, false);
    ap->fbt_changed = false;
  }
}

void TpcDcaSubworker::post_results_802dot11r_ap(const ApEntry& ap, bool direct, bool force) {
  RRM_LOG(LOG_TRACE, "Post 802dot11r results domain %s", domain_.c_str());
  if (!config_.use_80211r) return;
  if (ap.fbt_changed || (force && ap.radios.any_11r())) post(protocol::fbt_info(ap, aps_, config_), ap, direct);
}

// The cycle has lost all its APs: they are asked again, after the delay of a forced request.
void TpcDcaSubworker::delay_cycle(const char* what) {
  aps_.clear_received();
  aps_.reset_cycle_flags();
  RRM_LOG(LOG_TRACE, "%s on domain %s delayed", what, domain_.c_str());
  go_idle();
  planning_request_modes(true);
}

// Forcing

void TpcDcaSubworker::force_optimization() {
  if (vrrp_restore_pending_) return set_status(RrmStatus::DELAY_BEFORE_OPT_FORCE);
  if (computing()) {
    rerun_pending_ = true;
    return;
  }
  if (clear_orphan()) {
    RRM_LOG(LOG_WARNING, "Force optimization: orphan TPC_COMPUTING on domain %s, restarting pipeline", domain_.c_str());
  }
  if (rrm_status_ == RrmStatus::DELAY_BEFORE_OPT_FORCE) {
    RRM_LOG(LOG_TRACE, "Force optimization already planned domain %s", domain_.c_str());
    return ignore_threshold_from_now();
  }
  RRM_LOG(LOG_TRACE, "Force optimization dmain %s", domain_.c_str());
  if (!config_.use_optimization_event) {
    RRM_LOG(LOG_TRACE, "Not event optimization dmain %s", domain_.c_str());
    return planning_request_modes(false);
  }
  planning_request_modes(true);
  ignore_threshold_from_now();
}

bool TpcDcaSubworker::force_optimization_from_api() {
  if (vrrp_restore_pending_) {
    set_status(RrmStatus::DELAY_BEFORE_OPT_FORCE);
    ignore_threshold_from_now();
    RRM_LOG(LOG_TRACE, "Force optimization from api deferred (VRRP restore) domain %s", domain_.c_str());
    return true;
  }
  if (computing()) {
    rerun_pending_ = true;
    RRM_LOG(LOG_TRACE, "Force optimization from api queued while COMPUTING domain %s", domain_.c_str());
    return true;
  }
  if (clear_orphan()) {
    RRM_LOG(LOG_WARNING, "Force optimization from api: orphan TPC_COMPUTING on domain %s, restarting pipeline",
            domain_.c_str());
  }
  RRM_LOG(LOG_TRACE, "Force optimization from api dmain %s", domain_.c_str());
  for (const auto& [mac, ap] : aps_) ap->radios.mark_lists_stale();
  planning_request_modes(true);
  ignore_threshold_from_now();
  return true;
}

void TpcDcaSubworker::ignore_threshold_from_now() {
  if (config_.use_dca) ignore_dca_threshold_ = true;
}

bool TpcDcaSubworker::computing() const {
  return rrm_status_ == RrmStatus::TPC_COMPUTING && thread_.started() && !thread_.done();
}

// The state says that a thread computes, but none does, or its end was not looked at yet: the cycle is given up.
bool TpcDcaSubworker::clear_orphan() {
  if (rrm_status_ != RrmStatus::TPC_COMPUTING) return false;
  forget_thread();
  go_idle();
  return true;
}

void TpcDcaSubworker::forget_thread() {
  thread_.stop();
  rerun_pending_ = false;
}

}  // namespace rrm
