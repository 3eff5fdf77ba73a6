#include "fake_lws.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "support/ws_client.h"

namespace rrm::testing {
namespace {

std::string name_of(lws* wsi) {
  return "#" + std::to_string(reinterpret_cast<std::uintptr_t>(wsi) >> 6);
}

}  // namespace

FakeLws::Peer& FakeLws::peer(lws* wsi) {
  MutexLock lock(mutex_);
  return peers_[wsi];
}

int FakeLws::call(lws* wsi, lws_callback_reasons reason, const void* in, std::size_t len) {
  return callback_(wsi, reason, &peer(wsi).user_data, const_cast<void*>(in), len);
}

void FakeLws::open(lws* wsi) {
  {
    MutexLock lock(mutex_);
    open_.insert(wsi);
  }
  call(wsi, LWS_CALLBACK_ESTABLISHED);
}

void FakeLws::open_and_make_queue(lws* wsi) {
  open(wsi);
  writeable(wsi);
}

void FakeLws::close(lws* wsi) {
  {
    MutexLock lock(mutex_);
    open_.erase(wsi);
  }
  call(wsi, LWS_CALLBACK_CLOSED);
}

int FakeLws::receive(lws* wsi, std::string_view text, bool final, std::size_t remaining) {
  Peer& from = peer(wsi);
  from.final = final;
  from.remaining = remaining;
  return call(wsi, LWS_CALLBACK_RECEIVE, text.data(), text.size());
}

std::vector<std::string> FakeLws::take_calls() {
  MutexLock lock(mutex_);
  return std::exchange(calls_, {});
}

bool FakeLws::wait_for_call(const std::string& line) {
  const auto deadline = std::chrono::steady_clock::now() + WsClient::patience;
  MutexLock lock(mutex_);
  while (std::find(calls_.begin(), calls_.end(), line) == calls_.end()) {
    if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) return false;
  }
  return true;
}

void FakeLws::note(std::string line) {
  MutexLock lock(mutex_);
  calls_.push_back(std::move(line));
  changed_.notify_all();
}

void FakeLws::set_log_level(int level, void (*emit)(int level, const char* line)) {
  emit_ = emit;
  note("set_log_level " + std::to_string(level));
}

lws_context* FakeLws::create_context(const lws_context_creation_info& info) {
  note("create_context");
  info_ = info;
  callback_ = info.protocols[1].callback;
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  soft_limit_ = limit.rlim_cur;
  if (creations_to_refuse > 0) {
    --creations_to_refuse;
    return nullptr;
  }
  return reinterpret_cast<lws_context*>(this);
}

void FakeLws::context_destroy(lws_context*) {
  note("context_destroy");
  std::set<lws*> open;
  {
    MutexLock lock(mutex_);
    open.swap(open_);
  }
  for (lws* wsi : open) call(wsi, LWS_CALLBACK_CLOSED);
}

int FakeLws::get_count_threads(lws_context*) {
  if (before_threads) before_threads();
  return threads;
}

int FakeLws::service_tsi(lws_context*, int timeout_ms, int tsi) {
  note("service_tsi " + std::to_string(timeout_ms) + " " + std::to_string(tsi));
  if (service) return service();
  {
    MutexLock lock(mutex_);
    while (wakeups_seen_[tsi] == wakeups_) changed_.wait(mutex_);
    wakeups_seen_[tsi] = wakeups_;
  }
  wake();
  return 0;
}

void FakeLws::cancel_service(lws_context*) {
  note("cancel_service");
  MutexLock lock(mutex_);
  ++wakeups_;
  changed_.notify_all();
}

int FakeLws::get_tsi(lws* wsi) {
  if (on_get_tsi) on_get_tsi();
  return peer(wsi).tsi;
}

void FakeLws::set_timeout(lws* wsi, pending_timeout reason, int seconds) {
  note("set_timeout " + name_of(wsi) + " " + std::to_string(reason) + " " + std::to_string(seconds));
}

void FakeLws::callback_on_writable(lws* wsi) {
  note("callback_on_writable " + name_of(wsi));
}

int FakeLws::write(lws* wsi, unsigned char* payload, std::size_t length, lws_write_protocol mode) {
  note("write " + name_of(wsi) + " " + std::to_string(mode) + " " +
       std::string(reinterpret_cast<const char*>(payload), length));
  std::memset(payload - LWS_PRE, 0xa5, LWS_PRE);  // the library builds the frame's header there
  return write_result != 0 ? write_result : static_cast<int>(length);
}

void FakeLws::close_reason(lws* wsi, lws_close_status status, std::string_view reason) {
  note("close_reason " + name_of(wsi) + " " + std::to_string(status) + " " + std::string(reason));
}

}  // namespace rrm::testing
