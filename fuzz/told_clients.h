// The clients that APs have told a domain of, radio by radio, against the clients and the loads that it counts. The
// count here is kept from the messages alone: a client comes and goes with its AP's words, a session takes its clients
// along, and otherwise only one goes that its AP is ordered to send away.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "RrmWorker.h"
#include "fuzz/message_reading.h"
#include "json/JsonReader.h"

namespace zal::fuzz {

class ToldClients {
 public:
  // A worker begins without.
  void begin() { *this = {}; }
  // Just before the domain reads the message, with the domain locked as for all that follows.
  void hear(rrm::RrmWorker& domain, const MessageReading& reading, const rrm::JsonReader& message);
  // After any one event. Two of them, such as a second and a message, are two checks.
  void check(rrm::RrmWorker& domain);
  // What the checks since the last time left open, once all that was sent has been read.
  void settle();
  // What an AP is ordered to do: to send clients away, or to move some of them.
  void read_disassociation(const rrm::JsonReader& order);
  void check_overload(const rrm::JsonReader& order, const rrm::DomainConfig& settings) const;
  // In a pause what is gathered for the APs is not sent.
  void orders_may_be_dropped() { orders_dropped_ = true; }
  // A whole report of the domain's APs, right after a check.
  void check_report(rrm::RrmWorker& domain, const rrm::JsonReader& report) const;

 private:
  using Stations = std::map<rrm::MacAddr, std::string>;  // with their networks
  using Radios = std::array<Stations, 3>;

  struct Departure {
    rrm::MacAddr ap;
    std::int32_t radio = 0;
    rrm::MacAddr station;

    auto operator<=>(const Departure&) const = default;
  };

  void hear_lists(const rrm::JsonReader& radios, Radios& clients);
  void hear_answers(const rrm::JsonReader& radios);
  void hear_event(rrm::RrmWorker& domain, const MessageReading& reading, const rrm::JsonReader& message);
  void arrive(rrm::RrmWorker& domain, const rrm::Radio& radio, const rrm::MacAddr& station);
  void take_departures(const rrm::MacAddr& ap, const rrm::Radio& radio, Stations& told);
  static bool waits_for_its_order(rrm::RrmWorker& domain, const Departure& departure);
  Radios expected_of(const std::shared_ptr<rrm::ApEntry>& ap, bool is_away) const;

  std::map<const rrm::ApEntry*, Radios> clients_;
  std::set<const rrm::ApEntry*> away_;  // those without a session
  rrm::MacAddr newcomer_;               // an AP whose first message was heard
  Radios clients_of_newcomer_;
  std::set<rrm::MacAddr> named_;    // stations that ever were clients
  std::set<rrm::MacAddr> steered_;  // stations that a roam or an answer to a query named: they may be expected anywhere
  std::set<Departure> departures_;  // without a word of the AP
  std::set<Departure> ordered_;
  bool orders_dropped_ = false;
};

}  // namespace zal::fuzz
