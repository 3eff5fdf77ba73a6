// Frames that wait, the oldest first, up to so many bytes; one frame always fits. For one thread.
#pragma once

#include <cstddef>
#include <deque>
#include <utility>

namespace zal {

template <class Frame>
class Backlog {
 public:
  explicit Backlog(std::size_t max_bytes) : max_bytes_(max_bytes) {}

  // False if the frame does not fit; it is gone then.
  [[nodiscard]] bool push(Frame frame, std::size_t size) {
    if (!frames_.empty() && bytes_ + size > max_bytes_) return false;
    bytes_ += size;
    frames_.emplace_back(std::move(frame), size);
    return true;
  }

  // Requires: not empty.
  Frame pop() {
    auto [frame, size] = std::move(frames_.front());
    frames_.pop_front();
    bytes_ -= size;
    return std::move(frame);
  }

  bool empty() const { return frames_.empty(); }

 private:
  const std::size_t max_bytes_;
  std::deque<std::pair<Frame, std::size_t>> frames_;
  std::size_t bytes_ = 0;
};

}  // namespace zal
