#include "sim/source_addresses.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

namespace sim {
namespace {

constexpr std::size_t block_size = 250;

std::string own_address(std::size_t index) {
  const std::size_t block = index / block_size;
  return "127." + std::to_string(1 + block / block_size) + "." + std::to_string(block % block_size) + "." +
         std::to_string(1 + index % block_size);
}

bool is_loopback(const std::string& host) {
  in_addr address{};
  constexpr std::uint32_t loopback_net = 127;
  return host == "localhost" ||
         (inet_pton(AF_INET, host.c_str(), &address) == 1 && ntohl(address.s_addr) >> 24U == loopback_net);
}

}  // namespace

bool can_be_used(const std::string& address) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) {
    return false;
  }
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (probe < 0) {
    return false;
  }
  const bool bound = bind(probe, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
  close(probe);
  return bound;
}

std::vector<std::string> source_addresses(const std::string& server_host, std::size_t count,
                                          const std::function<bool(const std::string&)>& is_usable) {
  std::vector<std::string> addresses;
  if (!is_loopback(server_host)) {
    return addresses;
  }
  for (std::size_t index = 0; index < count; ++index) {
    addresses.push_back(own_address(index));
  }
  if (!std::all_of(addresses.begin(), addresses.end(), is_usable)) {
    addresses.assign(count, "127.0.0.1");
  }
  return addresses;
}

}  // namespace sim
