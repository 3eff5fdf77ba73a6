#include "ws_server.h"

#include <gtest/gtest.h>

#include <chrono>
#include <utility>

#include "json/JsonReader.h"
#include "support/ws_client.h"

namespace rrm::testing {
namespace {

std::string listening_on(int port) {
  return R"({"global":{"listen_port":)" + std::to_string(port) + "}}";
}

std::string id_of(const BaseSession& session) {
  return std::to_string(session.id);
}

}  // namespace

WebsockServerWorker::Upstream Dispatcher::upstream() {
  return {
      [this](JsonReader& json, const BaseSession& session) { message(json, session); },
      [this](const BaseSession& session) { note("dropped " + id_of(session)); },
      [this](const BaseSession& session) { note("stop load balancer " + id_of(session)); },
  };
}

void Dispatcher::message(JsonReader& json, const BaseSession& session) {
  const std::string text = json.to_string();
  note("message " + id_of(session) + " " + text);
  if (on_message) on_message(text, session);
  MutexLock lock(mutex_);
  while (held_) changed_.wait(mutex_);
}

void Dispatcher::note(const std::string& line) {
  MutexLock lock(mutex_);
  lines_.push_back(line);
  changed_.notify_all();
}

std::vector<std::string> Dispatcher::take() {
  MutexLock lock(mutex_);
  return std::exchange(lines_, {});
}

std::vector<std::string> Dispatcher::wait_for(std::size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + WsClient::patience;
  MutexLock lock(mutex_);
  while (lines_.size() < count) {
    if (changed_.wait_until(mutex_, deadline) == std::cv_status::timeout) break;
  }
  return std::exchange(lines_, {});
}

void Dispatcher::hold() {
  MutexLock lock(mutex_);
  held_ = true;
}

void Dispatcher::release() {
  MutexLock lock(mutex_);
  held_ = false;
  changed_.notify_all();
}

FakeServer::FakeServer()
    : config("", listening_on(8099)),
      rrm(&config),
      worker(std::make_shared<WebsockServerWorker>(&rrm, &config, dispatcher.upstream(), library)) {}

BaseSession FakeServer::session(lws* wsi) const {
  for (const auto& live : worker->sessions_snapshot()) {
    if (live->wsi == wsi) return *live;
  }
  return no_session;
}

void FakeServer::order(const char* json, const BaseSession& to, bool force) {
  JsonReader reader(json);
  if (force) {
    worker->enqueue_message_force(std::move(reader), to);
  } else {
    worker->enqueue_message(std::move(reader), to);
  }
}

RealServer::RealServer()
    : port(free_port()),
      config("", listening_on(port)),
      rrm(&config),
      worker(std::make_shared<WebsockServerWorker>(&rrm, &config, dispatcher.upstream(), libwebsockets())) {}

RealServer::~RealServer() {
  dispatcher.release();
  worker->disconnect();
}

void RealServer::echo() {
  dispatcher.on_message = [this](const std::string& text, const BaseSession& session) {
    worker->enqueue_serialized(std::string(text), session);
  };
}

BaseSession RealServer::only_session() const {
  const auto sessions = worker->sessions_snapshot();
  EXPECT_EQ(sessions.size(), 1u);
  return sessions.size() == 1 ? static_cast<BaseSession>(*sessions.front()) : no_session;
}

}  // namespace rrm::testing
