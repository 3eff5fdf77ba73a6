#include "support/ws_client.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ostream>
#include <random>
#include <stdexcept>
#include <utility>

namespace rrm::testing {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int new_socket() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) throw std::runtime_error("no socket");
  return fd;
}

int connect_once(int port, int receive_buffer) {
  const int fd = new_socket();
  const int on = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (receive_buffer > 0) ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
  const sockaddr_in address = loopback(port);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return fd;
  ::close(fd);
  return -1;
}

int milliseconds_until(steady_clock::time_point deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now()).count();
  return static_cast<int>(std::max<std::int64_t>(left, 0));
}

void append_length(std::string& bytes, std::size_t length) {
  const auto masked = [](std::size_t code) { return static_cast<char>(0x80 | code); };
  int extra = 0;
  if (length < 126) {
    bytes.push_back(masked(length));
  } else {
    extra = length < 65536 ? 2 : 8;
    bytes.push_back(masked(extra == 2 ? 126 : 127));
  }
  for (int shift = 8 * (extra - 1); shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(length >> shift));
}

std::size_t big_endian(std::string_view bytes) {
  std::size_t number = 0;
  for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
  return number;
}

}  // namespace

int free_port() {
  std::random_device entropy;
  std::uniform_int_distribution<int> ports(20000, 32000);
  for (int attempt = 0; attempt < 100; ++attempt) {
    const int port = ports(entropy);
    const int fd = new_socket();
    const sockaddr_in address = loopback(port);
    const bool bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    if (bound) return port;
  }
  throw std::runtime_error("no free port");
}

void PrintTo(const Frame& frame, std::ostream* out) {
  *out << "{opcode " << static_cast<int>(frame.opcode) << (frame.final ? ", final, \"" : ", \"") << frame.payload
       << "\"}";
}

std::string masked_frame(const Frame& frame) {
  static constexpr std::array<char, 4> mask{0x37, 0x5a, 0x21, 0x6c};
  std::string bytes(1, static_cast<char>((frame.final ? 0x80 : 0) | static_cast<int>(frame.opcode)));
  append_length(bytes, frame.payload.size());
  bytes.append(mask.data(), mask.size());
  for (std::size_t i = 0; i < frame.payload.size(); ++i) {
    bytes.push_back(static_cast<char>(frame.payload[i] ^ mask[i % mask.size()]));
  }
  return bytes;
}

std::string masked_text(std::string_view text) {
  return masked_frame({Opcode::text, std::string(text), true});
}

int close_status(const Frame& frame) {
  if (frame.opcode != Opcode::close || frame.payload.size() < 2) return 0;
  return static_cast<int>(big_endian(std::string_view(frame.payload).substr(0, 2)));
}

WsClient::WsClient(int port, int receive_buffer) {
  const Deadline deadline = steady_clock::now() + patience;
  while ((fd_ = connect_once(port, receive_buffer)) < 0) {
    if (steady_clock::now() >= deadline) throw std::runtime_error("nobody listens");
    ::poll(nullptr, 0, 1);
  }
}

WsClient WsClient::open(int port, int receive_buffer) {
  WsClient client(port, receive_buffer);
  if (const int status = client.upgrade(); status != 101) {
    throw std::runtime_error("upgrade answered with " + std::to_string(status));
  }
  return client;
}

WsClient::~WsClient() {
  close();
}

WsClient::WsClient(WsClient&& other) noexcept
    : fd_(std::exchange(other.fd_, -1)), ended_(other.ended_), input_(std::move(other.input_)) {}

WsClient& WsClient::operator=(WsClient&& other) noexcept {
  std::swap(fd_, other.fd_);
  std::swap(ended_, other.ended_);
  std::swap(input_, other.input_);
  return *this;
}

std::string WsClient::upgrade_request(const Upgrade& request) {
  std::string text = "GET " + request.path +
                     " HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                     "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n";
  if (request.protocol) text += "Sec-WebSocket-Protocol: " + *request.protocol + "\r\n";
  return text + "\r\n";
}

int WsClient::upgrade(const Upgrade& request) {
  send_raw(upgrade_request(request));
  return http_status();
}

int WsClient::http_status() {
  const Deadline deadline = steady_clock::now() + patience;
  std::size_t end = 0;
  while ((end = input_.find("\r\n\r\n")) == std::string::npos) {
    if (!read_more(deadline)) return 0;
  }
  const int status = std::stoi(input_.substr(input_.find(' ') + 1, 3));
  input_.erase(0, end + 4);
  return status;
}

bool WsClient::send_raw(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool WsClient::send_fragments(const std::vector<std::string>& parts) {
  std::string bytes;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    bytes += masked_frame({i == 0 ? Opcode::text : Opcode::continuation, parts[i], i + 1 == parts.size()});
  }
  return send_raw(bytes);
}

bool WsClient::read_more(Deadline deadline) {
  pollfd ready{fd_, POLLIN, 0};
  if (ended_ || ::poll(&ready, 1, milliseconds_until(deadline)) < 1) return false;
  std::array<char, 65536> buffer;
  const ssize_t got = ::recv(fd_, buffer.data(), buffer.size(), 0);
  if (got <= 0) {
    ended_ = true;
    return false;
  }
  input_.append(buffer.data(), static_cast<std::size_t>(got));
  return true;
}

std::optional<Frame> WsClient::take_frame() {
  if (input_.size() < 2) return std::nullopt;
  std::size_t length = static_cast<unsigned char>(input_[1]) & 0x7f;
  const std::size_t extra = length == 126 ? 2 : length == 127 ? 8 : 0;
  const std::size_t header = 2 + extra;
  if (input_.size() < header) return std::nullopt;
  if (extra > 0) length = big_endian(std::string_view(input_).substr(2, extra));
  if (input_.size() - header < length) return std::nullopt;
  const auto first = static_cast<unsigned char>(input_[0]);
  Frame frame{static_cast<Opcode>(first & 0x0f), input_.substr(header, length), (first & 0x80) != 0};
  input_.erase(0, header + length);
  return frame;
}

std::optional<Frame> WsClient::receive_until(Deadline deadline) {
  std::optional<Frame> frame;
  while (!(frame = take_frame()) && read_more(deadline)) {
  }
  return frame;
}

std::optional<Frame> WsClient::receive(milliseconds wait) {
  return receive_until(steady_clock::now() + wait);
}

std::optional<std::string> WsClient::receive_text(milliseconds wait) {
  const Deadline deadline = steady_clock::now() + wait;
  std::string text;
  while (const auto frame = receive_until(deadline)) {
    if (frame->opcode != Opcode::text && frame->opcode != Opcode::continuation) continue;
    text += frame->payload;
    if (frame->final) return text;
  }
  return std::nullopt;
}

bool WsClient::wait_for_end(milliseconds wait) {
  const Deadline deadline = steady_clock::now() + wait;
  while (read_more(deadline)) input_.clear();
  return ended_;
}

void WsClient::reset() {
  const linger at_once{1, 0};
  ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  close();
}

void WsClient::close() {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

}  // namespace rrm::testing
