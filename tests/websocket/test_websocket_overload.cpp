#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "websock/OverloadWatch.h"

namespace rrm {
namespace {

// So many messages in one second, and whether an order is due with the first of them.
struct Burst {
  std::int64_t second;
  int messages;
  bool order;
};

struct Case {
  const char* label;
  std::vector<Burst> bursts;
};

void PrintTo(const Case& c, std::ostream* out) {
  *out << c.label;
}

class OverloadWatchTest : public ::testing::TestWithParam<Case> {};

TEST_P(OverloadWatchTest, OrdersOnTheFirstMessageOfALaterSecond) {
  OverloadWatch watch;
  for (const Burst& burst : GetParam().bursts) {
    EXPECT_EQ(watch.count_message(burst.second), burst.order) << "first of second " << burst.second;
    for (int i = 1; i < burst.messages; ++i) {
      EXPECT_FALSE(watch.count_message(burst.second)) << "message " << i << " of second " << burst.second;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, OverloadWatchTest,
    ::testing::Values(
        Case{"the message that opens the next second is the 1024th since the look before",
             {{100, 1024, false}, {101, 1, true}}},
        Case{"one message fewer is no overload", {{100, 1023, false}, {101, 1, false}}},
        Case{"a burst 29 seconds after an order is let pass", {{100, 1024, false}, {101, 1024, true}, {130, 1, false}}},
        Case{"a burst 30 seconds after an order gives the next one",
             {{100, 1024, false}, {101, 1024, true}, {131, 1, true}}},
        Case{"a burst 10 seconds later gives none, one 30 seconds later does",
             {{100, 1024, false},
              {101, 1, true},
              {110, 1024, false},
              {111, 1, false},
              {130, 1024, false},
              {131, 1, true}}},
        Case{"a burst that gave no order is not remembered",
             {{100, 1024, false}, {101, 1024, true}, {102, 1, false}, {140, 1, false}}},
        Case{"all messages since the last look count, whenever they came", {{100, 1024, false}, {200, 1, true}}},
        Case{"few messages in each of many seconds never add up",
             {{100, 1000, false}, {101, 1000, false}, {102, 1000, false}, {103, 1, false}}},
        Case{"within 30 seconds of the clock's own start there is no order", {{5, 2000, false}, {29, 1, false}}},
        Case{"30 seconds after the clock's start there is", {{5, 2000, false}, {30, 1, true}}},
        Case{"second 0 is never later than the start", {{0, 2000, false}, {40, 1, true}}},
        Case{"a second that goes back is not looked at", {{100, 2000, false}, {99, 1, false}, {101, 1, true}}}));

}  // namespace
}  // namespace rrm
