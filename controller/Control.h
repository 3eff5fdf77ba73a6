// The control socket: where the command line asks. It takes requests and sends the answers that its owner gives, now or
// later; a client that asks nonsense, goes away or does not read is dropped and nobody else notices. For one thread.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/bus/Connection.h"
#include "platform/bus/Frame.h"

namespace controller {

class Control {
 public:
  using ClientId = std::uint64_t;  // never used twice
  using OnRequest = std::function<void(ClientId client, const zal::bus::Fields& request)>;

  // Listens at the path. Throws std::runtime_error if that is not possible.
  Control(const std::string& path, OnRequest on_request);

  // False if the client has gone meanwhile, or is dropped because it does not take the frame.
  bool send(ClientId client, const zal::bus::Fields& frame);
  void succeed(ClientId client, zal::bus::Fields answer = {});
  void fail(ClientId client, const std::string& error);

  void add_to(std::vector<pollfd>& fds) const;
  void on_events(const std::vector<pollfd>& fds);

 private:
  void accept_client();
  // False if the client is to be dropped.
  bool serve(ClientId client, zal::bus::Connection& connection, short events);

  zal::bus::UniqueFd listening_;
  const OnRequest on_request_;
  std::map<ClientId, zal::bus::Connection> clients_;
  ClientId next_client_ = 1;
};

}  // namespace controller
