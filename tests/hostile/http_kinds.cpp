// What comes before a session: other protocols, and handshakes that are none.
#include <sys/socket.h>

#include <string>

#include "hostile/kinds.h"

namespace hostile {
namespace {

using rrm::testing::WsClient;
using namespace std::string_literals;

const std::string good_request = WsClient::upgrade_request({});

std::string request_on(const std::string& path) {
  return WsClient::upgrade_request({path, "websock-rrm"});
}

std::string request_for(const std::string& protocol) {
  return WsClient::upgrade_request({"/apb/rrm", protocol});
}

// The request with a part of it replaced.
std::string request_with(const std::string& part, const std::string& by) {
  std::string request = good_request;
  return request.replace(request.find(part), part.size(), by);
}

std::string request_without(const std::string& header) {
  const std::size_t begin = good_request.find(header);
  return std::string(good_request).erase(begin, good_request.find("\r\n", begin) + 2 - begin);
}

std::string request_and(const std::string& headers) {
  return request_with("Host: localhost\r\n", "Host: localhost\r\n" + headers);
}

void byte_by_byte(Peer& peer) {
  for (const char byte : good_request) peer.socket().send_raw({&byte, 1});
}

void line_by_line(Peer& peer) {
  for (std::size_t begin = 0; begin < good_request.size();) {
    const std::size_t end = good_request.find("\r\n", begin) + 2;
    peer.socket().send_raw(good_request.substr(begin, end - begin));
    begin = end;
  }
}

// Accepted before the rest is looked at.
std::function<void(Peer&)> upgrade_and(const std::string& rest) {
  return [=](Peer& peer) { peer.upgrade(rest); };
}

void reset_after(Peer& peer, const std::string& bytes) {
  peer.socket().send_raw(bytes);
  peer.socket().reset();
}

void close_half_after(Peer& peer, const std::string& bytes) {
  peer.socket().send_raw(bytes);
  ::shutdown(peer.socket().fd(), SHUT_WR);
}

void send_out_of_band(Peer& peer) {
  peer.socket().send_raw(good_request.substr(0, 20));
  ::send(peer.socket().fd(), "!", 1, MSG_OOB | MSG_NOSIGNAL);
}

constexpr std::string_view tls_hello{
    "\x16\x03\x01\x00\x2f\x01\x00\x00\x2b\x03\x03"
    "0123456789abcdef0123456789abcdef\x00\x00\x02\x13\x01\x01\x00\x00\x00",
    52};

}  // namespace

std::vector<Kind> http_kinds() {
  const Start tcp = Start::connected;
  return {
      // TCP
      {"a connection that says nothing", tcp, bytes(""), waited_on},
      {"a reset before the first byte", tcp, [](Peer& peer) { reset_after(peer, ""); }, left},
      {"a reset in the request line", tcp, [](Peer& peer) { reset_after(peer, "GET /ap"); }, left},
      {"a reset in the headers", tcp, [](Peer& peer) { reset_after(peer, good_request.substr(0, 80)); }, left},
      {"a reset behind the upgrade", tcp, [](Peer& peer) { reset_after(peer, good_request); }, left},
      {"half a close before the first byte", tcp, [](Peer& peer) { close_half_after(peer, ""); }, ended},
      {"half a close in the headers", tcp, [](Peer& peer) { close_half_after(peer, "GET / HTTP/1.1\r\nHo"); }, ended},
      {"a byte out of band", tcp, send_out_of_band, waited_on},

      // Slow and broken requests
      {"half a request line", tcp, bytes("GET /apb"), waited_on},
      {"headers without an end", tcp, bytes("GET /apb/rrm HTTP/1.1\r\nHost: localhost\r\n"), waited_on},
      {"an upgrade byte by byte", tcp, byte_by_byte, served},
      {"an upgrade line by line", tcp, line_by_line, served},
      {"nothing but blank lines", tcp, bytes("\r\n\r\n\r\n\r\n"), ended},
      {"a request line of 0xff", tcp, bytes(std::string(5000, '\xff')), answered(403)},
      {"a request line of NUL", tcp, bytes(std::string(5000, '\0')), answered(403)},
      {"a request line that never ends", tcp, bytes(std::string(100000, 'A')), answered(403)},
      {"a path of 10000 letters", tcp, bytes(request_on("/" + std::string(10000, 'p'))), ended},
      {"a header of 100000 letters", tcp, bytes(request_and("X-Long: " + std::string(100000, 'h') + "\r\n")), ended},
      {"a thousand headers", tcp, bytes(request_and(repeated("X-Many: 1\r\n", 1000))), ended},
      {"a header without a colon", tcp, bytes(request_and("no colon at all\r\n")), ended},
      {"a header folded over lines", tcp, bytes(request_and("X-Folded: a\r\n b\r\n\tc\r\n")), ended},
      {"a NUL in the path", tcp, bytes(request_on("/apb\0/rrm"s)), ended},
      {"a path that climbs", tcp, bytes("GET /../../../../etc/passwd HTTP/1.1\r\nHost: localhost\r\n\r\n"),
       answered(404)},
      {"a path of bad escapes", tcp, bytes("GET /%zz%%%2 HTTP/1.1\r\nHost: localhost\r\n\r\n"), answered(403)},
      {"a path with an escaped NUL", tcp, bytes("GET /%00 HTTP/1.1\r\nHost: localhost\r\n\r\n"), answered(404)},

      // HTTP that wants no WebSocket
      {"a page", tcp, bytes("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n"), answered(404)},
      {"two pages at once", tcp, bytes(repeated("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", 2)), answered(404)},
      {"the path of the sessions as a page", tcp, bytes("GET /apb/rrm HTTP/1.1\r\nHost: localhost\r\n\r\n"), ended},
      {"HEAD", tcp, bytes("HEAD / HTTP/1.1\r\nHost: localhost\r\n\r\n"), answered(404)},
      {"POST", tcp, bytes("POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 2\r\n\r\n{}"), answered(404)},
      {"POST of a negative length", tcp, bytes("POST / HTTP/1.1\r\nHost: a\r\nContent-Length: -1\r\n\r\n"),
       answered(404)},
      {"POST of chunks", tcp, bytes("POST / HTTP/1.1\r\nHost: a\r\nTransfer-Encoding: chunked\r\n\r\nffffffff\r\n"),
       answered(404)},
      {"PUT", tcp, bytes("PUT / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 0\r\n\r\n"), answered(404)},
      {"DELETE", tcp, bytes("DELETE / HTTP/1.1\r\nHost: localhost\r\n\r\n"), answered(404)},
      {"OPTIONS", tcp, bytes("OPTIONS * HTTP/1.1\r\nHost: localhost\r\n\r\n"), answered(403)},
      {"CONNECT", tcp, bytes("CONNECT localhost:22 HTTP/1.1\r\nHost: localhost:22\r\n\r\n"), waited_on},
      {"a method that nobody knows", tcp, bytes("BREW / HTTP/1.1\r\nHost: localhost\r\n\r\n"), answered(403)},
      {"HTTP 0.9", tcp, bytes("GET /\r\n"), waited_on},
      {"HTTP 1.0", tcp, bytes("GET / HTTP/1.0\r\n\r\n"), answered(404)},
      {"HTTP 2 by its preface", tcp, bytes("PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n"), answered(403)},
      {"HTTP 2 by upgrade", tcp,
       bytes("GET / HTTP/1.1\r\nHost: a\r\nConnection: Upgrade, HTTP2-Settings\r\nUpgrade: h2c\r\n"
             "HTTP2-Settings: AAMAAABkAAQAAP__\r\n\r\n"),
       answered(101)},

      // Other protocols
      {"TLS", tcp, bytes(std::string(tls_hello)), answered(403)},
      {"SSH", tcp, bytes("SSH-2.0-OpenSSH_9.2\r\n"), answered(403)},
      {"SMTP", tcp, bytes("EHLO localhost\r\nMAIL FROM:<a@b>\r\n"), answered(403)},
      {"SOCKS", tcp, bytes("\x05\x01\x00\x05\x01\x00\x01\x7f\x00\x00\x01\x00\x16"s), answered(403)},
      {"frames without a handshake", tcp, bytes(rrm::testing::masked_text("{}")), answered(403)},

      // Upgrades that lack something, or have too much
      {"an upgrade under HTTP 1.0", tcp, bytes(request_with("HTTP/1.1", "HTTP/1.0")), served},
      {"an upgrade by POST", tcp, bytes(request_with("GET", "POST")), served},
      {"an upgrade without Host", tcp, bytes(request_without("Host")), ended},
      {"an upgrade without Upgrade", tcp, bytes(request_without("Upgrade: ")), ended},
      {"an upgrade without Connection", tcp, bytes(request_without("Connection: ")), ended},
      {"an upgrade to another protocol", tcp, bytes(request_with("Upgrade: websocket", "Upgrade: smtp")),
       answered(403)},
      {"an upgrade without a key", tcp, bytes(request_without("Sec-WebSocket-Key")), ended},
      {"an upgrade with an empty key", tcp, bytes(request_with("dGhlIHNhbXBsZSBub25jZQ==", "")), ended},
      {"an upgrade with a key of 4000 letters", tcp,
       bytes(request_with("dGhlIHNhbXBsZSBub25jZQ==", std::string(4000, 'k'))), ended},
      {"an upgrade of version 8", tcp, bytes(request_with("Version: 13", "Version: 8")), served},
      {"an upgrade without a version", tcp, bytes(request_without("Sec-WebSocket-Version")), served},
      {"an upgrade to another sub-protocol", tcp, bytes(request_for("chat")), ended},
      {"an upgrade to no sub-protocol", tcp, bytes(request_without("Sec-WebSocket-Protocol")), answered(101)},
      {"an upgrade to an empty sub-protocol", tcp, bytes(request_for("")), answered(101)},
      {"an upgrade to a hundred sub-protocols", tcp, bytes(request_for(repeated("chat, ", 100) + "websock-rrm")),
       ended},
      {"an upgrade to a sub-protocol in capitals", tcp, bytes(request_for("WEBSOCK-RRM")), ended},
      {"an upgrade on another path", tcp, bytes(request_on("/elsewhere")), served},
      {"an upgrade that offers compression", tcp,
       bytes(request_and("Sec-WebSocket-Extensions: permessage-deflate; server_max_window_bits=0\r\n")), served},
      {"an upgrade with a foreign origin", tcp, bytes(request_and("Origin: https://evil.example\r\n")), served},
      {"an upgrade asked twice", tcp, upgrade_and(good_request), closed(1002)},
      {"an upgrade with a frame behind it", tcp, upgrade_and(rrm::testing::masked_text("{}")), served},
      {"an upgrade with garbage behind it", tcp, upgrade_and(std::string(100, '\xff')), closed(1002)},
  };
}

}  // namespace hostile
