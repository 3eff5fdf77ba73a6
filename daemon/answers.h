// What the answers to the controller's requests share.
#pragma once

#include <functional>
#include <string>

#include "json/JsonReader.h"
#include "zal/IpcMsgRrmApInfo.h"

namespace answers {

inline constexpr const char* failure = "failure from morvane api";
inline constexpr const char* malformed = "malformed answer from morvane api";
inline constexpr const char* no_memory = "internal error";

// The answer to a command that was not carried out.
bool is_failure(const rrm::JsonReader& answer);

// Runs a request; false, with the reason, if it failed.
bool attempt(std::string& error, const std::function<void()>& request);

void for_each(const rrm::JsonReader& array, const std::function<void(const rrm::JsonReader&)>& visit);

// The controller knows an address of the access point. Access points are reached by IPv4 only.
bool has_ip(const zal::IpcMsgRrmApInfo& record);

// An address as the controller writes it, lower-case with colons; all zero if the text is none.
std::string mac_text(const char* text);

}  // namespace answers
