// Hostile connections, each on a thread of its own, that play one kind after the other until they are stopped.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "core/mutex.h"
#include "hostile/kinds.h"

namespace hostile {

class Storm {
 public:
  // Of so many connections.
  Storm(std::size_t size, std::vector<Kind> kinds, Surroundings surroundings);
  // Stops.
  ~Storm();
  Storm(const Storm&) = delete;
  Storm& operator=(const Storm&) = delete;

  void stop();
  std::size_t played() const { return played_; }
  bool has_played_every_kind() const;
  // What had another fate than it has alone, a line each.
  std::vector<std::string> surprises() const;

 private:
  void rage(std::size_t first, int number);
  void play(const Kind& kind, int number);
  void note(const std::string& line);

  const std::vector<Kind> kinds_;
  const Surroundings surroundings_;
  mutable rrm::Mutex mutex_;
  std::vector<std::string> surprises_ RRM_GUARDED_BY(mutex_);
  std::vector<std::atomic<std::size_t>> played_of_kind_;
  std::atomic<std::size_t> played_{0};
  std::atomic<bool> is_over_{false};
  std::vector<std::thread> threads_;  // last: they use all the others
};

}  // namespace hostile
