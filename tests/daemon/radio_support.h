// A RadioRM whose role orders and housekeeping are noted and answered by the test instead of reaching the server, and
// the messages of the bus.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "daemon/RadioRM.h"
#include "daemon/recording_platform.h"
#include "zal/IMsg.h"

namespace zal::testing {

// What the housekeeping of a radio does; nothing unless a test says otherwise. Saving gives the reason of its failure.
struct Housekeeping {
  std::function<void()> check_old_reports = [] {};
  std::function<std::optional<std::string>(const std::string& domain)> save_domain = [](const std::string&) {
    return std::optional<std::string>();
  };
  std::function<std::optional<std::string>()> save_all_domains = [] { return std::optional<std::string>(); };
};

class RecordedRadio final : public RadioRM {
 public:
  explicit RecordedRadio(IpcPort& port, Housekeeping housekeeping = {})
      : RadioRM(port), housekeeping_(std::move(housekeeping)) {}

  // What the server would answer to each order; everything succeeds unless a test says otherwise.
  bool backup_succeeds = true;
  bool master_succeeds = true;
  bool restore_succeeds = true;

 protected:
  void check_old_reports() override { housekeeping_.check_old_reports(); }
  bool save_domain(const std::string& domain, std::string& error) override {
    return is_saved(housekeeping_.save_domain(domain), error);
  }
  bool save_all_domains(std::string& error) override { return is_saved(housekeeping_.save_all_domains(), error); }
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

 private:
  static bool is_saved(const std::optional<std::string>& failure, std::string& error) {
    error = failure.value_or("");
    return !failure;
  }

  const Housekeeping housekeeping_;
};

// Without the lines that tell which commands the interface was given, and what it answered.
inline std::vector<std::string> without_commands(std::vector<std::string> notes) {
  std::erase_if(notes, [](const std::string& note) {
    return note.starts_with("ap: Morvane API ") || note.starts_with("ap_limited: ");
  });
  return notes;
}

// The texts of the commands among the notes, in order.
inline std::vector<std::string> questions(const std::vector<std::string>& notes) {
  const std::string mark = "ap_limited: ";
  std::vector<std::string> texts;
  for (std::size_t i = 1; i < notes.size(); ++i) {
    if (notes[i - 1] == "ap: Morvane API request sent:" && notes[i].starts_with(mark)) {
      texts.push_back(notes[i].substr(mark.size()));
    }
  }
  return texts;
}

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
