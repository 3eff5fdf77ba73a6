#include "daemon/recording_platform.h"

#include <cstdarg>
#include <cstdio>

#include "zal/Timer.h"
#include "zal/Trace.h"
#include "zal/alarm.h"
#include "zal/boards.h"
#include "zal/cfg.h"

namespace zal {

namespace testing {

Platform& Platform::instance() {
  static auto* const platform = new Platform;
  return *platform;
}

void Platform::reset() {
  registers = true;
  is_ordered_to_run = true;
  timer_has_expired = false;
  timer_resets = 0;
  gives_trees = true;
  boards = BoardTable();
  serve = nullptr;
  callback = nullptr;
  user = nullptr;
  clear();
}

std::vector<std::string> Platform::notes() const {
  const rrm::MutexLock lock(mutex_);
  return notes_;
}

void Platform::note(const std::string& line) {
  const rrm::MutexLock lock(mutex_);
  notes_.push_back(line);
}

void Platform::clear() {
  const rrm::MutexLock lock(mutex_);
  notes_.clear();
  sent_.clear();
}

std::vector<std::shared_ptr<IMsg>> Platform::sent() const {
  const rrm::MutexLock lock(mutex_);
  return sent_;
}

void Platform::keep(std::shared_ptr<IMsg> message) {
  const rrm::MutexLock lock(mutex_);
  sent_.push_back(std::move(message));
}

}  // namespace testing

namespace {

testing::Platform& platform() {
  return testing::Platform::instance();
}

__attribute__((format(printf, 2, 0))) void note_line(const std::string& grade, const char* fmt, va_list args) {
  char text[4096];
  std::vsnprintf(text, sizeof text, fmt, args);
  platform().note(grade + ": " + text);
}

}  // namespace

void Trace::global_init(const char* process_name) {
  platform().note(std::string("init: ") + process_name);
}
void Trace::global_deinit() {
  platform().note("deinit");
}
Trace::Trace(const std::string& name, bool to_console) : name_(name), to_console_(to_console) {}

#define ZAL_NOTED_GRADE(grade)                    \
  void Trace::grade(const char* fmt, ...) const { \
    va_list args;                                 \
    va_start(args, fmt);                          \
    note_line(#grade, fmt, args);                 \
    va_end(args);                                 \
  }
ZAL_NOTED_GRADE(ap)
ZAL_NOTED_GRADE(sys)
ZAL_NOTED_GRADE(warn)
ZAL_NOTED_GRADE(error)
#undef ZAL_NOTED_GRADE

void Trace::error_mac(const MacAddr& mac, const char* fmt, ...) const {
  va_list args;
  va_start(args, fmt);
  note_line("error_mac " + mac.to_string() + (mac.is_valid() ? "" : " invalid"), fmt, args);
  va_end(args);
}

void Trace::ap_limited(const char* fmt, ...) const {
  va_list args;
  va_start(args, fmt);
  note_line("ap_limited", fmt, args);
  va_end(args);
}

void Trace::ap_lib_limited_ap(const char* fmt, va_list args) const {
  note_line("library", fmt, args);
}
void Trace::reload_config() const {
  platform().note("reload");
}

Timer::Timer(std::chrono::milliseconds interval) : interval_(interval) {
  platform().note("timer: " + std::to_string(interval_.count()));
}
bool Timer::is_expired() const {
  return platform().timer_has_expired;
}
void Timer::reset() {
  ++platform().timer_resets;
}

struct IpcPort::Impl {
  bool is_finalized = false;
};

IpcPort::IpcPort(PortId id, const Trace&) : impl_(std::make_unique<Impl>()) {
  platform().note("port: " + std::to_string(static_cast<int>(id)));
}
IpcPort::~IpcPort() {
  platform().note("port closed");
}
bool IpcPort::register_msg_callback(const MsgCallback& callback, void* user) {
  platform().note("register");
  platform().callback = callback;
  platform().user = user;
  return platform().registers;
}
void IpcPort::run_once_for_timeout(long ms) {
  if (platform().serve)
    platform().serve(*this, ms);
  else
    finalize();
}
void IpcPort::send(std::shared_ptr<IMsg> msg) {
  platform().note("send: " + std::to_string(msg->type()));
  platform().keep(std::move(msg));
}
void IpcPort::set_SendAndRecv() {
  platform().note("set_SendAndRecv");
}
void IpcPort::finalize() {
  impl_->is_finalized = true;
  platform().note("finalize");
}
bool IpcPort::is_finalized() const {
  return impl_->is_finalized;
}

bool ipc_send_ready_and_wait_for_run(IpcPort&) {
  platform().note("ready");
  return platform().is_ordered_to_run;
}

void emit_alarm_MORVANE_OPTIMIZATION_STATUS_CHANGED(const std::string& location, MorvaneOptimizationEventType status) {
  platform().note("alarm: " + location + " " + std::to_string(static_cast<int>(status)));
}

// The boards of the test, whatever those of this machine are.
std::optional<ApProfileRadioBand> zalbt_get_band_by_radio_id(const std::string& board_type, int radio_id) {
  return platform().boards.band_of(board_type, radio_id);
}
const char* ApProfileRadioBandToStrX(ApProfileRadioBand band) {
  return band_names.at(static_cast<std::size_t>(band));
}

}  // namespace zal

// The linker sends the daemon's calls of cfg_get_empty to the second of these.
extern "C" {
zal::cfg_t* __real__ZN3zal13cfg_get_emptyEv();
zal::cfg_t* __wrap__ZN3zal13cfg_get_emptyEv() {
  return zal::platform().gives_trees ? __real__ZN3zal13cfg_get_emptyEv() : nullptr;
}
}
