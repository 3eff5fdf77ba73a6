#include "fuzz/told_clients.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "fuzz/fuzz.h"

namespace zal::fuzz {

namespace {

using rrm::ApEntry;
using rrm::ApMap;
using rrm::DomainConfig;
using rrm::JsonReader;
using rrm::MacAddr;
using rrm::Radio;
using rrm::RrmWorker;
using rrm::protocol::Command;

constexpr std::int32_t arrival_seconds = 5;

bool uses_vaps(const DomainConfig& config) {
  return config.use_balance || config.use_80211k || config.use_80211r || config.use_80211v;
}

// Who keeps an AP's clients: the balancer by probes before the one by 802.11v.
enum class Keeper { nobody, probes, transitions };

Keeper keeper_of(const DomainConfig& config, const ApEntry& ap) {
  if (config.use_balance && ap.radios.any_balancer_free()) return Keeper::probes;
  return config.use_80211v && ap.radios.any_11v() ? Keeper::transitions : Keeper::nobody;
}

// The load of a radio is that of its clients, and beyond them of stations that were steered to it.
void require_counted(const Radio& radio, std::size_t clients, std::size_t steered) {
  require(radio.assoc.load() >= static_cast<std::int32_t>(clients), "a load counts each client");
  require(radio.assoc.load() <= static_cast<std::int32_t>(clients + steered), "a load counts nobody twice");
}

}  // namespace

void ToldClients::hear(RrmWorker& domain, const MessageReading& reading, const JsonReader& message) {
  if (reading.reads_radios) {
    const bool is_new = reading.ap == nullptr;
    if (is_new) newcomer_ = MacAddr::parse(message.get_string("ap-mac"));
    if (uses_vaps(domain.config())) {
      hear_lists(message.get("radios"), is_new ? clients_of_newcomer_ : clients_[reading.ap]);
    }
  }
  if (reading.command && reading.ap != nullptr) hear_event(domain, reading, message);
}

// The first entry of a station counts; one without a name or a network does not.
void ToldClients::hear_lists(const JsonReader& radios, Radios& clients) {
  for_each_radio(radios, [&](std::int32_t id, const JsonReader& radio) {
    const JsonReader list = radio.get("assoclist");
    if (!list.is_array()) return;
    Stations& stations = clients.at(static_cast<std::size_t>(id));
    stations.clear();
    for (int i = 0; i < list.size(); ++i) {
      const JsonReader client = list.at(i);
      const std::string mac = client.get_string("mac");
      const std::string ssid = client.get_string("ssid");
      if (mac.empty() || ssid.empty()) continue;
      stations.try_emplace(MacAddr::parse(mac.c_str()), ssid);
      named_.insert(MacAddr::parse(mac.c_str()));
    }
  });
}

void ToldClients::hear_event(RrmWorker& domain, const MessageReading& reading, const JsonReader& message) {
  const Keeper keeper = keeper_of(domain.config(), *reading.ap);
  const std::string mac = message.get_string("sta-mac");
  const std::string ssid = message.get_string("ssid");
  const MacAddr station = MacAddr::parse(mac.c_str());
  Radios& clients = clients_[reading.ap];
  if (*reading.command == Command::rrm_sta_roam) steered_.insert(station);
  if (*reading.command == Command::rrm_probe_response) hear_answers(message.get("radios"));
  if (*reading.command == Command::rrm_disassoc_all_clients && keeper == Keeper::probes) clients = {};

  const Radio* const radio = reading.ap->radios.find(message.get_int("radio"));
  if (keeper == Keeper::nobody || radio == nullptr || mac.empty() || ssid.empty()) return;
  Stations& stations = clients.at(static_cast<std::size_t>(radio->id));
  if (*reading.command == Command::rrm_client_assoc) {
    stations[station] = ssid;
    named_.insert(station);
    if (keeper == Keeper::transitions) arrive(domain, *radio, station);
  } else if (*reading.command == Command::rrm_client_disassoc) {
    const auto known = stations.find(station);
    if (known != stations.end() && known->second == ssid) stations.erase(known);
  }
}

void ToldClients::hear_answers(const JsonReader& radios) {
  for (int i = 0; i < radios.size(); ++i) {
    const JsonReader stations = radios.at(i).get("probe-list");
    for (int j = 0; j < stations.size(); ++j) steered_.insert(MacAddr::parse(stations.at(j).get_string("mac")));
  }
}

// One that was sent here has left the radio that it came from.
void ToldClients::arrive(RrmWorker& domain, const Radio& radio, const MacAddr& station) {
  const rrm::ExpectedClient* const expected = radio.assoc.find_expected(station);
  if (expected == nullptr) return;
  const auto source = domain.aps().find_by_any_mac(expected->source);
  const Radio* const left = source != nullptr ? source->radios.find(expected->radio) : nullptr;
  if (left != nullptr && left != &radio) clients_[source.get()].at(static_cast<std::size_t>(left->id)).erase(station);
}

ToldClients::Radios ToldClients::expected_of(const std::shared_ptr<ApEntry>& ap, bool is_away) const {
  const auto known = clients_.find(ap.get());
  if (known == clients_.end()) return ap->mac == newcomer_ ? clients_of_newcomer_ : Radios{};
  return is_away && !away_.contains(ap.get()) ? Radios{} : known->second;
}

void ToldClients::check(RrmWorker& domain) {
  std::map<const ApEntry*, Radios> all;
  std::set<const ApEntry*> away;
  for (const ApMap* set : {&domain.aps(), &domain.deleted_aps(), &domain.unanswered_aps()}) {
    const bool is_away = set == &domain.deleted_aps();
    for (const auto& [key, ap] : *set) {
      Radios& clients = all[ap.get()] = expected_of(ap, is_away);
      if (is_away) away.insert(ap.get());
      for (const Radio& radio : ap->radios.list) {
        Stations& told = clients.at(static_cast<std::size_t>(radio.id));
        take_departures(ap->mac, radio, told);
        Stations counted;
        for (const auto& [mac, client] : radio.assoc.clients()) counted.emplace(mac, client.ssid);
        require(counted == told, "a radio has the clients that its AP told of");
        require_counted(radio, told.size(), steered_.size());
        for (const auto& [mac, expected] : radio.assoc.expected()) {
          require(steered_.contains(mac), "who is expected was steered");
          const std::int32_t longest = std::max(arrival_seconds, domain.config().blacklist_timeout);
          require(expected.ttl > 0 && expected.ttl <= longest, "who is expected has some time left");
        }
      }
    }
  }
  clients_ = std::move(all);
  away_ = std::move(away);
  newcomer_ = {};
  clients_of_newcomer_ = {};
  std::erase_if(departures_, [&](const Departure& departure) { return waits_for_its_order(domain, departure); });
}

// Only a client that was steered elsewhere goes by itself.
void ToldClients::take_departures(const MacAddr& ap, const Radio& radio, Stations& told) {
  std::erase_if(told, [&](const auto& client) {
    const bool departs = steered_.contains(client.first) && radio.assoc.find_client(client.first) == nullptr;
    if (departs) departures_.insert({ap, radio.id, client.first});
    return departs;
  });
}

void ToldClients::settle() {
  for (const Departure& departure : departures_) {
    require(orders_dropped_ || ordered_.contains(departure), "a client goes by an order to its AP");
  }
  departures_.clear();
  ordered_.clear();
  orders_dropped_ = false;
}

// Or has lost its AP. The order may still be withdrawn, where the client turns up elsewhere before it is sent. An AP
// that came back under another of its addresses may not be found under its own.
bool ToldClients::waits_for_its_order(RrmWorker& domain, const Departure& departure) {
  bool has_lost_its_ap = true;
  for (const auto& [key, ap] : domain.aps()) {
    if (ap->mac != departure.ap) continue;
    if (ap->radios.find(departure.radio)->problist.disassoc().contains(departure.station)) return true;
    has_lost_its_ap = false;
  }
  return has_lost_its_ap;
}

void ToldClients::read_disassociation(const JsonReader& order) {
  const MacAddr ap = MacAddr::parse(order.get_string("ap-mac"));
  for_each_radio(order.get("radios"), [&](std::int32_t id, const JsonReader& radio) {
    const JsonReader list = radio.get("diassoc-list");
    for (int i = 0; i < list.size(); ++i) ordered_.insert({ap, id, MacAddr::parse(list.at(i).get_string("mac"))});
  });
}

void ToldClients::check_report(RrmWorker& domain, const JsonReader& report) const {
  const std::pair<const ApMap*, const char*> sets[] = {
      {&domain.aps(), "aps"}, {&domain.unanswered_aps(), "unanswered-aps"}, {&domain.deleted_aps(), "deleted-aps"}};
  for (const auto& [set, name] : sets) {
    const JsonReader reported = report.get(name);
    require(reported.size() == static_cast<int>(set->size()), "a report has all APs");
    int place = 0;
    for (const auto& [key, ap] : *set) {
      const Radios& clients = clients_.at(ap.get());
      for_each_radio(reported.at(place++).get("radios").get("interfaces"),
                     [&](std::int32_t id, const JsonReader& radio) {
                       const JsonReader list = radio.get("assoc_clients");
                       Stations listed;
                       for (int i = 0; i < list.size(); ++i) {
                         const JsonReader client = list.at(i);
                         listed.emplace(MacAddr::parse(client.get_string("mac")), client.get_string("ssid"));
                       }
                       const Stations& told = clients.at(static_cast<std::size_t>(id));
                       require(list.size() == static_cast<int>(told.size()) && listed == told,
                               "a report lists the clients that the AP told of");
                     });
    }
  }
}

void ToldClients::check_overload(const JsonReader& order, const DomainConfig& settings) const {
  const JsonReader radios = order.get("radios");
  require(radios.size() > 0, "an order to move clients names a radio");
  for (int i = 0; i < radios.size(); ++i) {
    const std::int32_t count = radios.at(i).get_int("roam-count");
    require(count > 0 && count <= settings.load_balance_roam_count_max,
            "an order to move clients is within its bounds");
    require(static_cast<std::size_t>(count) <= named_.size() + steered_.size(), "nobody moves more clients than exist");
  }
}

}  // namespace zal::fuzz
