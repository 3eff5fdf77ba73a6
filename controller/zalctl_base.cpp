#include "controller/zalctl_base.h"

#include <cstdio>
#include <stdexcept>

#include "controller/ControlClient.h"

namespace controller {

using zal::bus::Fields;

void print(const std::string& line) {
  print_lines(line + "\n");
}

void print_lines(const std::string& lines) {
  if (std::fputs(lines.c_str(), stdout) < 0 || std::fflush(stdout) != 0) throw std::runtime_error("cannot print");
}

Fields ask(const CtlBase& base, const Fields& request) {
  ControlClient client(base.directory());
  client.send(request);
  return client.receive();
}

Fields send_message(const CtlBase& base, const Fields& message) {
  return ask(base, {{"command", "send"}, {"frame", to_json(message)}});
}

Fields ask_daemon(const CtlBase& base, const Fields& message, int reply_type, std::int64_t patience_seconds) {
  const Fields answer = ask(base, {{"command", "send"}, {"frame", to_json(message)}, {"seconds", patience_seconds}});
  const std::string* const frame = answer.text("frame");
  std::string reason;
  const auto reply = frame ? zal::bus::parse_fields(*frame, reason) : std::nullopt;
  if (!reply || reply->number("type") != reply_type) throw std::runtime_error("zal_rrm gave no answer");
  return *reply;
}

}  // namespace controller
