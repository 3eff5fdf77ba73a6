// What the controller knows of its access points, by MAC: the latest record of each. For the main thread alone.
#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "zal/IpcMsgRrmApInfo.h"
#include "zal/MacAddr.h"

class ActiveApStorage {
 public:
  using Record = std::shared_ptr<zal::IpcMsgRrmApInfo>;

  virtual ~ActiveApStorage() = default;

  // Keeps the record that the text tells; a text that tells nothing removes the access point.
  void update(const zal::MacAddr& mac, std::string_view text);
  void clear();
  // Null if there is none.
  Record find(const zal::MacAddr& mac) const;
  // In no particular order, until the callable returns true. An empty callable raises std::bad_function_call on the
  // first element.
  void for_each(const std::function<bool(const zal::MacAddr& mac, const Record& record)>& visit) const;

 private:
  std::unordered_map<zal::MacAddr, Record> records_;
};
