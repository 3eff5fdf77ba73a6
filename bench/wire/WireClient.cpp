#include "WireClient.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zal::bench {
namespace {

constexpr std::size_t read_size = 262144;
constexpr std::size_t opened_at_once = 128;  // below the server's backlog

constexpr unsigned char text_opcode = 0x81;
constexpr unsigned char ping_opcode = 0x89;
constexpr unsigned char pong_opcode = 0x8a;

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// The key is constant: it costs the server what any other would, and the client nothing.
std::string masked(unsigned char opcode, std::string_view payload) {
  constexpr std::array<char, 4> key{0x37, 0x5a, 0x21, 0x6c};
  std::string frame(1, static_cast<char>(opcode));
  const auto append_length = [&](unsigned marker, int bytes) {
    frame += static_cast<char>(0x80 | marker);
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
      frame += static_cast<char>(payload.size() >> shift & 0xff);
  };
  if (payload.size() < 126) {
    append_length(static_cast<unsigned>(payload.size()), 0);
  } else if (payload.size() < 65536) {
    append_length(126, 2);
  } else {
    append_length(127, 8);
  }
  frame.append(key.data(), key.size());
  for (std::size_t i = 0; i < payload.size(); ++i) frame += static_cast<char>(payload[i] ^ key[i % key.size()]);
  return frame;
}

void allow_descriptors(std::size_t count) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) fail("getrlimit");
  constexpr rlim_t others = 64;
  if (limit.rlim_max < count + others) throw std::runtime_error("the hard limit of open files is too low");
  limit.rlim_cur = limit.rlim_max;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) fail("setrlimit");
}

// A frame of the server, which is not masked: its payload, and how long it is with its head. An empty optional in the
// sense of `size` 0 means that it is not whole yet.
struct Incoming {
  unsigned char first = 0;
  std::string_view payload;
  std::size_t size = 0;
};

Incoming first_frame(std::string_view bytes) {
  if (bytes.size() < 2) return {};
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  std::size_t head = 2;
  std::uint64_t length = byte(1) & 0x7fU;
  if (length >= 126) {
    head = length == 126 ? 4 : 10;
    if (bytes.size() < head) return {};
    length = 0;
    for (std::size_t i = 2; i < head; ++i) length = length << 8 | byte(i);
  }
  if (bytes.size() - head < length) return {};
  return {byte(0), bytes.substr(head, length), head + length};
}

}  // namespace

Frame text_frame(std::string_view text) {
  return std::make_shared<const std::string>(masked(text_opcode, text));
}

double now_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

WireClient::WireClient(int port, std::size_t connections, OnText on_text)
    : port_(port), on_text_(std::move(on_text)), connections_(connections), buffer_(read_size) {
  allow_descriptors(connections);
  epoll_ = epoll_create1(EPOLL_CLOEXEC);
  if (epoll_ < 0) fail("epoll_create1");
}

WireClient::~WireClient() {
  for (const Connection& connection : connections_) {
    if (connection.fd >= 0) ::close(connection.fd);
  }
  ::close(epoll_);
}

void WireClient::open_all(double patience) {
  std::size_t started = 0;
  const bool opened = serve_until(
      [&] {
        while (started < size() && started < open_ + opened_at_once) start(started++);
        return open_ == size() || ended_ > 0;
      },
      patience);
  if (!opened || ended_ > 0) {
    throw std::runtime_error(std::to_string(open_) + " of " + std::to_string(size()) + " connections were opened");
  }
}

void WireClient::start(std::size_t index) {
  Connection& connection = connections_[index];
  connection.fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (connection.fd < 0) fail("socket");
  const int on = 1;
  if (setsockopt(connection.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0) fail("setsockopt");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port_));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(connection.fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 &&
      errno != EINPROGRESS) {
    fail("connect");
  }
  connection.phase = Phase::connecting;
  connection.watches_output = true;
  epoll_event event{};
  event.events = EPOLLIN | EPOLLOUT;
  event.data.u64 = index;
  if (epoll_ctl(epoll_, EPOLL_CTL_ADD, connection.fd, &event) != 0) fail("epoll_ctl");
}

void WireClient::send(std::size_t index, Frame frame) {
  Connection& connection = connections_[index];
  connection.output.push_back(std::move(frame));
  if (connection.output.size() == 1) write(index);
}

void WireClient::serve(int milliseconds) {
  std::array<epoll_event, 1024> events;
  const int ready = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), milliseconds);
  if (ready < 0 && errno != EINTR) fail("epoll_wait");
  for (int i = 0; i < ready; ++i) {
    const epoll_event& event = events[static_cast<std::size_t>(i)];
    handle(event.data.u64, event.events);
  }
}

bool WireClient::serve_until(const std::function<bool()>& condition, double patience) {
  const double deadline = now_seconds() + patience;
  while (!condition()) {
    if (now_seconds() > deadline) return false;
    serve(10);
  }
  return true;
}

void WireClient::handle(std::size_t index, std::uint32_t events) {
  Connection& connection = connections_[index];
  if (connection.phase == Phase::connecting && (events & EPOLLOUT) != 0) {
    static const auto request = std::make_shared<const std::string>(
        "GET /apb/rrm HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Key: AQIDBAUGBwgJCgsMDQ4PEA==\r\nSec-WebSocket-Protocol: websock-rrm\r\n"
        "Sec-WebSocket-Version: 13\r\n\r\n");
    connection.phase = Phase::upgrading;
    connection.output.push_back(request);
  }
  if ((events & EPOLLOUT) != 0) write(index);
  if (connection.phase != Phase::closed && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) != 0) read(index);
}

void WireClient::read(std::size_t index) {
  Connection& connection = connections_[index];
  const ssize_t count = ::recv(connection.fd, buffer_.data(), buffer_.size(), 0);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (count <= 0) return end(index);
  const std::string_view bytes(buffer_.data(), static_cast<std::size_t>(count));
  if (connection.phase == Phase::open && connection.input.empty()) {
    const std::size_t taken = take_frames(index, bytes);
    connection.input = bytes.substr(taken);
    return;
  }
  connection.input += bytes;
  if (connection.phase == Phase::upgrading) take_upgrade(index);
  if (connection.phase == Phase::open) {
    const std::string input = std::exchange(connection.input, {});
    connection.input = input.substr(take_frames(index, input));
  }
}

void WireClient::take_upgrade(std::size_t index) {
  Connection& connection = connections_[index];
  const std::size_t end_of_head = connection.input.find("\r\n\r\n");
  if (end_of_head == std::string::npos) return;
  if (connection.input.find(" 101 ") > end_of_head) return end(index);
  connection.input.erase(0, end_of_head + 4);
  connection.phase = Phase::open;
  ++open_;
}

std::size_t WireClient::take_frames(std::size_t index, std::string_view bytes) {
  std::size_t taken = 0;
  while (connections_[index].phase == Phase::open) {
    const Incoming frame = first_frame(bytes.substr(taken));
    if (frame.size == 0) break;
    taken += frame.size;
    if (frame.first == text_opcode) {
      on_text_(index, frame.payload);
    } else if (frame.first == ping_opcode) {
      send(index, std::make_shared<const std::string>(masked(pong_opcode, frame.payload)));
      on_ping_(index);
    } else {
      end(index);
    }
  }
  return taken;
}

void WireClient::write(std::size_t index) {
  Connection& connection = connections_[index];
  while (!connection.output.empty()) {
    const std::string& frame = *connection.output.front();
    const ssize_t count =
        ::send(connection.fd, frame.data() + connection.sent, frame.size() - connection.sent, MSG_NOSIGNAL);
    if (count < 0 && errno != EAGAIN && errno != EINTR) return end(index);
    connection.sent += count > 0 ? static_cast<std::size_t>(count) : 0;
    if (connection.sent < frame.size()) break;
    connection.output.pop_front();
    connection.sent = 0;
  }
  watch(index, !connection.output.empty());
}

void WireClient::watch(std::size_t index, bool output) {
  Connection& connection = connections_[index];
  if (connection.watches_output == output) return;
  connection.watches_output = output;
  epoll_event event{};
  event.events = output ? EPOLLIN | EPOLLOUT : EPOLLIN;
  event.data.u64 = index;
  if (epoll_ctl(epoll_, EPOLL_CTL_MOD, connection.fd, &event) != 0) fail("epoll_ctl");
}

void WireClient::end(std::size_t index) {
  Connection& connection = connections_[index];
  ::close(connection.fd);
  if (connection.phase == Phase::open) --open_;
  connection = Connection();
  ++ended_;
}

}  // namespace zal::bench
