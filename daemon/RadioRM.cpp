#include "RadioRM.h"

#include <ctime>
#include <exception>
#include <utility>

#include "SetupChanges.h"
#include "json/JsonReader.h"
#include "trace.h"

namespace {

constexpr std::chrono::milliseconds maintenance_interval{60000};
constexpr const char* no_config_file = "";
constexpr int ignored_type = 163;

bool is_json_object(const std::string& text) {
  return rrm::JsonReader(text.c_str()).to_string()[0] == '{';
}

void change_time_zone() {
  trace.sys("Force update tzset");
  tzset();
}

}  // namespace

RadioRM::RadioRM(zal::IpcPort& port, Housekeeping housekeeping)
    : port_(port), housekeeping_(std::move(housekeeping)), maintenance_timer_(maintenance_interval) {}

RadioRM::~RadioRM() {
  if (rrm_) rrm_->release();
}

zal::Error RadioRM::on_ipc_message(const zal::IMsg& msg, zal::IpcPort& port, void* user) {
  RadioRM& radio = *static_cast<RadioRM*>(user);
  switch (msg.type()) {
    case zal::IPC_MSG__SHUTDOWN::type_number:
      port.finalize();
      break;
    case zal::IPC_MSG__PEERS_READY::type_number:
      port.set_SendAndRecv();
      break;
    case zal::IPC_MSG__TIMEZONE_CHANGED::type_number:
      change_time_zone();
      break;
    case zal::IPC_MSG__RRM_SETUP::type_number:
      radio.update_setup(dynamic_cast<const zal::IPC_MSG__RRM_SETUP&>(msg).text);
      break;
    case ignored_type:
      break;
    case zal::IPC_MSG__RRM_AP_INFO::type_number:
      radio.store_ap_info(msg);
      break;
    case zal::IPC_MSG__RRM_AP_INFO_CLEARED::type_number:
      radio.active_aps_.clear();
      break;
    case zal::IPC_MSG__VRRP_STATE::type_number:
      radio.set_vrrp_state(dynamic_cast<const zal::IPC_MSG__VRRP_STATE&>(msg).state);
      break;
    default:
      trace.warn("uncaught");
      return zal::Error::unknown_message;
  }
  return zal::Error::none;
}

void RadioRM::store_ap_info(const zal::IMsg& msg) {
  const auto& info = dynamic_cast<const zal::IPC_MSG__RRM_AP_INFO&>(msg);
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
  rrm_ = std::make_unique<rrm::RRM>(config_.get());
  rrm_->start();
  set_vrrp_state(vrrp_state_);
}

void RadioRM::change_setup(const std::string& setup) {
  if (!is_json_object(setup)) return trace.error("Setup is no JSON object, nothing changes");
  const rrm::GlobalConfig next(no_config_file, setup);
  trace.ap("RRM already exists, send messages to Api");
  const bool was_enabled = config_->enabled();
  SetupChanges(*config_, *rrm_).apply(next);
  if (was_enabled && !next.enabled() && !order_role(RoleOrder::backup))
    trace.warn("Cannot update vrrp-role for RRM to STANDBY");
  if (!was_enabled && next.enabled()) set_vrrp_state(vrrp_state_);
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
    save_all_domains();
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

// No backup directory is read: the list of domains to restore is empty.
bool RadioRM::order_role(RoleOrder order) {
  try {
    const bool is_master = order != RoleOrder::backup;
    const bool restores = order == RoleOrder::master_with_domains;
    rrm_->update_vrrp_role(is_master ? rrm::RRM::role_master : rrm::RRM::role_backup,
                           restores ? std::make_shared<std::string>("[]") : nullptr);
    return true;
  } catch (const std::exception& e) {
    trace.error("Role order failed: %s", e.what());
    return false;
  }
}

void RadioRM::save_all_domains() {
  if (!housekeeping_.save_all_domains) return;
  if (const auto reason = housekeeping_.save_all_domains())
    trace.warn("Cannot backup domains info: '%s'", reason->c_str());
}

void RadioRM::poll_maintenance() {
  if (!rrm_ || !housekeeping_.check_old_reports || !maintenance_timer_.is_expired()) return;
  housekeeping_.check_old_reports(*rrm_);
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
  if (!rrm_ || !housekeeping_.save_domain) return;
  for (const std::string& domain : take_marked_domains())
    if (const auto reason = housekeeping_.save_domain(domain))
      trace.warn("Cannot backup domains info: '%s'", reason->c_str());
}
