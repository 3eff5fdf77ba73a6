#include "RadioRM.h"

#include <charconv>
#include <ctime>
#include <sstream>
#include <utility>
#include <vector>

#include "DomainBackup.h"
#include "MorvaneRequests.h"
#include "SetupChanges.h"
#include "commands.h"
#include "json/JsonReader.h"
#include "mac_filter_orders.h"
#include "setup_faults.h"
#include "trace.h"
#include "zal/cfg.h"

namespace {

constexpr std::chrono::milliseconds maintenance_interval{60000};
constexpr const char* no_config_file = "";
constexpr int ignored_type = 163;

template <class Message>
const Message& as(const zal::IMsg& msg) {
  return dynamic_cast<const Message&>(msg);
}

// The numbers of a list that is joined by commas; an entry that is none is passed over.
std::vector<int> numbers_in(const std::string& list) {
  std::vector<int> numbers;
  std::istringstream entries(list);
  for (std::string entry; std::getline(entries, entry, ',');) {
    const std::size_t first = entry.find_first_not_of(' ');
    if (first == std::string::npos) continue;
    const char* const begin = entry.data() + first;
    const char* const end = entry.data() + (entry.find_last_not_of(' ') + 1);
    int number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number);
    if (error == std::errc() && stop == end) numbers.push_back(number);
  }
  return numbers;
}

std::shared_ptr<zal::IPC_MSG__RRM_REPORT_RESP> report_reply() {
  auto reply = std::make_shared<zal::IPC_MSG__RRM_REPORT_RESP>();
  const zal::cfg_tree tree(zal::cfg_get_empty());
  if (tree == nullptr) {
    *reply->text = R"({"status": "error"})";
  } else {
    zal::cfg_set_param(tree.get(), "/status", "success");
    *reply->text = zal::cfg_serialize_compact(tree.get());
  }
  return reply;
}

bool is_json_object(const std::string& text) {
  return rrm::JsonReader(text.c_str()).to_string()[0] == '{';
}

void change_time_zone() {
  trace.sys("Force update tzset");
  tzset();
}

}  // namespace

RadioRM::RadioRM(zal::IpcPort& port, std::string backup_directory)
    : port_(port), backup_directory_(std::move(backup_directory)), maintenance_timer_(maintenance_interval) {}

RadioRM::~RadioRM() {
  if (rrm_) rrm_->release();
}

zal::Error RadioRM::on_ipc_message(const zal::IMsg& msg, zal::IpcPort&, void* user) {
  RadioRM& radio = *static_cast<RadioRM*>(user);
  if (radio.serve_order(msg) || radio.serve_question(msg)) return zal::Error::none;
  trace.warn("uncaught");
  return zal::Error::unknown_message;
}

// Orders and news: nothing is answered.
bool RadioRM::serve_order(const zal::IMsg& msg) {
  switch (msg.type()) {
    case zal::IPC_MSG__SHUTDOWN::type_number:
      port_.finalize();
      return true;
    case zal::IPC_MSG__PEERS_READY::type_number:
      port_.set_SendAndRecv();
      return true;
    case zal::IPC_MSG__TIMEZONE_CHANGED::type_number:
      change_time_zone();
      return true;
    case zal::IPC_MSG__RRM_SETUP::type_number:
      update_setup(as<zal::IPC_MSG__RRM_SETUP>(msg).text);
      return true;
    case zal::IPC_MSG__MAC_FILTER_CONFIG::type_number:
      zal::mac_filter_config(msg, trace);
      return true;
    case ignored_type:
      return true;
    case zal::IPC_MSG__RRM_AP_INFO::type_number:
      store_ap_info(as<zal::IPC_MSG__RRM_AP_INFO>(msg));
      return true;
    case zal::IPC_MSG__RRM_AP_INFO_CLEARED::type_number:
      active_aps_.clear();
      return true;
    case zal::IPC_MSG__VRRP_STATE::type_number:
      set_vrrp_state(as<zal::IPC_MSG__VRRP_STATE>(msg).state);
      return true;
    default:
      return false;
  }
}

bool RadioRM::serve_question(const zal::IMsg& msg) {
  switch (msg.type()) {
    case zal::IPC_MSG__RRM_REPORT::type_number:
      port_.send(report_reply());
      return true;
    case zal::IPC_MSG__MAC_FILTER::type_number:
      port_.send(obey_mac_filter_order(as<zal::IPC_MSG__MAC_FILTER>(msg)));
      return true;
    case zal::IpcMsgMorvaneRequest::type_number:
      process_morvane_request(as<zal::IpcMsgMorvaneRequest>(msg));
      return true;
    case zal::IPC_MSG__RRM_API_VRRP_STATUS::type_number:
      tell_role();
      return true;
    default:
      return serve_api_question(msg);
  }
}

// Questions of the older kind are commands as they stand, and so are their answers.
bool RadioRM::serve_api_question(const zal::IMsg& msg) {
  switch (msg.type()) {
    case zal::IPC_MSG__RRM_API_SESSIONS::type_number:
      return answer<zal::IPC_MSG__RRM_API_SESSIONS_RESP>(commands::sessions());
    case zal::IPC_MSG__RRM_API_REM_SESSIONS::type_number: {
      const auto& question = as<zal::IPC_MSG__RRM_API_REM_SESSIONS>(msg);
      return answer<zal::IPC_MSG__RRM_API_REM_SESSIONS_RESP>(commands::drop_sessions(numbers_in(*question.filter)));
    }
    case zal::IPC_MSG__RRM_API_GROUPS::type_number:
      return answer<zal::IPC_MSG__RRM_API_GROUPS_RESP>(commands::domains());
    case zal::IPC_MSG__RRM_API_GROUP::type_number:
      return answer<zal::IPC_MSG__RRM_API_GROUP_RESP>(commands::domain(*as<zal::IPC_MSG__RRM_API_GROUP>(msg).group));
    case zal::IPC_MSG__RRM_API_AP::type_number: {
      const auto& question = as<zal::IPC_MSG__RRM_API_AP>(msg);
      return answer<zal::IPC_MSG__RRM_API_AP_RESP>(commands::ap(*question.group, *question.ap));
    }
    case zal::IPC_MSG__RRM_API_START_OPT::type_number: {
      const auto& question = as<zal::IPC_MSG__RRM_API_START_OPT>(msg);
      return answer<zal::IPC_MSG__RRM_API_START_OPT_RESP>(commands::optimize(*question.group));
    }
    case zal::IPC_MSG__RRM_API_REPORTS::type_number: {
      const auto& question = as<zal::IPC_MSG__RRM_API_REPORTS>(msg);
      return answer<zal::IPC_MSG__RRM_API_REPORTS_RESP>(
          commands::report_list(*question.group, *question.date_start, *question.date_finish));
    }
    case zal::IPC_MSG__RRM_API_REPORT::type_number: {
      const auto& question = as<zal::IPC_MSG__RRM_API_REPORT>(msg);
      return answer<zal::IPC_MSG__RRM_API_REPORT_RESP>(commands::report(*question.group, *question.report));
    }
    default:
      return false;
  }
}

// True: the question was known. Without an answer the text is empty.
template <class Reply>
bool RadioRM::answer(const std::string& command) {
  auto reply = std::make_shared<Reply>();
  *reply->text = api().run(command).value_or("");
  port_.send(reply);
  return true;
}

void RadioRM::process_morvane_request(const zal::IpcMsgMorvaneRequest& request) {
  ApiZAL interface = api();
  auto reply = std::make_shared<zal::IPC_MSG__RRM_MORVANE_RESP>();
  reply->response = MorvaneRequests(interface).serve(request);
  port_.send(reply);
}

void RadioRM::tell_role() {
  auto reply = std::make_shared<zal::IPC_MSG__RRM_API_VRRP_STATUS_RESP>();
  std::string error;
  reply->result = api().morvane_role(reply->role, error) ? 1 : 0;
  port_.send(reply);
}

void RadioRM::store_ap_info(const zal::IPC_MSG__RRM_AP_INFO& info) {
  active_aps_.update(zal::MacAddr::from_str(*info.mac), *info.text);
}

void RadioRM::update_setup(const std::shared_ptr<std::string>& setup) {
  const std::string text = setup ? *setup : "";
  if (rrm_)
    change_setup(text);
  else
    create_server(text);
}

void RadioRM::create_server(const std::string& setup) {
  trace.ap("Need to start RRM");
  if (!is_json_object(setup)) trace.error("Setup is no JSON object, the defaults hold");
  config_ = std::make_unique<rrm::GlobalConfig>(no_config_file, setup);
  tell_setup_faults(setup, *config_);
  rrm_ = std::make_unique<rrm::RRM>(config_.get());
  rrm_->start();
  set_vrrp_state(vrrp_state_);
}

void RadioRM::change_setup(const std::string& setup) {
  if (!is_json_object(setup)) return trace.error("Setup is no JSON object, nothing changes");
  const rrm::GlobalConfig next(no_config_file, setup);
  tell_setup_faults(setup, next);
  trace.ap("RRM already exists, send messages to Api");
  const bool was_enabled = config_->enabled();
  ApiZAL interface = api();
  SetupChanges(interface, *config_).apply(next);
  follow_enabled(was_enabled);
}

// What the configuration says now counts, not what the setup asked for: the server may have refused that.
void RadioRM::follow_enabled(bool was_enabled) {
  const bool is_enabled = config_->enabled();
  if (was_enabled && !is_enabled && !order_role(RoleOrder::backup))
    trace.warn("Cannot update vrrp-role for RRM to STANDBY");
  if (!was_enabled && is_enabled) set_vrrp_state(vrrp_state_);
}

void RadioRM::set_vrrp_state(std::int32_t state) {
  if (!rrm_ || !config_->enabled() || state == vrrp_undecided)
    vrrp_state_ = state;
  else if (state == vrrp_master)
    enter_master();
  else if (state == vrrp_master_alone)
    enter_master_alone();
  else if (state == vrrp_standby)
    enter_standby();
}

// A master that restored its domains keeps the state that it came from.
void RadioRM::enter_master() {
  const bool is_known = vrrp_state_ >= vrrp_master && vrrp_state_ <= vrrp_undecided;
  if (!is_known) return;
  const bool restores = vrrp_state_ == vrrp_master || vrrp_state_ == vrrp_undecided;
  if (restores && restore_as_master()) return;
  if (become_master()) vrrp_state_ = vrrp_master;
}

void RadioRM::enter_master_alone() {
  bool is_entered = true;
  if (vrrp_state_ == vrrp_master) {
    back_up_all_domains();
    is_entered = become_master();
  } else if (vrrp_state_ == vrrp_master_alone || vrrp_state_ == vrrp_undecided) {
    is_entered = restore_as_master() || become_master();
  } else if (vrrp_state_ == vrrp_standby && !order_role(RoleOrder::master_with_domains)) {
    trace.warn("Cannot update vrrp-role for RRM to MASTER");
  }
  if (is_entered) vrrp_state_ = vrrp_master_alone;
}

void RadioRM::enter_standby() {
  if (vrrp_state_ > vrrp_undecided) return;
  if (order_role(RoleOrder::backup))
    vrrp_state_ = vrrp_standby;
  else
    trace.warn("Cannot update vrrp-role for RRM to STANDBY");
}

bool RadioRM::restore_as_master() {
  if (!order_role(RoleOrder::master_with_domains)) return false;
  trace.ap("RRM has been successfully restored");
  return true;
}

bool RadioRM::become_master() {
  if (order_role(RoleOrder::master)) return true;
  trace.warn("Cannot update vrrp-role for RRM to MASTER");
  return false;
}

bool RadioRM::order_role(RoleOrder order) {
  ApiZAL interface = api();
  return is_role_taken(interface, order, DomainBackup(interface, backup_directory_));
}

// Housekeeping

void RadioRM::check_old_reports() {
  rrm_->check_old_reports();
}

bool RadioRM::save_domain(const std::string& domain, std::string& error) {
  ApiZAL interface = api();
  return DomainBackup(interface, backup_directory_).save(domain, error);
}

bool RadioRM::save_all_domains(std::string& error) {
  ApiZAL interface = api();
  return DomainBackup(interface, backup_directory_).save_all(error);
}

void RadioRM::back_up_all_domains() {
  std::string error;
  if (!save_all_domains(error)) trace.warn("Cannot backup domains info: '%s'", error.c_str());
}

void RadioRM::poll_maintenance() {
  if (!rrm_ || !maintenance_timer_.is_expired()) return;
  check_old_reports();
  maintenance_timer_.reset();
}

void RadioRM::mark_domain_for_backup(const std::string& domain) {
  const rrm::MutexLock lock(backup_mutex_);
  domains_to_backup_[domain] = true;
}

std::list<std::string> RadioRM::take_marked_domains() {
  const rrm::MutexLock lock(backup_mutex_);
  std::list<std::string> marked;
  for (auto& [domain, is_marked] : domains_to_backup_)
    if (std::exchange(is_marked, false)) marked.push_back(domain);
  return marked;
}

void RadioRM::backup_marked_domains() {
  if (!rrm_) return;
  for (const std::string& domain : take_marked_domains()) {
    std::string error;
    if (!save_domain(domain, error)) trace.warn("Cannot backup domains info: '%s'", error.c_str());
  }
}
