// Three hundred access points with their clients, six domains of fifty, played against a server on this machine. Each
// domain has a thread of its own, which connects its access points again whenever their sessions end.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace load {

// What the controller knows of an access point by itself.
struct KnownAp {
  std::string mac;
  std::string ip;
  std::string domain;
  std::string board;
};

class Crowd {
 public:
  static constexpr int domain_count = 6;
  static constexpr int aps_of_domain = 50;
  static constexpr std::size_t size = domain_count * aps_of_domain;

  // The sites are drawn from the seed.
  Crowd(int port, std::uint64_t seed);
  // Closes the sessions.
  ~Crowd();
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

  const std::vector<std::string>& domains() const { return domains_; }
  const std::vector<KnownAp>& access_points() const { return access_points_; }

  // How many access points are subscribed now.
  std::size_t subscribed() const;
  // Those that are not, with the last that they had to say, a line each.
  std::string missing() const;
  // How many orders to their radios and lists of neighbours they have received so far.
  std::size_t infos() const;
  // How often all access points of a domain went through an optimisation together.
  int whole_cycles() const;

 private:
  class Site;

  std::vector<std::string> domains_;
  std::vector<KnownAp> access_points_;
  std::vector<std::unique_ptr<Site>> sites_;
};

}  // namespace load
