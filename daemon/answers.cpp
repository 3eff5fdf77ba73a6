#include "answers.h"

#include "ApiZAL.h"
#include "zal/MacAddr.h"

namespace answers {

bool attempt(std::string& error, const std::function<void()>& request) {
  try {
    request();
    return true;
  } catch (const ApiFailure& reason) {
    error = reason.what();
    return false;
  }
}

void for_each(const rrm::JsonReader& array, const std::function<void(const rrm::JsonReader&)>& visit) {
  for (int i = 0; i < array.size(); ++i) visit(array.at(i));
}

bool has_ip(const zal::IpcMsgRrmApInfo& record) {
  return record.get_ip() && !record.get_ip()->empty() && *record.get_ip() != "0.0.0.0";
}

std::string mac_text(const char* text) {
  return zal::MacAddr::from_str(text).to_string();
}

}  // namespace answers
