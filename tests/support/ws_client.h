// A WebSocket client for tests, over a raw loopback socket, so that it can also do what a well-behaved client never
// would. Every wait is a poll on the socket that ends with what was waited for or after `patience`. One thread a
// client.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rrm::testing {

// A TCP port of the loopback that was free a moment ago, and is none of those that the kernel hands to connecting
// clients: a test beside this one may open a thousand.
int free_port();

enum class Opcode : std::uint8_t { continuation = 0, text = 1, binary = 2, close = 8, ping = 9, pong = 10 };

struct Frame {
  Opcode opcode = Opcode::text;
  std::string payload;
  bool final = true;
  bool operator==(const Frame&) const = default;
};
void PrintTo(const Frame& frame, std::ostream* out);

// A frame as a client sends it: masked.
std::string masked_frame(const Frame& frame);
// One text message as a single frame.
std::string masked_text(std::string_view text);
// The two-byte status of a close frame's payload; 0 if it has none.
int close_status(const Frame& frame);

class WsClient {
 public:
  static constexpr std::chrono::milliseconds patience{60000};

  struct Upgrade {
    std::string path = "/apb/rrm";
    std::optional<std::string> protocol = "websock-rrm";  // without one the header is left out
  };

  // Connects, trying again until something listens on the port; throws std::runtime_error after `patience`. A
  // receive buffer above 0 is asked of the kernel before the connection is made.
  explicit WsClient(int port, int receive_buffer = 0);
  // Connects and upgrades; throws std::runtime_error if the server does not accept.
  static WsClient open(int port, int receive_buffer = 0);
  ~WsClient();
  WsClient(WsClient&& other) noexcept;
  WsClient& operator=(WsClient&& other) noexcept;

  // Sends the request of an upgrade and returns the status of the answer, 101 if the server accepts; 0 if the
  // connection ended without an answer.
  int upgrade(const Upgrade& request);
  int upgrade() { return upgrade(Upgrade()); }
  static std::string upgrade_request(const Upgrade& request);
  // The status of the HTTP answer that arrives next; 0 if the connection ended without one.
  int http_status();

  // All of the bytes, or false if the peer ended the connection first.
  bool send_raw(std::string_view bytes);
  bool send_text(std::string_view text) { return send_raw(masked_text(text)); }
  // One message cut into these fragments.
  bool send_fragments(const std::vector<std::string>& parts);
  bool send(const Frame& frame) { return send_raw(masked_frame(frame)); }

  // The next frame of any kind; empty if the connection ended or nothing whole came in time.
  std::optional<Frame> receive(std::chrono::milliseconds wait = patience);
  // The next text message, its fragments joined; other frames in between are passed over.
  std::optional<std::string> receive_text(std::chrono::milliseconds wait = patience);
  // Reads on until the peer ends the connection; false if it does not do so in time.
  bool wait_for_end(std::chrono::milliseconds wait = patience);

  // Ends the connection at once with a reset: the peer sees an error, not an end of file.
  void reset();
  void close();
  int fd() const { return fd_; }

 private:
  using Deadline = std::chrono::steady_clock::time_point;
  // Reads what is there into `input_`, waiting for something until the deadline; false at its end or the stream's.
  bool read_more(Deadline deadline);
  std::optional<Frame> take_frame();
  std::optional<Frame> receive_until(Deadline deadline);

  int fd_ = -1;
  bool ended_ = false;  // the peer has ended the connection
  std::string input_;
};

}  // namespace rrm::testing
