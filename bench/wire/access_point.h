// What an access point of a measurement says: the texts of the protocol, with the sizes and values of real traffic.
#pragma once

#include <cstddef>
#include <string>

namespace zal::bench {

class AccessPoint {
 public:
  // Number `index` of the domain `domain`; all are told apart by their index, also across domains.
  AccessPoint(std::size_t index, std::string domain);

  // Three radios with eight VAPs each.
  std::string subscription() const;
  // A client comes to the radio at 5 GHz, heard so well that it may stay, and waits for the word of the server.
  std::string association(std::size_t client) const;
  // The MAC of that client.
  std::string client_address(std::size_t client) const;
  std::string modes() const;
  // The answer to a scan: in each of its rounds `heard` others at 2.4, 5 and 6 GHz in turn, those whose index follows
  // this one's.
  std::string scan_answer(std::size_t rounds, std::size_t heard) const;

 private:
  std::string envelope(const char* command) const;
  std::string radios(int vaps) const;

  const std::size_t index_;
  const std::string domain_;
};

}  // namespace zal::bench
