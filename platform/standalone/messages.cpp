#include "platform/standalone/messages.h"

#include <limits>
#include <map>
#include <optional>

namespace zal {

namespace {

class Reader final : public MsgFields {
 public:
  explicit Reader(const bus::Fields& frame) : frame_(frame) {}

  void text(const char* key, std::shared_ptr<std::string>& value) override {
    if (const std::string* found = frame_.text(key))
      value = std::make_shared<std::string>(*found);
    else
      refuse(key, "text");
  }

  void number(const char* key, std::int32_t& value) override {
    const auto found = frame_.number(key);
    using Limits = std::numeric_limits<std::int32_t>;
    if (found && *found >= Limits::min() && *found <= Limits::max())
      value = static_cast<std::int32_t>(*found);
    else
      refuse(key, "number");
  }

  void flag(const char* key, bool& value) override {
    if (const auto found = frame_.flag(key))
      value = *found;
    else
      refuse(key, "flag");
  }

  void optional_text(const char* key, std::optional<std::string>& value) override {
    const std::string* const found = frame_.text(key);
    value = found ? std::optional(*found) : std::nullopt;
    if (!found && frame_.find(key)) refuse(key, "text");
  }

  void optional_count(const char* key, std::optional<std::uint32_t>& value) override {
    const auto found = frame_.number(key);
    const bool is_count = found && *found >= 0 && *found <= std::numeric_limits<std::int32_t>::max();
    value = is_count ? std::optional(static_cast<std::uint32_t>(*found)) : std::nullopt;
    if (!is_count && frame_.find(key)) refuse(key, "count");
  }

  std::string reason;

 private:
  void refuse(const char* key, const char* kind) {
    if (reason.empty()) reason = std::string("no ") + kind + " '" + key + "'";
  }

  const bus::Fields& frame_;
};

class Writer final : public MsgFields {
 public:
  void text(const char* key, std::shared_ptr<std::string>& value) override { frame.set(key, value ? *value : ""); }
  void number(const char* key, std::int32_t& value) override { frame.set(key, std::int64_t{value}); }
  void flag(const char* key, bool& value) override { frame.set(key, value); }
  void optional_text(const char* key, std::optional<std::string>& value) override {
    if (value) frame.set(key, *value);
  }
  void optional_count(const char* key, std::optional<std::uint32_t>& value) override {
    if (value) frame.set(key, std::int64_t{*value});
  }

  bus::Fields frame;
};

using Maker = std::unique_ptr<IMsg> (*)();

template <class... Messages>
std::map<int, Maker> makers_of() {
  return {{Messages::type_number, [] { return std::unique_ptr<IMsg>(std::make_unique<Messages>()); }}...};
}

const std::map<int, Maker>& makers() {
  static const auto family =
      makers_of<IPC_MSG__SHUTDOWN, IPC_MSG__RRM_API_SESSIONS, IPC_MSG__RRM_API_REM_SESSIONS, IPC_MSG__RRM_API_GROUPS,
                IPC_MSG__RRM_API_GROUP, IPC_MSG__RRM_API_AP, IPC_MSG__RRM_API_START_OPT, IPC_MSG__RRM_API_REPORTS,
                IPC_MSG__RRM_API_REPORT, IPC_MSG__RRM_API_SESSIONS_RESP, IPC_MSG__RRM_API_REM_SESSIONS_RESP,
                IPC_MSG__RRM_API_GROUPS_RESP, IPC_MSG__RRM_API_GROUP_RESP, IPC_MSG__RRM_API_AP_RESP,
                IPC_MSG__RRM_API_START_OPT_RESP, IPC_MSG__RRM_API_REPORTS_RESP, IPC_MSG__RRM_API_REPORT_RESP,
                IPC_MSG__RRM_REPORT, IPC_MSG__RRM_REPORT_RESP, IPC_MSG__RRM_AP_INFO_CLEARED, IPC_MSG__RRM_SETUP,
                IPC_MSG__TIMEZONE_CHANGED, IPC_MSG__MAC_FILTER, IPC_MSG__MAC_FILTER_RESP, IPC_MSG__RRM_AP_INFO,
                IpcMsgMorvaneRequest, IPC_MSG__RRM_MORVANE_RESP, IPC_MSG__MAC_FILTER_CONFIG, IPC_MSG__PEERS_READY,
                IPC_MSG__VRRP_STATE, IPC_MSG__RRM_API_VRRP_STATUS, IPC_MSG__RRM_API_VRRP_STATUS_RESP>();
  return family;
}

}  // namespace

const std::vector<int>& message_family() {
  static const std::vector<int> types = [] {
    std::vector<int> all;
    for (const auto& [type, maker] : makers()) all.push_back(type);
    return all;
  }();
  return types;
}

std::unique_ptr<IMsg> make_message(int type) {
  const auto found = makers().find(type);
  return found == makers().end() ? std::make_unique<IpcMsgOther>(type) : found->second();
}

std::unique_ptr<IMsg> message_from(int type, const bus::Fields& frame, std::string& reason) {
  auto message = make_message(type);
  Reader reader(frame);
  message->visit_fields(reader);
  if (reader.reason.empty()) return message;
  reason = std::move(reader.reason);
  return nullptr;
}

bus::Fields frame_from(IMsg& message) {
  Writer writer;
  writer.frame.set("type", std::int64_t{message.type()});
  message.visit_fields(writer);
  return std::move(writer.frame);
}

}  // namespace zal
