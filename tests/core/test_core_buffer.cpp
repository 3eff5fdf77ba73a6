// The assembly buffer: growing, handing over, and the shortened dump of a long one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "core/BufferInfo.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

using ::testing::ElementsAre;

void append(BufferInfo& buffer, const std::string& text) {
  buffer.append(text.data(), static_cast<int>(text.size()));
}

// A text of which every 32 characters look different.
std::string numbered_text(int size) {
  std::string text;
  for (int line = 0; static_cast<int>(text.size()) < size; ++line) {
    std::string number = std::to_string(line);
    text += number + std::string(32 - number.size(), '.');
  }
  text.resize(static_cast<std::size_t>(size));
  return text;
}

// The lines [from, to) of a text, as the dump prints them.
std::string dumped_lines(const std::string& text, std::size_t from, std::size_t to) {
  std::string lines;
  for (; from < to; ++from) lines += "\t" + text.substr(from * 32, 32) + "\n";
  return lines;
}

std::string dump_of(const std::string& text) {
  const Capture capture;
  BufferInfo buffer;
  append(buffer, text);
  buffer.dump();
  const auto lines = capture.lines(LOG_TRACE);
  EXPECT_EQ(lines.size(), 1u);
  return lines.empty() ? "" : lines.front();
}

TEST(BufferInfo, StartsEmptyWithoutABlock) {
  const BufferInfo buffer;
  EXPECT_EQ(buffer.data(), nullptr);
  EXPECT_EQ(buffer.size(), 0);
}

TEST(BufferInfo, FragmentsJoinAndStayTerminated) {
  BufferInfo buffer;
  append(buffer, "{\"cmd\":");
  append(buffer, "\"a\"");
  append(buffer, "}");
  EXPECT_STREQ(buffer.data(), "{\"cmd\":\"a\"}");
  EXPECT_EQ(buffer.size(), 11);
}

TEST(BufferInfo, BytesOfZeroAreBytesLikeAnyOther) {
  BufferInfo buffer;
  buffer.append("a\0b", 3);
  EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(buffer.size())), std::string("a\0b", 3));
  EXPECT_EQ(buffer.data()[3], '\0');
}

TEST(BufferInfo, NothingToAppendLeavesItEmpty) {
  BufferInfo buffer;
  buffer.append("x", 0);
  buffer.append("x", -1);
  EXPECT_EQ(buffer.data(), nullptr);
  EXPECT_EQ(buffer.size(), 0);
}

TEST(BufferInfo, ReleaseHandsTheBlockOverAndStartsAnew) {
  BufferInfo buffer;
  append(buffer, "first");
  const std::unique_ptr<char, decltype(&std::free)> block(buffer.release(), std::free);
  EXPECT_STREQ(block.get(), "first");
  EXPECT_EQ(buffer.data(), nullptr);
  EXPECT_EQ(buffer.size(), 0);
  EXPECT_EQ(buffer.release(), nullptr);

  append(buffer, "second");
  EXPECT_STREQ(buffer.data(), "second");
}

TEST(BufferInfo, ClearEmpties) {
  BufferInfo buffer;
  append(buffer, "text");
  buffer.clear();
  EXPECT_EQ(buffer.data(), nullptr);
  EXPECT_EQ(buffer.size(), 0);
}

TEST(BufferInfo, ASizeBeyond32BitsIsRefusedAndLeavesWhatItHolds) {
  BufferInfo buffer;
  append(buffer, "text");
  const int too_much = std::numeric_limits<int>::max() - 4;
  EXPECT_THROW(buffer.append("x", too_much), std::bad_alloc);
  EXPECT_STREQ(buffer.data(), "text");
  EXPECT_EQ(buffer.size(), 4);
}

TEST(BufferInfo, DumpPrints32CharactersALine) {
  EXPECT_EQ(dump_of(""), "Buffer info dump:\n");
  EXPECT_EQ(dump_of("short"), "Buffer info dump:\n\tshort\n");
  EXPECT_EQ(dump_of(std::string(32, 'a')), "Buffer info dump:\n\t" + std::string(32, 'a') + "\n");
  EXPECT_EQ(dump_of(std::string(33, 'a')), "Buffer info dump:\n\t" + std::string(32, 'a') + "\n\ta\n");
}

TEST(BufferInfo, DumpPrintsEveryLineBelow12832Characters) {
  const std::string text = numbered_text(12831);
  EXPECT_EQ(dump_of(text), "Buffer info dump:\n" + dumped_lines(text, 0, 401));
}

TEST(BufferInfo, DumpSkipsTheMiddleFrom12832CharactersOn) {
  const std::string text = numbered_text(12832);
  EXPECT_EQ(dump_of(text), "Buffer info dump:\n" + dumped_lines(text, 0, 50) +
                               "\t....part of message are skipped...\n" + dumped_lines(text, 352, 401));
}

TEST(BufferInfo, AShortenedDumpStillEndsWithTheRemainder) {
  const std::string text = numbered_text(12832 + 5);
  EXPECT_EQ(dump_of(text), "Buffer info dump:\n" + dumped_lines(text, 0, 50) +
                               "\t....part of message are skipped...\n" + dumped_lines(text, 352, 402));
}

}  // namespace
}  // namespace rrm::testing
