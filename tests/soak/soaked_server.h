// The whole server with all its threads, on a network and a time that a test drives. After each second the test waits
// until nothing is left to be done in it: the ping worker has scanned, every domain's worker has run its timers and
// served its queue, and all that was said to access points has left.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "RrmWorker.h"
#include "core/mutex.h"
#include "soak/lockstep_clock.h"
#include "soak/wire.h"

namespace soak {

class SoakedServer final : public rrm::RRM {
 public:
  SoakedServer(rrm::GlobalConfig& config, LockstepClock& clock);
  ~SoakedServer() override;

  // Starts as master, and returns when it listens.
  void begin();
  // A second passes for every thread.
  void second();
  // All that was said to the server is heard by whom it concerns, and what that brought forth has left. What access
  // points have to say to that is the next thing.
  void settle();
  // What is being planned is.
  void await_plans();
  // The far ends have done something since.
  bool has_news() const { return wire_.actions() != settled_; }

  Wire& wire() { return wire_; }
  std::vector<std::shared_ptr<rrm::RrmWorker>> domains() const;
  // The sessions of access points that the server knows, by their numbers.
  std::vector<std::uint32_t> sessions() const;
  // The session at the server's end of a connection; empty where it has none yet.
  std::optional<std::uint32_t> session_of(lws* line) const;
  // The messages that wait for domains, and the sessions that something waits for.
  std::size_t queued() const;
  std::vector<std::uint32_t> waited_for() const;
  // The most that were seen to wait for one domain when the second's messages had come, since the last call.
  std::size_t take_longest_queue() { return std::exchange(longest_queue_, 0); }

 private:
  void await_dispatched() RRM_EXCLUDES(mutex_);
  void await_first_scan() RRM_EXCLUDES(mutex_);
  void await_scan(std::uint64_t number) RRM_EXCLUDES(mutex_);
  void await_end_of_scan() const;
  void pass_twice();

  LockstepClock& clock_;
  Wire wire_;
  lws* beat_ = nullptr;  // a session of the test's own: its messages end with the jsonificator

  mutable rrm::Mutex mutex_;
  std::condition_variable_any changed_;
  std::uint64_t beats_sent_ = 0;
  std::uint64_t settled_ = 0;  // actions of the far ends
  std::size_t longest_queue_ = 0;
  std::uint64_t beats_ RRM_GUARDED_BY(mutex_) = 0;
  std::uint64_t scans_ RRM_GUARDED_BY(mutex_) = 0;
};

}  // namespace soak
