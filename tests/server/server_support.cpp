#include "server/server_support.h"

#include <algorithm>
#include <utility>

#include "core/QueueMessage.h"

namespace rrm::testing {

void Record::note(const std::string& line) {
  MutexLock lock(mutex_);
  lines_.push_back(line);
  grown_.notify_all();
}

std::vector<std::string> Record::lines() const {
  MutexLock lock(mutex_);
  return lines_;
}

std::size_t Record::count(const std::string& line) const {
  const auto all = lines();
  return static_cast<std::size_t>(std::count(all.begin(), all.end(), line));
}

void Record::await(const std::string& line, std::size_t times) const {
  MutexLock lock(mutex_);
  while (std::count(lines_.begin(), lines_.end(), line) < static_cast<std::ptrdiff_t>(times)) grown_.wait(mutex_);
}

ProbeWorker::ProbeWorker(RRM* server, Options options, std::shared_ptr<Record> shared_record)
    : Worker(options.name, server, options.sleep_us, options.capacity, options.with_event_fd),
      record(shared_record != nullptr ? std::move(shared_record) : std::make_shared<Record>()) {}

JsonReader ProbeWorker::an_order(const std::string& cmd) {
  return JsonReader((R"({"service":"rrm","cmd":")" + cmd + "\"}").c_str());
}

void ProbeWorker::process_message(JsonReader& json, BaseSession& session) {
  if (process_internal_ipc_msg(json)) return;
  const std::string cmd = json.get_string("cmd");
  last_sender_ = session.id;
  record->note(name + ": " + cmd);
  if (hooks.message) hooks.message(cmd);
}

void ProbeWorker::stop() {
  if (hooks.stop) hooks.stop();
  Worker::stop();
}

bool ProbeWorker::mutex_is_free() {
  bool free = false;
  std::thread([this, &free] {
    if (!mutex.try_lock()) return;
    mutex.unlock();
    free = true;
  }).join();
  return free;
}

bool ProbeWorker::keep_running(const bool& now_running) {
  return hooks.keep_running ? hooks.keep_running(now_running) : Worker::keep_running(now_running);
}

void ProbeWorker::before_messages() {
  if (hooks.before) hooks.before();
}

void ProbeWorker::after_messages() {
  if (hooks.after) hooks.after();
}

void ProbeWorker::disconnect() {
  record->note(name + ": disconnect");
  if (hooks.disconnect) hooks.disconnect();
  Worker::disconnect();
}

bool ProbeWorker::connect() {
  record->note(name + ": connect");
  return hooks.connect ? hooks.connect() : Worker::connect();
}

TestServer::TestServer(GlobalConfig* configuration) : RRM(configuration), make_real(create_domain_worker) {
  const auto fixed = [this](const char* name) {
    return std::make_shared<ProbeWorker>(this, ProbeWorker::Options{.name = name}, record);
  };
  default_worker = fixed("default");
  websock_worker = fixed("websock");
  report_maintenance = std::make_unique<ProbeMaintenance>(*configuration, report_record);
  ping_worker = fixed("ping");
  make = [this](const Made& order) {
    return std::make_unique<ProbeWorker>(this,
                                         ProbeWorker::Options{.name = order.domain, .capacity = order.queue_capacity});
  };
  create_domain_worker = [this](const DomainConfig& settings, const std::string& domain, std::int32_t time_zone_offset,
                                std::int32_t queue_capacity) {
    const Made order{domain, time_zone_offset, queue_capacity, settings};
    {
      MutexLock lock(test_mutex_);
      made_.push_back(order);
    }
    return make(order);
  };
}

void TestServer::send_text(std::string&& text, const BaseSession& session) {
  MutexLock lock(test_mutex_);
  sent_.push_back({std::move(text), session.id});
}

std::vector<TestServer::Sent> TestServer::sent() const {
  MutexLock lock(test_mutex_);
  return sent_;
}

std::vector<TestServer::Made> TestServer::made() const {
  MutexLock lock(test_mutex_);
  return made_;
}

std::shared_ptr<ProbeWorker> TestServer::probe(const std::string& domain) const {
  return std::dynamic_pointer_cast<ProbeWorker>(find_worker(domain));
}

std::shared_ptr<Worker> TestServer::replace_websock(std::shared_ptr<Worker> worker) {
  return std::exchange(websock_worker, std::move(worker));
}

void TestServer::adopt(const std::shared_ptr<Worker>& worker) {
  MutexLock lock(workers.mutex);
  workers.map[worker->name] = worker;
}

std::vector<std::string> TestServer::domains() const {
  std::vector<std::string> names;
  for (const auto& worker : worker_snapshot()) names.push_back(worker->name);
  return names;
}

void TestServer::receive(const std::string& text, std::uint32_t session_id) {
  JsonReader json(text.c_str());
  process_incoming_message(json, session_of(session_id));
}

BaseSession session_of(std::uint32_t id) {
  return BaseSession{nullptr, 0, id};
}

std::string ap_message(const std::string& cmd, const std::string& domain) {
  return R"({"service":"rrm","cmd":")" + cmd + R"(","domain":")" + domain + "\"}";
}

}  // namespace rrm::testing
