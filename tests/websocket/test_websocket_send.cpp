#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <new>
#include <string>

#include "fake_lws.h"
#include "support/capture.h"
#include "websock/send.h"

namespace {

// How many allocations of at least so many bytes were made; the library's face is silent while this is counted.
std::atomic<std::size_t> large_block{SIZE_MAX};
std::atomic<int> large_blocks{0};

void* counted(std::size_t size) {
  if (size >= large_block) ++large_blocks;
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
  return counted(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace rrm {
namespace {

using testing::Capture;
using testing::Event;
using testing::FakeLws;
using testing::LogLine;

lws* const wsi = FakeLws::handle(1);

// A library that allocates nothing itself.
class SilentLws final : public LwsApi {
 public:
  std::string written;

  int write(lws*, unsigned char* payload, std::size_t length, lws_write_protocol) override {
    written.assign(reinterpret_cast<const char*>(payload), length);
    return static_cast<int>(length);
  }

  void set_log_level(int, void (*)(int, const char*)) override {}
  lws_context* create_context(const lws_context_creation_info&) override { return nullptr; }
  void context_destroy(lws_context*) override {}
  int get_count_threads(lws_context*) override { return 0; }
  int service_tsi(lws_context*, int, int) override { return -1; }
  void cancel_service(lws_context*) override {}
  int get_tsi(lws*) override { return 0; }
  std::string get_peer_simple(lws*) override { return {}; }
  std::size_t remaining_packet_payload(lws*) override { return 0; }
  bool is_final_fragment(lws*) override { return true; }
  void set_timeout(lws*, pending_timeout, int) override {}
  void callback_on_writable(lws*) override {}
  void close_reason(lws*, lws_close_status, std::string_view) override {}
};

void drop_log(const char*, int, const char*, int, const char*, va_list) {}

int large_blocks_for(std::size_t length) {
  SilentLws lws;
  lws.written.reserve(2 * length);
  const std::string text(length, 'x');
  set_log_hook(drop_log);
  large_blocks = 0;
  large_block = 4096;
  lws_send(lws, wsi, text.data(), static_cast<int>(length), LWS_WRITE_TEXT);
  large_block = SIZE_MAX;
  EXPECT_EQ(lws.written, text);
  return large_blocks;
}

TEST(LwsSend, TextOfUpTo4096BytesNeedsNoHeap) {
  EXPECT_EQ(large_blocks_for(1), 0);
  EXPECT_EQ(large_blocks_for(4095), 0);
  EXPECT_EQ(large_blocks_for(4096), 0);
  EXPECT_EQ(large_blocks_for(4097), 1);
  EXPECT_EQ(large_blocks_for(1000000), 1);
}

struct SendCase {
  const char* label;
  std::string data;
  lws_write_protocol mode;
  std::string call;
};

TEST(LwsSend, WritesTheDataInTheGivenModeAndLogsIt) {
  const SendCase cases[] = {
      {"text", "{\"a\":1}", LWS_WRITE_TEXT, "write #1 0 {\"a\":1}"},
      {"ping", "lws_ping", LWS_WRITE_PING, "write #1 5 lws_ping"},
      {"one byte", "x", LWS_WRITE_TEXT, "write #1 0 x"},
      {"on the stack to the last byte", std::string(4096, 's'), LWS_WRITE_TEXT, "write #1 0 " + std::string(4096, 's')},
      {"on the heap", std::string(4097, 'h'), LWS_WRITE_TEXT, "write #1 0 " + std::string(4097, 'h')},
  };
  for (const SendCase& c : cases) {
    SCOPED_TRACE(c.label);
    Capture capture;
    FakeLws lws;
    const int length = static_cast<int>(c.data.size());
    EXPECT_EQ(lws_send(lws, wsi, c.data.data(), length, c.mode), length);
    EXPECT_EQ(lws.take_calls(), std::vector<std::string>{c.call});
    EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "Send " + c.data}}));
    EXPECT_TRUE(capture.events().empty());
  }
}

TEST(LwsSend, NothingHappensWithoutData) {
  struct {
    const char* data;
    int length;
  } const cases[] = {{nullptr, 5}, {"abc", 0}, {"abc", -1}, {nullptr, 0}};
  for (const auto& c : cases) {
    Capture capture;
    FakeLws lws;
    EXPECT_EQ(lws_send(lws, wsi, c.data, c.length, LWS_WRITE_TEXT), 0);
    EXPECT_TRUE(lws.take_calls().empty());
    EXPECT_TRUE(capture.lines().empty());
  }
}

TEST(LwsSend, ShortOrFailedWriteIsLoggedAndCounts) {
  struct {
    int result;
    lws_write_protocol mode;
    const char* line;
  } const cases[] = {
      {4, LWS_WRITE_TEXT, "Can't send msg type [0] to websocket (ret=4 len=5)"},
      {-1, LWS_WRITE_TEXT, "Can't send msg type [0] to websocket (ret=-1 len=5)"},
      {-1, LWS_WRITE_PING, "Can't send msg type [5] to websocket (ret=-1 len=5)"},
  };
  for (const auto& c : cases) {
    Capture capture;
    FakeLws lws;
    lws.write_result = c.result;
    EXPECT_EQ(lws_send(lws, wsi, "hello", 5, c.mode), c.result);
    EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "Send hello"}, {LOG_ERROR, c.line}}));
    EXPECT_EQ(capture.events(), (std::vector<Event>{{8, false, ""}}));
  }
}

TEST(LwsSend, MoreThanAskedForIsNoFailure) {
  Capture capture;
  FakeLws lws;
  lws.write_result = 9;
  EXPECT_EQ(lws_send(lws, wsi, "hello", 5, LWS_WRITE_TEXT), 9);
  EXPECT_TRUE(capture.events().empty());
}

TEST(SendText, RefusesWhatTheLibraryCannotCount) {
  // Refused by its length alone: the bytes behind it are never looked at.
  const std::string_view too_long("x", std::size_t{INT_MAX} + 1);
  for (const char* what : {"serialized payload", "json serialized_view"}) {
    Capture capture;
    FakeLws lws;
    send_text(lws, wsi, too_long, what, 4000000000u);
    EXPECT_TRUE(lws.take_calls().empty());
    EXPECT_EQ(capture.lines(),
              (std::vector<LogLine>{{LOG_ERROR, std::string(what) + " exceeds INT_MAX; drop session 4000000000"}}));
    EXPECT_EQ(capture.events(), (std::vector<Event>{{8, false, ""}}));
  }
}

}  // namespace
}  // namespace rrm
