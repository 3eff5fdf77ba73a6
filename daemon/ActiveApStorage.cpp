#include "ActiveApStorage.h"

void ActiveApStorage::update(const zal::MacAddr& mac, std::string_view text) {
  auto record = std::make_shared<zal::IpcMsgRrmApInfo>(text);
  if (record->is_empty())
    records_.erase(mac);
  else
    records_.insert_or_assign(mac, std::move(record));
}

void ActiveApStorage::clear() {
  records_.clear();
}

ActiveApStorage::Record ActiveApStorage::find(const zal::MacAddr& mac) const {
  const auto found = records_.find(mac);
  return found == records_.end() ? nullptr : found->second;
}

void ActiveApStorage::for_each(const std::function<bool(const zal::MacAddr&, const Record&)>& visit) const {
  for (const auto& [mac, record] : records_)
    if (visit(mac, record)) return;
}
