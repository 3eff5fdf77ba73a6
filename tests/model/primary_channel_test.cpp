#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <map>
#include <string>
#include <vector>

#include "support/builders.h"

namespace rrm::testing {
namespace {

// For a radio of a band and a width, a letter for each channel from 1 to 233, fifty to a line: the position that the
// channel forces, l 256, u 512, U 768, H 1024, or a point where the present position is only checked.
struct Forced {
  std::int32_t band;
  std::int32_t bandwidth;
  const char* letters;
};

// At 5 GHz it is the same for a radio that does not know its band.
constexpr const char* forced_5ghz_40 =
    "...................................ll.uull.ll.uull"
    ".ll.uull.ll.uull.uuuuull.uuuuull.uuuuull.uuuuull.l"
    "l.uull.ll.uull.ll.uull.ll.uull.ll.uull.ll.uull.ull"
    ".uul.ull.uu......................................."
    ".................................";
constexpr const char* forced_5ghz_80 =
    "...................................luuuuu.UUUUUHlu"
    "uluuuuu.UUUUUHluuuuu.UUUUUHHHHluuuuu.UUUUUHHHHluul"
    "uuuuu.UUUUUHluuluuuuu.UUUUUHluuluuuuu.UUUUUHluuulu"
    "uuuu.UUUUUH......................................."
    ".................................";
constexpr const char* forced_5ghz_160 =
    "...................................llllllllllllll."
    "uuuuuuuuuuuuuu...................................l"
    "lllllllllllll.uuuuuuuuuuuuuu......................"
    ".................................................."
    ".................................";
constexpr const char* forced_6ghz_40 =
    "ll.uuuuull.uuuuull.uuuuull.uuuuull.uuuuull.uuuuull"
    ".uuuuull.uuuuull.uuuuull.uuuuull.uuuuull.uuuuull.u"
    "uuuull.uuuuull.uuuuull.uuuuull.uuuuull.uuuuull.uuu"
    "uull.uuuuull.uuuuull.uuuuull.uuuuull.uuuuull.uuuuu"
    "ll.uuuuull.uuuuull.uuuuull.uuuuul";
constexpr const char* forced_6ghz_80 =
    "luuuuu.UUUUUHHHHluuuuu.UUUUUHHHHluuuuu.UUUUUHHHHlu"
    "uuuu.UUUUUHHHHluuuuu.UUUUUHHHHluuuuu.UUUUUHHHHluuu"
    "uu.UUUUUHHHHluuuuu.UUUUUHHHHluuuuu.UUUUUHHHHluuuuu"
    ".UUUUUHHHHluuuuu.UUUUUHHHHluuuuu.UUUUUHHHHluuuuu.U"
    "UUUUHHHHluuuuu.UUUUUHHHHluuuuu.UU";
constexpr const char* forced_6ghz_160 =
    "llllllllllllll.uuuuuuuuuuuuuuuuullllllllllllll.uuu"
    "uuuuuuuuuuuuuullllllllllllll.uuuuuuuuuuuuuuuuullll"
    "llllllllll.uuuuuuuuuuuuuuuuullllllllllllll.uuuuuuu"
    "uuuuuuuuuullllllllllllll.uuuuuuuuuuuuuuuuullllllll"
    "llllll.uuuuuuuuuuuuuuuuulllllllll";
// At 320 MHz nothing is forced; this is what takes the place of a position that does not stand, 0 for none.
constexpr const char* instead_6ghz_320 =
    "llllllllllllllllllllllllllllll0uuuuuuuuuuuuuuuulll"
    "llllllllllll0uuuuuuuuuuuuuuuulllllllllllllll0uuuuu"
    "uuuuuuuuuuulllllllllllllll0uuuuuuuuuuuuuuuulllllll"
    "llllllll0uuuuuuuuuuuuuuuulllllllllllllll0uuuuuuuuu"
    "uuuuuuulllllllllllllll0uuuuuuuuuu";

const std::vector<Forced> forced_positions = {
    {0, 40, forced_5ghz_40}, {0, 80, forced_5ghz_80}, {0, 160, forced_5ghz_160},
    {5, 40, forced_5ghz_40}, {5, 80, forced_5ghz_80}, {5, 160, forced_5ghz_160},
    {6, 40, forced_6ghz_40}, {6, 80, forced_6ghz_80}, {6, 160, forced_6ghz_160},
};

// Where the position is only checked: the codes that stand.
const std::map<std::int32_t, std::vector<std::int32_t>> standing_codes = {
    {40, {256, 512}}, {80, {256, 512, 768, 1024}}, {160, {256, 512}}, {320, {256, 512}}};

constexpr std::array<std::int32_t, 8> codes = {0, 256, 512, 768, 1024, 1, -256, INT_MAX};
constexpr std::array<std::int32_t, 9> widths = {20, 40, 80, 160, 320, 0, 25, -40, INT_MIN};

char letter_of(const char* letters, std::int32_t channel) {
  return channel >= 1 && channel <= 233 ? letters[channel - 1] : '.';
}

std::int32_t code_of(char letter) {
  const std::map<char, std::int32_t> codes_of_letters = {{'l', 256}, {'u', 512}, {'U', 768}, {'H', 1024}, {'0', 0}};
  return codes_of_letters.at(letter);
}

std::int32_t expected_code(std::int32_t band, std::int32_t bandwidth, std::int32_t channel, std::int32_t code) {
  for (const Forced& row : forced_positions) {
    const bool fits = row.band == band && row.bandwidth == bandwidth;
    const char letter = fits ? letter_of(row.letters, channel) : '.';
    if (letter != '.') return code_of(letter);
  }
  const auto standing = standing_codes.find(bandwidth);
  if (standing == standing_codes.end()) return 0;
  for (const std::int32_t stands : standing->second) {
    if (code == stands) return code;
  }
  const bool in_band = band == 6 && bandwidth == 320 && channel >= 1 && channel <= 233;
  return in_band ? code_of(letter_of(instead_6ghz_320, channel)) : 0;
}

TEST(PrimaryChannel, AgreesWithChannelWidthAndBandEverywhere) {
  const DomainConfig config;
  Radio radio = a_radio().build(config);
  std::vector<std::int32_t> channels = {INT_MIN, -1, 0, 234, 235, INT_MAX};
  for (std::int32_t channel = 1; channel <= 233; ++channel) channels.push_back(channel);
  for (const std::int32_t band : {0, 2, 5, 6}) {
    for (const std::int32_t width : widths) {
      for (const std::int32_t channel : channels) {
        for (const std::int32_t code : codes) {
          radio.band = band, radio.bandwidth = width, radio.channel = channel, radio.primary_channel = code;
          radio.normalize_primary_channel();
          ASSERT_EQ(radio.primary_channel, expected_code(band, width, channel, code))
              << "band " << band << ", " << width << " MHz, channel " << channel << ", code " << code;
        }
      }
    }
  }
}

struct NamedCase {
  const char* label;
  std::int32_t band;
  std::int32_t bandwidth;
  std::int32_t channel;
  std::int32_t before;
  std::int32_t after;
};

TEST(PrimaryChannel, NamedCases) {
  const std::vector<NamedCase> cases = {
      {"20 MHz has no position", 5, 20, 36, 512, 0},
      {"40 MHz on 36, whatever was said", 5, 40, 36, 1024, 256},
      {"40 MHz on 40", 5, 40, 40, 0, 512},
      {"40 MHz on 165 has no block and keeps a half", 5, 40, 165, 512, 512},
      {"40 MHz on 165 has no block and drops a quarter", 5, 40, 165, 768, 0},
      {"80 MHz, lower-lower", 5, 80, 36, 0, 256},
      {"80 MHz, lower-upper", 5, 80, 40, 0, 512},
      {"80 MHz, upper-lower", 5, 80, 44, 0, 768},
      {"80 MHz, upper-upper", 5, 80, 48, 0, 1024},
      {"160 MHz on 64", 5, 160, 64, 256, 512},
      {"160 MHz between the blocks keeps a half", 5, 160, 80, 256, 256},
      {"320 MHz on 33: the nearest centre is 31", 6, 320, 33, 0, 512},
      {"320 MHz on 47: of 31 and 63 the lower one", 6, 320, 47, 0, 512},
      {"320 MHz on a centre", 6, 320, 31, 768, 0},
      {"320 MHz keeps a half", 6, 320, 33, 256, 256},
      {"320 MHz at 5 GHz has no centre", 5, 320, 36, 768, 0},
      {"a 2.4 GHz radio has no blocks", 2, 40, 6, 512, 512},
      {"a 5 GHz radio cannot stand on 200", 5, 80, 200, 0, 0},
  };
  const DomainConfig config;
  for (const NamedCase& test : cases) {
    Radio radio =
        a_radio().channel(test.channel).band(test.band).bandwidth(test.bandwidth).primary(test.before).build(config);
    radio.normalize_primary_channel();
    EXPECT_EQ(radio.primary_channel, test.after) << test.label;
  }
}

struct TextCase {
  std::int32_t bandwidth;
  std::array<const char*, 6> texts;  // for 0, 256, 512, 768, 1024, 7
};

TEST(PrimaryChannel, HasATextForEachWidth) {
  const std::vector<TextCase> cases = {
      {20, {"none", "none", "none", "none", "none", "none"}},
      {40, {"none", "lower", "upper", "none", "none", "none"}},
      {80, {"none", "ll", "lu", "ul", "uu", "none"}},
      {160, {"none", "lower", "upper", "none", "none", "none"}},
      {320, {"none", "lower", "upper", "none", "none", "none"}},
      {0, {"none", "none", "none", "none", "none", "none"}},
      {41, {"none", "none", "none", "none", "none", "none"}},
  };
  const std::array<std::int32_t, 6> written = {0, 256, 512, 768, 1024, 7};
  const DomainConfig config;
  for (const TextCase& test : cases) {
    for (std::size_t i = 0; i < written.size(); ++i) {
      const Radio radio = a_radio().bandwidth(test.bandwidth).primary(written[i]).build(config);
      EXPECT_STREQ(radio.primary_channel_text(), test.texts[i]) << test.bandwidth << " MHz, " << written[i];
    }
  }
}

}  // namespace
}  // namespace rrm::testing
