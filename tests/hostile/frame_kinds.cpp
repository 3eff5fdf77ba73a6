// Frames that break the protocol of WebSocket, or use it to the full.
#include <sys/socket.h>

#include <string>

#include "hostile/kinds.h"

namespace hostile {
namespace {

using rrm::testing::Frame;
using rrm::testing::masked_frame;
using rrm::testing::masked_text;
using rrm::testing::Opcode;
using rrm::testing::WsClient;
using namespace std::string_literals;

// An empty frame of this first byte, masked.
std::string header(int first) {
  return std::string(1, static_cast<char>(first)) + "\x80mask"s;
}

std::string close_with(int status, const std::string& reason = "") {
  const std::string payload{static_cast<char>(status >> 8), static_cast<char>(status)};
  return masked_frame({Opcode::close, payload + reason, true});
}

std::string part(Opcode opcode, const std::string& payload, bool is_last = false) {
  return masked_frame({opcode, payload, is_last});
}

// The payload's length as it should not be written: `size` says in how many bytes.
std::string with_length(std::size_t length, int size, const std::string& payload) {
  std::string frame{static_cast<char>(0x81), static_cast<char>(size == 2 ? 0xfe : 0xff)};
  for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) frame.push_back(static_cast<char>(length >> shift));
  return frame + std::string(4, '\0') + payload;  // a mask of zeros changes nothing
}

std::string letter_by_letter(const std::string& text) {
  std::string frames;
  for (std::size_t i = 0; i < text.size(); ++i) {
    frames += part(i == 0 ? Opcode::text : Opcode::continuation, text.substr(i, 1), i + 1 == text.size());
  }
  return frames;
}

void reset_in_a_frame(Peer& peer) {
  const std::string frame = masked_text(std::string(10000, 'x'));
  peer.socket().send_raw(frame.substr(0, 5000));
  peer.socket().reset();
}

void reset_between_fragments(Peer& peer) {
  peer.socket().send_raw(part(Opcode::text, "[1,") + part(Opcode::continuation, "2,"));
  peer.socket().reset();
}

void close_half(Peer& peer) {
  ::shutdown(peer.socket().fd(), SHUT_WR);
}

void close_half_in_a_frame(Peer& peer) {
  peer.socket().send_raw(masked_text(std::string(10000, 'x')).substr(0, 5000));
  close_half(peer);
}

// More than the connection can hold on its way back.
void ask_and_never_read(Peer& peer) {
  Peer deaf(peer.surroundings(), 0, 4096);
  deaf.upgrade();
  const std::string pings = repeated(masked_frame({Opcode::ping, std::string(125, 'p'), true}), 1000);
  const ::timeval no_longer{0, 100000};
  ::setsockopt(deaf.socket().fd(), SOL_SOCKET, SO_SNDTIMEO, &no_longer, sizeof no_longer);
  for (int i = 0; i < 100 && deaf.socket().send_raw(pings); ++i) {
  }
  deaf.socket().reset();
}

}  // namespace

std::vector<Kind> frame_kinds() {
  const Start session = Start::session;
  return {
      // Headers
      {"reserved bit 1", session, bytes(header(0xc1)), closed(1002)},
      {"reserved bit 2", session, bytes(header(0xa1)), closed(1002)},
      {"reserved bit 3", session, bytes(header(0x91)), closed(1002)},
      {"reserved bits on a ping", session, bytes(header(0xf9)), closed(1002)},
      {"reserved opcode 3", session, bytes(header(0x83)), closed(1002)},
      {"reserved opcode 7", session, bytes(header(0x87)), closed(1002)},
      {"reserved opcode 11", session, bytes(header(0x8b)), closed(1002)},
      {"reserved opcode 15", session, bytes(header(0x8f)), closed(1002)},
      {"text without a mask", session, bytes("\x81\x02[]"), served},
      {"a close without a mask", session, bytes("\x88\x00"s), closed(0)},
      {"a mask of zeros", session, bytes(with_length(2, 2, "{}")), served},
      {"an HTTP request in a session", session, bytes(WsClient::upgrade_request({})), closed(1002)},
      {"one byte of a frame", session, bytes("\x81"), waited_on},
      {"a frame without its mask", session, bytes("\x81\x85"), waited_on},

      // Lengths
      {"a length of 2 to the 63rd", session, bytes("\x81\xff\x80\0\0\0\0\0\0\0mask[[[["s), ended},
      {"a length of 2 to the 63rd less 1", session, bytes("\x81\xff\x7f\xff\xff\xff\xff\xff\xff\xffmask[[[["),
       waited_on},
      {"a length of 4 GiB", session, bytes("\x81\xff\0\0\0\1\0\0\0\0mask[[[["s), waited_on},
      {"a length of 2 bytes written in 2", session, bytes(with_length(5, 2, "[1,2]")), served},
      {"a length of 2 bytes written in 8", session, bytes(with_length(5, 8, "[1,2]")), served},

      // Control frames
      {"a ping in fragments", session, bytes(header(0x09)), closed(1002)},
      {"a close in fragments", session, bytes(header(0x08)), closed(1002)},
      {"a ping of 126 bytes", session, bytes("\x89\xfe\x00\x7emask"s + std::string(126, 'p')), ended},
      {"a ping of 64 KiB", session, bytes("\x89\xff\0\0\0\0\0\1\0\0mask"s + std::string(65536, 'p')), ended},
      {"10000 pings", session, bytes(repeated(header(0x89), 10000)), served},
      {"10000 pongs that nobody asked for", session, bytes(repeated(header(0x8a), 10000)), served},
      {"pings that nobody hears the answers of", session, ask_and_never_read, served},

      // Fragments
      {"a continuation of nothing", session, bytes(part(Opcode::continuation, "[1]", true)), closed(1002)},
      {"a text in the middle of a text", session, bytes(part(Opcode::text, "[1,") + masked_text("[2]")), closed(1002)},
      {"a binary frame in the middle of a text", session,
       bytes(part(Opcode::text, "[1,") + part(Opcode::binary, "2]", true)), closed(1002)},
      {"a ping in the middle of a text", session,
       bytes(part(Opcode::text, "[1,") + masked_frame({Opcode::ping, "p", true}) +
             part(Opcode::continuation, "2]", true)),
       served},
      {"a message letter by letter", session, bytes(letter_by_letter("[" + repeated("1,", 500) + "1]")), served},
      {"a message that never ends", session,
       bytes(part(Opcode::text, "[") + repeated(part(Opcode::continuation, repeated("1,", 500)), 1000)), listening},
      {"a message of 10000 empty fragments", session,
       bytes(part(Opcode::text, "") + repeated(part(Opcode::continuation, ""), 10000) +
             part(Opcode::continuation, "", true)),
       served},
      {"10000 empty texts", session, bytes(repeated(masked_text(""), 10000)), served},
      {"10000 empty binary frames", session, bytes(repeated(part(Opcode::binary, "", true), 10000)), served},
      {"binary frames", session, bytes(part(Opcode::binary, "\x00\x01\x02\xff"s, true)), served, {no_json}},

      // Closes
      {"a close of one byte", session, bytes(part(Opcode::close, "x", true)), closed(0)},
      {"a close with status 0", session, bytes(close_with(0)), closed(1002)},
      {"a close with status 999", session, bytes(close_with(999)), closed(1002)},
      {"a close with status 1004", session, bytes(close_with(1004)), closed(1002)},
      {"a close with status 1005", session, bytes(close_with(1005)), closed(1002)},
      {"a close with status 1006", session, bytes(close_with(1006)), closed(1002)},
      {"a close with status 1015", session, bytes(close_with(1015)), closed(1002)},
      {"a close with status 65535", session, bytes(close_with(65535)), closed(65535)},
      {"a close whose reason is no UTF-8", session, bytes(close_with(1000, "\xc3\x28")), closed(1000)},
      {"a close with the longest reason", session, bytes(close_with(1000, std::string(123, 'r'))), closed(1000)},
      {"texts behind a close", session, bytes(close_with(1000) + repeated(masked_text("{}"), 10)), closed(1000)},
      {"two closes", session, bytes(close_with(1000) + close_with(1001)), closed(1000)},
      {"a close in the middle of a text", session, bytes(part(Opcode::text, "[1,") + close_with(1000)), closed(1000)},

      // Ends
      {"a reset in a frame", session, reset_in_a_frame, left},
      {"a reset between fragments", session, reset_between_fragments, left},
      {"half a close", session, close_half, ended},
      {"half a close in a frame", session, close_half_in_a_frame, ended},
  };
}

}  // namespace hostile
