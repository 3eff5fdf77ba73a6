#include <gtest/gtest.h>
#include <malloc.h>

#include <climits>
#include <cstddef>
#include <string>
#include <vector>

#include "fake_lws.h"
#include "support/capture.h"
#include "websock/send.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ALLOCATOR_OF_A_SANITIZER
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ALLOCATOR_OF_A_SANITIZER
#endif

#if defined(ALLOCATOR_OF_A_SANITIZER)
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace rrm {
namespace {

using testing::Capture;
using testing::Event;
using testing::FakeLws;
using testing::LogLine;

lws* const wsi = FakeLws::handle(1);

std::size_t allocated_bytes() {
#if defined(ALLOCATOR_OF_A_SANITIZER)
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

// Notes how much of the heap is taken at the moment of the write; all other calls are the played library's.
class MeasuringLws final : public FakeLws {
 public:
  std::size_t allocated = 0;

  int write(lws* to, unsigned char* payload, std::size_t length, lws_write_protocol mode) override {
    allocated = allocated_bytes();
    return FakeLws::write(to, payload, length, mode);
  }
};

void drop_log(const char*, int, const char*, int, const char*, va_list) {}

std::size_t heap_taken_by(std::size_t length) {
  MeasuringLws library;
  const std::string text(length, 'x');
  set_log_hook(drop_log);
  const std::size_t before = allocated_bytes();
  lws_send(library, wsi, text.data(), static_cast<int>(length), LWS_WRITE_TEXT);
  EXPECT_EQ(library.take_calls(), std::vector<std::string>{"write #1 0 " + text});
  return library.allocated - before;
}

TEST(LwsSend, TextOfUpTo4096BytesNeedsNoHeap) {
  for (const std::size_t length : {1u, 4095u, 4096u}) EXPECT_EQ(heap_taken_by(length), 0u) << length;
  for (const std::size_t length : {4097u, 1000000u}) EXPECT_GE(heap_taken_by(length), length + LWS_PRE) << length;
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
    FakeLws library;
    const int length = static_cast<int>(c.data.size());
    EXPECT_EQ(lws_send(library, wsi, c.data.data(), length, c.mode), length);
    EXPECT_EQ(library.take_calls(), std::vector<std::string>{c.call});
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
    FakeLws library;
    EXPECT_EQ(lws_send(library, wsi, c.data, c.length, LWS_WRITE_TEXT), 0);
    EXPECT_TRUE(library.take_calls().empty());
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
    FakeLws library;
    library.write_result = c.result;
    EXPECT_EQ(lws_send(library, wsi, "hello", 5, c.mode), c.result);
    EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_TRACE, "Send hello"}, {LOG_ERROR, c.line}}));
    EXPECT_EQ(capture.events(), (std::vector<Event>{{8, false, ""}}));
  }
}

TEST(LwsSend, MoreThanAskedForIsNoFailure) {
  Capture capture;
  FakeLws library;
  library.write_result = 9;
  EXPECT_EQ(lws_send(library, wsi, "hello", 5, LWS_WRITE_TEXT), 9);
  EXPECT_TRUE(capture.events().empty());
}

TEST(SendText, RefusesWhatTheLibraryCannotCount) {
  // Refused by its length alone: the bytes behind it are never looked at.
  const std::string_view too_long("x", std::size_t{INT_MAX} + 1);
  for (const char* what : {"serialized payload", "json serialized_view"}) {
    Capture capture;
    FakeLws library;
    send_text(library, wsi, too_long, what, 4000000000u);
    EXPECT_TRUE(library.take_calls().empty());
    EXPECT_EQ(capture.lines(),
              (std::vector<LogLine>{{LOG_ERROR, std::string(what) + " exceeds INT_MAX; drop session 4000000000"}}));
    EXPECT_EQ(capture.events(), (std::vector<Event>{{8, false, ""}}));
  }
}

}  // namespace
}  // namespace rrm
