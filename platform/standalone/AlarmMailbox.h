// Where any thread leaves an alarm for the thread that owns the port. Nobody waits and nothing is locked: alarms hang
// on a list whose head is one atomic pointer, and the owner takes the whole list at once. A descriptor becomes readable
// when something lies there. So many may lie there; more are refused.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "platform/bus/UniqueFd.h"

namespace zal {

class AlarmMailbox {
 public:
  static constexpr std::size_t capacity = 65536;

  // The process's own; never destroyed, since threads may raise alarms until the end.
  static AlarmMailbox& instance();

  AlarmMailbox();
  ~AlarmMailbox();
  AlarmMailbox(const AlarmMailbox&) = delete;
  AlarmMailbox& operator=(const AlarmMailbox&) = delete;

  // Any thread. False if the mailbox is full.
  [[nodiscard]] bool put(std::string frame);
  // The owner alone: everything that lies there, oldest first.
  std::vector<std::string> take();
  int fd() const { return wake_.get(); }

 private:
  struct Entry {
    std::string frame;
    Entry* next;
  };

  bus::UniqueFd wake_;
  std::atomic<Entry*> newest_{nullptr};
  std::atomic<std::size_t> count_{0};
};

}  // namespace zal
