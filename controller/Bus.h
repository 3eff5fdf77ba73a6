// The controller's end of the bus: it listens, knows which connection is the daemon's, and turns its frames into calls.
// Frames that are none, other peers and a daemon that does not read are the bus's own business: they are reported to
// the log of the controller and do no harm. It never waits. For one thread.
#pragma once

#include <poll.h>

#include <list>
#include <optional>
#include <string>
#include <vector>

#include "platform/bus/Connection.h"
#include "platform/bus/Frame.h"

namespace controller {

// Who is told what came over the bus.
class BusListener {
 public:
  virtual ~BusListener() = default;
  virtual void on_daemon_ready() = 0;
  virtual void on_daemon_gone() = 0;
  virtual void on_alarm(const std::string& location, std::int64_t status) = 0;
  // The daemon served the frame that was sent with this id.
  virtual void on_served(std::int64_t id, std::int64_t error) = 0;
  virtual void on_message(const zal::bus::Fields& frame) = 0;
  virtual void say(const std::string& text) = 0;
};

class Bus {
 public:
  // Listens at the path. Throws std::runtime_error if that is not possible.
  Bus(const std::string& path, BusListener& listener);

  bool has_daemon() const { return daemon_ != nullptr; }
  // False if there is no daemon or it does not read.
  [[nodiscard]] bool send(const zal::bus::Fields& frame);

  // The descriptors to wait for, and what to do when poll has looked at them.
  void add_to(std::vector<pollfd>& fds) const;
  void on_events(const std::vector<pollfd>& fds);

 private:
  struct Peer {
    explicit Peer(zal::bus::UniqueFd fd) : connection(std::move(fd)) {}
    zal::bus::Connection connection;
    bool is_gone = false;
  };

  void accept_peer();
  void serve(Peer& peer, short events);
  void take_frames(Peer& peer);
  void take(Peer& peer, const zal::bus::FrameReader::Item& item);
  void refuse(Peer& peer, const std::string& reason);
  void open_port(Peer& peer, const zal::bus::Fields& frame);
  void dispatch(const zal::bus::Fields& frame, std::int64_t type);
  void remove_gone();

  zal::bus::UniqueFd listening_;
  BusListener& listener_;
  std::list<Peer> peers_;
  Peer* daemon_ = nullptr;
};

}  // namespace controller
