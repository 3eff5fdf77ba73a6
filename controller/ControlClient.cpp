#include "controller/ControlClient.h"

#include <poll.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace controller {

using zal::bus::Fields;

namespace {

zal::bus::UniqueFd connect(const StateDir& state) {
  zal::bus::UniqueFd fd = zal::bus::connect_to(state.control_socket().string());
  if (fd) return fd;
  const bool is_absent = errno == ENOENT || errno == ECONNREFUSED;
  throw std::runtime_error(is_absent ? "no controller runs in " + state.root().string()
                                     : "cannot reach the controller in " + state.root().string() + ": " +
                                           std::strerror(errno));
}

}  // namespace

ControlClient::ControlClient(const StateDir& state) : connection_(connect(state)) {}

void ControlClient::send(const Fields& request) {
  auto bytes = zal::bus::encode_frame(request);
  if (!bytes) throw std::runtime_error("the text is too long");
  bool is_alive = connection_.send(std::move(*bytes)) && connection_.flush();
  while (is_alive && connection_.wants_write()) {
    wait_for(POLLOUT);
    is_alive = connection_.flush();
  }
  if (!is_alive) throw std::runtime_error("the controller went away");
}

Fields ControlClient::receive() {
  for (;;) {
    if (const auto item = connection_.next()) {
      std::string reason = "too long";
      const auto frame = item->too_long ? std::nullopt : zal::bus::parse_fields(item->payload, reason);
      if (!frame) throw std::runtime_error("the controller answered nonsense: " + reason);
      if (const std::string* error = frame->text("error")) throw std::runtime_error(*error);
      return *frame;
    }
    wait_for(POLLIN);
    if (!connection_.read()) throw std::runtime_error("the controller went away");
  }
}

void ControlClient::wait_for(short events) {
  pollfd fd{connection_.fd(), events, 0};
  poll(&fd, 1, -1);
}

}  // namespace controller
