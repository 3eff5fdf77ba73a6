#include "whole_site/controlled_site.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <utility>

#include "TpcDcaSubworker.h"
#include "core/QueueMessage.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "support/gate.h"
#include "support/recording_server.h"

namespace whole_site {
namespace {

constexpr int longest_exchange = 50;           // rounds until nobody has anything to say
constexpr std::int64_t longest_computing = 4;  // seconds
constexpr std::ptrdiff_t no_more_waiting = 1000;

rrm::BaseSession session_of(std::uint32_t id) {
  rrm::BaseSession session;
  session.id = id;
  return session;
}

std::string global_settings(bool wildcard_80211r) {
  return std::string(R"({"global":{"enabled":1,"use_wildcard_80211r":)") + (wildcard_80211r ? "1" : "0") + "}}";
}

}  // namespace

bool Pass::logged(const std::string& line) const {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

ControlledSite::ControlledSite(const sim::Site& site, const rrm::DomainConfig& settings, bool wildcard_80211r,
                               std::uint64_t seed, std::vector<Watcher*> watchers)
    : site_(site),
      settings_(settings),
      watchers_(std::move(watchers)),
      dice_(seed),
      global_("", global_settings(wildcard_80211r)),
      server_(std::make_unique<rrm::testing::RecordingServer>(&global_)),
      sessions_(site.access_points.size(), 0) {
  const auto compute = [this](rrm::OptimizationContext& context, const std::atomic<bool>& cancel) {
    may_compute_.acquire();
    return rrm::run_optimization(context, cancel);
  };
  worker_ = std::make_shared<rrm::RrmWorker>(&global_, settings_, site.domain, server_.get(), 0, 16, compute);
  worker_->connect();
  std::srand(static_cast<unsigned>(seed));
  const auto feed = [this](const sim::SteeringEvent& event) {
    for (Watcher* const watcher : watchers_) watcher->happened(event);
  };
  simulation_ = std::make_unique<sim::Simulation>(
      site, [this](const std::string& line) { surprises_.push_back("an AP says: " + line); }, feed);
}

ControlledSite::~ControlledSite() {
  may_compute_.release(no_more_waiting);
  worker_->disconnect();
}

std::size_t ControlledSite::place_of(const rrm::MacAddr& mac) const {
  const auto& aps = site_.access_points;
  const auto found =
      std::find_if(aps.begin(), aps.end(), [&](const sim::AccessPoint& ap) { return ap.mac.value == mac.to_number(); });
  return static_cast<std::size_t>(found - aps.begin());
}

int ControlledSite::rrm_status() {
  return static_cast<int>(worker_->tpc_dca().rrm_status());
}

int ControlledSite::fbt_status() {
  return static_cast<int>(worker_->tpc_dca().fbt_status());
}

// Sessions

void ControlledSite::connect(std::size_t ap) {
  sessions_[ap] = ++last_session_;
  ap_of_session_[last_session_] = ap;
  simulation_->connected(ap, now_);
}

void ControlledSite::disconnect(std::size_t ap) {
  const std::uint32_t session = std::exchange(sessions_[ap], 0);
  if (session == 0) return;
  ap_of_session_.erase(session);
  for (Watcher* const watcher : watchers_) watcher->session_ends(ap);
  simulation_->disconnected(ap);
  process(session, rrm::internal_message::drop_session);
  hear(take_told());
}

void ControlledSite::unsubscribe(std::size_t ap) {
  for (Watcher* const watcher : watchers_) watcher->session_ends(ap);
  simulation_->unsubscribe(ap);
}

// Operators

void ControlledSite::pause_balancing() {
  process(0, rrm::internal_message::stop_load_balancer);
}

bool ControlledSite::force_optimization() {
  bool planned = false;
  worker_->execute_locked([&] { planned = worker_->force_optimization(); });
  return planned;
}

// Time

void ControlledSite::second() {
  clock_.advance(1);
  now_ += 1000;
  ++seconds_;
  finish_computing();
  pass();
  simulation_->tick(now_);
  exchange();
  for (Watcher* const watcher : watchers_) watcher->second_over();
}

// The thread computes for as long as the dice want it to, whatever time it takes.
void ControlledSite::finish_computing() {
  if (!worker_->tpc_dca().computing()) return;
  if (++computing_seconds_ < longest_computing && !dice_.happens(40)) return;
  computing_seconds_ = 0;
  may_compute_.release();
  if (!rrm::testing::eventually([this] { return !worker_->tpc_dca().computing(); })) {
    surprises_.emplace_back("the optimisation does not end");
  }
}

void ControlledSite::pass() {
  for (Watcher* const watcher : watchers_) watcher->before_pass();
  journal_.take();
  worker_->execute_locked([this]() RRM_NO_THREAD_SAFETY_ANALYSIS { worker_->before_messages(); });
  worker_->after_messages();
  const Pass pass{journal_.take(), take_told()};
  for (Watcher* const watcher : watchers_) watcher->pass_over(pass);
  hear(pass.told);
  for (Watcher* const watcher : watchers_) watcher->pass_heard(pass);
}

// Messages

void ControlledSite::process(std::uint32_t session, const std::string& text) {
  rrm::JsonReader json(text.c_str());
  rrm::BaseSession sender = session_of(session);
  worker_->execute_locked([&]() RRM_NO_THREAD_SAFETY_ANALYSIS { worker_->process_message(json, sender); });
  worker_->after_messages();
  for (const std::uint32_t closed : server_->take_closed()) {
    if (ap_of_session_.count(closed) != 0) surprises_.push_back("a living session was closed after " + text);
  }
}

std::vector<Told> ControlledSite::take_told() {
  std::vector<Told> told;
  for (auto& [session, text] : server_->take_sent()) {
    const auto found = ap_of_session_.find(session);
    if (found != ap_of_session_.end()) {
      Json json = Json::parse(text);
      told.push_back({found->second, std::move(text), std::move(json)});
    }
  }
  return told;
}

void ControlledSite::hear(const std::vector<Told>& told) {
  for (const Told& message : told) {
    for (Watcher* const watcher : watchers_) watcher->told(message.ap, message.json);
    simulation_->received(message.ap, message.text, now_);
  }
}

void ControlledSite::exchange() {
  for (int round = 0; round < longest_exchange; ++round) {
    if (!exchange_once()) return;
  }
  surprises_.emplace_back("the APs and the domain do not come to an end");
}

// The messages of one AP keep their order; those of different APs overtake each other.
bool ControlledSite::exchange_once() {
  std::vector<std::size_t> order(sessions_.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  dice_.shuffle(order);
  bool any = false;
  for (const std::size_t ap : order) {
    for (const std::string& text : simulation_->take_outgoing(ap)) {
      if (sessions_[ap] == 0) continue;
      any = true;
      const Json json = Json::parse(text);
      for (Watcher* const watcher : watchers_) watcher->said(ap, json);
      process(sessions_[ap], text);
      hear(take_told());
    }
  }
  return any;
}

}  // namespace whole_site
