// A message on the controller's bus: a type number and the fields that belong to the type. The family of messages that
// this system knows stands below, one class for each type; a type outside the family arrives as IpcMsgOther.
//
// A message tells its fields once, in visit_fields, and a port reads and writes it through that. The keys are those of
// the bus. Fields are plain members. A message is owned by whoever made it and has no thread of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace zal {

// What a port does to each field of a message: reads it or writes it. A field that visit_fields names is always
// present.
class MsgFields {
 public:
  virtual ~MsgFields() = default;
  virtual void text(const char* key, std::shared_ptr<std::string>& value) = 0;
  virtual void number(const char* key, std::int32_t& value) = 0;
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

// The controller orders this process to end.
class IPC_MSG__SHUTDOWN final : public IpcMsgOf<33> {};

// The controller forgets all its AP records.
class IPC_MSG__RRM_AP_INFO_CLEARED final : public IpcMsgOf<118> {};

// The configuration of the server, one JSON object.
class IPC_MSG__RRM_SETUP final : public IpcMsgOf<126> {
 public:
  std::shared_ptr<std::string> text = std::make_shared<std::string>();
  void visit_fields(MsgFields& fields) override { fields.text("text", text); }
};

class IPC_MSG__TIMEZONE_CHANGED final : public IpcMsgOf<129> {};

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

// The other processes of the controller listen now.
class IPC_MSG__PEERS_READY final : public IpcMsgOf<143> {};

// What this controller is in its VRRP pair: 0 and 1 master, 2 standby, 3 not decided.
class IPC_MSG__VRRP_STATE final : public IpcMsgOf<162> {
 public:
  std::int32_t state = 3;
  void visit_fields(MsgFields& fields) override { fields.number("state", state); }
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
