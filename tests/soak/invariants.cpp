#include "soak/invariants.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "json/JsonWriter.h"
#include "report_optimize_tpc_dca.h"
#include "reports/file_names.h"
#include "support/temp_dir.h"

namespace soak {
namespace {

using Json = nlohmann::json;
using Faults = std::vector<std::string>;

// The devices of all halls, and all that they and their neighbours transmit, can be counted.
constexpr std::size_t most_clients = 16;
constexpr std::size_t most_heard = 200;

class Inspection {
 public:
  explicit Inspection(const rrm::RrmWorker& domain) : domain_(domain) {}

  void look_at_sets(const std::vector<const rrm::ApMap*>& sets) {
    for (const rrm::ApMap* const set : sets) {
      look_at_index(*set);
      for (const auto& [mac, ap] : *set) {
        expect(mac == ap->mac, *ap, "stands under another address");
        expect(seen_.insert(mac).second, *ap, "is in two sets");
        look_at(*ap);
      }
    }
  }

  void look_at_pools(const rrm::ChannelPools& pools) {
    for (const std::size_t band : {2U, 5U, 6U}) {
      for (const std::int32_t channel : pools[band]) {
        const auto& allowed = allowed_[static_cast<std::int32_t>(band)];
        if (!allowed.empty() && !allowed.contains(channel)) {
          add("channel " + std::to_string(channel) + " is in the pool of band " + std::to_string(band));
        }
      }
    }
  }

  void expect(bool holds, const rrm::ApEntry& ap, const std::string& fault) {
    if (!holds) add(ap.mac.to_string() + " " + fault);
  }
  void add(const std::string& fault) { faults_.push_back(domain_.name + ": " + fault); }

  const Sizes& sizes() const { return sizes_; }
  const Faults& faults() const { return faults_; }

 private:
  // The index knows the addresses of what is on air in the set, each as its owner's, and no other.
  void look_at_index(const rrm::ApMap& set) {
    std::set<rrm::MacAddr> addresses;
    const auto look = [&](const rrm::MacAddr& mac, const std::shared_ptr<rrm::ApEntry>& ap, std::int32_t radio) {
      addresses.insert(mac);
      const auto* const owner = set.storage().owner_of(mac);
      expect(owner != nullptr && owner->ap == ap && owner->radio_id == radio, *ap, "is not in the index of its set");
    };
    for (const auto& [mac, ap] : set) {
      for (const rrm::Radio& radio : ap->radios.list) {
        if (!radio.status) continue;
        look(radio.mac, ap, radio.id);
        for (const auto& [ssid, vap] : radio.vaps) look(vap.mac, ap, radio.id);
      }
    }
    if (set.storage().size() != addresses.size()) {
      add("the index has " + std::to_string(set.storage().size()) + " addresses, the set " +
          std::to_string(addresses.size()));
    }
  }

  void look_at(const rrm::ApEntry& ap) {
    expect(ap.radios.list.size() == rrm::Radios::count, ap, "has lost a radio");
    expect(ap.delete_ttl >= 0, ap, "has less than no time to live");
    expect(ap.visible_members.size() <= most_heard && ap.visible_rogue.size() <= most_heard, ap, "hears too many");
    sizes_.heard += ap.visible_members.size() + ap.visible_rogue.size();
    for (const rrm::Radio& radio : ap.radios.list) look_at(ap, radio);
  }

  void look_at(const rrm::ApEntry& ap, const rrm::Radio& radio) {
    const std::string name = "radio " + std::to_string(radio.id) + " ";
    const rrm::AssocMap& assoc = radio.assoc;
    const std::size_t clients = assoc.clients().size() + assoc.expected().size();
    expect(assoc.load() >= 0 && static_cast<std::size_t>(assoc.load()) == clients, ap, name + "miscounts its load");
    expect(clients <= most_clients, ap, name + "has more clients than there are");
    expect(radio.roam_peers >= 0 && radio.roam_peer_clients >= 0 && radio.visible_channels >= -1, ap,
           name + "counts below nothing");
    expect(std::all_of(assoc.expected().begin(), assoc.expected().end(),
                       [](const auto& client) { return client.second.ttl >= 0; }),
           ap, name + "expects somebody for ever");
    const auto& blocked = radio.problist.members();
    expect(blocked.size() <= most_clients, ap, name + "refuses more clients than there are");
    expect(std::all_of(blocked.begin(), blocked.end(),
                       [&](const auto& client) {
                         return client.second >= 0 && client.second <= domain_.config().blacklist_timeout;
                       }),
           ap, name + "refuses somebody for too long");
    sizes_.clients += clients;
    sizes_.blocked += blocked.size();
    if (radio.status) look_at_plan(ap, radio, name);
  }

  void look_at_plan(const rrm::ApEntry& ap, const rrm::Radio& radio, const std::string& name) {
    const auto& available = radio.available_channels;
    expect(available.empty() || available.contains(radio.channel), ap, name + "is on a channel that it may not use");
    expect(radio.power >= radio.power_min && radio.power <= radio.power_max, ap,
           name + "has a power beyond its limits");
    expect(radio.mac_offset >= 0 && radio.max_mac_count >= 0 &&
               radio.mac_offset + radio.max_mac_count <= static_cast<std::int32_t>(ap.ap_mac_count),
           ap, name + "has addresses beyond those of its access point");
    for (const std::int32_t channel : available) allowed_[radio.band].insert(channel);
  }

  const rrm::RrmWorker& domain_;
  std::set<rrm::MacAddr> seen_;
  std::map<std::int32_t, std::set<std::int32_t>> allowed_;  // by band
  Sizes sizes_;
  Faults faults_;
};

}  // namespace

Sizes& Sizes::operator+=(const Sizes& other) {
  aps += other.aps;
  away += other.away;
  clients += other.clients;
  blocked += other.blocked;
  heard += other.heard;
  return *this;
}

Faults faults_of(rrm::RrmWorker& domain, const std::vector<std::uint32_t>& sessions,
                 const std::vector<sim::Mac>& served, Sizes& sizes) {
  Inspection inspection(domain);
  domain.execute_locked([&] {
    inspection.look_at_sets({&domain.aps(), &domain.unanswered_aps(), &domain.deleted_aps()});
    inspection.look_at_pools(domain.channel_pools());
    std::set<std::uint64_t> present;
    for (const rrm::ApMap* const set : {&domain.aps(), &domain.unanswered_aps()}) {
      for (const auto& [mac, ap] : *set) {
        present.insert(mac.to_number());
        inspection.expect(std::binary_search(sessions.begin(), sessions.end(), ap->session.id), *ap,
                          "is there without a session");
      }
    }
    for (const sim::Mac& mac : served) {
      if (!present.contains(mac.value)) inspection.add(mac.text() + " is served and not known");
    }
    sizes.aps += domain.aps().size();
    sizes.away += domain.unanswered_aps().size() + domain.deleted_aps().size();
  });
  sizes += inspection.sizes();
  return inspection.faults();
}

Faults faults_of_reports(const std::string& domain, const std::string& path, SeenReports& seen) {
  Faults faults;
  const auto expect = [&](bool holds, const std::string& fault) {
    if (!holds) faults.push_back("reports of " + domain + ": " + fault);
  };
  rrm::JsonWriter list = rrm::JsonWriter();
  const int error =
      ::reports::get_radio_report_list(list, domain, path, "2020-01-01,00:00:00 UTC", "2037-01-01,00:00:00 UTC", true);
  expect(error == 0, "the list cannot be read");
  const Json entries = Json::parse(list.to_string(), nullptr, false).value("data", Json::array());
  std::set<std::string> ids;  // by age, since a report's name is its date
  for (const Json& entry : entries) ids.insert(entry.at("id"));
  expect(ids.size() == entries.size(), "one is listed twice");
  const std::string oldest = ids.empty() ? "" : *ids.begin();
  const std::size_t known = oldest == seen.oldest ? seen.count : 0;
  const std::size_t turn = ids.empty() ? 0 : seen.looks++ % ids.size();
  std::size_t place = 0;
  for (const std::string& id : ids) {
    const bool is_its_turn = place == turn;
    if (place++ < known && !is_its_turn) continue;
    rrm::JsonWriter writer;
    expect(::reports::get_radio_report(writer, id, path) == 0, id + " cannot be read");
    const std::string text = writer.to_string();
    expect(Json::accept(text) && text.find("\"details\"") != std::string::npos, id + " is not whole");
  }
  const ::reports::ReportFiles files(domain, path);
  for (const std::string& file : {files.report, files.config, files.index}) {
    if (!std::filesystem::exists(file)) continue;
    const std::string text = rrm::testing::read_file(file);
    expect(text.empty() || text.back() == '\n', file + " ends within a line");
  }
  seen.count = ids.size();
  seen.oldest = oldest;
  return faults;
}

}  // namespace soak
