#include "hostile/resident.h"

#include <stdexcept>

#include "json/JsonReader.h"
#include "support/gate.h"

namespace hostile {
namespace {

using rrm::testing::HeardJson;
using rrm::testing::MessageJson;

constexpr int number = 0xffffff;
constexpr const char* client = "02:BB:00:00:00:01";
constexpr const char* stranger = "02:CC:00:00:00:01";
constexpr std::int64_t forced_delay_s = 20;
constexpr std::int64_t mode_wait_s = 15;

}  // namespace

Resident::Resident(SiteServer& server, rrm::testing::ManualClock& clock)
    : server_(server), peer_(Surroundings{server.port, "", ""}, number) {
  peer_.upgrade();
  peer_.subscribe();
  session_ = server_.sessions().at(0)->id;
  live_through_a_cycle(clock);
}

Surroundings Resident::surroundings() const {
  return {server_.port, yard_domain, peer_.mac()};
}

std::string Resident::record() const {
  std::string session = "no session";
  for (const SiteServer::Session& live : server_.sessions()) {
    if (live->id == session_) session = "session " + std::to_string(session_);
  }
  return session + ": " + server_.access_point(yard_domain, peer_.mac());
}

bool Resident::is_served() {
  peer_.send(peer_.client_event("rrm-client-assoc", client).with("need-ack", 1));
  return peer_.await("rrm-client-assoc-ack").has_value();
}

void Resident::see_off(const std::string& gone) {
  peer_.send(peer_.client_event("rrm-client-disassoc", gone));
  if (!is_served()) throw std::runtime_error("the resident is not served");
}

void Resident::live_through_a_cycle(rrm::testing::ManualClock& clock) {
  clock.advance(forced_delay_s);
  await("rrm-request-mode");
  peer_.send(answer("rrm-mode-response"));
  if (!is_served()) throw std::runtime_error("the resident is not served");  // so the answer has been taken
  clock.advance(mode_wait_s);
  await("rrm-update");
  peer_.send(answer("rrm-response").with_heard({HeardJson(stranger, 1, -60)}));
  // The domain looks every second whether the plan is made.
  const bool is_over = rrm::testing::eventually([&] {
    clock.advance(1);
    return is_served() && is_domain_idle();
  });
  if (!is_over) throw std::runtime_error("the cycle of the yard does not end");
}

bool Resident::is_domain_idle() {
  const std::string domain = server_.domain(yard_domain);
  return rrm::JsonReader(domain.c_str()).get("details").get_int("rrm-status") == 0;
}

MessageJson Resident::answer(const std::string& cmd) const {
  return peer_.message(cmd)
      .with_radio(rrm::testing::a_2ghz_radio().with_vap(0, "staff"))
      .with_radio(rrm::testing::a_5ghz_radio().with_vap(0, "staff"));
}

void Resident::await(const std::string& cmd) {
  if (!peer_.await(cmd)) throw std::runtime_error("the resident is never sent " + cmd);
}

bool yard_has_heard_all(const Surroundings& surroundings) {
  Peer asking(surroundings, 0);
  asking.upgrade();
  return asking.look(served) == served;
}

}  // namespace hostile
