// How the lines of report files are read: fields, numbers and dates, each refusal with its error and its words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "core/log.h"
#include "reports/lines.h"
#include "support/capture.h"

namespace reports {
namespace {

using rrm::testing::Capture;
using testing::ElementsAre;
using testing::IsEmpty;
using enum rrm::LogLevel;
using Texts = std::vector<std::string>;

// --- Fields.

struct FieldCase {
  const char* name;
  std::string source;
  std::size_t num;
  bool allow_empty;
  int error;
  std::string out;
  Texts errors;
};

void PrintTo(const FieldCase& c, std::ostream* out) {
  *out << c.name;
}

class Field : public testing::TestWithParam<FieldCase> {};

TEST_P(Field, IsFoundOrRefusedWithItsWords) {
  const FieldCase& c = GetParam();
  Capture capture;
  std::string out = "what was there before";
  EXPECT_EQ(get_field_by_num_as_str(c.source, c.num, out, ',', c.allow_empty), c.error);
  EXPECT_EQ(out, c.out);
  EXPECT_EQ(capture.lines(LOG_ERROR), c.errors);
  EXPECT_EQ(capture.lines().size(), c.errors.size());
}

INSTANTIATE_TEST_SUITE_P(
    Table, Field,
    testing::Values(
        FieldCase{"Empty source", "", 0, false, 22, "", {"'source' string is empty."}},
        FieldCase{"Empty source, empty allowed", "", 0, true, 22, "", {"'source' string is empty."}},
        FieldCase{"The only field", "one", 0, false, 0, "one", {}},
        FieldCase{"First", "one,two,three", 0, false, 0, "one", {}},
        FieldCase{"Middle", "one,two,three", 1, false, 0, "two", {}},
        FieldCase{"Last runs to the end", "one,two,three", 2, false, 0, "three", {}},
        FieldCase{"One beyond the last", "one,two", 2, false, 22, "", {"Not found field 2 in string: \"one,two\"."}},
        FieldCase{
            "One beyond, empty allowed", "one,two", 2, true, 22, "", {"Not found field 2 in string: \"one,two\"."}},
        FieldCase{"Far beyond", "one", 9, false, 22, "", {"Not found field 9 in string: \"one\"."}},
        FieldCase{"Empty last, allowed", "one,", 1, true, 0, "", {}},
        FieldCase{"Empty last", "one,", 1, false, 22, "", {"Requested field 1 is empty (string: \"one,\")."}},
        FieldCase{"Empty middle, allowed", "one,,three", 1, true, 0, "", {}},
        FieldCase{
            "Empty middle", "one,,three", 1, false, 22, "", {"Requested empty field 1 in string: \"one,,three\"."}},
        FieldCase{"Empty first", ",two", 0, false, 22, "", {"Requested empty field 0 in string: \",two\"."}},
        FieldCase{"Nothing but a separator", ",", 1, false, 22, "", {"Requested field 1 is empty (string: \",\")."}},
        FieldCase{"A blank is a text", " , ", 1, false, 0, " ", {}},
        FieldCase{"CR stays with the last field", "one,two\r", 1, false, 0, "two\r", {}},
        FieldCase{"NUL bytes are bytes", std::string("o\0e,t\0o", 7), 1, false, 0, std::string("t\0o", 3), {}}));

TEST(FieldSeparator, MayBeAnother) {
  std::string out;
  EXPECT_EQ(get_field_by_num_as_str("a,b;c,d", 1, out, ';'), 0);
  EXPECT_EQ(out, "c,d");
  std::int32_t number = 0;
  EXPECT_EQ(get_field_by_num_as_int("1 36 149", 2, number, ' '), 0);
  EXPECT_EQ(number, 149);
}

TEST(FieldOfALongLine, IsFoundBehindAMegabyte) {
  const std::string line = std::string(1 << 20, 'x') + ",end";
  std::string out;
  EXPECT_EQ(get_field_by_num_as_str(line, 1, out), 0);
  EXPECT_EQ(out, "end");
}

// --- Numbers.

struct NumberCase {
  const char* name;
  std::string text;
  std::int32_t value;
  int error;
  Texts errors;
};

void PrintTo(const NumberCase& c, std::ostream* out) {
  *out << c.name;
}

class Number : public testing::TestWithParam<NumberCase> {};

TEST_P(Number, IsReadOrRefusedWithItsWords) {
  const NumberCase& c = GetParam();
  Capture capture;
  const ParsedInt parsed = str_to_int_with_log(c.text);
  EXPECT_EQ(parsed.value, c.value);
  EXPECT_EQ(parsed.error, c.error);
  EXPECT_EQ(capture.lines(LOG_ERROR), c.errors);
  EXPECT_EQ(capture.lines().size(), c.errors.size());
}

INSTANTIATE_TEST_SUITE_P(
    Table, Number,
    testing::Values(
        NumberCase{"Zero", "0", 0, 0, {}}, NumberCase{"Negative", "-70", -70, 0, {}},
        NumberCase{"Plus sign", "+5", 5, 0, {}}, NumberCase{"Hexadecimal", "0x10", 16, 0, {}},
        NumberCase{"Octal", "010", 8, 0, {}}, NumberCase{"Leading blank", " 7", 7, 0, {}},
        NumberCase{"Largest", "2147483647", 2147483647, 0, {}},
        NumberCase{"One above", "2147483648", 0, 22, {"Argument \"2147483648\" too big."}},
        NumberCase{"Smallest", "-2147483648", -2147483647 - 1, 0, {}},
        NumberCase{"One below", "-2147483649", 0, 22, {"Argument \"-2147483649\" too small."}},
        NumberCase{"More than a long",
                   "9223372036854775808",
                   0,
                   ERANGE,
                   {"Argument \"9223372036854775808\" invalid. Error code: 34 (Numerical result out of range)."}},
        NumberCase{"Less than a long",
                   "-9223372036854775809",
                   0,
                   ERANGE,
                   {"Argument \"-9223372036854775809\" invalid. Error code: 34 (Numerical result out of range)."}},
        NumberCase{"Empty", "", 0, 22, {"String for convert is empty."}},
        NumberCase{"Only a blank", " ", 0, 22, {"Argument \" \" inconvertible."}},
        NumberCase{"Letters", "abc", 0, 22, {"Argument \"abc\" inconvertible."}},
        NumberCase{"Trailing letter", "12a", 0, 22, {"Argument \"12a\" inconvertible."}},
        NumberCase{"Trailing blank", "12 ", 0, 22, {"Argument \"12 \" inconvertible."}},
        NumberCase{"Trailing CR", "12\r", 0, 22, {"Argument \"12\r\" inconvertible."}},
        NumberCase{"No octal digit", "08", 0, 22, {"Argument \"08\" inconvertible."}},
        NumberCase{"Fraction", "1.5", 0, 22, {"Argument \"1.5\" inconvertible."}},
        NumberCase{"Hidden behind a NUL", std::string("12\0x", 4), 0, 22, {"Argument \"12\" inconvertible."}}));

TEST(NumberAfterAnError, IsReadWhateverErrnoSaid) {
  errno = EIO;
  EXPECT_EQ(str_to_int_with_log("5").error, 0);
}

TEST(NumberField, NamesTheFieldThatDoesNotConvert) {
  Capture capture;
  std::int32_t out = 9;
  EXPECT_EQ(get_field_by_num_as_int("1.1,x", 1, out), 22);
  EXPECT_EQ(out, 0);
  EXPECT_THAT(capture.lines(LOG_ERROR),
              ElementsAre("Argument \"x\" inconvertible.", "Incorrect field 1 in string: \"1.1,x\"."));
}

TEST(NumberField, AnswersWithTheErrorOfTheConversion) {
  Capture capture;
  std::int32_t out = 9;
  EXPECT_EQ(get_field_by_num_as_int("99999999999999999999", 0, out), ERANGE);
  EXPECT_EQ(capture.lines(LOG_ERROR).back(), "Incorrect field 0 in string: \"99999999999999999999\".");
}

TEST(NumberField, ThatIsMissingSaysNoMoreThanThat) {
  Capture capture;
  std::int32_t out = 9;
  EXPECT_EQ(get_field_by_num_as_int("1,2", 2, out), 22);
  EXPECT_EQ(out, 0);
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Not found field 2 in string: \"1,2\"."));
}

// --- Dates of lines.

TEST(LineDate, IsFieldsOneAndTwoJoined) {
  Capture capture;
  std::string out;
  EXPECT_EQ(get_date_time_fields_from_file_line_as_str("1.1,2024-01-02,03:04:05,rest", out), 0);
  EXPECT_EQ(out, "2024-01-02,03:04:05");
  EXPECT_THAT(capture.lines(), IsEmpty());
}

struct LineDateCase {
  const char* name;
  std::string line;
  Texts errors;
};

void PrintTo(const LineDateCase& c, std::ostream* out) {
  *out << c.name;
}

class BadLineDate : public testing::TestWithParam<LineDateCase> {};

TEST_P(BadLineDate, IsRefusedAndNothingIsHandedOut) {
  const LineDateCase& c = GetParam();
  Capture capture;
  std::string out = "what was there before";
  EXPECT_EQ(get_date_time_fields_from_file_line_as_str(c.line, out), 22);
  EXPECT_EQ(out, "");
  EXPECT_EQ(capture.lines(LOG_ERROR), c.errors);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadLineDate,
    testing::Values(
        LineDateCase{"Empty line", "", {"'source' string is empty.", "Not found date in report line: \"\"."}},
        LineDateCase{"Cut in the version",
                     "1.",
                     {"Not found field 1 in string: \"1.\".", "Not found date in report line: \"1.\"."}},
        LineDateCase{"Cut before the date",
                     "1.1,",
                     {"Requested field 1 is empty (string: \"1.1,\").", "Not found date in report line: \"1.1,\"."}},
        LineDateCase{"No date",
                     "1.1,,03:04:05",
                     {"Requested empty field 1 in string: \"1.1,,03:04:05\".",
                      "Not found date in report line: \"1.1,,03:04:05\"."}},
        LineDateCase{
            "Cut behind the date",
            "1.1,2024-01-02",
            {"Not found field 2 in string: \"1.1,2024-01-02\".", "Not found time in report line: \"1.1,2024-01-02\"."}},
        LineDateCase{"No time",
                     "1.1,2024-01-02,,x",
                     {"Requested empty field 2 in string: \"1.1,2024-01-02,,x\".",
                      "Not found time in report line: \"1.1,2024-01-02,,x\"."}}));

// --- Moments.

struct MomentCase {
  const char* name;
  std::string text;
  std::time_t time;
};

void PrintTo(const MomentCase& c, std::ostream* out) {
  *out << c.name;
}

class Moment : public testing::TestWithParam<MomentCase> {};

TEST_P(Moment, IsReadAsUtc) {
  Capture capture;
  std::time_t time = 1;
  EXPECT_EQ(parse_date_time_fields_to_time_t(GetParam().text, time), 0);
  EXPECT_EQ(time, GetParam().time);
  EXPECT_THAT(capture.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, Moment,
                         testing::Values(MomentCase{"Epoch", "1970-01-01,00:00:00", 0},
                                         MomentCase{"Some day", "2023-11-14,22:13:20", 1700000000},
                                         MomentCase{"Leap day", "2024-02-29,23:59:59", 1709251199},
                                         MomentCase{"Beyond 32 bits", "2038-01-19,03:14:08", 2147483648},
                                         MomentCase{"Before the epoch", "1969-12-31,23:59:58", -2},
                                         MomentCase{"No leap day: the day after", "2023-02-29,00:00:00", 1677628800},
                                         MomentCase{"What follows is not looked at", "1970-01-01,00:00:00\r", 0}));

struct BadMomentCase {
  const char* name;
  std::string text;
};

void PrintTo(const BadMomentCase& c, std::ostream* out) {
  *out << c.name;
}

class BadMoment : public testing::TestWithParam<BadMomentCase> {};

TEST_P(BadMoment, IsAParserError) {
  Capture capture;
  std::time_t time = 1;
  EXPECT_EQ(parse_date_time_fields_to_time_t(GetParam().text, time), 22);
  EXPECT_EQ(time, -1);
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Parser error in string: \"" + GetParam().text + "\"."));
}

// Also those that a query may bring: all have the length of a date.
const auto bad_moments = testing::Values(
    BadMomentCase{"Letters", "yyyy-mm-dd,hh:mm:ss"}, BadMomentCase{"Month 0", "2024-00-01,00:00:00"},
    BadMomentCase{"Month 13", "2024-13-01,00:00:00"}, BadMomentCase{"Day 0", "2024-01-00,00:00:00"},
    BadMomentCase{"Day 32", "2024-01-32,00:00:00"}, BadMomentCase{"Hour 24", "2024-01-01,24:00:00"},
    BadMomentCase{"Minute 60", "2024-01-01,00:60:00"}, BadMomentCase{"Second 62", "2024-01-01,00:00:62"},
    BadMomentCase{"A blank for the comma", "2024-01-01 00:00:00"},
    BadMomentCase{"A T for the comma", "2024-01-01T00:00:00"}, BadMomentCase{"Slashes", "2024/01/01,00:00:00"},
    BadMomentCase{"Dots", "01.01.2024,00:00:00"}, BadMomentCase{"Day first", "01-01-2024,00:00:00"},
    BadMomentCase{"Negative year", "-024-01-01,00:00:00"}, BadMomentCase{"No seconds", "2024-01-01,00:00:  "},
    BadMomentCase{"Signs for digits", "+024-+1-+1,+0:+0:+0"});

INSTANTIATE_TEST_SUITE_P(Table, BadMoment, bad_moments);
INSTANTIATE_TEST_SUITE_P(Cut, BadMoment,
                         testing::Values(BadMomentCase{"Nothing", ""}, BadMomentCase{"Date and comma", "2024-01-01,"},
                                         BadMomentCase{"Open minutes", "2024-01-01,12:30:"}));

TEST(MomentThatLooksLikeAnError, IsRefused) {
  Capture capture;
  std::time_t time = 1;
  EXPECT_EQ(parse_date_time_fields_to_time_t("1969-12-31,23:59:59", time), 22);
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Incorrect data/time in string: \"1969-12-31,23:59:59\"."));
}

// --- Dates of queries.

TEST(QueryDate, IsADateAndUtc) {
  Capture capture;
  std::time_t time = 1;
  EXPECT_EQ(get_utc_timestamp_from_string("2024-01-01,00:00:00 UTC", time), 0);
  EXPECT_EQ(time, 1704067200);
  EXPECT_THAT(capture.lines(), IsEmpty());
}

struct QueryDateCase {
  const char* name;
  std::string text;
  Texts errors;
};

void PrintTo(const QueryDateCase& c, std::ostream* out) {
  *out << c.name;
}

class BadQueryDate : public testing::TestWithParam<QueryDateCase> {};

TEST_P(BadQueryDate, IsRefusedWithItsWords) {
  const QueryDateCase& c = GetParam();
  Capture capture;
  std::time_t time = 1;
  EXPECT_EQ(get_utc_timestamp_from_string(c.text, time), 22);
  EXPECT_EQ(time, -1);
  EXPECT_EQ(capture.lines(LOG_ERROR), c.errors);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadQueryDate,
    testing::Values(
        QueryDateCase{"Nothing", "", {"Incorrect text length in: \"\"."}},
        QueryDateCase{"No zone", "2024-01-01,00:00:00", {"Incorrect text length in: \"2024-01-01,00:00:00\"."}},
        QueryDateCase{"One short", "2024-01-01,0:00:00 UTC", {"Incorrect text length in: \"2024-01-01,0:00:00 UTC\"."}},
        QueryDateCase{
            "One long", "2024-01-01,00:00:00  UTC", {"Incorrect text length in: \"2024-01-01,00:00:00  UTC\"."}},
        QueryDateCase{
            "Another zone", "2024-01-01,00:00:00 GMT", {"Expected UTC timezone in: \"2024-01-01,00:00:00 GMT\"."}},
        QueryDateCase{
            "Lower case", "2024-01-01,00:00:00 utc", {"Expected UTC timezone in: \"2024-01-01,00:00:00 utc\"."}},
        QueryDateCase{
            "No blank", "2024-01-01,00:00:00ZUTC", {"Expected UTC timezone in: \"2024-01-01,00:00:00ZUTC\"."}},
        QueryDateCase{"The second before the epoch",
                      "1969-12-31,23:59:59 UTC",
                      {"Incorrect data/time in string: \"1969-12-31,23:59:59\".",
                       "Incorrect data/time in: \"1969-12-31,23:59:59 UTC\"."}}));

class BadMomentOfAQuery : public testing::TestWithParam<BadMomentCase> {};

TEST_P(BadMomentOfAQuery, IsRefusedWithItsWords) {
  const std::string text = GetParam().text + " UTC";
  Capture capture;
  std::time_t time = 1;
  EXPECT_EQ(get_utc_timestamp_from_string(text, time), 22);
  EXPECT_EQ(time, -1);
  EXPECT_THAT(capture.lines(LOG_ERROR), ElementsAre("Parser error in string: \"" + GetParam().text + "\".",
                                                    "Incorrect data/time in: \"" + text + "\"."));
}

INSTANTIATE_TEST_SUITE_P(Table, BadMomentOfAQuery, bad_moments);

// --- The text of a moment.

TEST(DateText, IsUtcAndNineteenCharacters) {
  EXPECT_EQ(report_date_text(0), "1970-01-01,00:00:00");
  EXPECT_EQ(report_date_text(1709251199), "2024-02-29,23:59:59");
  EXPECT_EQ(report_date_text(1709251199).size(), report_date_length);
}

TEST(DateText, IsReadBackAsTheSameMoment) {
  for (const std::time_t moment :
       {std::time_t{0}, std::time_t{951782400}, std::time_t{1700000000}, std::time_t{4102444800}}) {
    std::time_t time = -1;
    EXPECT_EQ(parse_date_time_fields_to_time_t(report_date_text(moment), time), 0);
    EXPECT_EQ(time, moment);
  }
}

}  // namespace
}  // namespace reports
