#include "domain/domain_support.h"

#include <functional>
#include <thread>

#include "core/QueueMessage.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm::testing {
namespace {

// Notes the orders to close a session.
class OrderNoter final : public Worker {
 public:
  OrderNoter(RRM* server, Journal& journal) : Worker("websock", server, 10000, 2, false), journal_(journal) {}

  void process_message(JsonReader&, BaseSession&) override {}
  void report_status(JsonWriter&) override {}
  void report_details(JsonWriter&) override {}
  void enqueue_message(JsonReader&& json, const BaseSession& session) override { note("DROP", json, session); }
  void enqueue_message_force(JsonReader&& json, const BaseSession& session) override {
    note("DROP-FORCE", json, session);
  }

 private:
  void note(const char* word, const JsonReader& json, const BaseSession& session) {
    const bool drop = json.get_string("cmd") == std::string("drop-session");
    journal_.note((drop ? word : "OTHER ORDER") + std::string(" ") + std::to_string(session.id));
  }

  Journal& journal_;
};

std::string joined(const std::vector<std::string>& parts) {
  std::string text;
  for (const std::string& part : parts) text += (text.empty() ? "" : ",") + part;
  return text;
}

}  // namespace

DomainServer::DomainServer(GlobalConfig* configuration, Journal& journal) : RRM(configuration), journal_(journal) {
  websock_worker = std::make_shared<OrderNoter>(this, journal);
}

void DomainServer::send_text(const char* text, const BaseSession& session) {
  journal_.note("SEND " + std::to_string(session.id) + " " + text);
}

void DomainServer::send_text(std::string&& text, const BaseSession& session) {
  send_text(text.c_str(), session);
}

void DomainServer::adopt(const std::shared_ptr<Worker>& worker) {
  MutexLock lock(workers.mutex);
  workers.map[worker->name] = worker;
}

void DomainTest::make() {
  worker = std::make_shared<RrmWorker>(&global, settings, domain, &server, time_zone_offset, 16, optimization);
  journal.take();
}

void DomainTest::start() {
  make();
  worker->connect();
  journal.take();
}

void DomainTest::pass() {
  locked([](RrmWorker& lab) RRM_NO_THREAD_SAFETY_ANALYSIS { lab.before_messages(); });
  worker->after_messages();
}

void DomainTest::receive(std::uint32_t session, const std::string& text) {
  process(session, text);
  worker->after_messages();
}

void DomainTest::process(std::uint32_t session, const std::string& text) {
  JsonReader json(text.c_str());
  BaseSession sender;
  sender.id = session;
  locked([&](RrmWorker& lab) RRM_NO_THREAD_SAFETY_ANALYSIS {
    lab.before_messages();
    lab.process_message(json, sender);
  });
}

void DomainTest::drop(std::uint32_t session) {
  receive(session, internal_message::drop_session);
}

void DomainTest::advance(std::int32_t seconds) {
  for (std::int32_t i = 0; i < seconds; ++i) {
    clock.advance(1);
    pass();
  }
}

// Time stands still until the plan is made: with each tick that passes the domain forgets who has left.
void DomainTest::finish_computing() {
  EXPECT_TRUE(eventually([this] { return !worker->tpc_dca().computing(); }));
  if (rrm_status() == static_cast<int>(RrmStatus::TPC_COMPUTING)) advance(1);
}

void DomainTest::subscribe(std::uint32_t session, const MessageJson& message) {
  receive(session, message);
  journal.take();
}

void DomainTest::to_mode_requests() {
  advance(settings.force_delay);
  ASSERT_EQ(rrm_status(), static_cast<int>(RrmStatus::WAIT_MODE_RESPONSE));
  journal.take();
}

void DomainTest::to_scan() {
  advance(settings.mode_response_wait);
  ASSERT_EQ(rrm_status(), static_cast<int>(RrmStatus::WAIT_SCAN_RESULTS));
  journal.take();
}

void DomainTest::to_computing(const std::vector<std::pair<std::uint32_t, std::string>>& sessions_and_macs) {
  to_mode_requests();
  for (const auto& [session, mac] : sessions_and_macs) {
    receive(session, a_message("rrm-mode-response", mac).with_radio(a_5ghz_radio()));
  }
  to_scan();
  for (const auto& [session, mac] : sessions_and_macs) {
    receive(session, a_message("rrm-response", mac).with_radio(a_5ghz_radio()).with_heard({}));
  }
  ASSERT_EQ(rrm_status(), static_cast<int>(RrmStatus::TPC_COMPUTING));
  journal.take();
}

void DomainTest::locked(const std::function<void(RrmWorker&)>& action) {
  worker->execute_locked([&] { action(*worker); });
}

bool DomainTest::force_optimization() {
  bool planned = false;
  locked([&](RrmWorker& lab) { planned = lab.force_optimization(); });
  return planned;
}

std::string DomainTest::status() {
  JsonWriter writer;
  locked([&](RrmWorker& lab) { lab.report_status(writer); });
  return writer.to_string();
}

std::string DomainTest::details() {
  JsonWriter writer;
  locked([&](RrmWorker& lab) { lab.report_details(writer); });
  return writer.to_string();
}

std::shared_ptr<ApEntry> DomainTest::ap(const std::string& mac) {
  for (ApMap* set : {&aps(), &deleted_aps(), &unanswered_aps()}) {
    if (auto found = set->find(MacAddr::parse(mac.c_str()))) return found;
  }
  return nullptr;
}

std::string status_event(int status) {
  return R"(EVENT 24 {"location":"lab", "status":)" + std::to_string(status) + "}";
}

std::string told_radio(int id, int channel, int band, int power) {
  return R"({"id":)" + std::to_string(id) + R"(,"channel":)" + std::to_string(channel) + R"(,"band":)" +
         std::to_string(band) + R"(,"power":)" + std::to_string(power) +
         R"(,"bandwidth":20,"primary-channel":"none","dunva-sta-rssi-thr-low":-75,"dunva-sta-rssi-thr-high":-65,)"
         R"("dunva-roam-attempt-timeout":600,"dunva-client-rssi-renew":15,"dunva-client-max-age":20,)"
         R"("dunva-try-no-balance":2,"no-balance-enterprise":0})";
}

std::string told_lists(const std::string& mac) {
  return R"({"service":"rrm","version":"2.4","cmd":"rrm-info","ap-mac":")" + mac +
         R"(","use-tpc":1,"use-dca":1,"use-load-balance":1,"use-80211v":0})";
}

std::string told_lists(const std::string& mac, const std::vector<std::string>& neighbours) {
  return with_neighbours(neighbours, told_lists(mac));
}

std::string told_info(const std::string& mac, const std::vector<std::string>& radios) {
  std::string text = told_lists(mac);
  return text.insert(text.size() - 1, R"(,"radios":[)" + joined(radios) + "]");
}

std::string told_success(const std::string& mac, const std::vector<std::string>& radios) {
  return R"({"service":"rrm","version":"2.4","cmd":"subscribe-response","status":"success","domain":"lab","ap-mac":")" +
         mac + R"(","config":{"use-tpc":1,"use-dca":1,"use-load-balance":1,"use-80211r":1,"use-80211v":0,"radios":[)" +
         joined(radios) + "]}}";
}

const std::string looks_at_links = "TRACE Post 802dot11r results domain lab";

std::string with_neighbours(const std::vector<std::string>& neighbours, std::string message) {
  const std::size_t end_of_members = message.find_last_not_of('}') + 1;
  return message.insert(end_of_members, R"(,"802dot11k":[)" + joined(neighbours) + "]");
}

RadioJson an_office_radio(int channel) {
  return a_5ghz_radio(channel).with_vap(3, "office");
}

std::string told_office(const std::string& ap, int priority, int channel) {
  const std::string part = ap.substr(0, ap.size() - 2);
  return R"({"neighbour-mac":")" + part + R"(10","channel":)" + std::to_string(channel) +
         R"(,"band":5,"bandwidth":20,"primary-channel":"none","priority":)" + std::to_string(priority) +
         R"(,"vaps":[{"id":3,"ssid":"office","mac":")" + part + R"(13"}]})";
}

std::string with_switch(const std::string& key, int value, std::string message) {
  const std::string place = "\"" + key + "\":";
  const std::size_t at = message.find(place);
  EXPECT_NE(at, std::string::npos) << key;
  return message.replace(at + place.size(), 1, std::to_string(value));
}

std::string told_failure(int code, const std::string& mac) {
  return R"({"service":"rrm","version":"2.4","cmd":"subscribe-response","status":"fail","code":)" +
         std::to_string(code) + R"(,"ap-mac":")" + mac + R"("})";
}

}  // namespace rrm::testing
