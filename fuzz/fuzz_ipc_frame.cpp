// The bus on any bytes: frames are cut out alike however the stream was fragmented, and what is understood of one is
// written so that it reads back the same.
#include <memory>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "platform/bus/Frame.h"
#include "platform/standalone/TraceConfig.h"
#include "platform/standalone/messages.h"
#include "zal/IpcMsgRrmApInfo.h"

namespace {

using zal::bus::Fields;
using zal::bus::FrameReader;
using zal::fuzz::require;

// Each frame as a text: its payload, or the length of one that was skipped.
std::vector<std::string> cut(const std::string& stream, std::size_t piece) {
  FrameReader reader;
  std::vector<std::string> frames;
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    const std::string part = stream.substr(at, piece);
    reader.append(part.data(), part.size());
    while (const auto item = reader.next()) {
      require(item->too_long == (item->length > zal::bus::max_payload), "only a long frame is too long");
      frames.push_back(item->too_long ? "skipped " + std::to_string(item->length) : item->payload);
    }
  }
  return frames;
}

void check_message(const Fields& frame) {
  for (const int type : zal::message_family()) {
    std::string reason;
    const auto message = zal::message_from(type, frame, reason);
    require((message == nullptr) == !reason.empty(), "a refusal has a reason");
    if (!message) continue;
    require(message->type() == type, "a message is of its type");
    const Fields written = zal::frame_from(*message);
    const auto again = zal::message_from(type, written, reason);
    require(again && zal::frame_from(*again) == written, "what was written reads back");
  }
}

void check_payload(const std::string& payload) {
  std::string reason;
  const auto frame = zal::bus::parse_fields(payload, reason);
  require(frame.has_value() == reason.empty(), "a refusal has a reason");
  static_cast<void>(zal::IpcMsgRrmApInfo(payload).is_empty());
  std::string complaint;
  require(payload.empty() || frame || zal::parse_trace_config(payload, complaint) == zal::TraceConfig(),
          "what is no object configures nothing");
  if (!frame) return;
  require(frame->size() <= zal::bus::max_fields, "the number of fields is limited");
  const auto again = zal::bus::parse_fields(to_json(*frame), reason);
  require(again && *again == *frame, "fields read back");
  check_message(*frame);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string stream(reinterpret_cast<const char*>(data), size);
  const auto whole = cut(stream, size + 1);
  for (const std::size_t piece : {1u, 3u, 7u}) require(cut(stream, piece) == whole, "fragments do not matter");
  for (const std::string& payload : whole) check_payload(payload);
  check_payload(stream);
  return 0;
}
