#include "platform/bus_peer.h"

#include <unistd.h>

#include <cstdlib>

namespace zal::testing {

BusPeer::BusPeer() {
  open_bus();
  setenv(bus::bus_variable, path().c_str(), 1);
}

BusPeer::~BusPeer() {
  unsetenv(bus::bus_variable);
}

void BusPeer::open_bus() {
  listener_ = bus::listen_at(path());
  if (!listener_) throw std::runtime_error("cannot listen at " + path());
}

void BusPeer::close_bus() {
  hang_up();
  listener_.reset();
  unlink(path().c_str());
}

bool BusPeer::accept() {
  bus::UniqueFd fd = bus::accept_from(listener_.get());
  if (!fd) return false;
  connection_.emplace(std::move(fd));
  return true;
}

void BusPeer::send(const bus::Fields& frame) {
  if (!send_bytes(*bus::encode_frame(frame))) throw std::runtime_error("the port did not take the frame");
}

bool BusPeer::send_bytes(const std::string& bytes) {
  return connection_->send(bytes) && connection_->flush() && !connection_->wants_write();
}

std::vector<bus::Fields> BusPeer::receive() {
  std::vector<bus::Fields> frames;
  while (connection_->read())
    for (bool got = false;; got = true) {
      const auto item = connection_->next();
      if (!item && !got) return frames;
      if (!item) break;
      std::string reason;
      auto fields = bus::parse_fields(item->payload, reason);
      if (!fields) throw std::runtime_error("the port sent no frame: " + reason);
      frames.push_back(std::move(*fields));
    }
  return frames;
}

std::string framed(const std::string& payload) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(payload.size() >> shift & 0xff);
  return bytes + payload;
}

}  // namespace zal::testing
