// A WebSocket server that does no work: each text goes from the thread of the sockets through two others and back, as a
// message of an access point goes through the parser's thread and its domain's. What it reaches is what the library and
// two changes of threads leave to the daemon.
//
//   hop_echo PORT      prints "ready"; ends on SIGTERM
#include <libwebsockets.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "core/Ring.h"

namespace {

constexpr std::size_t capacity = 32768;
constexpr std::size_t rx_buffer_size = 65536;

struct Session {
  lws* wsi = nullptr;  // null once it is closed; the service thread alone looks at it
  std::string incoming;
  std::deque<std::string> outgoing;  // each with the room that the library wants in front
};

struct Message {
  std::shared_ptr<Session> session;
  std::string text;
};
using Item = std::shared_ptr<Message>;

std::atomic<bool> stop_ordered{false};
lws_context* context = nullptr;
rrm::Ring<Item> replies{capacity};

void push(rrm::Ring<Item>& ring, Item item) {
  while (!ring.try_push(std::move(item))) std::this_thread::yield();
}

// A thread that passes on what it is given.
class Hop {
 public:
  explicit Hop(Hop* next) : next_(next), thread_([this] { run(); }) {}
  ~Hop() {
    stopping_ = true;
    wake();
    thread_.join();
    ::close(event_);
  }
  Hop(const Hop&) = delete;
  Hop& operator=(const Hop&) = delete;

  void take(Item item) {
    push(ring_, std::move(item));
    wake();
  }

 private:
  void wake() const {
    const std::uint64_t one = 1;
    if (::write(event_, &one, sizeof one) != sizeof one) std::abort();
  }

  void wait() const {
    std::uint64_t count = 0;
    pollfd event{event_, POLLIN, 0};
    if (::poll(&event, 1, -1) > 0 && ::read(event_, &count, sizeof count) != sizeof count) std::abort();
  }

  void run() {
    while (!stopping_) {
      std::optional<Item> item = ring_.pop();
      if (!item) {
        wait();
      } else if (next_ != nullptr) {
        next_->take(std::move(*item));
      } else {
        push(replies, std::move(*item));
        lws_cancel_service(context);
      }
    }
  }

  Hop* const next_;
  rrm::Ring<Item> ring_{capacity};
  const int event_ = eventfd(0, EFD_CLOEXEC);
  std::atomic<bool> stopping_{false};
  std::thread thread_;
};

Hop* first_hop = nullptr;

void receive(lws* wsi, std::shared_ptr<Session>& session, const char* in, std::size_t length) {
  if (session->incoming.empty()) session->incoming.assign(LWS_PRE, '\0');
  session->incoming.append(in, length);
  if (lws_remaining_packet_payload(wsi) != 0 || lws_is_final_fragment(wsi) == 0) return;
  first_hop->take(std::make_shared<Message>(Message{session, std::exchange(session->incoming, {})}));
}

void queue_replies() {
  while (const auto item = replies.pop()) {
    Session& session = *(*item)->session;
    if (session.wsi == nullptr) continue;
    session.outgoing.push_back(std::move((*item)->text));
    lws_callback_on_writable(session.wsi);
  }
}

int write_next(lws* wsi, Session& session) {
  if (session.outgoing.empty()) return 0;
  std::string text = std::move(session.outgoing.front());
  session.outgoing.pop_front();
  const std::size_t length = text.size() - LWS_PRE;
  auto* const start = reinterpret_cast<unsigned char*>(text.data()) + LWS_PRE;
  if (lws_write(wsi, start, length, LWS_WRITE_TEXT) < static_cast<int>(length)) return -1;
  if (!session.outgoing.empty()) lws_callback_on_writable(wsi);
  return 0;
}

int on_event(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t length) {
  auto** const slot = static_cast<std::shared_ptr<Session>**>(user);
  switch (reason) {
    case LWS_CALLBACK_ESTABLISHED:
      *slot = new std::shared_ptr<Session>(std::make_shared<Session>());
      (**slot)->wsi = wsi;
      return 0;
    case LWS_CALLBACK_CLOSED:
      (**slot)->wsi = nullptr;
      delete *slot;
      return 0;
    case LWS_CALLBACK_RECEIVE:
      receive(wsi, **slot, static_cast<const char*>(in), length);
      return 0;
    case LWS_CALLBACK_EVENT_WAIT_CANCELLED:
      queue_replies();
      return 0;
    case LWS_CALLBACK_SERVER_WRITEABLE:
      return write_next(wsi, ***slot);
    default:
      return 0;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: hop_echo PORT\n");
    return 2;
  }
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  std::array<lws_protocols, 3> protocols{};
  protocols[0].name = "http";
  protocols[0].callback = lws_callback_http_dummy;
  protocols[1].name = "websock-rrm";
  protocols[1].callback = on_event;
  protocols[1].per_session_data_size = sizeof(void*);
  protocols[1].rx_buffer_size = rx_buffer_size;
  lws_context_creation_info info{};
  info.port = std::atoi(argv[1]);
  info.protocols = protocols.data();
  info.gid = static_cast<gid_t>(-1);
  info.uid = static_cast<uid_t>(-1);
  info.options = LWS_SERVER_OPTION_DISABLE_IPV6;
  info.count_threads = 1;
  lws_set_log_level(LLL_ERR, nullptr);
  context = lws_create_context(&info);
  if (context == nullptr) return 1;
  {
    Hop second(nullptr);
    Hop first(&second);
    first_hop = &first;
    std::printf("ready\n");
    std::fflush(stdout);
    // A signal between a look at the flag and the library's sleep would be slept over.
    std::thread order([&ends] {
      int signal = 0;
      sigwait(&ends, &signal);
      stop_ordered = true;
      lws_cancel_service(context);
    });
    while (!stop_ordered && lws_service(context, 0) >= 0) {
    }
    order.join();
  }
  lws_context_destroy(context);
  return 0;
}
