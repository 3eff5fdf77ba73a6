// A message on the controller's bus: a type number and the fields that belong to the type. The family of messages that
// this system knows stands below, one class for each type; a type outside the family arrives as IpcMsgOther.
//
// A message tells its fields once, in visit_fields, and a port reads and writes it through that. The keys are those of
// the bus. Fields are plain members. A message is owned by whoever made it and has no thread of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace zal {

// What a port does to each field of a message: reads it or writes it. A field that visit_fields names is always
// present, unless it is one of the optional kinds: then it may be absent, and is not written while it is empty.
class MsgFields {
 public:
  virtual ~MsgFields() = default;
  virtual void text(const char* key, std::shared_ptr<std::string>& value) = 0;
  virtual void number(const char* key, std::int32_t& value) = 0;
  virtual void flag(const char* key, bool& value) = 0;
  virtual void optional_text(const char* key, std::optional<std::string>& value) = 0;
  // From 0 to the largest std::int32_t.
  virtual void optional_count(const char* key, std::optional<std::uint32_t>& value) = 0;
};

class IMsg {
 public:
  virtual int type() const = 0;
  virtual ~IMsg() = default;
  virtual void visit_fields(MsgFields& fields) = 0;
};

template <int Type>
class IpcMsgOf : public IMsg {
 public:
  static constexpr int type_number = Type;
  int type() const final { return Type; }
  void visit_fields(MsgFields&) override {}
};

// A message that carries one text, as most answers do.
template <int Type>
class IpcMsgTextOf : public IpcMsgOf<Type> {
 public:
  std::shared_ptr<std::string> text = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override { fields.text("text", text); }
};

// The controller orders this process to end.
class IPC_MSG__SHUTDOWN final : public IpcMsgOf<33> {};

// The server's own interface, question by question. A group is a domain. What the server answers to each goes back as
// it stands, in the message that follows the question here.

class IPC_MSG__RRM_API_SESSIONS final : public IpcMsgOf<36> {};
class IPC_MSG__RRM_API_SESSIONS_RESP final : public IpcMsgTextOf<44> {};

// Ends sessions of access points; `filter` is the list of their ids, joined by commas.
class IPC_MSG__RRM_API_REM_SESSIONS final : public IpcMsgOf<37> {
 public:
  std::shared_ptr<std::string> filter = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override { fields.text("filter", filter); }
};
class IPC_MSG__RRM_API_REM_SESSIONS_RESP final : public IpcMsgTextOf<45> {};

class IPC_MSG__RRM_API_GROUPS final : public IpcMsgOf<38> {};
class IPC_MSG__RRM_API_GROUPS_RESP final : public IpcMsgTextOf<46> {};

class IPC_MSG__RRM_API_GROUP final : public IpcMsgOf<39> {
 public:
  std::shared_ptr<std::string> group = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override { fields.text("group", group); }
};
class IPC_MSG__RRM_API_GROUP_RESP final : public IpcMsgTextOf<47> {};

// One access point of a group, by its address.
class IPC_MSG__RRM_API_AP final : public IpcMsgOf<40> {
 public:
  std::shared_ptr<std::string> group = std::make_shared<std::string>();
  std::shared_ptr<std::string> ap = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override {
    fields.text("group", group);
    fields.text("ap", ap);
  }
};
class IPC_MSG__RRM_API_AP_RESP final : public IpcMsgTextOf<48> {};

class IPC_MSG__RRM_API_START_OPT final : public IpcMsgOf<41> {
 public:
  std::shared_ptr<std::string> group = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override { fields.text("group", group); }
};
class IPC_MSG__RRM_API_START_OPT_RESP final : public IpcMsgTextOf<49> {};

// The reports of a group between two times, each as "2026-01-02,03:04:05 UTC"; the second is not part of the period.
class IPC_MSG__RRM_API_REPORTS final : public IpcMsgOf<42> {
 public:
  std::shared_ptr<std::string> group = std::make_shared<std::string>();
  std::shared_ptr<std::string> date_start = std::make_shared<std::string>();
  std::shared_ptr<std::string> date_finish = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override {
    fields.text("group", group);
    fields.text("date_start", date_start);
    fields.text("date_finish", date_finish);
  }
};
class IPC_MSG__RRM_API_REPORTS_RESP final : public IpcMsgTextOf<50> {};

// One report by its id, as the list of reports gives it.
class IPC_MSG__RRM_API_REPORT final : public IpcMsgOf<43> {
 public:
  std::shared_ptr<std::string> group = std::make_shared<std::string>();
  std::shared_ptr<std::string> report = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override {
    fields.text("group", group);
    fields.text("report", report);
  }
};
class IPC_MSG__RRM_API_REPORT_RESP final : public IpcMsgTextOf<51> {};

// Whether this process is there and serves.
class IPC_MSG__RRM_REPORT final : public IpcMsgOf<56> {};
class IPC_MSG__RRM_REPORT_RESP final : public IpcMsgTextOf<62> {};

// The controller forgets all its AP records.
class IPC_MSG__RRM_AP_INFO_CLEARED final : public IpcMsgOf<118> {};

// The configuration of the server, one JSON object.
class IPC_MSG__RRM_SETUP final : public IpcMsgTextOf<126> {};

class IPC_MSG__TIMEZONE_CHANGED final : public IpcMsgOf<129> {};

// An order about the MAC filter of the log. The text is a list of addresses joined by blanks, for `add` and `remove`.
class IPC_MSG__MAC_FILTER final : public IpcMsgOf<130> {
 public:
  enum Action : std::int32_t {
    turn_on = 0,
    turn_off = 1,
    add = 2,
    remove = 3,
    tell_status = 4,
    tell_macs = 5,
    empty = 6,
    invalid = 7,
  };

  std::int32_t action = tell_status;
  std::optional<std::string> text;
  void visit_fields(MsgFields& fields) override {
    fields.number("action", action);
    fields.optional_text("text", text);
  }
};

class IPC_MSG__MAC_FILTER_RESP final : public IpcMsgOf<131> {
 public:
  // By this number the controller knows which of its processes a filter belongs to.
  static constexpr std::int32_t rrm_module = 14;

  std::shared_ptr<std::string> text = std::make_shared<std::string>();
  std::int32_t module = rrm_module;
  void visit_fields(MsgFields& fields) override {
    fields.text("text", text);
    fields.number("module", module);
  }
};

// The controller's record of one AP, as IpcMsgRrmApInfo reads it. An empty record means that the AP is gone.
class IPC_MSG__RRM_AP_INFO final : public IpcMsgOf<132> {
 public:
  std::shared_ptr<std::string> mac = std::make_shared<std::string>();
  std::shared_ptr<std::string> text = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override {
    fields.text("mac", mac);
    fields.text("text", text);
  }
};

// A question or an order of the controller's management, and its answer. What each kind needs is the receiver's
// business.
class IpcMsgMorvaneRequest final : public IpcMsgOf<133> {
 public:
  enum Kind : std::int32_t {
    common = 0,
    sessions = 1,
    clear_sessions = 2,
    rrm_stat = 3,
    roaming_stat = 4,
    ap = 5,
    optimize = 6,
    report = 7,
    unknown = 8,
  };

  std::int32_t kind = unknown;
  std::optional<std::string> location;
  std::optional<std::string> mac;
  std::optional<std::string> band;
  std::optional<std::uint32_t> days;

  void visit_fields(MsgFields& fields) override {
    fields.number("kind", kind);
    fields.optional_text("location", location);
    fields.optional_text("mac", mac);
    fields.optional_text("band", band);
    fields.optional_count("days", days);
  }

  // Each is empty if the request has none. The text is the one that was given; `valid` tells whether it is the name of
  // a band ("2g", "5g", "6g") or a MAC address, and is false if it was not given.
  std::optional<std::string> get_band(bool& valid) const;
  std::optional<std::string> get_mac(bool& valid) const;
  const std::optional<std::string>& get_location() const { return location; }
  const std::optional<std::uint32_t>& get_days() const { return days; }
};

// How a request went.
struct IpcMsgMorvaneResponse {
  std::int32_t kind = IpcMsgMorvaneRequest::unknown;
  std::int32_t failed = 0;                                                // 1 on failure
  std::shared_ptr<std::string> error = std::make_shared<std::string>();   // why
  std::shared_ptr<std::string> result = std::make_shared<std::string>();  // one JSON object, or nothing
};

class IPC_MSG__RRM_MORVANE_RESP final : public IpcMsgOf<134> {
 public:
  IpcMsgMorvaneResponse response;
  void visit_fields(MsgFields& fields) override {
    fields.number("kind", response.kind);
    fields.number("failed", response.failed);
    fields.text("error", response.error);
    fields.text("result", response.result);
  }
};

// The controller's whole MAC filter, for every process: mac_filter_config takes it over.
class IPC_MSG__MAC_FILTER_CONFIG final : public IpcMsgOf<135> {
 public:
  bool enabled = false;
  std::shared_ptr<std::string> macs = std::make_shared<std::string>();  // joined by blanks
  void visit_fields(MsgFields& fields) override {
    fields.flag("enabled", enabled);
    fields.text("macs", macs);
  }
};

// The other processes of the controller listen now.
class IPC_MSG__PEERS_READY final : public IpcMsgOf<143> {};

// What this controller is in its VRRP pair: 0 and 1 master, 2 standby, 3 not decided.
class IPC_MSG__VRRP_STATE final : public IpcMsgOf<162> {
 public:
  std::int32_t state = 3;
  void visit_fields(MsgFields& fields) override { fields.number("state", state); }
};

// The question for the role of this process, and its answer.
class IPC_MSG__RRM_API_VRRP_STATUS final : public IpcMsgOf<173> {};
class IPC_MSG__RRM_API_VRRP_STATUS_RESP final : public IpcMsgOf<174> {
 public:
  enum Role : std::int32_t { master = 1, backup = 2, none = 3 };

  std::int32_t role = none;
  std::int32_t result = 0;  // 1 if the question was answered
  void visit_fields(MsgFields& fields) override {
    fields.number("role", role);
    fields.number("result", result);
  }
};

// Any type that has no class here; its fields are not read.
class IpcMsgOther final : public IMsg {
 public:
  explicit IpcMsgOther(int type) : type_(type) {}
  int type() const override { return type_; }
  void visit_fields(MsgFields&) override {}

 private:
  int type_;
};

}  // namespace zal
