#include "controller/Bus.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "controller/poll_list.h"
#include "platform/bus/bus_types.h"
#include "zal/IpcPort.h"

namespace controller {

using zal::bus::Fields;

namespace {

constexpr std::size_t max_peers = 8;

}  // namespace

Bus::Bus(const std::string& path, BusListener& listener) : listening_(zal::bus::listen_at(path)), listener_(listener) {
  if (!listening_) throw std::runtime_error("cannot listen at " + path + ": " + std::strerror(errno));
}

bool Bus::send(const Fields& frame) {
  auto bytes = zal::bus::encode_frame(frame);
  return daemon_ && bytes && daemon_->connection.send(std::move(*bytes)) && daemon_->connection.flush();
}

void Bus::add_to(std::vector<pollfd>& fds) const {
  fds.push_back({listening_.get(), POLLIN, 0});
  for (const Peer& peer : peers_) fds.push_back(poll_entry(peer.connection));
}

void Bus::on_events(const std::vector<pollfd>& fds) {
  for (Peer& peer : peers_)
    if (const short events = events_of(fds, peer.connection.fd())) serve(peer, events);
  remove_gone();
  if (events_of(fds, listening_.get())) accept_peer();
}

void Bus::accept_peer() {
  zal::bus::UniqueFd fd = zal::bus::accept_from(listening_.get());
  if (fd && peers_.size() < max_peers) peers_.emplace_back(std::move(fd));
}

void Bus::serve(Peer& peer, short events) {
  bool is_alive = (events & POLLOUT) == 0 || peer.connection.flush();
  if (events & (POLLIN | POLLHUP | POLLERR)) {
    is_alive = peer.connection.read() && is_alive;
    take_frames(peer);
  }
  peer.is_gone = peer.is_gone || !is_alive;
}

// Of a peer that is shown the door nothing more counts, even if it came with the rest.
void Bus::take_frames(Peer& peer) {
  while (!peer.is_gone) {
    const auto item = peer.connection.next();
    if (!item) return;
    take(peer, *item);
  }
}

void Bus::take(Peer& peer, const zal::bus::FrameReader::Item& item) {
  std::string reason = "too long";
  const auto frame = item.too_long ? std::nullopt : zal::bus::parse_fields(item.payload, reason);
  const auto type = frame ? frame->number("type") : std::nullopt;
  if (!type) return refuse(peer, frame ? "no number 'type'" : reason);
  if (*type == zal::bus::bus_open)
    open_port(peer, *frame);
  else if (&peer == daemon_)
    dispatch(*frame, *type);
  else
    refuse(peer, "from a peer that opened no port");
}

// The daemon may go on, a stranger may not.
void Bus::refuse(Peer& peer, const std::string& reason) {
  listener_.say("bus: frame refused: " + reason);
  if (&peer != daemon_) peer.is_gone = true;
}

// A daemon that joins anew supersedes its old connection.
void Bus::open_port(Peer& peer, const Fields& frame) {
  if (frame.number("port") != static_cast<int>(zal::PortId::rrm)) return refuse(peer, "unknown port");
  if (daemon_ == &peer) return;
  if (daemon_) {
    daemon_->is_gone = true;
    listener_.on_daemon_gone();
  }
  daemon_ = &peer;
}

void Bus::dispatch(const Fields& frame, std::int64_t type) {
  const auto id = frame.number("id");
  if (type == zal::bus::bus_ready)
    listener_.on_daemon_ready();
  else if (type == zal::bus::bus_alarm && frame.text("location") && frame.number("status"))
    listener_.on_alarm(*frame.text("location"), *frame.number("status"));
  else if (type == zal::bus::bus_served && id)
    listener_.on_served(*id, frame.number("error").value_or(0));
  else
    listener_.on_message(frame);
}

void Bus::remove_gone() {
  const bool daemon_is_gone = daemon_ && daemon_->is_gone;
  if (daemon_is_gone) daemon_ = nullptr;
  peers_.remove_if([](const Peer& peer) { return peer.is_gone; });
  if (daemon_is_gone) listener_.on_daemon_gone();
}

}  // namespace controller
