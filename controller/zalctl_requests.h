// The commands of zalctl that put questions and orders to the daemon: those of the management, and those of the
// server's own interface.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "controller/zalctl_base.h"

namespace controller {

// What the commands take. One of them runs, so they share it.
struct RequestOptions {
  std::optional<std::string> location;
  std::optional<std::string> mac;
  std::optional<std::string> band;
  std::optional<std::int64_t> days;
  std::string group;
  std::string ap;
  std::string from;
  std::string to;
  std::string report;
  std::vector<std::int64_t> ids;
};

// All of these outlive the parsing and the action.
void add_requests(CLI::App& app, const CtlBase& base, RequestOptions& options, CtlAction& action);
void add_api(CLI::App& app, const CtlBase& base, RequestOptions& options, CtlAction& action);

// A time of a report as the daemon wants it, "2026-01-02,03:04:05 UTC", of which " UTC" and the time of the day may be
// left out.
std::string report_time(const std::string& text);

}  // namespace controller
