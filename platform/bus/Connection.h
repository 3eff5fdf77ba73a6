// One end of a stream of frames over a non-blocking socket. It never waits: the owner polls fd() for reading, and for
// writing while wants_write(). What is sent is queued up to a limit, so that a peer that does not read costs memory
// only up to there. For one thread.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

#include "platform/bus/Frame.h"
#include "platform/bus/UniqueFd.h"

namespace zal::bus {

class Connection {
 public:
  // A peer that sends faster than it is served is read only this far ahead.
  static constexpr std::size_t read_chunk = 256u << 10;
  // What a peer that does not read may leave queued; one frame may always be queued.
  static constexpr std::size_t max_queued = 64u << 20;

  explicit Connection(UniqueFd fd);

  int fd() const { return fd_.get(); }
  // Takes what has come, at most one chunk. False when the peer is gone and nothing more will come.
  [[nodiscard]] bool read();
  std::optional<FrameReader::Item> next() { return reader_.next(); }
  bool is_inside_frame() const { return reader_.is_inside_frame(); }

  // Queues the bytes of whole frames. False if the queue is full: nothing of it is sent then.
  [[nodiscard]] bool send(std::string frame);
  bool wants_write() const { return !queue_.empty(); }
  std::size_t queued_bytes() const { return queued_; }
  // Writes what the peer takes. False when the peer is gone.
  [[nodiscard]] bool flush();
  // Ends the stream in both directions; the next read tells that the peer is gone.
  void shut_down();

 private:
  UniqueFd fd_;
  FrameReader reader_;
  std::deque<std::string> queue_;
  std::size_t queued_ = 0;   // bytes in queue_
  std::size_t written_ = 0;  // bytes of the first queued frame that are gone already
};

// Unix stream sockets by path. Paths longer than a socket address are fine, as long as the last component is short.
// An invalid descriptor with errno set on failure. Only the owner of a listening socket can connect to it. All
// descriptors are non-blocking and close on exec.
UniqueFd listen_at(const std::string& path);
UniqueFd connect_to(const std::string& path);
UniqueFd accept_from(int listener);

}  // namespace zal::bus
