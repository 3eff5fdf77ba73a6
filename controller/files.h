// What the controller's programs read from files that people name. Each throws std::runtime_error that tells the file
// and what is wrong with it.
#pragma once

#include <map>
#include <string>

#include "zal/MacAddr.h"

namespace controller {

// A setup: one JSON object.
std::string read_setup(const std::string& path);
// The record of one access point: one flat JSON object.
std::string read_ap_record(const std::string& path);
// The records of many: a JSON array of such objects, each with "mac".
std::map<zal::MacAddr, std::string> read_ap_records(const std::string& path);

}  // namespace controller
