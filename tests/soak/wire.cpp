#include "soak/wire.h"

#include <algorithm>
#include <utility>

#include "core/clock.h"
#include "soak/patience.h"

namespace soak {
namespace {

constexpr std::uintptr_t stand_in = 1'000'000;  // the library's own wake-ups have a handle as well

}  // namespace

void Wire::await_context() {
  Patience patience("the listening server");
  const rrm::MutexLock lock(mutex_);
  while (callback_ == nullptr) patience.wait(changed_, mutex_);
}

lws_callback_function* Wire::callback() const {
  const rrm::MutexLock lock(mutex_);
  return callback_;
}

// The far ends

lws* Wire::open() {
  lws* line = nullptr;
  {
    const rrm::MutexLock lock(mutex_);
    if (free_.empty()) free_.push_back(handle(++last_number_));
    line = free_.back();
    free_.pop_back();
    lines_.emplace(line, Line{});
  }
  act_on(line, [this, line] { call(line, LWS_CALLBACK_ESTABLISHED); });
  return line;
}

void Wire::send(lws* line, std::string text) {
  act_on(line, [this, line, text = std::move(text)] { call(line, LWS_CALLBACK_RECEIVE, text); });
}

void Wire::pong(lws* line) {
  act_on(line, [this, line] { call(line, LWS_CALLBACK_RECEIVE_PONG); });
}

void Wire::close(lws* line) {
  act_on(line, [this, line] { end(line, false); });
}

void Wire::stop_reading(lws* line) {
  const rrm::MutexLock lock(mutex_);
  const auto found = lines_.find(line);
  if (found != lines_.end()) found->second.reads = false;
}

// What comes for a connection that has ended meanwhile is lost.
void Wire::act_on(lws* line, Action action) {
  const rrm::MutexLock lock(mutex_);
  ++action_count_;
  actions_.push_back([this, line, action = std::move(action)] {
    {
      const rrm::MutexLock again(mutex_);
      if (!lines_.contains(line)) return;
    }
    action();
  });
  changed_.notify_all();
}

void Wire::end_overdue() {
  std::vector<lws*> overdue;
  {
    const std::int64_t now = rrm::monotonic_seconds();
    const rrm::MutexLock lock(mutex_);
    for (const auto& [line, state] : lines_) {
      if (state.deadline != 0 && state.deadline <= now) overdue.push_back(line);
    }
  }
  for (lws* const line : overdue) {
    act_on(line, [this, line] { end(line, true); });
  }
}

std::size_t Wire::lines() const {
  const rrm::MutexLock lock(mutex_);
  return lines_.size();
}

std::uint64_t Wire::actions() const {
  const rrm::MutexLock lock(mutex_);
  return action_count_;
}

std::vector<Wire::Event> Wire::take_events() {
  const rrm::MutexLock lock(mutex_);
  for (const Event& event : events_) {
    if (event.kind == Event::Kind::closed) free_.push_back(event.line);
  }
  return std::exchange(events_, {});
}

void Wire::await_rest() {
  Patience patience("the network's rest");
  const rrm::MutexLock lock(mutex_);
  while (!at_rest()) patience.wait(changed_, mutex_);
}

bool Wire::at_rest() const {
  const bool any_writable = std::any_of(writable_.begin(), writable_.end(), [this](lws* line) RRM_REQUIRES(mutex_) {
    const auto found = lines_.find(line);
    return found != lines_.end() && found->second.reads;
  });
  return !serving_ && !wake_ && actions_.empty() && !any_writable;
}

// The service thread

int Wire::service_tsi(lws_context*, int, int) {
  {
    const rrm::MutexLock lock(mutex_);
    while (at_rest()) changed_.wait(mutex_);
    serving_ = true;
  }
  serve_one();
  const rrm::MutexLock lock(mutex_);
  serving_ = false;
  changed_.notify_all();
  return 0;
}

void Wire::serve_one() {
  bool wake = false;
  lws* writable = nullptr;
  Action action;
  {
    const rrm::MutexLock lock(mutex_);
    wake = std::exchange(wake_, false);
    if (!wake) writable = next_writable();
    if (!wake && writable == nullptr && !actions_.empty()) {
      action = std::move(actions_.front());
      actions_.pop_front();
    }
  }
  if (wake) {
    void* none = nullptr;
    callback()(handle(stand_in), LWS_CALLBACK_EVENT_WAIT_CANCELLED, &none, nullptr, 0);
  } else if (writable != nullptr) {
    write_event(writable);
  } else if (action) {
    action();
  }
}

lws* Wire::next_writable() {
  for (auto line = writable_.begin(); line != writable_.end(); ++line) {
    const auto found = lines_.find(*line);
    if (found == lines_.end() || !found->second.reads) continue;
    lws* const next = *line;
    writable_.erase(line);
    return next;
  }
  return nullptr;
}

void Wire::write_event(lws* line) {
  if (call(line, LWS_CALLBACK_SERVER_WRITEABLE) != 0) end(line, true);
}

// The server hears of every end, also of one that it has ordered itself.
void Wire::end(lws* line, bool by_server) {
  call(line, LWS_CALLBACK_CLOSED);
  const rrm::MutexLock lock(mutex_);
  lines_.erase(line);
  writable_.erase(line);
  if (by_server) {
    events_.push_back({line, Event::Kind::closed, {}});
  } else {
    free_.push_back(line);
  }
}

int Wire::call(lws* line, lws_callback_reasons reason, const std::string& text) {
  void* user = nullptr;
  {
    const rrm::MutexLock lock(mutex_);
    user = &lines_.at(line).user_data;
  }
  return callback()(line, reason, user, const_cast<char*>(text.data()), text.size());
}

// The library as the worker knows it

lws_context* Wire::create_context(const lws_context_creation_info& info) {
  const rrm::MutexLock lock(mutex_);
  callback_ = info.protocols[1].callback;
  changed_.notify_all();
  return reinterpret_cast<lws_context*>(this);
}

void Wire::context_destroy(lws_context*) {
  std::vector<lws*> open;
  {
    const rrm::MutexLock lock(mutex_);
    for (const auto& [line, state] : lines_) open.push_back(line);
    actions_.clear();
    wake_ = false;
  }
  for (lws* const line : open) end(line, true);
}

void Wire::cancel_service(lws_context*) {
  const rrm::MutexLock lock(mutex_);
  wake_ = true;
  changed_.notify_all();
}

void Wire::set_timeout(lws* wsi, pending_timeout reason, int seconds) {
  const std::int64_t now = rrm::monotonic_seconds();
  const rrm::MutexLock lock(mutex_);
  const auto found = lines_.find(wsi);
  if (found != lines_.end()) found->second.deadline = reason == NO_PENDING_TIMEOUT ? 0 : now + seconds;
}

void Wire::callback_on_writable(lws* wsi) {
  const rrm::MutexLock lock(mutex_);
  writable_.insert(wsi);
  changed_.notify_all();
}

int Wire::write(lws* wsi, unsigned char* payload, std::size_t length, lws_write_protocol mode) {
  const rrm::MutexLock lock(mutex_);
  const auto kind = mode == LWS_WRITE_PING ? Event::Kind::ping : Event::Kind::text;
  events_.push_back({wsi, kind, std::string(reinterpret_cast<const char*>(payload), length)});
  return static_cast<int>(length);
}

}  // namespace soak
