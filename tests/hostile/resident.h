// The access point of the yard that every kind has for its victim. It has gone through an optimisation and has a
// client, so that its record tells of radios, clients and neighbours.
#pragma once

#include <cstdint>
#include <string>

#include "hostile/peer.h"
#include "hostile/site_server.h"
#include "support/capture.h"

namespace hostile {

class Resident {
 public:
  // Moves the time of the server, which otherwise stands still, through a cycle of the yard.
  Resident(SiteServer& server, rrm::testing::ManualClock& clock);

  Surroundings surroundings() const;
  // By which session it is served, and what the domain tells of it.
  std::string record() const;
  // Whether its client is acknowledged, which changes nothing.
  bool is_served();
  // Tells that a client has left it.
  void see_off(const std::string& client);

 private:
  void live_through_a_cycle(rrm::testing::ManualClock& clock);
  bool is_domain_idle();
  rrm::testing::MessageJson answer(const std::string& cmd) const;
  void await(const std::string& cmd);

  SiteServer& server_;
  Peer peer_;
  std::uint32_t session_;
};

// Whether somebody who asks the yard after all that was sent so far is answered: all that is processed then.
bool yard_has_heard_all(const Surroundings& surroundings);

}  // namespace hostile
