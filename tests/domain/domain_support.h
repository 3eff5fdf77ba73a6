// A domain worker without a thread: a test feeds it messages, moves the time and reads, line by line, what an outsider
// sees of it. The domain is called "lab".
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "RrmWorker.h"
#include "TpcDcaSubworker.h"
#include "support/capture.h"
#include "support/gate.h"
#include "support/journal.h"
#include "support/messages.h"
#include "support/temp_dir.h"

namespace rrm::testing {

// A server that notes "SEND 7 {…}" for a text to session 7, and "DROP 7" or "DROP-FORCE 7" for an order to close it.
class DomainServer final : public RRM {
 public:
  DomainServer(GlobalConfig* configuration, Journal& journal);
  ~DomainServer() override { release(); }

  void send_text(const char* text, const BaseSession& session) override;
  void send_text(std::string&& text, const BaseSession& session) override;

  bool has_session(const BaseSession& session) const override { return !ended.contains(session.id); }
  std::set<std::uint32_t> ended;  // sessions whose connection is gone, whether or not the domain was told

  // Puts a worker into the map without starting it.
  void adopt(const std::shared_ptr<Worker>& worker);

 private:
  Journal& journal_;
};

class DomainTest : public ::testing::Test {
 protected:
  // The domain's settings; a test changes them before it starts the domain.
  DomainConfig settings;
  std::int32_t time_zone_offset = 0;
  std::string domain = "lab";
  OptimizationThread::Body optimization = run_optimization;

  // Makes the worker and connects it; forgets what was journalled.
  void start();
  // The same without connecting.
  void make();

  // One pass of the worker's loop: due timers, the message, the flush.
  void pass();
  void receive(std::uint32_t session, const std::string& text);
  void receive(std::uint32_t session, const MessageJson& message) { receive(session, message.text()); }
  // The same without the flush.
  void process(std::uint32_t session, const std::string& text);
  // The session is gone, as the server tells the domain.
  void drop(std::uint32_t session);
  // Second by second, a pass in each.
  void advance(std::int32_t seconds);
  // Lets the optimisation thread finish and the domain take the result.
  void finish_computing();
  // An AP subscribes on a session; forgets what was journalled.
  void subscribe(std::uint32_t session, const MessageJson& message);

  // From the wait of a forced plan to the wait for mode answers.
  void to_mode_requests();
  // From there, without a word more, to the wait for scan results; what was answered before counts.
  void to_scan();
  // The whole way: each of these APs answers both questions with its one 5 GHz radio on channel 36, the others are
  // silent. Forgets what was journalled.
  void to_computing(const std::vector<std::pair<std::uint32_t, std::string>>& sessions_and_macs);

  // Calls with the worker's mutex held, as the command interface does.
  void locked(const std::function<void(RrmWorker&)>& action);
  bool force_optimization();
  std::string status();   // report_status
  std::string details();  // report_details

  ApMap& aps() { return worker->aps(); }
  ApMap& deleted_aps() { return worker->deleted_aps(); }
  ApMap& unanswered_aps() { return worker->unanswered_aps(); }
  std::shared_ptr<ApEntry> ap(const std::string& mac);  // in any of the sets
  std::int32_t rrm_status() { return static_cast<std::int32_t>(worker->tpc_dca().rrm_status()); }

  ManualClock clock;
  Journal journal;
  TempDir reports;
  GlobalConfig global{"", R"({"global":{"reports_path":")" + reports.path().string() + R"("}})"};
  DomainServer server{&global, journal};
  std::shared_ptr<RrmWorker> worker;
};

// {"location":"lab", "status":n} of event 24.
std::string status_event(int status);

// The text in which an AP is told a 20 MHz radio of a domain with default settings.
std::string told_radio(int id, int channel, int band, int power);
// rrm-info with the default settings' switches.
std::string told_info(const std::string& mac, const std::vector<std::string>& radios);
// A successful subscribe-response with the default settings' switches.
std::string told_success(const std::string& mac, const std::vector<std::string>& radios);
// The line with which the domain, after a subscribe or in its turn, looks whether an AP is to be told of its 802.11r
// links.
extern const std::string looks_at_links;
// rrm-info with the default settings' switches and no radios, for an AP that gets no neighbour list, or one that does.
std::string told_lists(const std::string& mac);
std::string told_lists(const std::string& mac, const std::vector<std::string>& neighbours);
// rrm-info or a successful subscribe-response with a neighbour list behind its radios.
std::string with_neighbours(const std::vector<std::string>& neighbours, std::string message);
// A 5 GHz radio with the VAP "office", id 3, of 802.11k and v, and how a neighbour list tells such a radio of an AP.
RadioJson an_office_radio(int channel = 36);
std::string told_office(const std::string& ap, int priority, int channel = 36);
// A message in which one switch of the settings has another value.
std::string with_switch(const std::string& key, int value, std::string message);
std::string told_failure(int code, const std::string& mac);

// Each line on its own, so that a difference is easy to see.
#define EXPECT_LINES(actual, ...) EXPECT_THAT(actual, ::testing::ElementsAreArray(std::vector<std::string> __VA_ARGS__))

}  // namespace rrm::testing
