// The thread of one domain. It owns the three sets of APs (active, gone, and silent in the present cycle), decides what
// each message means for them, runs the domain's tick, and hands what is not membership to its sub-workers, in order.
//
// Everything that touches the AP records happens on this thread, with the worker's mutex held, except for the
// optimisation thread, which has a copy. Other threads push messages, or enter through execute_locked. What is said to
// APs during a pass is either sent at once or buffered until the pass has released the mutex.
//
// A domain exists only while it has APs: with all three sets empty the worker ends itself. `global` and `server`
// outlive it; the settings of the domain are its own copy.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Config.h"
#include "IRrmSubworker.h"
#include "OptimizationThread.h"
#include "Worker.h"
#include "core/TimerList.h"
#include "model/ApMap.h"
#include "model/bands.h"
#include "protocol/IncomingMessage.h"
#include "protocol/messages.h"

namespace rrm {

class BlacklistSubworker;
class LoadBalancer802dot11vSubworker;
class LoadBalancerSubworker;
class TpcDcaSubworker;

class RrmWorker final : public Worker {
 public:
  // `optimization` is what the optimisation thread runs.
  RrmWorker(GlobalConfig* global_config, const DomainConfig& settings, const std::string& domain, RRM* server,
            std::int32_t time_zone, std::int32_t queue_capacity,
            OptimizationThread::Body optimization = run_optimization);
  ~RrmWorker() override;

  void process_message(JsonReader& json, BaseSession& session) RRM_REQUIRES(mutex) override;

  // The parts of the worker's loop.
  bool connect() RRM_EXCLUDES(mutex) override;
  bool keep_running(const bool& now_running) override { return now_running; }
  void before_messages() RRM_REQUIRES(mutex) override;
  void after_messages() RRM_EXCLUDES(mutex) override;
  void disconnect() RRM_EXCLUDES(mutex) override;

  // Entrances for other threads. Require: called in execute_locked.
  void report_status(JsonWriter& writer) override;
  void report_details(JsonWriter& writer) override;
  // Takes over the APs of a backup as APs that are gone, to be recognised when they return. Requires: nothing has been
  // received yet.
  void restore(const JsonReader& backup);
  // An operator's request for an optimisation; true if one is planned now.
  bool force_optimization();
  // Adds an AP that any of its addresses names: as "active-ap", "deleted-ap" or "unanswered-ap", whole or with its
  // 802.11r keys and links alone. False if the domain does not know it.
  enum class ApForm { whole, links };
  bool report_ap(const MacAddr& mac, ApForm form, JsonWriter& writer) const;
  struct ApCounts {
    std::int32_t active = 0;
    std::int32_t unanswered = 0;
    std::int32_t deleted = 0;
  };
  ApCounts ap_counts() const;
  struct ApSession {
    MacAddr mac;
    BaseSession session;
  };
  // The sessions of all APs: of the silent ones, the gone ones, then the active ones.
  std::vector<ApSession> ap_sessions() const;

  // For the sub-workers. Require: the mutex is held, as it is throughout a pass.
  const DomainConfig& config() const { return config_; }
  std::int32_t time_zone_offset() const { return time_zone_offset_; }
  std::string reports_path() const;
  ApMap& aps();
  ApMap& deleted_aps();
  ApMap& unanswered_aps();
  ChannelPools& channel_pools();
  TpcDcaSubworker& tpc_dca();
  BlacklistSubworker& blacklist();
  LoadBalancerSubworker& load_balancer();
  LoadBalancer802dot11vSubworker& load_balancer_802dot11v();
  bool use_wildcard_80211r() const;  // of the server's settings
  // Steering pauses while the optimisation measures, and for a minute by order, which a new order begins anew.
  void set_load_balancer_lock(bool lock);
  bool load_balancer_lock() const;
  void pause_load_balancer();
  bool pause_goes_on() const;  // a pause by order that does not end on the next tick
  bool balancing_paused() const;
  std::size_t queue_length() const { return static_cast<std::size_t>(queue.size()); }
  // Sends a message at once.
  void send(const JsonWriter& message, const BaseSession& session);
  // Keeps a message for the end of the pass. A null text is an error, and nothing is kept.
  void broadcast_buffer_add(const char* text, const BaseSession& session);

 private:
  static constexpr std::uint32_t timer_periodic = 0;  // of the tick and of the balance timer alike

  // Messages.
  void dispatch(protocol::Command command, const JsonReader& json, const BaseSession& session) RRM_REQUIRES(mutex);
  void dispatch_from_known_ap(protocol::Command command, const JsonReader& json, const BaseSession& session,
                              const MacAddr& mac) RRM_REQUIRES(mutex);
  void process_drop_session(const BaseSession& session) RRM_REQUIRES(mutex);
  void process_unsubscribe(const BaseSession& session, const MacAddr& mac) RRM_REQUIRES(mutex);
  void process_config_changed(const JsonReader& json, const BaseSession& session, const MacAddr& mac)
      RRM_REQUIRES(mutex);
  void change_config(ApMap& set, const std::shared_ptr<ApEntry>& ap, const JsonReader& json, const BaseSession& session,
                     const MacAddr& mac) RRM_REQUIRES(mutex);
  void process_balancer_cmd(protocol::Command command, const JsonReader& json, const MacAddr& mac) RRM_REQUIRES(mutex);
  void process_balancer_ap(protocol::Command command, const JsonReader& json, const std::shared_ptr<ApEntry>& ap)
      RRM_REQUIRES(mutex);

  // Subscribes: each road of an AP has its own function.
  void process_subscribe_request(const JsonReader& json, const BaseSession& session, const MacAddr& mac)
      RRM_REQUIRES(mutex);
  void resubscribe_known(ApMap& set, const std::shared_ptr<ApEntry>& ap, const JsonReader& json,
                         const BaseSession& session, const MacAddr& mac) RRM_REQUIRES(mutex);
  void resubscribe_deleted(const std::shared_ptr<ApEntry>& ap, const JsonReader& json, const BaseSession& session,
                           const MacAddr& mac) RRM_REQUIRES(mutex);
  void subscribe_new(const ApFactory& factory, const JsonReader& json, const BaseSession& session, const MacAddr& mac)
      RRM_REQUIRES(mutex);
  void accept_subscribe(const ApEntry& ap) RRM_REQUIRES(mutex);
  void refuse_subscribe(protocol::SubscribeFailure failure, const BaseSession& session, const MacAddr& mac)
      RRM_REQUIRES(mutex);
  void update_session(ApEntry& ap, const BaseSession& session) RRM_REQUIRES(mutex);
  void forget_closed_session(const BaseSession& session) RRM_REQUIRES(mutex);
  bool is_closed(const BaseSession& session) const RRM_REQUIRES(mutex);

  // A known AP's new word about itself.
  void process_exists_ap(protocol::Command command, const JsonReader& json, const BaseSession& session,
                         const MacAddr& mac, ApEntry& ap, bool force) RRM_REQUIRES(mutex);
  void replan_without_neighbours(ApEntry& ap, bool force) RRM_REQUIRES(mutex);
  struct ListUpdates {  // that a change makes due
    bool transition_lists = false;
    bool plain_lists = false;
    bool links = false;
  };
  ListUpdates list_updates(const Radios& reported, bool vaps_same, bool channels_same, bool priority_changed,
                           bool wildcard_changed) const;
  void plan_list_updates(const ListUpdates& updates) RRM_REQUIRES(mutex);

  // Time.
  void arm_tick() RRM_REQUIRES(mutex);
  void arm_balance_timer() RRM_REQUIRES(mutex);
  void process_timer_message() RRM_REQUIRES(mutex);
  void process_timer_balance() RRM_REQUIRES(mutex);
  void log_state() const RRM_REQUIRES(mutex);
  void forget_lost_sessions() RRM_REQUIRES(mutex);
  void replan_after_departure() RRM_REQUIRES(mutex);

  // Adds the APs of a backup's array to a set; bad ones are reported and left out.
  void restore_ap_map(ApMap& target, const JsonReader& array) RRM_REQUIRES(mutex);
  void restore_ap(ApMap& target, const JsonReader& json) RRM_REQUIRES(mutex);

  void stop_if_empty() RRM_REQUIRES(mutex);
  void raise_domain_changed() const;

  // Constant after construction.
  GlobalConfig* const global_;
  const DomainConfig config_;
  const std::int32_t time_zone_offset_;  // seconds east of UTC

  ApMap aps_ RRM_GUARDED_BY(mutex);             // active
  ApMap deleted_aps_ RRM_GUARDED_BY(mutex);     // without a session, until they return or their time is up
  ApMap unanswered_aps_ RRM_GUARDED_BY(mutex);  // silent in this cycle
  std::deque<std::uint32_t> closed_sessions_ RRM_GUARDED_BY(mutex);  // by order, the latest: they subscribe nobody
  ChannelPools channel_pools_ RRM_GUARDED_BY(mutex);
  std::vector<std::unique_ptr<IRrmSubworker>> subworkers_ RRM_GUARDED_BY(mutex);
  TpcDcaSubworker* tpc_dca_ RRM_GUARDED_BY(mutex);  // the first of them, the others behind it in this order
  BlacklistSubworker* blacklist_ RRM_GUARDED_BY(mutex);
  LoadBalancerSubworker* load_balancer_ RRM_GUARDED_BY(mutex);
  LoadBalancer802dot11vSubworker* load_balancer_802dot11v_ RRM_GUARDED_BY(mutex);
  TimerList timers_ RRM_GUARDED_BY(mutex);
  std::deque<std::shared_ptr<QueueMessage>> broadcast_buffer_ RRM_GUARDED_BY(mutex);
  bool load_balancer_stop_ RRM_GUARDED_BY(mutex) = false;         // by an order, until the counter has run down
  bool load_balancer_lock_ RRM_GUARDED_BY(mutex) = false;         // by the optimisation
  std::int32_t load_balancer_counter_ RRM_GUARDED_BY(mutex) = 0;  // ticks
};

}  // namespace rrm
