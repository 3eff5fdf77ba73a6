#include "answers.h"

#include <arpa/inet.h>

#include <new>

#include "ApiZAL.h"
#include "zal/MacAddr.h"

namespace answers {

bool is_failure(const rrm::JsonReader& answer) {
  return answer.has("error") || std::string(answer.get_string("status")) == "failure";
}

bool attempt(std::string& error, const std::function<void()>& request) {
  try {
    request();
    return true;
  } catch (const ApiFailure& reason) {
    error = reason.what();
    return false;
  } catch (const std::bad_alloc&) {
    error = no_memory;
    return false;
  }
}

void for_each(const rrm::JsonReader& array, const std::function<void(const rrm::JsonReader&)>& visit) {
  for (int i = 0; i < array.size(); ++i) visit(array.at(i));
}

bool has_ip(const zal::IpcMsgRrmApInfo& record) {
  in_addr address{};
  return record.get_ip() && inet_pton(AF_INET, record.get_ip()->c_str(), &address) == 1 && address.s_addr != INADDR_ANY;
}

std::string mac_text(const char* text) {
  return zal::MacAddr::from_str(text).to_string();
}

}  // namespace answers
