#include "sim/fleet.h"

#include <libwebsockets.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "sim/backoff.h"
#include "sim/source_addresses.h"

namespace sim {
namespace {

constexpr const char* sub_protocol = "websock-rrm";
constexpr lws_usec_t beat_us = 50'000;
constexpr Millis connect_apart_ms = 5;  // the first attempts of two APs
constexpr Millis closing_ms = 1000;
constexpr std::size_t receive_buffer = 65536;
// A controller that lost its power, or its address to another one, says no farewell. Asked by TCP after so many silent
// seconds, and then again.
constexpr int ask_after_s = 5;
constexpr int ask_again_after_s = 2;
constexpr int questions = 3;

std::int64_t steady_ms() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

}  // namespace

struct Fleet::Session {
  Session(Fleet& owner, std::size_t index, const Mac& mac) : fleet(owner), ap(index), backoff(mac.value) {}

  Fleet& fleet;
  const std::size_t ap;
  Backoff backoff;
  Millis connect_at = 0;
  lws* wsi = nullptr;  // null while nothing is under way
  bool up = false;
  bool closing = false;
  bool down_told = false;  // a person need not read of each further attempt
  std::string incoming;
  std::deque<std::string> outgoing;
};

struct Fleet::Timer {
  lws_sorted_usec_list_t list{};
  Fleet* fleet = nullptr;
};

// What the library calls. An exception must not travel through it: it ends the program where it was thrown.
struct FleetAccess {
  static int callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t len) noexcept;
  static void beat(lws_sorted_usec_list_t* list) noexcept;
  static void received(Fleet::Session& session, lws* wsi, const char* data, std::size_t size);
  static int writable(Fleet::Session& session);
};

int FleetAccess::callback(lws* wsi, lws_callback_reasons reason, void* /*user*/, void* in, std::size_t len) noexcept {
  auto* const session = static_cast<Fleet::Session*>(lws_get_opaque_user_data(wsi));
  if (session == nullptr) {
    return 0;
  }
  switch (reason) {
    case LWS_CALLBACK_CLIENT_ESTABLISHED:
      session->fleet.went_up(*session);
      return 0;
    case LWS_CALLBACK_CLIENT_RECEIVE:
      received(*session, wsi, static_cast<const char*>(in), len);
      return 0;
    case LWS_CALLBACK_CLIENT_WRITEABLE:
      return writable(*session);
    case LWS_CALLBACK_CLIENT_CONNECTION_ERROR:
      session->fleet.went_down(*session, in == nullptr ? "cannot connect" : static_cast<const char*>(in));
      return 0;
    case LWS_CALLBACK_CLIENT_CLOSED:
      session->fleet.went_down(*session, "the session ended");
      return 0;
    case LWS_CALLBACK_WSI_DESTROY:
      // All that the library tells of a connection that ends after it was made and before it was upgraded.
      if (session->wsi == wsi) {
        session->fleet.went_down(*session, "the connection ended");
      }
      return 0;
    default:
      return 0;
  }
}

void FleetAccess::received(Fleet::Session& session, lws* wsi, const char* data, std::size_t size) {
  session.incoming.append(data, size);
  if (lws_remaining_packet_payload(wsi) == 0 && lws_is_final_fragment(wsi) != 0) {
    Fleet& fleet = session.fleet;
    fleet.simulation_.received(session.ap, std::exchange(session.incoming, {}), fleet.now());
    fleet.collect_outgoing();
  }
}

int FleetAccess::writable(Fleet::Session& session) {
  if (session.outgoing.empty()) {
    if (session.closing) {
      lws_close_reason(session.wsi, LWS_CLOSE_STATUS_NORMAL, nullptr, 0);
      return -1;
    }
    return 0;
  }
  const std::string text = std::move(session.outgoing.front());
  session.outgoing.pop_front();
  std::vector<unsigned char> buffer(LWS_PRE + text.size());
  std::memcpy(buffer.data() + LWS_PRE, text.data(), text.size());
  if (lws_write(session.wsi, buffer.data() + LWS_PRE, text.size(), LWS_WRITE_TEXT) < 0) {
    return -1;
  }
  if (!session.outgoing.empty() || session.closing) {
    lws_callback_on_writable(session.wsi);
  }
  return 0;
}

void FleetAccess::beat(lws_sorted_usec_list_t* list) noexcept {
  Fleet& fleet = *lws_container_of(list, Fleet::Timer, list)->fleet;
  fleet.beat();
  fleet.schedule_beat();
}

ServerAddress ServerAddress::parse(const std::string& url) {
  std::string copy = url;  // the library cuts it into pieces in place
  const char* scheme = nullptr;
  const char* host = nullptr;
  const char* path = nullptr;
  int port = 0;
  if (lws_parse_uri(copy.data(), &scheme, &host, &port, &path) != 0 || std::strcmp(scheme, "ws") != 0 ||
      *host == '\0') {
    throw std::invalid_argument("\"" + url + "\" is not of the form ws://host:port/path");
  }
  return {host, port, std::string("/") + path};
}

Fleet::Fleet(Simulation& simulation, ServerAddress server, Log log)
    : simulation_(simulation),
      server_(std::move(server)),
      sources_(source_addresses(server_.host, simulation.size())),
      log_(std::move(log)),
      started_(steady_ms()),
      timer_(std::make_unique<Timer>()) {
  lws_set_log_level(0, nullptr);
  static const lws_protocols protocols[] = {{sub_protocol, &FleetAccess::callback, 0, receive_buffer, 0, nullptr, 0},
                                            {nullptr, nullptr, 0, 0, 0, nullptr, 0}};
  lws_context_creation_info info{};
  info.port = CONTEXT_PORT_NO_LISTEN;
  info.protocols = protocols;
  info.gid = -1;
  info.uid = -1;
  info.ka_time = ask_after_s;
  info.ka_interval = ask_again_after_s;
  info.ka_probes = questions;
  context_ = lws_create_context(&info);
  if (context_ == nullptr) {
    throw std::runtime_error("libwebsockets cannot be set up");
  }
  const auto& aps = simulation_.world().site().access_points;
  for (std::size_t ap = 0; ap < simulation_.size(); ++ap) {
    sessions_.push_back(std::make_unique<Session>(*this, ap, aps[ap].mac));
    sessions_.back()->connect_at = static_cast<Millis>(ap) * connect_apart_ms;
  }
  timer_->fleet = this;
  schedule_beat();
}

Fleet::~Fleet() {
  for (const auto& session : sessions_) {
    session->closing = true;
  }
  lws_sul_schedule(context_, 0, &timer_->list, nullptr, LWS_SET_TIMER_USEC_CANCEL);
  lws_context_destroy(context_);
}

Millis Fleet::now() const {
  return steady_ms() - started_;
}

void Fleet::schedule_beat() {
  lws_sul_schedule(context_, 0, &timer_->list, &FleetAccess::beat, beat_us);
}

void Fleet::beat() {
  const Millis present = now();
  for (const auto& session : sessions_) {
    if (session->wsi == nullptr && !session->closing && present >= session->connect_at) {
      connect(*session);
    }
  }
  simulation_.tick(present);
  collect_outgoing();
}

void Fleet::connect(Session& session) {
  lws_client_connect_info info{};
  info.context = context_;
  info.address = server_.host.c_str();
  info.port = server_.port;
  info.path = server_.path.c_str();
  info.host = info.address;
  info.origin = info.address;
  info.protocol = sub_protocol;
  info.iface = sources_.empty() ? nullptr : sources_[session.ap].c_str();
  info.opaque_user_data = &session;
  session.wsi = lws_client_connect_via_info(&info);
  if (session.wsi == nullptr && session.connect_at <= now()) {
    went_down(session, "cannot connect");
  }
}

void Fleet::tell(const Session& session, const std::string& what) const {
  log_(simulation_.world().site().access_points[session.ap].name + ": " + what);
}

void Fleet::went_up(Session& session) {
  session.up = true;
  if (std::exchange(session.down_told, false)) {
    tell(session, "connected");
  }
  simulation_.connected(session.ap, now());
  collect_outgoing();
}

void Fleet::went_down(Session& session, const std::string& why) {
  session.wsi = nullptr;
  session.up = false;
  session.incoming.clear();
  session.outgoing.clear();
  if (session.closing) {
    return;
  }
  simulation_.disconnected(session.ap);
  session.connect_at = now() + session.backoff.next();
  if (!std::exchange(session.down_told, true)) {
    tell(session, why + ", connecting again and again");
  }
}

void Fleet::collect_outgoing() {
  for (const auto& session : sessions_) {
    if (!session->up) {
      continue;
    }
    if (simulation_.subscribed(session->ap)) {
      session->backoff.succeeded();
    }
    for (std::string& text : simulation_.take_outgoing(session->ap)) {
      session->outgoing.push_back(std::move(text));
    }
    if (!session->outgoing.empty()) {
      lws_callback_on_writable(session->wsi);
    }
  }
}

void Fleet::run(const std::function<bool()>& done) {
  while (!done()) {
    lws_service(context_, 0);
  }
  close_all();
}

bool Fleet::any_up() const {
  return std::any_of(sessions_.begin(), sessions_.end(), [](const auto& session) { return session->up; });
}

void Fleet::close_all() {
  for (const auto& session : sessions_) {
    session->closing = true;
    if (session->up) {
      lws_callback_on_writable(session->wsi);
    }
  }
  const Millis deadline = now() + closing_ms;
  while (any_up() && now() < deadline) {
    lws_service(context_, 0);
  }
}

}  // namespace sim
