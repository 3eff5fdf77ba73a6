// Another implementation of the controller's libraries, for the tests of the daemon: it notes what the daemon asks of
// them and answers what a test wants. One per process, safe from any thread; a test starts it anew.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/mutex.h"
#include "platform/standalone/BoardTable.h"
#include "zal/IMsg.h"
#include "zal/IpcPort.h"

namespace zal::testing {

class Platform {
 public:
  static Platform& instance();

  void reset();

  // Every use, in order: "warn: text", "alarm: location 3", "send: 174", "reload".
  std::vector<std::string> notes() const RRM_EXCLUDES(mutex_);
  void note(const std::string& line) RRM_EXCLUDES(mutex_);
  void clear() RRM_EXCLUDES(mutex_);
  // The messages that a port was given to send, in order; cleared with the notes.
  std::vector<std::shared_ptr<IMsg>> sent() const RRM_EXCLUDES(mutex_);
  void keep(std::shared_ptr<IMsg> message) RRM_EXCLUDES(mutex_);

  // What the platform answers. Set on the main thread before they are asked for.
  bool registers = true;
  bool is_ordered_to_run = true;
  bool timer_has_expired = false;
  int timer_resets = 0;
  bool gives_trees = true;  // whether cfg_get_empty finds memory for one
  BoardTable boards;
  // Called by each pass of a port's service; a port without one is finalised at once.
  std::function<void(IpcPort& port, long ms)> serve;
  // What was registered last, for a `serve` that has a message to deliver.
  IpcPort::MsgCallback callback;
  void* user = nullptr;

 private:
  Platform() = default;

  mutable rrm::Mutex mutex_;
  std::vector<std::string> notes_ RRM_GUARDED_BY(mutex_);
  std::vector<std::shared_ptr<IMsg>> sent_ RRM_GUARDED_BY(mutex_);
};

}  // namespace zal::testing
