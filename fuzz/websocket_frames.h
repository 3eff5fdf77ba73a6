// The WebSocket framing as a reader of its own, which knows nothing of the server's library: what a receiver has to
// make of the bytes of a stream. It stops at the first frame that breaks the protocol, and at a close.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zal::fuzz {

class FrameReader {
 public:
  enum class From { client, server };  // a client's frames are masked, a server's are not

  explicit FrameReader(From from) : masked_(from == From::client) {}

  void feed(const std::string& bytes) {
    bytes_ += bytes;
    while (sound_ && !closed_ && take_frame()) {
    }
  }

  bool sound() const { return sound_; }
  bool closed() const { return closed_; }
  // No frame has begun that has not ended.
  bool at_boundary() const { return place_ == bytes_.size(); }
  // Whole data messages, their fragments joined, and the payloads of the control frames.
  const std::vector<std::string>& messages() const { return messages_; }
  const std::vector<std::string>& pings() const { return pings_; }
  const std::vector<std::string>& pongs() const { return pongs_; }

 private:
  struct Header {
    unsigned char first = 0;
    std::size_t size = 0;
    std::uint64_t length = 0;
    std::array<char, 4> mask{};
  };

  unsigned char byte(std::size_t i) const { return static_cast<unsigned char>(bytes_[place_ + i]); }
  std::size_t left() const { return bytes_.size() - place_; }

  // False while bytes are missing, and for a header that breaks the protocol.
  bool read_header(Header& header) {
    if (left() < 2) return false;
    header.first = byte(0);
    const unsigned code = byte(1) & 0x7fU;
    const std::size_t extra = code == 127 ? 8 : code == 126 ? 2 : 0;
    header.size = 2 + extra + (masked_ ? 4 : 0);
    if (!fits(header.first, code, (byte(1) & 0x80U) != 0)) return sound_ = false;
    if (left() < header.size) return false;
    header.length = extra == 0 ? code : 0;
    for (std::size_t i = 2; i < 2 + extra; ++i) header.length = header.length << 8 | byte(i);
    const std::uint64_t least = extra == 8 ? 65536 : extra == 2 ? 126 : 0;
    if (header.length < least || header.length >> 63 != 0) return sound_ = false;
    for (std::size_t i = 0; masked_ && i < 4; ++i) header.mask[i] = bytes_[place_ + 2 + extra + i];
    return true;
  }

  bool fits(unsigned first, unsigned code, bool masked) const {
    const unsigned opcode = first & 0x0fU;
    const bool final = (first & 0x80U) != 0;
    if ((first & 0x70U) != 0 || masked != masked_) return false;
    if (opcode >= 8) return opcode <= 10 && final && code <= 125;
    return opcode <= 2 && (opcode == 0) == in_message_;
  }

  bool take_frame() {
    Header header;
    if (!read_header(header) || left() - header.size < header.length) return false;
    std::string payload = bytes_.substr(place_ + header.size, static_cast<std::size_t>(header.length));
    for (std::size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(payload[i] ^ header.mask[i % 4]);
    place_ += header.size + payload.size();
    take(header.first & 0x0fU, (header.first & 0x80U) != 0, payload);
    return true;
  }

  void take(unsigned opcode, bool final, const std::string& payload) {
    if (opcode == 8) {
      closed_ = true;
    } else if (opcode == 9) {
      pings_.push_back(payload);
    } else if (opcode == 10) {
      pongs_.push_back(payload);
    } else {
      message_ += payload;
      in_message_ = !final;
      if (!final) return;
      messages_.push_back(message_);
      message_.clear();
    }
  }

  const bool masked_;
  std::string bytes_;
  std::size_t place_ = 0;  // of the next frame
  bool sound_ = true;
  bool closed_ = false;
  bool in_message_ = false;
  std::string message_;  // what has come of it
  std::vector<std::string> messages_;
  std::vector<std::string> pings_;
  std::vector<std::string> pongs_;
};

}  // namespace zal::fuzz
