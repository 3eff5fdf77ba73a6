// A whole simulated site and the domain that controls it, in one process and without sockets: what the APs send is put
// before the domain's worker, what that sends is put before the APs, and time passes second by second when the test
// says so. The optimisation runs in its own thread, as in life, but ends when the run's dice say so. Everything that
// anybody sees is a function of the seed, save the texts of keys.
//
// Watchers look on: they are told every message, what the domain logs in each of its passes, and what befalls the
// clients, and note what they hold to be wrong. They must outlive the site. One thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <semaphore>
#include <string>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "RrmWorker.h"
#include "sim/simulation.h"
#include "support/capture.h"
#include "support/journal.h"
#include "whole_site/dice.h"
#include "whole_site/lived_in_site.h"

namespace rrm::testing {
class RecordingServer;
}

namespace whole_site {

using Json = nlohmann::ordered_json;

// A message on its way to an AP.
struct Told {
  std::size_t ap = 0;
  std::string text;
  Json json;
};

// One pass of the domain's worker through what is due.
struct Pass {
  std::vector<std::string> lines;  // of the journal
  std::vector<Told> told;          // to APs that are connected

  bool logged(const std::string& line) const;
};

class Watcher {
 public:
  virtual ~Watcher() = default;
  virtual void before_pass() {}
  // After the pass, before the APs know of it.
  virtual void pass_over(const Pass&) {}
  // The APs have heard what the pass had to say; the domain has not heard them yet.
  virtual void pass_heard(const Pass&) {}
  // Just before an AP reads a message, and before the domain reads one of the AP.
  virtual void told(std::size_t /*ap*/, const Json& /*message*/) {}
  virtual void said(std::size_t /*ap*/, const Json& /*message*/) {}
  virtual void session_ends(std::size_t /*ap*/) {}
  virtual void happened(const sim::SteeringEvent& /*event*/) {}
  virtual void second_over() {}
};

class ControlledSite final : public LivedInSite {
 public:
  ControlledSite(const sim::Site& site, const rrm::DomainConfig& settings, bool wildcard_80211r, std::uint64_t seed,
                 std::vector<Watcher*> watchers);
  ~ControlledSite() override;
  ControlledSite(const ControlledSite&) = delete;
  ControlledSite& operator=(const ControlledSite&) = delete;

  void second() override;
  // Until nobody has anything more to say.
  void exchange() override;

  // Sessions.
  bool connected(std::size_t ap) const { return sessions_[ap] != 0; }
  void connect(std::size_t ap) override;
  void disconnect(std::size_t ap) override;
  void unsubscribe(std::size_t ap) override;

  // Orders of an operator.
  void pause_balancing() override;
  bool force_optimization() override;

  sim::Simulation& simulation() override { return *simulation_; }
  const rrm::DomainConfig& settings() const override { return settings_; }
  sim::Millis now() const { return now_; }
  std::int64_t seconds() const override { return seconds_; }

  // The domain's own records.
  rrm::ApMap& aps() { return worker_->aps(); }
  rrm::ApMap& deleted_aps() { return worker_->deleted_aps(); }
  rrm::ApMap& unanswered_aps() { return worker_->unanswered_aps(); }
  bool balancing_paused() const { return worker_->balancing_paused(); }
  int rrm_status();
  int fbt_status();
  // The place of an AP in the site, by its own address.
  std::size_t place_of(const rrm::MacAddr& mac) const;

  // What should never occur and concerns no watcher.
  const std::vector<std::string>& surprises() const { return surprises_; }

 private:
  void pass();
  void finish_computing();
  void process(std::uint32_t session, const std::string& text);
  // What the domain has sent since the last call, to sessions that live.
  std::vector<Told> take_told();
  void hear(const std::vector<Told>& told);
  bool exchange_once();

  const sim::Site& site_;
  const rrm::DomainConfig settings_;
  const std::vector<Watcher*> watchers_;
  Dice dice_;
  rrm::testing::ManualClock clock_;
  rrm::testing::Journal journal_;
  rrm::GlobalConfig global_;
  std::unique_ptr<rrm::testing::RecordingServer> server_;
  std::counting_semaphore<> may_compute_{0};
  std::shared_ptr<rrm::RrmWorker> worker_;
  std::unique_ptr<sim::Simulation> simulation_;
  std::vector<std::uint32_t> sessions_;  // of each AP; 0: none
  std::uint32_t last_session_ = 0;
  std::map<std::uint32_t, std::size_t> ap_of_session_;
  sim::Millis now_ = 1'000'000;
  std::int64_t seconds_ = 0;
  std::int64_t computing_seconds_ = 0;
  std::vector<std::string> surprises_;
};

}  // namespace whole_site
