#include "load/gateway.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "daemon/DomainBackup.h"
#include "daemon/events.h"
#include "daemon/trace.h"
#include "platform/bus/bus_types.h"

namespace load {
namespace {

using zal::bus::Fields;

constexpr long pass_milliseconds = 5;
constexpr auto tick = std::chrono::seconds(10);  // a backup of everything takes a sanitizer seconds

Fields frame(int type, const Fields& fields = {}) {
  Fields whole{{"type", std::int64_t{type}}};
  for (const auto& [key, value] : fields) whole.set(key, value);
  return whole;
}

}  // namespace

std::vector<std::string> TellingRadio::backups() {
  ApiZAL api(server(), active_aps());
  return DomainBackup(api, backup_directory_).load_all();
}

bool TellingRadio::save_domain(const std::string& domain, std::string& error) {
  progress_("the backup of " + domain);
  return RadioRM::save_domain(domain, error);
}

Gateway::Gateway(const std::string& backup_directory, const Progress& progress)
    : port_(zal::PortId::rrm, trace), radio_(port_, backup_directory, progress) {
  if (!peer_.accept()) throw std::runtime_error("the port does not join the bus");
  peer_.send(frame(zal::bus::bus_run));
  if (!port_.register_msg_callback(RadioRM::on_ipc_message, &radio_) || !zal::ipc_send_ready_and_wait_for_run(port_)) {
    throw std::runtime_error("the port does not run");
  }
  set_domain_changed_hook([this](const std::string& domain) { radio_.mark_domain_for_backup(domain); });
  static_cast<void>(peer_.receive());
  send(zal::IPC_MSG__PEERS_READY::type_number);
}

Gateway::~Gateway() = default;

void Gateway::pass() {
  port_.run_once_for_timeout(pass_milliseconds);
  radio_.poll_maintenance();
  if (Steady::now() >= next_tick_) {
    next_tick_ = Steady::now() + tick;
    ++rounds_of_backups_;
    if (radio_.vrrp_state() < RadioRM::vrrp_standby) radio_.backup_marked_domains();
  }
  for (Fields& fields : peer_.receive()) {
    if (fields.number("type") == zal::bus::bus_alarm)
      ++alarms_;
    else
      received_.push_back(std::move(fields));
  }
}

Gateway::Served Gateway::send(int type, const Fields& fields) {
  Fields question = frame(type, fields);
  question.set("id", ++last_id_);
  peer_.send(question);
  return await_served();
}

// What arrives up to the report that the last frame was served.
Gateway::Served Gateway::await_served() {
  Served served;
  for (;;) {
    while (received_.empty()) pass();
    Fields fields = std::move(received_.front());
    received_.pop_front();
    const bool is_end = fields.number("type") == zal::bus::bus_served && fields.number("id") == last_id_;
    if (is_end) served.error = fields.number("error").value_or(-1);
    if (is_end) return served;
    served.replies.push_back(std::move(fields));
  }
}

// By handfuls, so that the bus takes each of them at once.
bool Gateway::send_all(int type, const std::vector<Fields>& frames) {
  constexpr std::size_t handful = 30;
  bool all_well = true;
  for (std::size_t first = 0; first < frames.size(); first += handful) {
    const std::size_t end = std::min(first + handful, frames.size());
    for (std::size_t i = first; i + 1 < end; ++i) peer_.send(frame(type, frames[i]));
    const Served last = send(type, frames[end - 1]);
    all_well = all_well && last.error == 0 && last.replies.empty();
  }
  return all_well;
}

std::optional<std::string> Gateway::command(const std::string& text) {
  return ApiZAL(radio_.server(), radio_.active_aps()).run(text);
}

}  // namespace load
