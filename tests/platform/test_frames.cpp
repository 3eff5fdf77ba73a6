// The wire of the bus: what is a frame, what is refused, and that fragmentation does not matter.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/bus/Connection.h"
#include "platform/bus/Frame.h"
#include "platform/bus_peer.h"
#include "support/temp_dir.h"

namespace zal::bus {
namespace {

using zal::testing::framed;

std::string refusal(const std::string& text) {
  std::string reason;
  EXPECT_FALSE(parse_fields(text, reason)) << text;
  return reason;
}

std::vector<std::string> payloads(FrameReader& reader) {
  std::vector<std::string> all;
  while (auto item = reader.next()) all.push_back(item->too_long ? "too long" : item->payload);
  return all;
}

TEST(BusFrame, AFlatObjectIsReadInItsOrder) {
  std::string reason;
  const auto fields = parse_fields(R"( {"type":126,"text":"caf\u00e9 \"x\"","on":true,"off":false,"n":-5} )", reason);
  ASSERT_TRUE(fields) << reason;
  EXPECT_EQ(
      *fields,
      (Fields{
          {"type", std::int64_t{126}}, {"text", "café \"x\""}, {"on", true}, {"off", false}, {"n", std::int64_t{-5}}}));
  EXPECT_EQ(to_json(*fields), R"({"type":126,"text":"café \"x\"","on":true,"off":false,"n":-5})");
}

TEST(BusFrame, ANullFieldIsAbsentAndTheLastOfTwoHolds) {
  std::string reason;
  EXPECT_EQ(*parse_fields(R"({"a":null,"b":1,"b":"two","c":3,"c":null})", reason), (Fields{{"b", "two"}}));
}

TEST(BusFrame, FieldsAnswerOnlyByTheirOwnKind) {
  const Fields fields{{"text", "1"}, {"number", std::int64_t{1}}, {"flag", true}};
  EXPECT_EQ(*fields.text("text"), "1");
  EXPECT_EQ(fields.number("number"), 1);
  EXPECT_EQ(fields.flag("flag"), true);
  for (const char* key : {"number", "flag", "none"}) EXPECT_EQ(fields.text(key), nullptr) << key;
  for (const char* key : {"text", "flag", "none"}) EXPECT_FALSE(fields.number(key)) << key;
  for (const char* key : {"text", "number", "none"}) EXPECT_FALSE(fields.flag(key)) << key;
}

TEST(BusFrame, WhatIsNoFlatObjectIsRefusedWithItsReason) {
  EXPECT_EQ(refusal(""), "no JSON, from byte 1");
  EXPECT_EQ(refusal("{\"a\":1"), "no JSON, from byte 7");
  EXPECT_EQ(refusal("{\"a\":1} x"), "no JSON, from byte 9");
  EXPECT_EQ(refusal("{\"a\":\"\xff\"}"), "no JSON, from byte 7");
  for (const char* text : {"5", "\"text\"", "null", "true", "1.5", "[]"})
    EXPECT_EQ(refusal(text), "no JSON object") << text;
  for (const char* value : {"1.5", "[]", "[[[[", "{}", "{\"b\":1}", "9223372036854775808", "1e400"})
    EXPECT_NE(refusal("{\"a\":" + std::string(value) + "}"), "") << value;
  EXPECT_EQ(refusal(R"({"a":{"b":1}})"), "the field 'a' is neither text, integer nor boolean");
}

TEST(BusFrame, TheNumberOfFieldsIsLimited) {
  const auto object_of = [](std::size_t count) {
    std::string text = "{";
    for (std::size_t i = 0; i < count; ++i) text += (i ? ",\"k" : "\"k") + std::to_string(i) + "\":1";
    return text + "}";
  };
  std::string reason;
  EXPECT_TRUE(parse_fields(object_of(max_fields), reason)) << reason;
  EXPECT_EQ(refusal(object_of(max_fields + 1)), "more than 64 fields");
}

TEST(BusFrame, DeepNestingCostsNothing) {
  EXPECT_EQ(refusal("{\"a\":" + std::string(16u << 20, '[')), "the field 'a' is neither text, integer nor boolean");
}

TEST(BusFrame, BytesThatAreNoUtf8AreReplacedInWriting) {
  EXPECT_EQ(to_json({{"text", std::string("a\xff"
                                          "b")}}),
            "{\"text\":\"a\xef\xbf\xbd"
            "b\"}");
}

TEST(BusFrame, AFrameIsALittleEndianLengthAndItsText) {
  const std::string text = R"({"type":33})";
  EXPECT_EQ(encode_frame({{"type", std::int64_t{33}}}), framed(text));
  const auto large = encode_frame({{"text", std::string(70000, 'x')}});
  ASSERT_TRUE(large);
  const std::size_t length = large->size() - 4;
  EXPECT_EQ(large->substr(0, 4), framed(std::string(length, ' ')).substr(0, 4));
}

TEST(BusFrame, ATextThatIsTooLongIsNotEncoded) {
  const std::string most(max_payload - std::string(R"({"a":""})").size(), 'x');
  EXPECT_TRUE(encode_frame({{"a", most}}));
  EXPECT_FALSE(encode_frame({{"a", most + "x"}}));
}

TEST(BusFrameReader, FramesComeOutWholeHoweverTheyAreCut) {
  const std::string bytes = framed("{\"a\":1}") + framed("") + framed(std::string(1000, 'x'));
  for (const std::size_t piece : {1u, 2u, 3u, 5u, 7u, 64u, 5000u}) {
    SCOPED_TRACE(piece);
    FrameReader reader;
    std::vector<std::string> all;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
      const std::string part = bytes.substr(at, piece);
      reader.append(part.data(), part.size());
      for (auto& payload : payloads(reader)) all.push_back(std::move(payload));
    }
    EXPECT_EQ(all, (std::vector<std::string>{"{\"a\":1}", "", std::string(1000, 'x')}));
    EXPECT_FALSE(reader.is_inside_frame());
  }
}

TEST(BusFrameReader, HalfAFrameWaitsForItsRest) {
  const std::string bytes = framed("{\"a\":1}");
  for (std::size_t cut = 1; cut < bytes.size(); ++cut) {
    FrameReader reader;
    reader.append(bytes.data(), cut);
    EXPECT_FALSE(reader.next()) << cut;
    EXPECT_TRUE(reader.is_inside_frame()) << cut;
  }
}

TEST(BusFrameReader, AFrameOfTheGreatestLengthIsReadAndOneByteMoreIsSkipped) {
  FrameReader reader;
  const std::string most = framed(std::string(max_payload, 'x'));
  reader.append(most.data(), most.size());
  ASSERT_EQ(payloads(reader), std::vector<std::string>{std::string(max_payload, 'x')});

  const std::string more = framed(std::string(max_payload + 1, 'x')) + framed("{}");
  reader.append(more.data(), 10);
  EXPECT_EQ(payloads(reader), std::vector<std::string>{"too long"});
  EXPECT_TRUE(reader.is_inside_frame());
  reader.append(more.data() + 10, more.size() - 10);
  EXPECT_EQ(payloads(reader), std::vector<std::string>{"{}"});
}

TEST(BusFrameReader, ALengthThatIsOnlyPromisedIsReportedOnce) {
  FrameReader reader;
  reader.append("\xff\xff\xff\xff", 4);
  const auto item = reader.next();
  ASSERT_TRUE(item);
  EXPECT_TRUE(item->too_long);
  EXPECT_EQ(item->length, 0xffffffffu);
  EXPECT_FALSE(reader.next());
}

class BusConnection : public ::testing::Test {
 protected:
  void SetUp() override {
    UniqueFd listener = listen_at(path());
    ASSERT_TRUE(listener);
    ours_.emplace(connect_to(path()));
    theirs_.emplace(accept_from(listener.get()));
    ASSERT_GE(ours_->fd(), 0);
    ASSERT_GE(theirs_->fd(), 0);
  }
  std::string path() const { return directory_.file("socket"); }

  rrm::testing::TempDir directory_;
  std::optional<Connection> ours_;
  std::optional<Connection> theirs_;
};

TEST_F(BusConnection, CarriesFramesInTheirOrder) {
  ASSERT_TRUE(ours_->send(framed("one")));
  ASSERT_TRUE(ours_->send(framed("two")));
  EXPECT_TRUE(ours_->wants_write());
  ASSERT_TRUE(ours_->flush());
  EXPECT_FALSE(ours_->wants_write());
  ASSERT_TRUE(theirs_->read());
  EXPECT_EQ(theirs_->next()->payload, "one");
  EXPECT_EQ(theirs_->next()->payload, "two");
  EXPECT_FALSE(theirs_->next());
}

TEST_F(BusConnection, APeerThatDoesNotReadCostsOnlySoMuch) {
  const std::string frame = framed(std::string(8u << 20, 'x'));
  int taken = 0;
  while (taken < 100 && ours_->send(frame)) {
    ++taken;
    ASSERT_TRUE(ours_->flush());
  }
  EXPECT_LT(taken, 10);
  EXPECT_LE(ours_->queued_bytes(), Connection::max_queued);
}

TEST_F(BusConnection, OneFrameMayAlwaysBeQueued) {
  const std::string longest = framed(std::string(max_payload, 'x'));
  EXPECT_TRUE(ours_->send(longest));
  EXPECT_FALSE(ours_->send(framed("x")));
}

TEST_F(BusConnection, APeerThatWentIsNoticedInBothDirections) {
  theirs_.reset();
  EXPECT_FALSE(ours_->read());
  ASSERT_TRUE(ours_->send(framed("x")));
  EXPECT_FALSE(ours_->flush());
}

TEST(BusSocket, APathLongerThanASocketAddressIsFine) {
  rrm::testing::TempDir directory;
  const auto deep = directory.path() / std::string(200, 'd');
  std::filesystem::create_directory(deep);
  const UniqueFd listener = listen_at((deep / "socket").string());
  ASSERT_TRUE(listener);
  EXPECT_TRUE(connect_to((deep / "socket").string()));
}

TEST(BusSocket, OnlyItsOwnerMayConnect) {
  rrm::testing::TempDir directory;
  const mode_t old_mask = umask(0);
  const UniqueFd listener = listen_at(directory.file("socket"));
  umask(old_mask);
  ASSERT_TRUE(listener);
  struct stat status {};
  ASSERT_EQ(stat(directory.file("socket").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST(BusSocket, WhatIsNotThereIsNotJoined) {
  rrm::testing::TempDir directory;
  EXPECT_FALSE(connect_to(directory.file("socket")));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_FALSE(connect_to(directory.file("none/socket")));
  EXPECT_FALSE(connect_to(""));
  rrm::testing::write_file(directory.file("file"), "");
  EXPECT_FALSE(connect_to(directory.file("file")));
  EXPECT_EQ(errno, ECONNREFUSED);
}

}  // namespace
}  // namespace zal::bus
