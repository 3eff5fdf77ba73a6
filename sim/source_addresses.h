// Where the access points of a simulated site connect from. All of them run on one machine, but a controller tells them
// apart by their addresses; a machine has a whole network of its own to give away as long as nothing leaves it.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace sim {

// Whether this machine lets a socket be bound to this IPv4 address.
bool can_be_used(const std::string& address);

// One address for each of `count` access points, in their order: 127.1.0.1, 127.1.0.2 and so on, 250 to a block, if the
// server is on the loopback network and all of them are usable. 127.0.0.1 for all if one is not. Empty if the server is
// elsewhere: then the address is the machine's to choose.
std::vector<std::string> source_addresses(const std::string& server_host, std::size_t count,
                                          const std::function<bool(const std::string&)>& is_usable = can_be_used);

}  // namespace sim
