// WebSocket connections for measurements: many of them on one thread, with as little work for each message as possible,
// so that what is measured is the server. Text messages and pings; whatever else arrives ends the connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zal::bench {

// A frame ready to be sent, which many connections may share.
using Frame = std::shared_ptr<const std::string>;
Frame text_frame(std::string_view text);

// Seconds of the monotonic clock.
double now_seconds();

class WireClient {
 public:
  using OnText = std::function<void(std::size_t connection, std::string_view text)>;
  using OnPing = std::function<void(std::size_t connection)>;

  // Throws std::runtime_error, from the other operations too, when the kernel refuses what is asked of it.
  WireClient(int port, std::size_t connections, OnText on_text);
  ~WireClient();
  WireClient(const WireClient&) = delete;
  WireClient& operator=(const WireClient&) = delete;

  // Every ping is answered; this is told of each.
  void on_ping(OnPing on_ping) { on_ping_ = std::move(on_ping); }
  // Opens all connections, some at a time. Throws if they are not open after `patience` seconds or one is refused.
  void open_all(double patience);
  void send(std::size_t connection, Frame frame);
  // Serves what is ready, or waits for it that long.
  void serve(int milliseconds);
  // Serves until the condition holds; false if it does not after `patience` seconds.
  bool serve_until(const std::function<bool()>& condition, double patience);

  std::size_t size() const { return connections_.size(); }
  // Connections that the server has ended.
  std::size_t ended() const { return ended_; }

 private:
  enum class Phase : std::uint8_t { closed, connecting, upgrading, open };
  struct Connection {
    int fd = -1;
    Phase phase = Phase::closed;
    std::string input;  // the beginning of a frame, or of the answer to the upgrade
    std::deque<Frame> output;
    std::size_t sent = 0;  // bytes of the first frame
    bool watches_output = false;
  };

  void start(std::size_t index);
  void handle(std::size_t index, std::uint32_t events);
  void read(std::size_t index);
  void take_upgrade(std::size_t index);
  // Returns how many bytes were whole frames.
  std::size_t take_frames(std::size_t index, std::string_view bytes);
  void write(std::size_t index);
  void watch(std::size_t index, bool output);
  void end(std::size_t index);

  const int port_;
  const OnText on_text_;
  OnPing on_ping_ = [](std::size_t) {};
  int epoll_ = -1;
  std::vector<Connection> connections_;
  std::size_t open_ = 0;
  std::size_t ended_ = 0;
  std::vector<char> buffer_;
};

}  // namespace zal::bench
