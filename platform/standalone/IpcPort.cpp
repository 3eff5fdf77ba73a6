#include "zal/IpcPort.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "platform/bus/Connection.h"
#include "platform/bus/bus_types.h"
#include "platform/standalone/AlarmMailbox.h"
#include "platform/standalone/Backlog.h"
#include "platform/standalone/RateLimit.h"
#include "platform/standalone/messages.h"

namespace zal {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto reconnect_interval = std::chrono::seconds(1);
constexpr std::size_t max_waiting_bytes = 64u << 20;
constexpr std::uint32_t complaints_per_second = 10;
constexpr int wait_without_end = -1;

std::string bus_path() {
  const char* path = std::getenv(bus::bus_variable);
  if (!path) throw std::runtime_error(std::string("cannot join the bus: ") + bus::bus_variable + " is not set");
  return path;
}

int milliseconds_until(Clock::time_point when) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

std::optional<int> type_of(const bus::Fields& frame) {
  const auto type = frame.number("type");
  using Limits = std::numeric_limits<int>;
  if (!type || *type < Limits::min() || *type > Limits::max()) return std::nullopt;
  return static_cast<int>(*type);
}

// Names the frame that is being served while it lives, however its service ends.
class ServedFrame {
 public:
  ServedFrame(std::optional<std::int64_t>& slot, std::optional<std::int64_t> id) : slot_(slot) { slot_ = id; }
  ~ServedFrame() { slot_.reset(); }
  ServedFrame(const ServedFrame&) = delete;
  ServedFrame& operator=(const ServedFrame&) = delete;

 private:
  std::optional<std::int64_t>& slot_;
};

}  // namespace

struct IpcPort::Impl {
  Impl(IpcPort& port, PortId id, const Trace& trace);
  ~Impl();

  bool wait_for_run();
  void run_once(std::chrono::milliseconds duration);
  void send(IMsg& message);

  IpcPort::MsgCallback callback;
  void* user = nullptr;
  bool sends = false;  // the peers are there
  bool finalized = false;

 private:
  bool connect();
  void reconnect_if_due();
  void lose_connection();
  [[nodiscard]] bool exchange(int timeout_ms);
  void read_frames();
  void take_in(bus::FrameReader::Item item);
  bool write_frames();
  void collect_alarms();
  void send_bus_frame(const bus::Fields& frame);
  void keep_for_peers(std::string frame);
  void serve_arrived(Clock::time_point deadline);
  void serve(const bus::Fields& frame);
  Error call_back(const bus::Fields& frame, std::optional<std::int64_t> id);
  void acknowledge(std::int64_t id, Error result);
  bool may_complain();
  void refuse_frame(const std::string& reason);

  IpcPort& port_;
  const PortId id_;
  const Trace& trace_;
  const std::string path_;
  std::optional<bus::Connection> connection_;
  Clock::time_point next_attempt_{};
  bool is_running_ = false;                           // the run order has come
  Backlog<bus::Fields> arrived_{max_waiting_bytes};   // not served yet; before the run order nothing is
  Backlog<std::string> outgoing_{max_waiting_bytes};  // not handed to the connection yet
  std::optional<std::int64_t> serving_id_;            // of the frame that the callback is busy with
  RateLimit complaints_{complaints_per_second};
};

IpcPort::Impl::Impl(IpcPort& port, PortId id, const Trace& trace)
    : port_(port), id_(id), trace_(trace), path_(bus_path()) {
  if (!connect()) throw std::runtime_error("cannot join the bus at '" + path_ + "': " + std::strerror(errno));
  write_frames();
}

// What is still queued goes out as far as the peer takes it at once.
IpcPort::Impl::~Impl() {
  write_frames();
}

// Bad input is logged line by line, unless it comes in masses.
bool IpcPort::Impl::may_complain() {
  const auto second = std::chrono::duration_cast<std::chrono::seconds>(Clock::now().time_since_epoch()).count();
  if (!complaints_.admit(static_cast<std::uint32_t>(second))) return false;
  if (const auto more = complaints_.take_refused(); more > 0)
    trace_.error("IPC: %llu more complaints like these", static_cast<unsigned long long>(more));
  return true;
}

void IpcPort::Impl::refuse_frame(const std::string& reason) {
  if (may_complain()) trace_.error("IPC: frame refused: %s", reason.c_str());
}

bool IpcPort::Impl::connect() {
  bus::UniqueFd fd = bus::connect_to(path_);
  next_attempt_ = Clock::now() + reconnect_interval;
  if (!fd) return false;
  connection_.emplace(std::move(fd));
  send_bus_frame({{"type", std::int64_t{bus::bus_open}},
                  {"port", std::int64_t{static_cast<int>(id_)}},
                  {"pid", std::int64_t{getpid()}},
                  {"running", is_running_}});
  return true;
}

void IpcPort::Impl::reconnect_if_due() {
  if (connection_ || Clock::now() < next_attempt_) return;
  if (connect()) trace_.sys("IPC: joined the bus again");
}

void IpcPort::Impl::lose_connection() {
  trace_.error("IPC: the bus is gone%s", connection_->is_inside_frame() ? " in the middle of a frame" : "");
  connection_.reset();
  next_attempt_ = Clock::now() + reconnect_interval;
}

bool IpcPort::Impl::wait_for_run() {
  send_bus_frame({{"type", std::int64_t{bus::bus_ready}}});
  while (connection_ && !is_running_) {
    [[maybe_unused]] const bool was_uninterrupted = exchange(wait_without_end);  // a signal is not the order: wait on
  }
  return is_running_;
}

void IpcPort::Impl::run_once(std::chrono::milliseconds duration) {
  const auto deadline = Clock::now() + duration;
  do {
    reconnect_if_due();
    const bool work_is_left = is_running_ && !arrived_.empty();
    const auto until = connection_ ? deadline : std::min(deadline, next_attempt_);
    if (!exchange(work_is_left ? 0 : milliseconds_until(until))) return;
    serve_arrived(deadline);
  } while (!finalized && Clock::now() < deadline);
  write_frames();
}

// Waits for traffic and moves it in both directions. False if a signal cut the wait short.
bool IpcPort::Impl::exchange(int timeout_ms) {
  if (!write_frames()) return true;
  pollfd fds[2] = {{AlarmMailbox::instance().fd(), POLLIN, 0}, {-1, POLLIN, 0}};
  if (connection_) {
    fds[1].fd = connection_->fd();
    if (connection_->wants_write()) fds[1].events |= POLLOUT;
  }
  if (poll(fds, 2, timeout_ms) < 0) return errno != EINTR;
  if (fds[0].revents) collect_alarms();
  if (fds[1].revents & (POLLIN | POLLHUP | POLLERR)) read_frames();
  return true;
}

// While frames wait to be served none are read, so a peer that floods fills its own socket, not our memory.
void IpcPort::Impl::read_frames() {
  if (is_running_ && !arrived_.empty()) return;
  const bool is_alive = connection_->read();
  while (auto item = connection_->next()) take_in(std::move(*item));
  if (!is_alive) lose_connection();
}

void IpcPort::Impl::take_in(bus::FrameReader::Item item) {
  if (item.too_long)
    return refuse_frame(std::to_string(item.length) + " bytes, at most " + std::to_string(bus::max_payload));
  std::string reason;
  auto frame = bus::parse_fields(item.payload, reason);
  if (!frame) return refuse_frame(reason);
  const auto type = type_of(*frame);
  if (!type) return refuse_frame("no number 'type'");
  if (*type == bus::bus_run)
    is_running_ = true;
  else if (!arrived_.push(std::move(*frame), item.length))
    refuse_frame("too many bytes wait for the run order");
}

void IpcPort::Impl::collect_alarms() {
  for (std::string& frame : AlarmMailbox::instance().take()) keep_for_peers(std::move(frame));
}

void IpcPort::Impl::keep_for_peers(std::string frame) {
  const std::size_t size = frame.size();
  if (!outgoing_.push(std::move(frame), size) && may_complain())
    trace_.error("IPC: frame of %zu bytes lost: the peer does not read", size);
}

void IpcPort::Impl::send_bus_frame(const bus::Fields& frame) {
  auto bytes = bus::encode_frame(frame);
  if (connection_ && bytes && !connection_->send(std::move(*bytes)) && may_complain())
    trace_.error("IPC: bus frame lost: the peer does not read");
}

// False if the connection was lost over it. A frame is handed over when the one before it has left, so that a lost
// connection loses as little as possible.
bool IpcPort::Impl::write_frames() {
  bool is_alive = !connection_ || connection_->flush();
  while (connection_ && is_alive && sends && !outgoing_.empty() && !connection_->wants_write())
    is_alive = connection_->send(outgoing_.pop()) && connection_->flush();
  if (!is_alive) lose_connection();
  return is_alive;
}

void IpcPort::Impl::serve_arrived(Clock::time_point deadline) {
  while (is_running_ && !finalized && !arrived_.empty()) {
    serve(arrived_.pop());
    if (Clock::now() >= deadline) return;
  }
}

void IpcPort::Impl::serve(const bus::Fields& frame) {
  const auto id = frame.number("id");
  const Error result = call_back(frame, id);
  if (id) acknowledge(*id, result);
}

// Behind what was sent while the frame was served, unless that still waits for the peers.
void IpcPort::Impl::acknowledge(std::int64_t id, Error result) {
  const bus::Fields frame{
      {"type", std::int64_t{bus::bus_served}}, {"id", id}, {"error", std::int64_t{static_cast<int>(result)}}};
  if (sends && !outgoing_.empty())
    keep_for_peers(bus::encode_frame(frame).value());
  else
    send_bus_frame(frame);
}

Error IpcPort::Impl::call_back(const bus::Fields& frame, std::optional<std::int64_t> id) {
  const int type = *type_of(frame);
  std::string reason;
  const auto message = message_from(type, frame, reason);
  if (!message) {
    if (may_complain()) trace_.error("IPC: message %d refused: %s", type, reason.c_str());
    return Error::malformed;
  }
  if (!callback) return Error::unknown_message;
  const ServedFrame served(serving_id_, id);
  return callback(*message, port_, user);
}

void IpcPort::Impl::send(IMsg& message) {
  bus::Fields frame = frame_from(message);
  if (serving_id_) frame.set("id", *serving_id_);
  if (auto bytes = bus::encode_frame(frame))
    keep_for_peers(std::move(*bytes));
  else
    trace_.error("IPC: message %d not sent: longer than %zu bytes", message.type(), bus::max_payload);
}

IpcPort::IpcPort(PortId id, const Trace& trace) : impl_(std::make_unique<Impl>(*this, id, trace)) {}

IpcPort::~IpcPort() = default;

bool IpcPort::register_msg_callback(const MsgCallback& callback, void* user) {
  if (!callback || impl_->callback) return false;
  impl_->callback = callback;
  impl_->user = user;
  return true;
}

void IpcPort::run_once_for_timeout(long ms) {
  impl_->run_once(std::chrono::milliseconds(ms));
}

void IpcPort::send(std::shared_ptr<IMsg> msg) {
  if (msg) impl_->send(*msg);
}

void IpcPort::set_SendAndRecv() {
  impl_->sends = true;
}

void IpcPort::finalize() {
  impl_->finalized = true;
}

bool IpcPort::is_finalized() const {
  return impl_->finalized;
}

bool ipc_send_ready_and_wait_for_run(IpcPort& port) {
  return port.impl_->wait_for_run();
}

}  // namespace zal
