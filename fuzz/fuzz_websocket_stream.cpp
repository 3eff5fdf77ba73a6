// A stranger's byte stream on a connection of the real WebSocket server. The input's first line says what the rest is
// and how it is cut into the pieces that arrive one after the other:
//
//   R<sizes>   the bytes themselves, from the HTTP request on
//   F<sizes>   frames after a proper upgrade, a line each, which are masked and counted here (see `Script`)
//
// Whatever comes: the session ends with its connection and leaves nothing behind, what the server sends back is well
// formed, whole messages of a stream that keeps the protocol reach the dispatcher unchanged, in order and once, and
// another session is served as before.
#include <fcntl.h>
#include <libwebsockets.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Config.h"
#include "RRM.h"
#include "WebsockServerWorker.h"
#include "core/QueueMessage.h"
#include "fuzz/fuzz.h"
#include "fuzz/silence.h"
#include "fuzz/websocket_frames.h"
#include "json/JsonReader.h"

namespace {

using rrm::BaseSession;
using rrm::JsonReader;
using zal::fuzz::FrameReader;
using zal::fuzz::require;

constexpr std::size_t most_pieces = 64;  // the rest comes in one
constexpr std::size_t most_replies = 8;  // fewer than a session's ring holds
constexpr std::size_t most_frames = 64;
constexpr std::size_t repetition = 8192;  // of a long frame's payload
constexpr std::chrono::seconds patience{80};
constexpr const char* sha1_answer = "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=";

constexpr std::string_view upgrade =
    "GET /apb/rrm HTTP/1.1\r\nHost: localhost\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n"
    "Sec-WebSocket-Protocol: websock-rrm\r\n\r\n";

// The library without a listener: its service thread rests, and connections are served when the fuzzer says so.
class HandDriven final : public rrm::LwsApi {
 public:
  lws_context* context() const { return context_; }
  lws_vhost* vhost() const { return lws_get_vhost_by_name(context_, "default"); }
  void set_log_level(int, void (*emit)(int, const char*)) override { real_.set_log_level(LLL_ERR | LLL_WARN, emit); }
  lws_context* create_context(const lws_context_creation_info& info) override {
    lws_context_creation_info silent = info;
    silent.port = CONTEXT_PORT_NO_LISTEN_SERVER;
    return context_ = real_.create_context(silent);
  }
  void context_destroy(lws_context* context) override { real_.context_destroy(context); }
  int get_count_threads(lws_context* context) override { return real_.get_count_threads(context); }
  int service_tsi(lws_context*, int, int) override {
    rest_.acquire();
    return 0;
  }
  void cancel_service(lws_context* context) override { real_.cancel_service(context); }
  int get_tsi(lws* wsi) override { return real_.get_tsi(wsi); }
  std::string get_peer_simple(lws* wsi) override { return real_.get_peer_simple(wsi); }
  std::size_t remaining_packet_payload(lws* wsi) override { return real_.remaining_packet_payload(wsi); }
  bool is_final_fragment(lws* wsi) override { return real_.is_final_fragment(wsi); }
  void set_timeout(lws* wsi, pending_timeout reason, int s) override { real_.set_timeout(wsi, reason, s); }
  void callback_on_writable(lws* wsi) override { real_.callback_on_writable(wsi); }
  int write(lws* wsi, unsigned char* payload, std::size_t length, lws_write_protocol mode) override {
    return real_.write(wsi, payload, length, mode);
  }
  void close_reason(lws* wsi, lws_close_status status, std::string_view reason) override {
    real_.close_reason(wsi, status, reason);
  }

 private:
  rrm::LwsApi& real_ = rrm::libwebsockets();
  lws_context* context_ = nullptr;
  std::binary_semaphore rest_{0};  // nobody ever ends it
};

// The server with a recorder in place of the dispatcher. It lives as long as the process.
class Server {
 public:
  // Never ends: the library would still log after what its log is written with has gone.
  static Server& instance() {
    static Server& server = *new Server;
    return server;
  }

  // Everything that is ready, once.
  void serve() { require(lws_service_tsi(library_.context(), -1, 0) >= 0, "the server goes on"); }
  bool has_more_to_do() const { return lws_service_adjust_timeout(library_.context(), 1000, 0) == 0; }
  // Takes over a connected socket as the server's end.
  void adopt(int fd) {
    lws_adopt_socket_vhost(library_.vhost(), fd);
    serve();
  }
  rrm::WebsockServerWorker& worker() { return *worker_; }

  struct Heard {
    std::uint32_t session = 0;
    std::string text;
  };
  std::vector<Heard> heard() const {
    const std::lock_guard lock(mutex_);
    return heard_;
  }
  template <class Condition>
  void wait_for(Condition condition) {
    std::unique_lock lock(mutex_);
    require(changed_.wait_for(lock, patience, [&] { return condition(heard_); }), "a whole message arrives");
  }
  // How often each session that ended was reported, by order of the reports.
  std::vector<std::uint32_t> dropped() const {
    const std::lock_guard lock(mutex_);
    return dropped_;
  }
  // Another session than the stranger's, to which nobody replies.
  void set_witness(std::uint32_t session) {
    const std::lock_guard lock(mutex_);
    witness_ = session;
  }
  std::uint32_t witness() const {
    const std::lock_guard lock(mutex_);
    return witness_;
  }
  void forget() {
    const std::lock_guard lock(mutex_);
    heard_.clear();
    dropped_.clear();
    replies_ = 0;
  }

 private:
  Server() : config_("", R"({"global":{}})"), rrm_(&config_) {
    zal::fuzz::silence_logs();
    const rrm::WebsockServerWorker::Upstream upstream{
        [this](JsonReader& json, const BaseSession& session) { hear(json, session); },
        [this](const BaseSession& session) {
          const std::lock_guard lock(mutex_);
          dropped_.push_back(session.id);
        },
        [](const BaseSession&) {},
    };
    worker_ = std::make_shared<rrm::WebsockServerWorker>(&rrm_, &config_, upstream, library_);
    require(worker_->connect(), "the server starts");
  }
  // On the jsonificator's thread. The first messages of a stranger go back.
  void hear(JsonReader& json, const BaseSession& session) {
    const char* const text = json.to_string();
    std::string copy = text != nullptr ? text : "null";
    bool replied = false;
    {
      const std::lock_guard lock(mutex_);
      replied = session.id != witness_ && replies_++ < most_replies;
    }
    if (replied) worker_->enqueue_serialized(std::string(copy), session);
    const std::lock_guard lock(mutex_);
    heard_.push_back({session.id, std::move(copy)});
    changed_.notify_all();
  }

  HandDriven library_;
  rrm::GlobalConfig config_;
  rrm::RRM rrm_;  // owns the worker in name only; nothing of it runs
  std::shared_ptr<rrm::WebsockServerWorker> worker_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Heard> heard_;
  std::vector<std::uint32_t> dropped_;
  std::size_t replies_ = 0;
  std::uint32_t witness_ = 0;
};

bool is_open(int fd) {
  return ::fcntl(fd, F_GETFD) >= 0;
}

// One end of a connection whose other end is the server's.
class Peer {
 public:
  explicit Peer(Server& server) : server_(server) {
    int ends[2] = {-1, -1};
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0, "a socket pair");
    own_ = ends[0];
    far_ = ends[1];
    server_.adopt(far_);
  }
  ~Peer() {
    if (own_ >= 0) ::close(own_);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  // False once the server takes no more.
  bool write(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t sent = ::send(own_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent < 0 && errno != EAGAIN) return false;
      if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
      settle();
    }
    return true;
  }
  // Until the server has read all, and said all that it has to say by itself.
  void settle() {
    for (int idle = 0; idle < 2;) {  // a wake-up of the server asks for a writable event, which comes in the next round
      server_.serve();
      const bool busy = read() || server_has_unread() || server_.has_more_to_do();
      idle = busy ? 0 : idle + 1;
    }
  }
  // What has come since the last call.
  std::string take() { return std::exchange(input_, {}); }
  bool served() const { return is_open(far_); }
  void close() {
    ::close(std::exchange(own_, -1));
    for (int i = 0; i < 100 && served(); ++i) server_.serve();
    require(!served(), "a connection ends with its peer");
  }

 private:
  bool read() {
    char buffer[65536];
    const ssize_t got = ::recv(own_, buffer, sizeof buffer, 0);
    if (got > 0) input_.append(buffer, static_cast<std::size_t>(got));
    return got > 0;
  }
  bool server_has_unread() const {
    int unread = 0;
    return served() && ::ioctl(far_, FIONREAD, &unread) == 0 && unread > 0;
  }

  Server& server_;
  int own_ = -1;
  int far_ = -1;
  std::string input_;
};

std::string masked_frame(unsigned char first, char length_form, const std::string& payload) {
  constexpr char mask[4] = {0x37, 0x5a, 0x21, 0x6c};
  const bool masked = length_form != 'u';
  std::uint64_t length = payload.size();
  if (length_form == '+') ++length;
  if (length_form == 'h') length = 0x7fffffffffffffff;
  if (length_form == 'n') length |= std::uint64_t{1} << 63;
  std::size_t extra = length > 65535 ? 8 : length > 125 ? 2 : 0;
  if (length_form == '2' && extra == 0) extra = 2;
  if (length_form == '8') extra = 8;
  const std::size_t code = extra == 8 ? 127 : extra == 2 ? 126 : static_cast<std::size_t>(length);
  std::string bytes{static_cast<char>(first), static_cast<char>((masked ? 0x80U : 0U) | code)};
  for (std::size_t i = extra; i-- > 0;) bytes.push_back(static_cast<char>(length >> (8 * i)));
  if (!masked) return bytes + payload;
  bytes.append(mask, 4);
  for (std::size_t i = 0; i < payload.size(); ++i) bytes.push_back(static_cast<char>(payload[i] ^ mask[i % 4]));
  return bytes;
}

// A line of the second form: what kind of frame, how its length is told, and its payload.
//
//   t T    text, final and with more to come         +   one more than there is
//   c C    continuation, final and not               h   more than anybody could send
//   b B    binary, final and not                     n   with the highest bit set
//   p o x  ping, pong, close                         2 8 in that many bytes, needed or not
//   any other byte is a frame's first byte           u   not masked
//   !      an order of the server to its session     l   the payload many times over
//                                                    any other: as it should be
struct Line {
  char kind = 0;
  char form = ' ';
  std::string payload;
};

unsigned char first_byte(char kind) {
  static constexpr std::pair<char, unsigned char> kinds[] = {{'t', 0x81}, {'T', 0x01}, {'c', 0x80},
                                                             {'C', 0x00}, {'b', 0x82}, {'B', 0x02},
                                                             {'p', 0x89}, {'o', 0x8a}, {'x', 0x88}};
  for (const auto& [known, byte] : kinds) {
    if (kind == known) return byte;
  }
  return static_cast<unsigned char>(kind);
}

std::vector<Line> read_lines(std::string_view text) {
  std::vector<Line> lines;
  while (!text.empty() && lines.size() < most_frames) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (line.empty()) continue;
    lines.push_back({line[0], line.size() > 1 ? line[1] : ' ', std::string(line.substr(std::min(line.size(), {2})))});
  }
  return lines;
}

std::string frame_of(const Line& line) {
  std::string payload = line.payload;
  if (line.form == 'l') {
    while (!payload.empty() && payload.size() < repetition) payload += payload;
  }
  return masked_frame(first_byte(line.kind), line.form, payload);
}

// How many bytes arrive at once, one after the other; the last number holds for the rest.
class Pieces {
 public:
  explicit Pieces(std::string_view sizes) : sizes_(sizes) {}

  std::string_view cut(std::string_view& bytes) {
    const std::string_view piece = bytes.substr(0, next());
    bytes.remove_prefix(piece.size());
    return piece;
  }

 private:
  std::size_t next() {
    if (sizes_.empty() || ++taken_ > most_pieces) return std::string_view::npos;
    const auto size = static_cast<unsigned char>(sizes_[std::min(taken_, sizes_.size()) - 1]);
    return size > '9' ? std::size_t{1} << (size % 14) : 1 + size % 16;
  }

  std::string_view sizes_;
  std::size_t taken_ = 0;
};

// A peer that keeps the protocol and stays for the life of the process. Once its message was heard, everything that
// came before it has been dealt with, since there is one jsonificator.
class Witness {
 public:
  static Witness& of(Server& server) {
    static Witness& witness = *new Witness(server);
    return witness;
  }

  // Since the server has last forgotten what it heard.
  void speak() {
    peer_.write(masked_frame(first_byte('t'), ' ', text));
    server_.wait_for(
        [this](const std::vector<Server::Heard>& heard) { return !heard.empty() && heard.back().session == session_; });
    received_.feed(peer_.take());
    require(peer_.served() && received_.sound() && received_.messages().empty(), "another session is served as before");
    // The library asks now and then whether a peer still lives.
    for (; answered_ < received_.pings().size(); ++answered_) {
      peer_.write(masked_frame(first_byte('o'), ' ', received_.pings()[answered_]));
    }
  }

 private:
  static constexpr const char* text = R"({"cmd":"witness"})";

  explicit Witness(Server& server) : server_(server), peer_(server) {
    peer_.write(upgrade);
    require(peer_.take().starts_with("HTTP/1.1 101 "), "a proper upgrade is accepted");
    session_ = server.worker().sessions_snapshot().at(0)->id;
    server.set_witness(session_);
  }

  Server& server_;
  Peer peer_;
  std::uint32_t session_ = 0;
  FrameReader received_{FrameReader::From::server};
  std::size_t answered_ = 0;  // pings
};

// What a message's text is to the dispatcher.
std::string as_heard(const std::string& message) {
  const JsonReader json(message.c_str());
  const char* const text = json.to_string();
  return text != nullptr ? text : "null";
}

// A connection, and what must come of it.
class Stranger {
 public:
  Stranger(Server& server, Pieces pieces) : server_(server), peer_(server), pieces_(pieces) {}

  void upgrade_properly() {
    peer_.write(upgrade);
    peer_.settle();
    const std::string answer = peer_.take();
    require(answer.starts_with("HTTP/1.1 101 ") && answer.ends_with("\r\n\r\n"), "a proper upgrade is accepted");
    require(answer.find(sha1_answer) != std::string::npos, "the upgrade's key is answered");
    find_session();
    answered_ = true;
    predicted_ = true;
  }

  // A client has to await the answer to its request: what comes in one piece with it, the library spoils by writing the
  // answer over it.
  void send_raw(std::string_view bytes) {
    predicted_ = bytes.starts_with(upgrade);
    std::size_t request_left = upgrade.size();
    while (!bytes.empty()) {
      const std::string_view piece = pieces_.cut(bytes);
      if (!peer_.write(piece)) return;
      if (request_left > 0) {
        predicted_ = predicted_ && piece.size() <= request_left;
        request_left -= std::min(request_left, piece.size());
      } else {
        expect(std::string(piece));
      }
    }
  }

  void send_lines(const std::vector<Line>& lines) {
    for (const Line& line : lines) {
      if (line.kind == '!') {
        order(line);
        continue;
      }
      const std::string frame = frame_of(line);
      std::string_view left = frame;
      while (!left.empty()) {
        const std::string_view piece = pieces_.cut(left);
        if (!peer_.write(piece)) return;
        expect(std::string(piece));
      }
    }
  }

  void end() {
    peer_.settle();
    read_answers();
    find_session();
    check_heard();
    if (framed_ && certain()) {
      // The server may see by a frame's first bytes what is wrong with it.
      require(peer_.served() || !sent_.at_boundary(), "who keeps the protocol is served on");
      if (peer_.served()) check_answers();
    }
    peer_.close();
    const auto dropped = server_.dropped();
    const bool told = session_.id != 0 && !drop_ordered_;
    require(dropped.size() <= 1 && (!told || dropped.size() == 1), "a session's end is reported once");
    require(dropped.empty() || session_.id == 0 || dropped.at(0) == session_.id, "the session that ended is reported");
  }

 private:
  // Nothing has come that a server may take either way.
  bool certain() const { return predicted_ && sent_.sound() && !sent_.closed() && !drop_ordered_; }

  void expect(const std::string& frames) {
    if (!predicted_) return;
    sent_.feed(frames);
    std::size_t whole = 0;
    for (const std::string& message : sent_.messages()) whole += message.empty() ? 0 : 1;
    if (certain()) server_.wait_for([whole](const auto& heard) { return heard.size() >= whole; });
    peer_.settle();
    read_answers();
  }

  void order(const Line& line) {
    find_session();
    if (session_.id == 0) return;
    rrm::WebsockServerWorker& worker = server_.worker();
    switch (line.form) {
      case 'd':
        worker.enqueue_message(JsonReader(rrm::internal_message::drop_session), session_);
        drop_ordered_ = true;
        break;
      case 'D':
        worker.enqueue_message_force(JsonReader(rrm::internal_message::drop_session), session_);
        drop_ordered_ = true;
        break;
      case 'p':
        worker.enqueue_message(JsonReader(rrm::internal_message::ping_session), session_);
        break;
      default:
        worker.enqueue_serialized(std::string(line.payload), session_);
        if (!line.payload.empty()) ++sent_by_order_;
    }
    peer_.settle();
    read_answers();
    require(!drop_ordered_ || !is_known(session_), "a session that is ordered dropped is gone");
  }

  bool is_known(const BaseSession& session) const {
    const auto sessions = server_.worker().sessions_snapshot();
    return std::any_of(sessions.begin(), sessions.end(), [&](const auto& live) { return live->id == session.id; });
  }

  // The only session besides the witness.
  void find_session() {
    for (const auto& live : server_.worker().sessions_snapshot()) {
      if (live->id != server_.witness()) session_ = *live;
    }
  }

  void read_answers() {
    std::string bytes = peer_.take();
    if (!answered_) {
      http_ += bytes;
      const std::size_t end = http_.find("\r\n\r\n");
      require(std::string_view("HTTP/1.").starts_with(std::string_view(http_).substr(0, 7)), "an answer is HTTP");
      if (!http_.starts_with("HTTP/1.1 101 ") || end == std::string::npos) return;
      answered_ = true;
      bytes = http_.substr(end + 4);
    }
    received_.feed(bytes);
    require(received_.sound(), "what the server sends is well formed");
  }

  void check_heard() const {
    if (!predicted_) return;
    const auto heard = server_.heard();
    std::size_t place = 0;
    for (const std::string& message : sent_.messages()) {
      if (message.empty()) continue;
      if (place == heard.size() && !certain()) return;
      require(place < heard.size() && heard[place++].text == as_heard(message),
              "messages arrive unchanged and in order");
    }
    require(place == heard.size() || !sent_.sound(), "a message arrives once, and none after a close");
  }

  void check_answers() const {
    require(received_.at_boundary(), "an answer is whole");
    const auto heard = server_.heard();
    require(received_.messages().size() == std::min(heard.size(), most_replies) + sent_by_order_, "all replies arrive");
    if (!sent_.pings().empty()) {
      require(!received_.pongs().empty() && received_.pongs().back() == sent_.pings().back(), "a ping is answered");
    }
  }

 public:
  // After a proper upgrade the first writable event comes before any reply.
  void expect_all_answers() { framed_ = true; }

 private:
  Server& server_;
  Peer peer_;
  Pieces pieces_;
  BaseSession session_{};
  bool predicted_ = false;  // `sent_` is what the server has to make of the bytes
  bool framed_ = false;
  bool answered_ = false;  // with an upgrade
  bool drop_ordered_ = false;
  std::size_t sent_by_order_ = 0;
  std::string http_;
  FrameReader sent_{FrameReader::From::client};
  FrameReader received_{FrameReader::From::server};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view head = input.substr(0, input.find('\n'));
  if (head.empty()) return 0;
  const std::string_view rest = input.substr(std::min(head.size() + 1, size));
  Server& server = Server::instance();
  Witness& witness = Witness::of(server);
  {
    Stranger stranger(server, Pieces(head.substr(1)));
    if (head[0] == 'F') {
      stranger.upgrade_properly();
      stranger.expect_all_answers();
      stranger.send_lines(read_lines(rest));
    } else {
      stranger.send_raw(rest);
    }
    stranger.end();
  }
  require(server.worker().sessions_snapshot().size() == 1, "no session outlives its connection");
  witness.speak();
  server.forget();
  return 0;
}
