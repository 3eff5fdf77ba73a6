// One access point of the campus that asks a question that is answered at once, again and again, each soon after the
// one before is answered, on a thread of its own. Its radios are off: it changes no plan.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <string>
#include <thread>

#include "support/ws_client.h"

namespace hostile {

class Asker {
 public:
  explicit Asker(int port);
  // Stops.
  ~Asker();
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  // Ends the session, after the answer to the last question.
  void stop();
  std::size_t answered() const { return answered_; }
  // Once stopped: whether every question was answered, and how long the slowest answer took.
  bool has_every_answer() const { return has_every_answer_; }
  std::chrono::milliseconds slowest() const { return slowest_; }

 private:
  void ask_on();
  bool is_told(const std::string& cmd);

  rrm::testing::WsClient socket_;
  bool has_every_answer_ = true;
  std::chrono::milliseconds slowest_{0};
  std::atomic<std::size_t> answered_{0};
  std::atomic<bool> is_over_{false};
  std::thread thread_;  // last: it uses all the others
};

}  // namespace hostile
