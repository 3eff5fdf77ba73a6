// The access points of one domain with their clients and all that befalls them: a hall of them, of which one may be the
// same device as one of another hall, since it is carried back and forth. For a part of every hour one of them
// misbehaves; in every other hour a channel is hit by interference.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "sim/simulation.h"
#include "soak/soaked_server.h"
#include "whole_site/daily_life.h"
#include "whole_site/dice.h"
#include "whole_site/lived_in_site.h"

namespace soak {

enum class Mischief {
  none,
  deaf,     // never answers when it is asked for its mode
  garbles,  // sends halves of messages
  repeats,  // sends everything three times
  strays,   // calls itself an access point of another domain
  mute,     // reads, and sends nothing any more
  hangs,    // neither reads nor sends, until its session ends
};

class SimulatedDomain final : public whole_site::LivedInSite {
 public:
  static constexpr std::size_t nomad = 7;
  static constexpr std::size_t misfit = 1;

  SimulatedDomain(int number, const rrm::DomainConfig& settings, std::uint64_t seed, SoakedServer& server);
  SimulatedDomain(const SimulatedDomain&) = delete;
  SimulatedDomain& operator=(const SimulatedDomain&) = delete;

  static std::string name_of(int number) { return "hall-" + std::to_string(number); }
  const std::string& name() const { return site_.domain; }
  whole_site::DailyLife& life() { return life_; }
  whole_site::Dice& dice() { return dice_; }

  // All access points of the domain lose their power, or get it back.
  void switch_off();
  void switch_on();
  bool is_off() const { return off_; }
  // The device that two halls share comes or goes.
  void give_nomad(bool here);

  void misbehave(Mischief how);
  Mischief mischief() const { return mischief_; }
  void interfere(std::optional<int> channel) { interfered_channel_ = channel; }

  // What the access points have to say is sent.
  void speak();
  bool owns(lws* line) const { return find(line).has_value(); }
  void hear(const Wire::Event& event);

  // The server's sessions that were not read from.
  const std::set<std::uint32_t>& deaf_sessions() const { return deaf_sessions_; }

  // The addresses that clients were sent to while nobody was on air there for the domain, since the last call.
  std::set<std::uint64_t> take_astray() { return std::exchange(astray_, {}); }

  // What came over the wire that must not, and how much came and went.
  const std::vector<std::string>& findings() const { return findings_; }
  std::uint64_t said() const { return said_; }
  std::uint64_t heard() const { return heard_; }
  std::uint64_t plans() const { return plans_; }  // that an access point was told
  // The access points that behave, are connected and were told that they are subscribed.
  std::vector<sim::Mac> served() const;

  // LivedInSite.
  sim::Simulation& simulation() override { return simulation_; }
  const rrm::DomainConfig& settings() const override { return settings_; }
  std::int64_t seconds() const override { return seconds_; }
  void second() override;
  void exchange() override {}  // is everybody's, once a second
  void connect(std::size_t ap) override;
  void disconnect(std::size_t ap) override;
  void unsubscribe(std::size_t ap) override { simulation_.unsubscribe(ap); }
  void pause_balancing() override { server_.stop_load_balancer_at_rrm_worker(rrm::no_session); }
  bool force_optimization() override;

 private:
  struct End {
    lws* line = nullptr;
    bool wanted = false;  // connects again when its session ends
    std::int64_t retry_at = 0;
    std::int64_t served_at = 0;  // last
  };

  sim::Millis now() const { return 1'000'000 + seconds_ * 1000; }
  std::optional<std::size_t> find(lws* line) const;
  void call(std::size_t ap);
  void hear_text(std::size_t ap, const std::string& text);
  void check_plan(std::size_t ap, const std::string& text);
  void note_deaf_session();
  void note_roam(const std::string& text);
  Mischief mischief_of(std::size_t ap) const { return ap == misfit ? mischief_ : Mischief::none; }
  std::vector<std::string> spoiled(std::size_t ap, const std::string& text) const;
  std::string with_interference(const std::string& text);
  void find_fault(const std::string& fault);

  const sim::Site site_;
  const rrm::DomainConfig settings_;
  SoakedServer& server_;
  whole_site::Dice dice_;
  std::vector<End> ends_;
  sim::Simulation simulation_;
  whole_site::DailyLife life_;
  std::int64_t seconds_ = 0;
  bool off_ = false;
  bool has_nomad_ = true;
  Mischief mischief_ = Mischief::none;
  std::set<std::uint32_t> deaf_sessions_;
  std::set<std::uint64_t> astray_;
  std::optional<int> interfered_channel_;
  std::uint64_t last_stranger_ = 0;
  std::uint64_t said_ = 0;
  std::uint64_t heard_ = 0;
  std::uint64_t plans_ = 0;
  std::vector<std::string> findings_;
};

}  // namespace soak
