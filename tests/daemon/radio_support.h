// A RadioRM whose role orders are noted and answered by the test instead of reaching the server, and the messages of
// the bus.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "daemon/RadioRM.h"
#include "daemon/recording_platform.h"
#include "zal/IMsg.h"

namespace zal::testing {

class RecordedRadio final : public RadioRM {
 public:
  using RadioRM::RadioRM;

  // What the server would answer to each order; everything succeeds unless a test says otherwise.
  bool backup_succeeds = true;
  bool master_succeeds = true;
  bool restore_succeeds = true;

 protected:
  bool order_role(RoleOrder order) override {
    switch (order) {
      case RoleOrder::backup:
        Platform::instance().note("order: backup");
        return backup_succeeds;
      case RoleOrder::master:
        Platform::instance().note("order: master");
        return master_succeeds;
      case RoleOrder::master_with_domains:
        Platform::instance().note("order: master with domains");
        return restore_succeeds;
    }
    return false;
  }
};

inline std::shared_ptr<std::string> text(const std::string& value) {
  return std::make_shared<std::string>(value);
}

template <class Message>
Error deliver(const Message& message, IpcPort& port, RadioRM& radio) {
  return RadioRM::on_ipc_message(message, port, &radio);
}

inline IPC_MSG__VRRP_STATE vrrp_message(int state) {
  IPC_MSG__VRRP_STATE message;
  message.state = state;
  return message;
}

inline IPC_MSG__RRM_SETUP setup_message(const std::string& setup) {
  IPC_MSG__RRM_SETUP message;
  message.text = text(setup);
  return message;
}

inline IPC_MSG__RRM_AP_INFO ap_message(const std::string& mac, const std::string& record) {
  IPC_MSG__RRM_AP_INFO message;
  message.mac = text(mac);
  message.text = text(record);
  return message;
}

}  // namespace zal::testing
