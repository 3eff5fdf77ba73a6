// What the tests of the server core share: a worker that tells what happens to it, and a server whose workers and
// outgoing texts a test can look at and replace.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "Worker.h"
#include "core/mutex.h"
#include "json/JsonReader.h"
#include "support/gate.h"

namespace rrm::testing {

// A list that threads write and a test reads.
class Record {
 public:
  void note(const std::string& line);
  std::vector<std::string> lines() const;
  std::size_t count(const std::string& line) const;
  bool has(const std::string& line) const { return count(line) != 0; }
  // Waits for a line.
  void await(const std::string& line, std::size_t times = 1) const;

 private:
  mutable Mutex mutex_;
  mutable std::condition_variable_any grown_;
  std::vector<std::string> lines_ RRM_GUARDED_BY(mutex_);
};

// A worker that notes every message and every end of the loop, and does what a test hooks in besides. A message is
// named by its `cmd`.
class ProbeWorker : public Worker {
 public:
  struct Options {
    std::string name = "probe";
    std::int32_t sleep_us = 10000;
    std::int32_t capacity = 64;
    bool with_event_fd = true;
  };
  struct Hooks {
    std::function<void(const std::string& cmd)> message;
    std::function<bool()> connect;  // the result of connect
    std::function<void()> disconnect;
    std::function<void()> before;
    std::function<void()> after;
    std::function<bool(bool running)> keep_running;
    std::function<void()> stop;  // on the stopping thread, before the stop
  };

  ProbeWorker(RRM* server, Options options) : ProbeWorker(server, std::move(options), nullptr) {}
  ProbeWorker(RRM* server, Options options, std::shared_ptr<Record> shared_record);

  void process_message(JsonReader& json, BaseSession& session) override;
  void report_status(JsonWriter&) override {}
  void report_details(JsonWriter&) override {}
  void stop() override;

  void push(const std::string& cmd) { enqueue_message(an_order(cmd), no_session); }
  void push_force(const std::string& cmd) { enqueue_message_force(an_order(cmd), no_session); }
  static JsonReader an_order(const std::string& cmd);

  std::size_t queued() const { return queue.size(); }
  std::uint64_t capacity() const { return queue.normal.capacity(); }
  std::uint64_t dropped() const { return queue.dropped(); }
  bool has_event_fd() const { return queue.event_fd.valid(); }
  // Whether another thread could enter now.
  bool mutex_is_free();
  void leave_inner_loop() { running = false; }
  // Ends the worker from one of its own hooks.
  void end() { request_stop(); }
  std::uint32_t last_sender() const { return last_sender_; }

  Hooks hooks;  // set before the start
  const std::shared_ptr<Record> record;

 protected:
  bool keep_running(const bool& now_running) override;
  void before_messages() override;
  void after_messages() override;
  void disconnect() override;
  bool connect() override;

 private:
  std::atomic<std::uint32_t> last_sender_{0};
};

// A configuration with the domains "lab" and "yard" under the common settings, and "hall" under a pattern of its own.
inline constexpr const char* three_domains = R"({
  "global": {"enabled": 1},
  "common": {"use_dca": 1},
  "patterns": [{"pattern": "office", "use_tpc": 0}],
  "domains": [{"domain": "lab", "pattern": "common", "time_zone": "3:00"},
              {"domain": "yard", "pattern": "common", "time_zone": "0:00"},
              {"domain": "hall", "pattern": "office", "time_zone": "-2:00"}]})";

// Report maintenance without threads, that notes its starts and stops.
class ProbeMaintenance final : public ReportMaintenance {
 public:
  ProbeMaintenance(const GlobalConfig& config, std::shared_ptr<Record> record)
      : ReportMaintenance(config), record_(std::move(record)) {}

  void ensure_report_maintenance_started() override { record_->note("started"); }
  void stop_report_maintenance() override {
    record_->note("stopped");
    if (on_stop) on_stop();
  }

  std::function<void()> on_stop;

 private:
  const std::shared_ptr<Record> record_;
};

// A server whose fixed workers are probes that note in one record, whose domain workers are made by the test, and whose
// outgoing texts are kept.
class TestServer : public RRM {
 public:
  struct Made {
    std::string domain;
    std::int32_t time_zone_offset;
    std::int32_t queue_capacity;
    DomainConfig settings;
  };
  struct Sent {
    std::string text;
    std::uint32_t session_id;
    bool operator==(const Sent&) const = default;
  };

  explicit TestServer(GlobalConfig* config);
  ~TestServer() override { release(); }

  using RRM::send_text;
  void send_text(std::string&& text, const BaseSession& session) override;
  std::vector<Sent> sent() const;

  // What the domain workers are made with, and made by; the default makes probes under the domain's name.
  std::function<std::unique_ptr<Worker>(const Made& order)> make;
  std::vector<Made> made() const;
  std::shared_ptr<ProbeWorker> probe(const std::string& domain) const;

  // From now on domain workers are the real ones.
  void make_real_domain_workers() { create_domain_worker = make_real; }

  // Puts another worker in the WebSocket worker's place, while nothing runs; the result is the one that stood there.
  std::shared_ptr<Worker> replace_websock(std::shared_ptr<Worker> worker);
  // Puts a worker into the map without starting it.
  void adopt(const std::shared_ptr<Worker>& worker);
  std::vector<std::string> domains() const;
  // A message of an access point on a session of this number.
  void receive(const std::string& text, std::uint32_t session_id = 1);

  ProbeMaintenance& maintenance() { return static_cast<ProbeMaintenance&>(*report_maintenance); }
  ProbeWorker& fixed_default() { return static_cast<ProbeWorker&>(*default_worker); }
  ProbeWorker& fixed_websock() { return static_cast<ProbeWorker&>(*websock_worker); }
  ProbeWorker& fixed_ping() { return static_cast<ProbeWorker&>(*ping_worker); }

  using RRM::cancel_worker;
  using RRM::make_rrm_worker;
  using RRM::restore_domains;

  const std::shared_ptr<Record> record = std::make_shared<Record>();         // of the fixed workers
  const std::shared_ptr<Record> report_record = std::make_shared<Record>();  // of the report maintenance

 private:
  const DomainWorkerFactory make_real;

  mutable Mutex test_mutex_;
  std::vector<Sent> sent_ RRM_GUARDED_BY(test_mutex_);
  std::vector<Made> made_ RRM_GUARDED_BY(test_mutex_);
};

BaseSession session_of(std::uint32_t id);
// {"service":"rrm","cmd":cmd,"domain":domain}
std::string ap_message(const std::string& cmd, const std::string& domain);

}  // namespace rrm::testing
