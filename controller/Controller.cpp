#include "controller/Controller.h"

#include <sys/signalfd.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <utility>

#include "platform/bus/bus_types.h"
#include "zal/IMsg.h"

namespace controller {

using zal::bus::Fields;

namespace {

constexpr std::chrono::seconds longest_time_to_answer{30};

// Whoever reads what is said may go away: that is no reason to end.
zal::bus::UniqueFd catch_signals() {
  signal(SIGPIPE, SIG_IGN);
  sigset_t caught;
  sigemptyset(&caught);
  for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) sigaddset(&caught, signal);
  sigprocmask(SIG_BLOCK, &caught, nullptr);
  return zal::bus::UniqueFd(signalfd(-1, &caught, SFD_NONBLOCK | SFD_CLOEXEC));
}

// How long the client wants to wait, if it says so.
std::chrono::seconds time_to_answer(const Fields& request) {
  const auto longest = std::int64_t{longest_time_to_answer.count()};
  return std::chrono::seconds(std::clamp<std::int64_t>(request.number("seconds").value_or(longest), 0, longest));
}

// The numbers from bus_open on are the bus's own and never answered.
bool is_of_the_family(std::int64_t type) {
  return type >= 0 && type < zal::bus::bus_open;
}

}  // namespace

Controller::Controller(StateDir state, DaemonCommand command, Site site)
    : state_(std::move(state)),
      command_(std::move(command)),
      lock_(state_.occupy()),
      signals_(catch_signals()),
      bus_(state_.bus_socket().string(), *this),
      control_(state_.control_socket().string(),
               [this](auto client, const auto& request) { on_request(client, request); }),
      supervisor_(*this),
      site_(std::move(site)) {
  if (!signals_) throw std::runtime_error(std::string("cannot catch signals: ") + std::strerror(errno));
}

Controller::~Controller() {
  state_.remove_sockets();
}

int Controller::run() {
  keep_old_errors();
  supervisor_.start(Clock::now());
  while (supervisor_.phase() != Supervisor::Phase::ended) wait_for_events();
  for (const auto client : stoppers_)
    if (supervisor_.ended_well())
      control_.succeed(client);
    else
      control_.fail(client, "zal_rrm did not end as it was ordered to");
  return supervisor_.ended_well() ? 0 : 1;
}

void Controller::keep_old_errors() const {
  std::error_code ignored;
  if (std::filesystem::file_size(state_.errors(), ignored) > 0 && !ignored)
    std::filesystem::rename(state_.errors(), state_.errors().string() + ".1", ignored);
}

void Controller::wait_for_events() {
  std::vector<pollfd> fds{{signals_.get(), POLLIN, 0}};
  bus_.add_to(fds);
  control_.add_to(fds);
  const bool is_woken = poll(fds.data(), fds.size(), wait_milliseconds()) > 0;
  if (is_woken) {
    bus_.on_events(fds);
    control_.on_events(fds);
    if (fds.front().revents) on_signals();
  }
  const auto now = Clock::now();
  give_up_requests("zal_rrm does not answer", now);
  if (supervisor_.deadline() && now >= *supervisor_.deadline()) supervisor_.on_time(now);
}

int Controller::wait_milliseconds() const {
  auto next = supervisor_.deadline();
  for (const auto& [id, request] : pending_) next = next ? std::min(*next, request.deadline) : request.deadline;
  if (!next) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

void Controller::on_signals() {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    if (info.ssi_signo == SIGCHLD)
      collect_exit();
    else
      supervisor_.end(Clock::now());
  }
}

void Controller::collect_exit() {
  int status = 0;
  if (supervisor_.pid() > 0 && waitpid(supervisor_.pid(), &status, WNOHANG) == supervisor_.pid())
    supervisor_.on_exit(status, Clock::now());
}

int Controller::start() {
  return start_daemon(command_, state_);
}

bool Controller::order_shutdown() {
  return bus_.send({{"type", std::int64_t{zal::IPC_MSG__SHUTDOWN::type_number}}});
}

void Controller::send_signal(int signal) {
  kill(supervisor_.pid(), signal);
}

void Controller::say(const std::string& text) {
  std::printf("%s\n", text.c_str());
  std::fflush(stdout);
}

void Controller::on_daemon_ready() {
  bool is_told = bus_.send({{"type", std::int64_t{zal::bus::bus_run}}});
  for (const Fields& message : site_.messages()) is_told = bus_.send(message) && is_told;
  if (!is_told) say("zal_rrm does not read: it was not told everything");
  supervisor_.on_ready();
}

void Controller::on_daemon_gone() {
  if (supervisor_.phase() == Supervisor::Phase::running) say("zal_rrm left the bus");
  give_up_requests("zal_rrm left the bus", Clock::time_point::max());
}

void Controller::on_alarm(const std::string& location, std::int64_t status) {
  const Alarm alarm{std::time(nullptr), location, status};
  say("alarm: " + to_text(alarm));
  alarms_.add(alarm);
  std::erase_if(followers_, [&](const auto client) { return !control_.send(client, to_fields(alarm)); });
}

void Controller::on_message(const Fields& frame) {
  const auto found = pending_.find(frame.number("id").value_or(0));
  if (found != pending_.end())
    found->second.reply = frame;
  else
    say("zal_rrm sent " + to_json(frame));
}

void Controller::on_served(std::int64_t id, std::int64_t error) {
  const auto found = pending_.find(id);
  if (found == pending_.end()) return;
  const Pending request = std::move(found->second);
  pending_.erase(found);
  const Fields acknowledgement{{"type", std::int64_t{zal::bus::bus_served}}, {"error", error}};
  Fields reply = request.reply.value_or(acknowledgement);
  reply.erase("id");
  if (error == 0)
    control_.succeed(request.client, {{"frame", to_json(reply)}});
  else
    control_.fail(request.client,
                  "zal_rrm answered error " + std::to_string(error) + " to message " + std::to_string(request.type));
}

void Controller::give_up_requests(const std::string& reason, Clock::time_point due) {
  std::erase_if(pending_, [&](const auto& entry) {
    const bool is_due = entry.second.deadline <= due;
    if (is_due) control_.fail(entry.second.client, reason);
    return is_due;
  });
}

void Controller::on_request(Control::ClientId client, const Fields& request) {
  const std::string* const command = request.text("command");
  if (!command) return control_.fail(client, "no command");
  if (*command == "status")
    answer_status(client);
  else if (*command == "send")
    pass_on(client, request);
  else if (*command == "alarms")
    answer_alarms(client, request.flag("follow").value_or(false));
  else if (*command == "stop") {
    stoppers_.insert(client);
    if (!supervisor_.is_ending()) supervisor_.end(Clock::now());
  } else
    control_.fail(client, "unknown command '" + *command + "'");
}

void Controller::answer_status(Control::ClientId client) {
  const bool has_process = supervisor_.pid() > 0;
  const bool is_running = supervisor_.phase() == Supervisor::Phase::running;
  const auto uptime = std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - supervisor_.started());
  control_.succeed(client, {{"phase", phase_name(supervisor_.phase())},
                            {"pid", std::int64_t{supervisor_.pid()}},
                            {"uptime", has_process ? std::int64_t{uptime.count()} : std::int64_t{0}},
                            {"vrrp", site_.vrrp_state},
                            {"role", is_running ? site_.role() : "none"}});
}

void Controller::answer_alarms(Control::ClientId client, bool follow) {
  for (const Alarm& alarm : alarms_.all()) control_.send(client, to_fields(alarm));
  if (follow)
    followers_.insert(client);
  else
    control_.succeed(client);
}

void Controller::pass_on(Control::ClientId client, const Fields& request) {
  std::string reason = "no text 'frame'";
  const std::string* const text = request.text("frame");
  auto message = text ? zal::bus::parse_fields(*text, reason) : std::nullopt;
  if (!message) return control_.fail(client, "bad frame: " + reason);
  const auto type = message->number("type");
  if (!type) return control_.fail(client, "bad frame: no number 'type'");
  if (!is_of_the_family(*type)) return control_.fail(client, "bad frame: 'type' goes from 0 to 999");
  const auto before = site_.message_before(*message);
  const bool is_kept = site_.remember(*message);
  if (supervisor_.phase() == Supervisor::Phase::running && bus_.has_daemon())
    pass_on_to_daemon({client, *type, Clock::now() + time_to_answer(request), std::nullopt}, before,
                      std::move(*message));
  else if (is_kept)
    control_.succeed(client, {{"kept", true}});
  else
    control_.fail(client, std::string("zal_rrm is not running: ") + phase_name(supervisor_.phase()));
}

void Controller::pass_on_to_daemon(const Pending& request, const std::optional<Fields>& before, Fields message) {
  const std::int64_t id = next_id_++;
  message.set("id", id);
  const bool is_prepared = !before || bus_.send(*before);
  if (is_prepared && bus_.send(message))
    pending_[id] = request;
  else
    control_.fail(request.client, "zal_rrm does not read");
}

}  // namespace controller
