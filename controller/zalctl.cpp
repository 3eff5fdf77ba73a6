// zalctl: the command line of a running zal_controller. Answers go to standard output, errors to standard error with a
// non-zero status.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "controller/ControlClient.h"
#include "controller/LogReader.h"
#include "controller/alarms.h"
#include "controller/files.h"
#include "controller/zalctl_base.h"
#include "controller/zalctl_requests.h"
#include "controller/zalctl_status.h"
#include "zal/IMsg.h"
#include "zal/MacAddr.h"

namespace {

using controller::ControlClient;
using controller::CtlAction;
using controller::print;
using zal::bus::Fields;

struct Options : controller::CtlBase {
  bool follow = false;
  bool clear = false;
  std::string file;
  std::string mac;
  std::string text;
  std::vector<std::string> fields;
  std::int64_t number = 0;
};

// A message of the bus. What a person sees is whether it was served; the raw reply is for programs.
void send_known(const Options& options, const Fields& message) {
  const Fields answer = send_message(options, message);
  if (options.json) return print(to_json(answer));
  print(answer.flag("kept") ? "kept for the next start of zal_rrm" : "served");
}

void setup(const Options& options) {
  send_known(options, {{"type", std::int64_t{zal::IPC_MSG__RRM_SETUP::type_number}},
                       {"text", controller::read_setup(options.file)}});
}

void vrrp(const Options& options) {
  send_known(options, {{"type", std::int64_t{zal::IPC_MSG__VRRP_STATE::type_number}}, {"state", options.number}});
}

void ap_info(const Options& options) {
  const bool has_record = !options.mac.empty() && !options.file.empty();
  const bool has_nothing = options.mac.empty() && options.file.empty();
  if (options.clear ? !has_nothing : !has_record) throw std::runtime_error("ap-info wants MAC and FILE, or --clear");
  if (options.clear)
    return send_known(options, {{"type", std::int64_t{zal::IPC_MSG__RRM_AP_INFO_CLEARED::type_number}}});
  const auto mac = zal::MacAddr::from_str(options.mac);
  if (!mac.is_valid()) throw std::runtime_error("'" + options.mac + "' is no MAC address");
  send_known(options, {{"type", std::int64_t{zal::IPC_MSG__RRM_AP_INFO::type_number}},
                       {"mac", mac.to_string()},
                       {"text", controller::read_ap_record(options.file)}});
}

// K=V: V as JSON where it is an integer or a boolean or a quoted text, as it stands where it is anything else.
void set_field(Fields& message, const std::string& assignment) {
  const auto equals = assignment.find('=');
  if (equals == std::string::npos || equals == 0) throw std::runtime_error("'" + assignment + "' is not K=V");
  const std::string value = assignment.substr(equals + 1);
  std::string reason;
  const auto parsed = zal::bus::parse_fields("{\"v\":" + value + "}", reason);
  const auto* const plain = parsed && parsed->size() == 1 ? parsed->find("v") : nullptr;
  message.set(assignment.substr(0, equals), plain ? *plain : zal::bus::Value(value));
}

void send(const Options& options, bool has_text) {
  Fields message{{"type", options.number}};
  if (has_text) message.set("text", options.text);
  for (const auto& assignment : options.fields) set_field(message, assignment);
  const Fields answer = send_message(options, message);
  const std::string* const reply = answer.text("frame");
  print(reply ? *reply : to_json(answer));
}

void alarms(const Options& options) {
  ControlClient client(options.directory());
  client.send({{"command", "alarms"}, {"follow", options.follow}});
  for (Fields frame = client.receive(); !frame.flag("ok"); frame = client.receive()) {
    const auto number = frame.number("status").value_or(0);
    print(options.json ? to_json(frame)
                       : *frame.text("time") + " " + *frame.text("location") + ": " + std::to_string(number) + " " +
                             controller::status_name(number));
  }
}

void log(const Options& options) {
  constexpr int patience_ms = 1000;
  controller::LogReader reader(options.directory().log());
  for (;;) {
    while (const auto line = reader.next_line()) print(options.json ? zal::bus::to_json({{"line", *line}}) : *line);
    if (!options.follow) return;
    reader.wait(patience_ms);
  }
}

void stop(const Options& options) {
  const Fields answer = ask(options, {{"command", "stop"}});
  print(options.json ? to_json(answer) : "zal_rrm has ended");
}

void add_messages(CLI::App& app, Options& options, CtlAction& action) {
  auto* const setup_command = app.add_subcommand("setup", "send a setup, which every later zal_rrm is told again");
  setup_command->add_option("FILE", options.file, "the setup: one JSON object")->required()->type_name("");
  setup_command->callback([&] { action = [&options] { setup(options); }; });

  auto* const vrrp_command = app.add_subcommand("vrrp", "send a VRRP state: 0 or 1 master, 2 standby, 3 undecided");
  vrrp_command->add_option("N", options.number, "the state")->required()->check(CLI::Range(0, 3))->type_name("");
  vrrp_command->callback([&] { action = [&options] { vrrp(options); }; });

  auto* const ap_command = app.add_subcommand("ap-info", "send the record of an access point, or clear all");
  ap_command->add_option("MAC", options.mac, "the access point's address")->type_name("");
  ap_command
      ->add_option("FILE", options.file,
                   "the record: one JSON object with any of ip, location and board-type; an empty one removes it")
      ->type_name("");
  ap_command->add_flag("--clear", options.clear, "forget all records; alone");
  ap_command->callback([&] { action = [&options] { ap_info(options); }; });

  auto* const send_command = app.add_subcommand("send", "send any message and print the reply frame");
  send_command->add_option("TYPE", options.number, "the message's number, as docs/ipc.md has it")
      ->required()
      ->type_name("");
  const auto* const text = send_command->add_option("--text", options.text, "the field 'text'");
  send_command->add_option("--field", options.fields, "another field as KEY=VALUE, any number of times")
      ->allow_extra_args(false)
      ->type_name("FIELD");
  send_command->callback(
      [&action, &options, text] { action = [&options, text] { send(options, text->count() > 0); }; });
}

void add_questions(CLI::App& app, Options& options, CtlAction& action) {
  app.add_subcommand("status", "pid, up-time, VRRP state, role, running domains")->callback([&] {
    action = [&options] { controller::tell_status(options); };
  });
  auto* const alarms_command = app.add_subcommand("alarms", "what the daemon raised");
  alarms_command->add_flag("--follow", options.follow, "and what it raises from now on, until Ctrl-C");
  alarms_command->callback([&] { action = [&options] { alarms(options); }; });

  auto* const log_command = app.add_subcommand("log", "what the daemon logged");
  log_command->add_flag("--follow", options.follow, "and what it logs from now on, until Ctrl-C");
  log_command->callback([&] { action = [&options] { log(options); }; });

  app.add_subcommand("stop", "order the daemon and the controller to end, and wait")->callback([&] {
    action = [&options] { stop(options); };
  });
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  controller::RequestOptions request_options;
  CtlAction action;
  CLI::App app("Asks a running zal_controller, and the zal_rrm that it runs.", "zalctl");
  app.add_option("--state", options.state, "the controller's state directory")->capture_default_str()->type_name("DIR");
  app.add_flag("--json", options.json, "answers as JSON, one object a line");
  app.require_subcommand(0, 1);  // so that a command that is none is complained of by its name
  app.fallthrough();
  app.footer("'zalctl COMMAND --help' tells what a command takes. --state and --json may also stand behind it.");
  add_questions(app, options, action);
  add_messages(app, options, action);
  controller::add_requests(app, options, request_options, action);
  controller::add_api(app, options, request_options, action);
  CLI11_PARSE(app, argc, argv);
  if (!action) return app.exit(CLI::RequiredError("A command"));
  try {
    action();
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "zalctl: %s\n", e.what());
    return 1;
  }
}
