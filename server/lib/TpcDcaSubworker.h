// Drives one domain through an optimisation: waits for the planned moment, asks every AP for its radios' mode, orders a
// scan, collects what the APs hear, plans channels and power in a thread of its own, applies the result and tells the
// APs. All but the computing runs on the domain worker's thread, driven by messages and by one-shot timers.
//
// Each number of the state is part of the outside contract: it stands in the domain's backup and in event 24, which is
// raised whenever a step sets the state. A cycle in which no AP is left is planned anew.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "IRrmSubworker.h"
#include "OptimizationThread.h"

namespace rrm {

class JsonWriter;

enum class RrmStatus : std::int32_t {
  IDLE = 0,                    // nothing planned
  DELAY_BEFORE_OPT = 1,        // waiting for the daily optimisation time
  WAIT_MODE_RESPONSE = 2,      // rrm-request-mode sent, collecting rrm-mode-response
  WAIT_SCAN_RESULTS = 3,       // rrm-update sent, collecting rrm-response
  DELAY_BEFORE_OPT_FORCE = 4,  // waiting after a forced request
  TPC_COMPUTING = 5,           // thread running
};

// Which neighbour list a message got, and whether an 802.11v list is another than was sent last. Of a plain 802.11k
// list nobody remembers what was sent.
enum class AddedList { none_or_plain, unchanged, changed };

class TpcDcaSubworker final : public IRrmSubworker {
 public:
  // `optimization` is what the optimisation thread runs.
  TpcDcaSubworker(RrmWorker& worker, OptimizationThread::Body optimization);

  void force_optimization() override;
  // An operator's request: planned in every state, whatever use_optimization_event says. Always true.
  bool force_optimization_from_api();
  // Takes rrm-response and rrm-mode-response, and ignores those that come when nobody waits for them.
  bool process_message(const JsonReader& json, protocol::Command command, const std::shared_ptr<ApEntry>& ap) override;
  // What the end of the present wait leads to.
  void process_timer() override;
  void stop() override;

  // After the domain was read from a backup. The cycle starts over `delay` seconds later; until then requests only
  // wait.
  void restore(std::int32_t rrm_status, std::int32_t fbt_status, std::int32_t delay);

  // Plans the next cycle: `force_delay` from now with `force`, else at the time of day that is configured, if one is.
  void planning_request_modes(bool force);
  // APs on a channel that they may not use go through the cycle without having answered.
  void mark_off_profile_aps_ready_for_remediation();

  // rrm-info for one AP, with its neighbour list: at once with `direct`, else at the end of the worker's pass. With
  // `only_if_changed` nothing is sent, radios included, while the 802.11v list stays as it is.
  void post_tpc_results_ap(const ApEntry& ap, bool direct, bool with_radios, bool only_if_changed);
  // Adds to a message the neighbour list that the AP gets.
  AddedList add_neighbour_list(const ApEntry& ap, JsonWriter& message) const;

  // Sends new 802.11k lists `force_delay` from now. Refused during a cycle, whose results bring new lists anyway.
  void planning_update_802dot11k();
  // The same, with a line of its own in the log.
  void update_802dot11k();

  // 802.11r: links all VAPs anew, `force_delay` from now or at once, and tells the APs what changed.
  void planning_update_802dot11r();
  void update_802dot11r();
  // fbt-info for one AP whose links changed, with `force` for any that has 802.11r.
  void post_results_802dot11r_ap(const ApEntry& ap, bool direct, bool force);

  RrmStatus rrm_status() const { return rrm_status_; }
  // 1 while an 802.11r update is planned, else 0.
  std::int32_t fbt_status() const { return fbt_status_; }
  // A plan is being made and its thread has not ended yet.
  bool computing() const;
  // True in the states between the scan's request and its end, when a returning AP would be missed.
  bool scanning() const;

 private:
  // An id has one timer at a time.
  enum TimerId : std::uint32_t {
    timer_pipeline = 0,
    timer_802dot11k = 1,
    timer_802dot11r = 2,
    timer_vrrp = 3,
    timer_count
  };
  void set_timer(TimerId id, std::int32_t delay);
  void remove_timer(TimerId id);
  void expire(TimerId id);

  // State.
  bool has_work() const;
  void set_status(RrmStatus status);
  void go_idle();
  void raise_status() const;
  void raise_domain_changed() const;
  RrmStatus restored_status(std::int32_t number) const;

  // Planning.
  std::int64_t seconds_to_optimization_time() const;
  void plan_cycle(RrmStatus status, std::int32_t delay);
  void plan_nothing();

  // The steps of a cycle.
  void process_timer_request_modes();
  void process_timer_request_scan();
  void process_timer_optimize();
  void check_optimization_complete();
  void process_timer_vrrp();
  void wait_for_mode_responses();
  bool start_remediation();
  void planning_optimize();
  void launch_optimization_thread();
  void take_back_unanswered();
  void delay_cycle(const char* what);

  // What APs are asked, and what they answer.
  void post_request_mode();
  void post_force_update();
  std::int32_t expected_scan_time() const;
  void process_mode_response(const JsonReader& json, const std::shared_ptr<ApEntry>& ap);
  void process_response(const JsonReader& json, const std::shared_ptr<ApEntry>& ap);
  void read_radios(const JsonReader& json, const std::shared_ptr<ApEntry>& ap);

  // The result.
  void use_result(const std::unique_ptr<OptimizationResult>& result);
  void apply_result(const OptimizationResult& result);
  void apply_radio(ApEntry& ap, const Radio& planned);
  void post(const JsonWriter& message, const ApEntry& ap, bool direct);
  void post_tpc_results(bool with_radios);
  void plan_lists_without_cycle();

  // The timers of the lists and links.
  bool between_cycles() const;
  void process_timer_802dot11k();
  void process_timer_802dot11r();
  void post_results_802dot11r();

  // Forcing.
  void ignore_threshold_from_now();
  bool clear_orphan();
  void forget_thread();

  // The worker's thread only.
  RrmStatus rrm_status_ = RrmStatus::IDLE;
  std::int32_t fbt_status_ = 0;
  std::int32_t scan_time_ = 0;  // seconds that one AP's scan is expected to take
  // Nothing clears it: a run moves a radio to the cheapest channel, by however little.
  bool ignore_dca_threshold_ = true;
  bool rerun_pending_ = false;                               // a forced request came while the thread was running
  bool vrrp_restore_pending_ = false;                        // restored; requests wait for the timer
  std::array<std::uint32_t, timer_count> timer_settings_{};  // how often each timer was set or removed
  OptimizationThread thread_;                                // ends with this object
};

}  // namespace rrm
