// Any bytes into both ends of the bus, over a socket and in pieces whose size the first byte tells: into the daemon's
// port, which serves each frame that is a message and acknowledges each that asks for it, and into the controller's
// end, which tells what each frame of its daemon means and lives on with the others.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "controller/Bus.h"
#include "fuzz/fuzz.h"
#include "fuzz/scratch_dir.h"
#include "platform/bus/Connection.h"
#include "platform/bus/bus_types.h"
#include "platform/standalone/TraceLog.h"
#include "platform/standalone/messages.h"
#include "zal/IpcPort.h"
#include "zal/Trace.h"

namespace {

using zal::bus::Connection;
using zal::bus::Fields;
using zal::bus::FrameReader;
using zal::fuzz::require;

using Lines = std::vector<std::string>;

// What a frame of a stream is, at the level of the bus.
struct Arrived {
  std::optional<Fields> fields;
  std::optional<std::int64_t> type;
};

std::vector<Arrived> frames_of(const std::string& stream) {
  FrameReader reader;
  reader.append(stream.data(), stream.size());
  std::vector<Arrived> frames;
  while (const auto item = reader.next()) {
    std::string reason;
    Arrived frame;
    if (!item->too_long) frame.fields = zal::bus::parse_fields(item->payload, reason);
    if (frame.fields) frame.type = frame.fields->number("type");
    frames.push_back(frame);
  }
  return frames;
}

void push(Connection& connection, const std::string& bytes) {
  require(connection.send(bytes) && connection.flush() && !connection.wants_write(), "a socket takes a piece");
}

template <class Serve>
void push_in_pieces(Connection& connection, const std::string& stream, std::size_t piece, Serve serve) {
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    push(connection, stream.substr(at, piece));
    serve();
  }
}

std::string frame_text(const Fields& fields) {
  return *zal::bus::encode_frame(fields);
}

void open_log(const std::string& file) {
  static bool is_open = false;
  if (is_open) return;
  setenv(zal::trace_file_variable, file.c_str(), 1);
  zal::Trace::global_init("fuzz");
  is_open = true;
}

// --- The daemon's end

// What the port's frames are to lead to: the types of the messages that are served, and the acknowledgements.
struct Served {
  Lines messages;
  Lines answers;
  bool operator==(const Served&) const = default;
};

std::string acknowledgement(std::int64_t id, zal::Error result) {
  return zal::bus::to_json(
      {{"type", std::int64_t{zal::bus::bus_served}}, {"id", id}, {"error", std::int64_t{static_cast<int>(result)}}});
}

bool is_message_number(std::int64_t type) {
  return type >= INT32_MIN && type <= INT32_MAX;
}

Served expected_of_port(const std::vector<Arrived>& frames) {
  Served served;
  for (const Arrived& frame : frames) {
    if (!frame.type || !is_message_number(*frame.type) || *frame.type == zal::bus::bus_run) continue;
    std::string reason;
    const auto message = zal::message_from(static_cast<int>(*frame.type), *frame.fields, reason);
    if (message) served.messages.push_back(std::to_string(message->type()));
    const zal::Error result = message ? zal::Error::none : zal::Error::malformed;
    if (const auto id = frame.fields->number("id")) served.answers.push_back(acknowledgement(*id, result));
  }
  return served;
}

void take_answers(Connection& peer, Lines& answers) {
  require(peer.read(), "the port stays");
  while (const auto item = peer.next()) answers.push_back(item->payload);
}

void check_port(const std::string& path, const std::string& stream, std::size_t piece) {
  zal::bus::UniqueFd listener = zal::bus::listen_at(path);
  static const zal::Trace trace("RRM", false);
  zal::IpcPort port(zal::PortId::rrm, trace);
  Connection peer(zal::bus::accept_from(listener.get()));
  Served served;
  port.register_msg_callback(
      [&served](const zal::IMsg& message, zal::IpcPort&, void*) {
        served.messages.push_back(std::to_string(message.type()));
        return zal::Error::none;
      },
      nullptr);
  push(peer, frame_text({{"type", std::int64_t{zal::bus::bus_run}}}));
  require(zal::ipc_send_ready_and_wait_for_run(port), "the port runs");
  Lines greetings;
  take_answers(peer, greetings);
  push_in_pieces(peer, stream, piece, [&port] { port.run_once_for_timeout(0); });
  // One frame a pass.
  const std::vector<Arrived> frames = frames_of(stream);
  for (std::size_t pass = 0; pass < frames.size() + 2; ++pass) port.run_once_for_timeout(0);
  take_answers(peer, served.answers);
  require(served == expected_of_port(frames), "each message is served once, in order");
}

// --- The controller's end

class Heard final : public controller::BusListener {
 public:
  Lines lines;

  void on_daemon_ready() override { lines.emplace_back("ready"); }
  void on_daemon_gone() override { lines.emplace_back("gone"); }
  void on_alarm(const std::string& location, std::int64_t status) override {
    lines.push_back("alarm " + location + " " + std::to_string(status));
  }
  void on_served(std::int64_t id, std::int64_t error) override {
    lines.push_back("served " + std::to_string(id) + " " + std::to_string(error));
  }
  void on_message(const Fields& frame) override { lines.push_back("message " + to_json(frame)); }
  void say(const std::string&) override { lines.emplace_back("refused"); }
};

std::string meaning(const Arrived& frame) {
  if (!frame.type) return "refused";
  const Fields& fields = *frame.fields;
  if (*frame.type == zal::bus::bus_open) {
    return fields.number("port") == static_cast<int>(zal::PortId::rrm) ? "" : "refused";
  }
  if (*frame.type == zal::bus::bus_ready) return "ready";
  const auto* const location = fields.text("location");
  if (*frame.type == zal::bus::bus_alarm && location != nullptr && fields.number("status")) {
    return "alarm " + *location + " " + std::to_string(*fields.number("status"));
  }
  if (*frame.type == zal::bus::bus_served && fields.number("id")) {
    return "served " + std::to_string(*fields.number("id")) + " " + std::to_string(fields.number("error").value_or(0));
  }
  return "message " + to_json(fields);
}

void serve(controller::Bus& bus) {
  std::vector<pollfd> fds;
  bus.add_to(fds);
  while (::poll(fds.data(), fds.size(), 0) < 0) require(errno == EINTR, "the controller polls");
  bus.on_events(fds);
}

void check_controller(const std::string& path, const std::string& stream, std::size_t piece) {
  Heard heard;
  controller::Bus bus(path, heard);
  Connection daemon(zal::bus::connect_to(path));
  serve(bus);
  push(daemon, frame_text({{"type", std::int64_t{zal::bus::bus_open}},
                           {"port", std::int64_t{static_cast<int>(zal::PortId::rrm)}}}));
  serve(bus);
  require(bus.has_daemon(), "the daemon has joined");
  push_in_pieces(daemon, stream, piece, [&bus] { serve(bus); });
  Lines expected;
  for (const Arrived& frame : frames_of(stream)) {
    if (const std::string line = meaning(frame); !line.empty()) expected.push_back(line);
  }
  require(heard.lines == expected, "each frame of the daemon is told once, in order");
  require(bus.has_daemon(), "nothing that the daemon sends costs it its place");

  Connection stranger(zal::bus::connect_to(path));
  serve(bus);
  push(stranger, stream);
  serve(bus);
  require(bus.has_daemon(), "nor what a stranger sends, but that he joins in its place");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static const zal::fuzz::ScratchDir directory;
  open_log(directory.file("log"));
  const std::size_t most_pieces = 4;
  const std::size_t piece = std::max<std::size_t>(1 + data[0], size / most_pieces);
  const std::string stream(reinterpret_cast<const char*>(data + 1), size - 1);
  const std::string path = directory.file("bus.sock");
  setenv(zal::bus::bus_variable, path.c_str(), 1);
  check_port(path, stream, piece);
  ::unlink(path.c_str());
  check_controller(path, stream, piece);
  ::unlink(path.c_str());
  return 0;
}
