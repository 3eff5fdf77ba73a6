// The gateway between the controller's bus and the server. It owns the configuration and the server, serves every
// message of the bus, turns the controller's VRRP state into server roles, puts the controller's questions to the
// server's interface, keeps the controller's records of its access points, and has the domains backed up. The first
// setup makes the server; later ones are applied as differences.
//
// Everything runs on the main thread but mark_domain_for_backup, which the workers call. The port is not owned and
// outlives this object. The destructor stops the server before any member goes.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>

#include "ActiveApStorage.h"
#include "ApiZAL.h"
#include "Config.h"
#include "RRM.h"
#include "core/mutex.h"
#include "role_orders.h"
#include "zal/Error.h"
#include "zal/IpcPort.h"
#include "zal/Timer.h"

class RadioRM {
 public:
  // VRRP states as the controller gives them.
  enum VrrpState : std::int32_t { vrrp_master = 0, vrrp_master_alone = 1, vrrp_standby = 2, vrrp_undecided = 3 };

  static constexpr const char* usual_backup_directory = "/mnt/data/zal//morvane_domains_backup/";

  explicit RadioRM(zal::IpcPort& port, std::string backup_directory = usual_backup_directory);
  virtual ~RadioRM();
  RadioRM(const RadioRM&) = delete;
  RadioRM& operator=(const RadioRM&) = delete;

  // The callback of the port; `user` is the RadioRM.
  static zal::Error on_ipc_message(const zal::IMsg& msg, zal::IpcPort& port, void* user);

  void update_setup(const std::shared_ptr<std::string>& setup);
  void set_vrrp_state(std::int32_t state);
  std::int32_t vrrp_state() const { return vrrp_state_; }

  // Polled by the main loop: old reports once a minute, as soon as there is a server.
  void poll_maintenance();
  // Saves every domain that was marked since it was last saved. Nothing before there is a server: the marks stay.
  void backup_marked_domains() RRM_EXCLUDES(backup_mutex_);
  // From any thread.
  void mark_domain_for_backup(const std::string& domain) RRM_EXCLUDES(backup_mutex_);

  const ActiveApStorage& active_aps() const { return active_aps_; }
  // Null until the first setup.
  const rrm::GlobalConfig* config() const { return config_.get(); }
  rrm::RRM* server() const { return rrm_.get(); }

 protected:
  // Orders the server into a role. False on failure, also without a server.
  virtual bool order_role(RoleOrder order);
  // What the timers of the main loop and a change from state 0 to 1 have done. Saving is false with the reason.
  virtual void check_old_reports();
  virtual bool save_domain(const std::string& domain, std::string& error);
  virtual bool save_all_domains(std::string& error);

 private:
  void create_server(const std::string& setup);
  void change_setup(const std::string& setup);
  void follow_enabled(bool was_enabled);
  void enter_master();
  void enter_master_alone();
  void enter_standby();
  bool restore_as_master();
  bool become_master();
  void back_up_all_domains();
  void store_ap_info(const zal::IPC_MSG__RRM_AP_INFO& msg);
  // Each is true if it knows the message.
  bool serve_order(const zal::IMsg& msg);
  bool serve_question(const zal::IMsg& msg);
  bool serve_api_question(const zal::IMsg& msg);
  template <class Reply>
  bool answer(const std::string& command);
  void process_morvane_request(const zal::IpcMsgMorvaneRequest& request);
  void tell_role();
  ApiZAL api() { return {rrm_.get(), active_aps_}; }
  std::list<std::string> take_marked_domains() RRM_EXCLUDES(backup_mutex_);

  std::unique_ptr<rrm::GlobalConfig> config_;  // outlives the server
  std::unique_ptr<rrm::RRM> rrm_;
  zal::IpcPort& port_;
  const std::string backup_directory_;
  ActiveApStorage active_aps_;
  std::int32_t vrrp_state_ = vrrp_undecided;
  zal::Timer maintenance_timer_;

  rrm::Mutex backup_mutex_;  // a leaf: marks are set, collected and cleared under it, and saved without it
  // True: the domain changed since its last backup. Entries are never erased.
  std::unordered_map<std::string, bool> domains_to_backup_ RRM_GUARDED_BY(backup_mutex_);
};
