#include "controller/Control.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "controller/poll_list.h"

namespace controller {

using zal::bus::Fields;

namespace {

constexpr std::size_t max_clients = 64;

}  // namespace

Control::Control(const std::string& path, OnRequest on_request)
    : listening_(zal::bus::listen_at(path)), on_request_(std::move(on_request)) {
  if (!listening_) throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
}

// A client that is dropped here is found gone by the next poll.
bool Control::send(ClientId client, const Fields& frame) {
  const auto found = clients_.find(client);
  if (found == clients_.end()) return false;
  auto bytes = zal::bus::encode_frame(frame);
  const bool is_taken = bytes && found->second.send(std::move(*bytes)) && found->second.flush();
  if (!is_taken) found->second.shut_down();
  return is_taken;
}

void Control::succeed(ClientId client, Fields answer) {
  answer.set("ok", true);
  send(client, answer);
}

void Control::fail(ClientId client, const std::string& error) {
  send(client, {{"ok", false}, {"error", error}});
}

void Control::add_to(std::vector<pollfd>& fds) const {
  fds.push_back({listening_.get(), POLLIN, 0});
  for (const auto& [client, connection] : clients_) fds.push_back(poll_entry(connection));
}

void Control::on_events(const std::vector<pollfd>& fds) {
  std::vector<ClientId> dropped;
  for (auto& [client, connection] : clients_)
    if (const short events = events_of(fds, connection.fd()); events && !serve(client, connection, events))
      dropped.push_back(client);
  for (const ClientId client : dropped) clients_.erase(client);
  if (events_of(fds, listening_.get())) accept_client();
}

void Control::accept_client() {
  zal::bus::UniqueFd fd = zal::bus::accept_from(listening_.get());
  if (fd && clients_.size() < max_clients) clients_.try_emplace(next_client_++, std::move(fd));
}

bool Control::serve(ClientId client, zal::bus::Connection& connection, short events) {
  if ((events & POLLOUT) && !connection.flush()) return false;
  if (!(events & (POLLIN | POLLHUP | POLLERR))) return true;
  const bool is_alive = connection.read();
  while (const auto item = connection.next()) {
    std::string reason = "too long";
    const auto request = item->too_long ? std::nullopt : zal::bus::parse_fields(item->payload, reason);
    if (request)
      on_request_(client, *request);
    else
      fail(client, "bad request: " + reason);
  }
  return is_alive;
}

}  // namespace controller
