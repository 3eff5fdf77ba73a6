#include "docs/documented_site.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "daemon/events.h"
#include "daemon/trace.h"
#include "platform/bus/bus_types.h"
#include "support/messages.h"

// The host of the examples.
extern "C" int gethostname(char* name, size_t size) noexcept {
  std::strncpy(name, "controller", size);
  return 0;
}

namespace docs {
namespace {

using namespace std::chrono_literals;
using rrm::testing::a_5ghz_radio;
using rrm::testing::a_subscribe;
using zal::bus::Fields;

constexpr std::int64_t report_time = 1767323045;  // 2026-01-02,03:04:05
constexpr const char* access_point = "02:00:5E:00:01:00";
constexpr std::int64_t end_mark = 2147483647;  // the id of a frame that only tells that all before it were served
constexpr auto patience = 20s;

std::string replaced(std::string text, const std::string& part, const std::string& by) {
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + by.size()))
    text.replace(at, part.size(), by);
  return text;
}

}  // namespace

DocumentedSite::DocumentedSite()
    : listen_port_(rrm::testing::free_port()),
      exchanged_{{"8099", std::to_string(listen_port_)},
                 {"\"pid\":4242", "\"pid\":" + std::to_string(getpid())},
                 {"/mnt/data/zal//morvane-reports/", directory_.path().string() + "/"}},
      clock_(1000, report_time + 3600),
      port_(std::make_unique<zal::IpcPort>(zal::PortId::rrm, trace)),
      radio_(std::make_unique<RadioRM>(*port_)) {
  if (!peer_.accept()) throw std::logic_error("the port does not join the bus");
  install_report_hooks();
  set_domain_changed_hook([this](const std::string& domain) { radio_->mark_domain_for_backup(domain); });
  port_->register_msg_callback(RadioRM::on_ipc_message, radio_.get());
}

DocumentedSite::~DocumentedSite() = default;

std::string DocumentedSite::to_run(std::string text) const {
  for (const auto& [of_page, of_run] : exchanged_) text = replaced(text, of_page, of_run);
  return text;
}

std::string DocumentedSite::to_page(std::string text) const {
  for (const auto& [of_page, of_run] : exchanged_) text = replaced(text, of_run, of_page);
  return text;
}

void DocumentedSite::send(const std::string& text) {
  if (!peer_.send_bytes(zal::testing::framed(text))) throw std::logic_error("the port does not read");
}

std::vector<std::string> DocumentedSite::exchange(const std::string& frame) {
  std::string reason;
  const auto fields = zal::bus::parse_fields(frame, reason);
  if (!fields) throw std::logic_error(frame + ": " + reason);
  send(to_run(frame));
  if (fields->number("type") == zal::bus::bus_run) order_run();
  auto answers = serve_to_the_end();
  if (fields->number("type") == 162 && fields->number("state") == 1) {
    connect_access_point();
    const auto alarms = serve_to_the_end();
    answers.insert(answers.end(), alarms.begin(), alarms.end());
  }
  return answers;
}

void DocumentedSite::order_run() {
  if (!zal::ipc_send_ready_and_wait_for_run(*port_)) throw std::logic_error("no run order");
}

// Frames are served in their order, so the end of a last one is the end of all. What the process still has to say when
// it was ordered to end comes without it.
std::vector<std::string> DocumentedSite::serve_to_the_end() {
  send(R"({"type":163,"id":)" + std::to_string(end_mark) + "}");
  std::vector<std::string> frames;
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (std::chrono::steady_clock::now() < deadline) {
    port_->run_once_for_timeout(5);
    for (const Fields& frame : peer_.receive()) {
      if (frame.number("id") == end_mark) return frames;
      frames.push_back(to_page(to_json(frame)));
    }
    if (is_finalized()) return frames;
  }
  throw std::logic_error("not served");
}

std::optional<std::string> DocumentedSite::run(const std::string& command) {
  const auto answer = ApiZAL(radio_->server(), radio_->active_aps()).run(to_run(command));
  return answer ? std::optional(to_page(*answer)) : std::nullopt;
}

// One radio at 5 GHz with one VAP.
void DocumentedSite::connect_access_point() {
  access_point_.emplace(rrm::testing::WsClient::open(listen_port_));
  access_point_->send_text(a_subscribe(access_point).with_radio(a_5ghz_radio().with_vap(0, "staff")).text());
  if (!access_point_->receive_text()) throw std::logic_error("no answer to the access point");
}

void DocumentedSite::write_report() {
  const std::string moment = "1.1,2026-01-02,03:04:05";
  rrm::testing::write_file(directory_.file("report_lab.txt"),
                           moment +
                               ",02:00:5E:00:01:00,02:00:5E:00:01:10,20,14,44,36,1,20,20,5,0,36 40 44 48,"
                               "23,17,8,23,3,0\n");
  rrm::testing::write_file(directory_.file("report_cfg_lab.txt"),
                           moment + ",1,1,1,1,25,-70,-70,2,2,0,300,-75,-65,30,5,20,0,1,15,20,2,0,1,93,1\n");
  rrm::testing::write_file(directory_.file("report_idx_lab.txt"), moment + "\n");
}

}  // namespace docs
