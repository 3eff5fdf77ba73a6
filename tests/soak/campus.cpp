#include "soak/campus.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <utility>

#include "TpcDcaSubworker.h"
#include "daemon/ApiZAL.h"
#include "daemon/DomainBackup.h"
#include "json/JsonReader.h"
#include "soak/heap_in_use.h"

namespace soak {
namespace {

using Json = nlohmann::json;

constexpr int dark_hall = 1;
constexpr int edited_hall = 2;
constexpr std::int64_t day = 24 * Campus::hour;
constexpr std::int64_t dark_from = 960;  // seconds of the day, the next two alike
constexpr std::int64_t dark_until = 2640;
constexpr std::int64_t edited_at = 1860;
constexpr std::int64_t misfits_until = 2000;  // seconds of the hour
constexpr std::int64_t save_period = 10;
constexpr int seconds_per_event = 60;
constexpr int longest_exchange = 50;
constexpr int longest_cycle = 300;  // seconds

// Every other hall balances by 802.11v as well, and every third has all access points for neighbours.
Json pattern(int number) {
  return {{"pattern", "pattern-" + std::to_string(number)},
          {"use_80211v", number % 2},
          {"use_all_ap_balance", number % 3 == 2 ? 1 : 0},
          {"use_optimization_time", 1},
          {"optimization_time", "4:00"},
          {"report_days_to_live", 1},
          {"load_balance_sta_low", 2},
          {"load_balance_sta_high", 5},
          {"blacklist_thr_low", -70},
          {"blacklist_thr_high", -62}};
}

std::string document(int halls, const std::string& reports_path) {
  Json json{{"global", {{"enabled", 1}, {"reports_path", reports_path}, {"report_delete_at_time_utc", "21:00"}}},
            {"common", {{"use_dca", 1}}},
            {"patterns", Json::array()},
            {"domains", Json::array()}};
  for (int number = 0; number < halls; ++number) {
    json["patterns"].push_back(pattern(number));
    json["domains"].push_back(
        {{"domain", SimulatedDomain::name_of(number)}, {"pattern", "pattern-" + std::to_string(number)}});
  }
  return json.dump();
}

std::string made_directory(const std::string& path) {
  std::filesystem::create_directory(path);
  return path;
}

std::size_t size_of_files(const std::filesystem::path& directory) {
  std::size_t size = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    if (entry.is_regular_file()) size += entry.file_size();
  }
  return size;
}

}  // namespace

Campus::Campus(int halls, std::uint64_t seed)
    : config_("", document(halls, made_directory(directory_.file("reports")))), server_(config_, clock_), dice_(seed) {
  made_directory(directory_.file("backups"));
  for (int number = 0; number < halls; ++number) {
    const rrm::DomainConfig settings = config_.domain_config(SimulatedDomain::name_of(number));
    halls_.push_back(
        std::make_unique<SimulatedDomain>(number, settings, seed * 100 + static_cast<std::uint64_t>(number), server_));
  }
}

// One access point of each hall a second.
void Campus::begin() {
  server_.begin();
  heap_at_start_ = heap_in_use();
  for (std::size_t hall = 1; hall < halls_.size(); hall += 2) halls_[hall]->give_nomad(false);
  for (std::size_t ap = 0; ap <= SimulatedDomain::nomad; ++ap) {
    for (std::size_t hall = 0; hall < halls_.size(); ++hall) {
      if (ap != SimulatedDomain::nomad || hall % 2 == 0) halls_[hall]->connect(ap);
    }
    second();
  }
}

// Time

void Campus::live() {
  do {
    second();
  } while (seconds_ % rest_period != 0);
  // How long a plan takes in the world is no matter here.
  is_awaiting_cycles_ = true;
  for (int waited = 0; waited < longest_cycle && in_cycle(); ++waited) {
    second();
    server_.await_plans();
  }
  is_awaiting_cycles_ = false;
}

bool Campus::is_quiet() const {
  return is_awaiting_cycles_ || seconds_ % rest_period >= rest_period - quiet_before_rest ||
         seconds_ % rest_period == 0;
}

void Campus::second() {
  ++seconds_;
  server_.second();
  deliver();
  for (const auto& hall : halls_) {
    if (!is_quiet()) befall(*hall);
    hall->life().second();
  }
  every_minute();
  every_hour();
  every_night();
  exchange();
  if (seconds_ % save_period == 0) save_backups();
}

void Campus::exchange() {
  for (int round = 0; round < longest_exchange; ++round) {
    for (const auto& hall : halls_) hall->speak();
    if (!server_.has_news()) return;
    server_.settle();
    deliver();
  }
  throw std::runtime_error("the server and its access points do not come to an end");
}

void Campus::deliver() {
  for (const Wire::Event& event : server_.wire().take_events()) {
    const auto hall =
        std::find_if(halls_.begin(), halls_.end(), [&](const auto& any) { return any->owns(event.line); });
    if (hall != halls_.end()) (*hall)->hear(event);
  }
}

bool Campus::any_misbehaves(Mischief how) const {
  return std::any_of(halls_.begin(), halls_.end(), [how](const auto& hall) { return hall->mischief() == how; });
}

bool Campus::in_cycle() const {
  const auto domains = server_.domains();
  return std::any_of(domains.begin(), domains.end(), [](const auto& domain) {
    auto status = rrm::RrmStatus::IDLE;
    domain->execute_locked([&] { status = domain->tpc_dca().rrm_status(); });
    return status != rrm::RrmStatus::IDLE && status != rrm::RrmStatus::DELAY_BEFORE_OPT;
  });
}

// Events

void Campus::befall(SimulatedDomain& hall) {
  if (hall.is_off() || hall.dice().between(1, seconds_per_event) != 1) return;
  hall.life().event();
  ++events_;
}

void Campus::every_minute() {
  if (seconds_ % 60 == 30) server_.check_old_reports();
  if (seconds_ % rest_period == rest_period - quiet_before_rest) {
    for (const auto& hall : halls_) {
      if (!hall->is_off()) hall->life().all_come_back();
    }
  }
}

void Campus::every_hour() {
  static const std::vector<int> channels = {1, 6, 11, 36, 44, 52};
  static const std::vector<Mischief> mischiefs = {Mischief::none,    Mischief::deaf,   Mischief::garbles,
                                                  Mischief::repeats, Mischief::strays, Mischief::mute,
                                                  Mischief::hangs};
  if (seconds_ % hour == misfits_until) {
    for (const auto& hall : halls_) hall->misbehave(Mischief::none);
    hooks_.expect_garbled(false);
  }
  if (seconds_ % hour != 60) return;
  for (const auto& hall : halls_) {
    hall->misbehave(dice_.one_of(mischiefs));
    hall->interfere(dice_.happens(50) ? std::optional(dice_.one_of(channels)) : std::nullopt);
  }
  hooks_.expect_garbled(any_misbehaves(Mischief::garbles));
  const bool eastwards = seconds_ / hour % 2 == 1;
  for (std::size_t hall = 0; hall + 1 < halls_.size(); hall += 2) {
    halls_[hall]->give_nomad(!eastwards);
    halls_[hall + 1]->give_nomad(eastwards);
  }
}

void Campus::every_night() {
  const std::int64_t of_day = seconds_ % day;
  // A plan that is cut off with its worker would be counted and not reported.
  if (of_day == dark_from || of_day == edited_at) server_.await_plans();
  if (of_day == dark_from) halls_.at(dark_hall)->switch_off();
  if (of_day == dark_until) {
    restore(halls_.at(dark_hall)->name());
    halls_.at(dark_hall)->switch_on();
  }
  if (of_day == edited_at) configure_anew(halls_.at(edited_hall)->name());
}

// What the operator's process does

void Campus::save_backups() {
  ApiZAL api(&server_, records_);
  DomainBackup backup(api, directory_.file("backups") + "/");
  for (const std::string& domain : hooks_.take_changed_domains()) {
    if (server_.find_worker(domain) == nullptr) continue;
    std::string error;
    if (!backup.save(domain, error)) throw std::runtime_error("no backup of " + domain + ": " + error);
    ++backups_;
  }
}

void Campus::restore(const std::string& domain) {
  ApiZAL api(&server_, records_);
  for (const std::string& text : DomainBackup(api, directory_.file("backups") + "/").load_all()) {
    rrm::JsonReader backup(text.c_str());
    if (domain == backup.get_string("name")) server_.restore_domain(backup);
  }
  if (server_.find_worker(domain) == nullptr) throw std::runtime_error(domain + " was not restored");
}

void Campus::configure_anew(const std::string& domain) {
  const std::string pattern_name = config_.domain_info(domain)->pattern;
  const bool balanced = config_.domain_config(domain).use_80211v;
  const Json edit{{"cfg",
                   {{"operation", "set"},
                    {"level", "pattern"},
                    {"pattern", pattern_name},
                    {"config", {{"use_80211v", balanced ? 0 : 1}}}}}};
  const auto answer = ApiZAL(&server_, records_).run(edit.dump());
  if (config_.domain_config(domain).use_80211v == balanced) {
    throw std::runtime_error("the pattern was not changed: " + answer.value_or("no answer"));
  }
}

// Looking

Rest Campus::look() {
  Rest rest;
  const auto add = [&](const std::vector<std::string>& faults) {
    rest.faults.insert(rest.faults.end(), faults.begin(), faults.end());
  };
  rest.heap = heap_in_use();
  const std::vector<std::uint32_t> sessions = server_.sessions();
  rest.sessions = sessions.size();
  rest.longest_queue = server_.take_longest_queue();
  if (server_.queued() != 0) add({std::to_string(server_.queued()) + " messages wait for domains"});
  add(faults_of_waiting());
  add(faults_of_losses());
  if (in_cycle()) add({"a cycle does not end"});
  if (sessions.size() + 1 != server_.wire().lines()) {
    add({std::to_string(sessions.size()) + " sessions of " + std::to_string(server_.wire().lines() - 1) +
         " connections"});
  }
  for (const auto& hall : halls_) {
    add(hall->findings());
    SeenReports& seen = seen_reports_[hall->name()];
    add(faults_of_reports(hall->name(), directory_.file("reports"), seen));
    add(faults_of_progress(hall->name(), seen.count));
    rest.reports += seen.count;
    const auto worker = std::dynamic_pointer_cast<rrm::RrmWorker>(server_.find_worker(hall->name()));
    if (worker != nullptr) {
      ++rest.domains;
      add(faults_of(*worker, sessions, hall->served(), rest.sizes));
    } else if (!hall->served().empty()) {
      add({hall->name() + " has access points and no worker"});
    }
  }
  rest.files = size_of_files(directory_.path());
  return rest;
}

// Only who does not read is waited for.
std::vector<std::string> Campus::faults_of_waiting() const {
  std::vector<std::string> faults;
  for (const std::uint32_t session : server_.waited_for()) {
    if (!was_deaf(session)) faults.push_back("something waits for session " + std::to_string(session));
  }
  return faults;
}

bool Campus::was_deaf(std::uint32_t session) const {
  return std::any_of(halls_.begin(), halls_.end(),
                     [&](const auto& hall) { return hall->deaf_sessions().contains(session); });
}

// Only what is not read may be lost, and only a client that was sent where nobody is.
std::vector<std::string> Campus::faults_of_losses() {
  std::vector<std::string> faults;
  for (const std::uint32_t session : hooks_.take_overflowed()) {
    if (!was_deaf(session)) faults.push_back("messages to session " + std::to_string(session) + " were lost");
  }
  std::set<std::uint64_t> astray;
  for (const auto& hall : halls_) astray.merge(hall->take_astray());
  for (const sim::Mac target : hooks_.take_lost_targets()) {
    if (!astray.contains(target.value)) faults.push_back(target.text() + " is on air, and the domain does not know it");
  }
  return faults;
}

// Every plan is reported, and once; when reports have become too old, there are fewer than before.
std::vector<std::string> Campus::faults_of_progress(const std::string& hall, std::size_t reports) {
  const Progress now{hooks_.cycles(hall), reports};
  const Progress before = std::exchange(progress_[hall], now);
  const auto planned = now.cycles - before.cycles;
  if (now.reports < before.reports || now.reports - before.reports == planned) return {};
  return {hall + " has planned " + std::to_string(planned) + " times and reported " +
          std::to_string(now.reports - before.reports)};
}

std::uint64_t Campus::expected_ends() const {
  const auto times = [this](std::int64_t of_day) {
    return static_cast<std::uint64_t>((seconds_ - of_day + day - 1) / day);
  };
  return times(dark_until) + times(edited_at);
}

Totals Campus::totals() const {
  Totals totals;
  totals.events = events_;
  for (const auto& hall : halls_) {
    totals.said += hall->said();
    totals.heard += hall->heard();
    totals.plans += hall->plans();
    const std::uint64_t cycles = hooks_.cycles(hall->name());
    totals.fewest_cycles = hall == halls_.front() ? cycles : std::min(totals.fewest_cycles, cycles);
    totals.cycles += cycles;
  }
  totals.ends = hooks_.ends();
  totals.backups = backups_;
  return totals;
}

}  // namespace soak
