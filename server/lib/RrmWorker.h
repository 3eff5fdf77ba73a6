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
#include "Worker.h"
#include "core/TimerList.h"
#include "model/ApMap.h"
#include "model/bands.h"
#include "protocol/IncomingMessage.h"
#include "protocol/messages.h"

namespace rrm {

class TpcDcaSubworker;

class RrmWorker final : public Worker {
 public:
  RrmWorker(GlobalConfig* global_config, const DomainConfig& settings, const std::string& domain, RRM* server,
            std::int32_t time_zone, std::int32_t queue_capacity);
  ~RrmWorker() override;

  void process_message(JsonReader& json, BaseSession& session) override RRM_REQUIRES(mutex);
  void report_status(JsonWriter& writer) override;
  void report_details(JsonWriter& writer) override;

  // Entrances for other threads. Require: called in execute_locked.
  // An operator's request for an optimisation; true if one is or was planned.
  bool force_optimization();
  struct ApSession {
    MacAddr mac;
    BaseSession session;
  };
  // The sessions of all APs: of the silent ones, the gone ones, then the active ones.
  std::vector<ApSession> ap_sessions() const;

  // For the sub-workers, within a pass.
  const DomainConfig& config() const { return config_; }
  std::int32_t time_zone_offset() const { return time_zone_offset_; }
  ApMap& aps() { return aps_; }
  ApMap& deleted_aps() { return deleted_aps_; }
  ApMap& unanswered_aps() { return unanswered_aps_; }
  ChannelPools& channel_pools() { return channel_pools_; }
  TpcDcaSubworker& tpc_dca() { return *tpc_dca_; }
  // Steering pauses while the optimisation measures.
  void set_load_balancer_lock(bool lock) { load_balancer_lock_ = lock; }
  // Sends a message at once.
  void send(JsonWriter message, const BaseSession& session);
  // Keeps a message for the end of the pass. A null text is an error, and nothing is kept.
  void broadcast_buffer_add(const char* text, const BaseSession& session);

  // The parts of the worker's loop.
  bool connect() override;
  bool keep_running(const bool& now_running) override { return now_running; }
  void before_messages() override RRM_REQUIRES(mutex);
  void after_messages() override RRM_EXCLUDES(mutex);
  void disconnect() override RRM_EXCLUDES(mutex);

 private:
  static constexpr std::uint32_t timer_periodic = 0;  // of the tick and of the balance timer alike

  // Messages.
  void dispatch(protocol::Command command, const JsonReader& json, const BaseSession& session);
  void dispatch_from_ap(protocol::Command command, const JsonReader& json, const BaseSession& session);
  void process_pipeline_answer(protocol::Command command, const JsonReader& json, const BaseSession& session,
                               const MacAddr& mac);
  void process_balancer_cmd(protocol::Command command, const MacAddr& mac);
  void process_config_changed(const JsonReader& json, const BaseSession& session, const MacAddr& mac);
  void process_unsubscribe(const BaseSession& session, const MacAddr& mac);
  void process_drop_session(const BaseSession& session);
  void process_stop_load_balancer();

  // Subscribes: each road of an AP has its own function.
  void process_subscribe_request(const JsonReader& json, const BaseSession& session, const MacAddr& mac);
  void resubscribe_known(ApMap& set, const std::shared_ptr<ApEntry>& ap, const JsonReader& json,
                         const BaseSession& session, const MacAddr& mac);
  void resubscribe_deleted(const std::shared_ptr<ApEntry>& ap, const JsonReader& json, const BaseSession& session,
                           const MacAddr& mac);
  void subscribe_new(const JsonReader& json, const BaseSession& session, const MacAddr& mac);
  void accept_subscribe(const ApEntry& ap);
  void refuse_subscribe(protocol::SubscribeFailure failure, const BaseSession& session, const MacAddr& mac);
  void update_session(ApEntry& ap, const BaseSession& session);
  void process_exists_ap(protocol::Command command, const JsonReader& json, const BaseSession& session,
                         const MacAddr& mac, ApEntry& ap, bool force);

  // Time.
  void process_timer_message();
  void process_timer_balance();
  void log_state() const;
  void replan_after_last_departure();
  void count_down_load_balancer_stop();

  void stop_if_empty();
  void raise_domain_changed() const;
  void write_counts(JsonWriter& details) const;

  // Constant after construction.
  RRM* const server_;
  GlobalConfig* const global_;  // only `enabled` is asked of it
  const DomainConfig config_;
  const std::int32_t time_zone_offset_;  // seconds east of UTC

  // Under the worker's mutex, which a pass holds.
  ApMap aps_;
  ApMap deleted_aps_;     // without a session, until they return or their time is up
  ApMap unanswered_aps_;  // silent in this cycle
  ChannelPools channel_pools_;
  std::vector<std::unique_ptr<IRrmSubworker>> subworkers_;
  TpcDcaSubworker* tpc_dca_;  // the first of them
  TimerList timers_;
  bool load_balancer_stop_ = false;         // paused by an order, until the counter has run down
  bool load_balancer_lock_ = false;         // paused by the optimisation
  std::int32_t load_balancer_counter_ = 0;  // ticks
  std::deque<std::shared_ptr<QueueMessage>> broadcast_buffer_ RRM_GUARDED_BY(mutex);
};

}  // namespace rrm
