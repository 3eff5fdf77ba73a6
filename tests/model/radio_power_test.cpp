#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"

namespace rrm::testing {
namespace {

constexpr std::int32_t none = -1;

struct Antenna {
  std::int32_t gain;
  std::int32_t loss;
};

struct Limits {
  std::int32_t power_min;
  std::int32_t power_max;
  std::int32_t eirp_min;
  std::int32_t eirp_max;
};

RadioBuilder a_radio_with(const Limits& limits) {
  return a_radio().power_range(limits.power_min, limits.power_max).eirp_range(limits.eirp_min, limits.eirp_max);
}

struct ClampCase {
  const char* label;
  Limits limits;
  std::vector<Antenna> antenna;  // none or one
  std::int64_t value;
  std::int32_t clamped;
};

TEST(RadioPower, ClampsIntoTheLimitsOfPowerAndEirp) {
  const std::vector<ClampCase> cases = {
      {"at the floor", {10, 20, none, none}, {}, 10, 10},
      {"below the floor", {10, 20, none, none}, {}, 9, 10},
      {"at the ceiling", {10, 20, none, none}, {}, 20, 20},
      {"above the ceiling", {10, 20, none, none}, {}, 21, 20},
      {"negative limits take the domain's defaults, floor", {-1, -1, none, none}, {}, 3, 10},
      {"negative limits take the domain's defaults, ceiling", {-5, -5, none, none}, {}, 30, 16},
      {"limits of 0 are limits", {0, 0, none, none}, {}, 12, 0},
      {"a crossed range gives its floor, from between", {20, 10, none, none}, {}, 15, 20},
      {"a crossed range gives its floor, from above", {20, 10, none, none}, {}, 25, 20},
      {"EIRP limits do not count without an antenna", {10, 20, 30, 5}, {}, 15, 15},
      {"the lowest EIRP lifts the floor", {10, 20, 20, none}, {{5, 2}}, 12, 17},
      {"a floor is never lowered", {10, 20, 5, none}, {{5, 2}}, 4, 10},
      {"the highest EIRP lowers the ceiling", {10, 20, none, 18}, {{5, 2}}, 19, 15},
      {"a ceiling is never raised", {10, 20, none, 40}, {{5, 2}}, 30, 20},
      {"an EIRP limit of 0 is a limit", {-1, 20, none, 0}, {{5, 2}}, 19, 10},
      {"an EIRP ceiling below the power's floor gives the floor", {10, 20, none, 5}, {{5, 2}}, 15, 10},
      {"a loss counts against a gain", {0, 30, 10, 10}, {{2, 8}}, 0, 16},
      {"sums beyond 32 bits, upwards", {0, 0, INT_MAX, none}, {{INT_MIN, INT_MAX}}, 0, INT_MAX},
      {"sums beyond 32 bits, downwards", {0, INT_MAX, none, 0}, {{INT_MAX, INT_MIN}}, INT64_MAX, 0},
      {"a value beyond 32 bits", {0, INT_MAX, none, none}, {}, INT64_MAX, INT_MAX},
      {"a value below 32 bits", {0, INT_MAX, none, none}, {}, INT64_MIN, 0},
  };
  const DomainConfig config;
  for (const ClampCase& test : cases) {
    RadioBuilder builder = a_radio_with(test.limits);
    for (const Antenna& antenna : test.antenna) builder.antenna(antenna.gain, antenna.loss);
    EXPECT_EQ(builder.build(config).clamp_power(test.value), test.clamped) << test.label;
  }
}

struct EirpCase {
  const char* label;
  Limits limits;
  std::vector<Antenna> antenna;  // none or one
  std::int32_t power;
  std::int32_t eirp;
  std::int32_t power_after;
  std::int32_t eirp_after;
};

TEST(RadioPower, RefreshesTheEirp) {
  const std::vector<EirpCase> cases = {
      {"no antenna, no limits: nothing happens", {0, 30, none, none}, {}, 14, 7, 14, 7},
      {"no antenna, only a highest EIRP: nothing happens", {0, 30, none, 5}, {}, 14, 7, 14, 7},
      {"no antenna, below the lowest", {0, 30, 10, none}, {}, 14, none, 14, 10},
      {"no antenna, at the lowest", {0, 30, 10, none}, {}, 14, 10, 14, 10},
      {"no antenna, above the highest", {0, 30, 5, 20}, {}, 14, 30, 14, 20},
      {"no antenna, between", {0, 30, 5, 20}, {}, 14, 12, 14, 12},
      {"no antenna: the power's limits do not matter", {0, 3, 5, 20}, {}, 14, 12, 14, 12},
      {"antenna, no limits: the sum", {0, 30, none, none}, {{3, 1}}, 14, none, 14, 16},
      {"antenna, no limits: the power's limits do not matter", {0, 3, none, none}, {{3, 1}}, 14, none, 14, 16},
      {"antenna, below the lowest: the power rises", {0, 30, 20, none}, {{3, 1}}, 14, none, 18, 20},
      {"antenna, the lowest EIRP beats the highest power", {0, 16, 20, none}, {{3, 1}}, 14, none, 18, 20},
      {"antenna, above the highest: the power falls", {0, 30, none, 10}, {{3, 1}}, 14, none, 8, 10},
      {"antenna, the lowest power beats the highest EIRP", {12, 30, none, 10}, {{3, 1}}, 14, none, 12, 10},
      {"antenna, between: nothing moves", {0, 30, 10, 20}, {{3, 1}}, 14, none, 14, 16},
      {"antenna, between, but the power is out of its limits", {0, 12, 10, 20}, {{3, 1}}, 14, none, 12, 14},
      {"antenna, crossed limits: the highest has the last word", {0, 30, 20, 10}, {{3, 1}}, 14, none, 18, 10},
      {"antenna, a lowest EIRP of 0 is a limit", {0, 12, 0, none}, {{3, 1}}, 14, none, 12, 14},
      {"antenna, a highest EIRP of 0 is a limit", {0, 30, none, 0}, {{3, 1}}, 14, none, 0, 0},
      {"sums beyond 32 bits", {0, 30, none, none}, {{INT_MAX, INT_MIN}}, INT_MAX, none, INT_MAX, INT_MAX},
      {"sums below 32 bits", {0, 30, none, none}, {{INT_MIN, INT_MAX}}, INT_MIN, none, INT_MIN, INT_MIN},
      {"limits at the ends", {INT_MIN, INT_MAX, INT_MAX, INT_MAX}, {{INT_MIN, INT_MAX}}, 0, none, INT_MAX, INT_MAX},
  };
  const DomainConfig config;
  for (const EirpCase& test : cases) {
    RadioBuilder builder = a_radio_with(test.limits).power(test.power).eirp(test.eirp);
    for (const Antenna& antenna : test.antenna) builder.antenna(antenna.gain, antenna.loss);
    Radio radio = builder.build(config);
    radio.refresh_eirp();
    EXPECT_EQ(radio.power, test.power_after) << test.label;
    EXPECT_EQ(radio.eirp, test.eirp_after) << test.label;
  }
}

struct StepCase {
  const char* label;
  std::int32_t power;
  std::int32_t changed;  // the step made earlier in the cycle
  std::int32_t a;
  std::int32_t b;
  std::int32_t step;
  std::int32_t power_after;
  std::int32_t changed_after;
};

TEST(RadioPower, StepsDownToTheDeepestRequestOfACycle) {
  const std::vector<StepCase> cases = {
      {"down by the difference", 14, 0, -68, -70, 2, 12, -2},
      {"down to the floor", 14, 0, -60, -70, 4, 10, -4},
      {"at the floor already", 10, 0, -60, -70, 0, 10, 0},
      {"no difference", 14, 0, -70, -70, 0, 14, 0},
      {"never up", 14, 0, -75, -70, 0, 14, 0},
      {"a deeper request replaces the step", 12, -2, -67, -70, 3, 11, -3},
      {"an equal request does not", 12, -2, -68, -70, 0, 12, -2},
      {"a shallower request does not", 11, -3, -68, -70, 0, 11, -3},
      {"after a raise, a smaller step down is none", 17, 3, -68, -70, 0, 17, 3},
      {"after a raise, an equal step down is none", 17, 3, -67, -70, 0, 17, 3},
      {"after a raise, a larger step down counts from the base", 17, 3, -66, -70, 4, 10, -4},
      {"the clamp may lower by itself", 30, 0, -70, -70, 10, 20, -10},
      {"sums beyond 32 bits", 14, 0, INT_MAX, INT_MIN, 4, 10, -4},
      {"a base beyond 32 bits", INT_MAX, INT_MIN, 0, 0, INT_MAX, 20, INT_MIN},
  };
  const DomainConfig config;
  for (const StepCase& test : cases) {
    Radio radio = a_radio().power_range(10, 20).power(test.power).power_changed(test.changed).build(config);
    EXPECT_EQ(radio.lower_power(test.a, test.b), test.step) << test.label;
    EXPECT_EQ(radio.power, test.power_after) << test.label;
    EXPECT_EQ(radio.power_changed, test.changed_after) << test.label;
  }
}

TEST(RadioPower, StepsUpOnlyWherePeersHearTooLittle) {
  constexpr std::int32_t limit = -72;
  const std::vector<StepCase> cases = {
      {"up by the difference", 14, 0, -75, -70, 5, 19, 5},
      {"up to the ceiling", 14, 0, -90, -70, 6, 20, 6},
      {"at the ceiling already", 20, 0, -90, -70, 0, 20, 0},
      {"just below the limit", 14, 0, -73, -70, 3, 17, 3},
      {"at the limit", 14, 0, -72, -70, 0, 14, 0},
      {"above the limit", 14, 0, -71, -70, 0, 14, 0},
      {"no difference", 14, 0, -75, -75, 0, 14, 0},
      {"a smaller raise replaces a reduction, from the base", 10, -4, -75, -73, 2, 16, 2},
      {"an equal raise does not", 10, -4, -75, -71, 0, 10, -4},
      {"a larger raise does not", 10, -4, -75, -70, 0, 10, -4},
      {"a smaller raise replaces a raise", 19, 5, -75, -72, 3, 17, 3},
      {"an equal raise does not replace a raise", 19, 5, -75, -70, 0, 19, 5},
      {"the clamp may lower by itself", 24, 0, -75, -74, -4, 20, -4},
      {"a lowering replaces an earlier step", 24, 1, -75, -75, -3, 20, -3},
      {"sums beyond 32 bits", 14, 0, INT_MIN, INT_MAX, 6, 20, 6},
  };
  const DomainConfig config;
  for (const StepCase& test : cases) {
    Radio radio = a_radio().power_range(10, 20).power(test.power).power_changed(test.changed).build(config);
    EXPECT_EQ(radio.raise_power(test.a, test.b, limit), test.step) << test.label;
    EXPECT_EQ(radio.power, test.power_after) << test.label;
    EXPECT_EQ(radio.power_changed, test.changed_after) << test.label;
  }
}

TEST(RadioPower, ADisabledRadioTakesNoStep) {
  const DomainConfig config;
  Radio radio = a_radio().disabled().power_range(10, 20).power(14).build(config);
  EXPECT_EQ(radio.lower_power(-60, -70), 0);
  EXPECT_EQ(radio.raise_power(-90, -70, -72), 0);
  EXPECT_EQ(radio.power, 14);
  EXPECT_EQ(radio.power_changed, 0);
}

TEST(RadioPower, EveryStepRefreshesTheEirp) {
  const DomainConfig config;
  Radio radio = a_radio().power_range(10, 20).power(14).antenna(5, 1).build(config);
  radio.lower_power(-68, -70);
  EXPECT_EQ(radio.eirp, 16);
  radio.power_changed = 0;
  radio.raise_power(-75, -70, -72);
  EXPECT_EQ(radio.eirp, 21);
}

struct ValidateCase {
  const char* label;
  bool managed;
  Limits old_limits;
  Limits new_limits;
  std::int32_t power_after;
  std::int32_t eirp_after;
  std::vector<std::string> logged;
};

TEST(RadioPower, NewLimitsBoundAPlannedPower) {
  const std::vector<ValidateCase> cases = {
      {"the same limits", true, {10, 12, none, none}, {10, 12, none, none}, 14, 16, {}},
      {"not planned", false, {10, 20, none, none}, {10, 12, none, none}, 14, 16, {}},
      {"limits that fit", true, {10, 20, none, none}, {10, 14, none, none}, 14, 16, {}},
      {"a lower ceiling",
       true,
       {10, 20, none, none},
       {9, 12, none, none},
       12,
       14,
       {"00:11:22:00:00:00: Power/eirp adjusted to new limits: power 14 -> 12, eirp 16 -> 14 (power min/max 9/12, eirp "
        "min/max -1/-1)"}},
      {"an EIRP limit",
       true,
       {10, 20, none, none},
       {10, 20, 3, 15},
       13,
       15,
       {"00:11:22:00:00:00: Power/eirp adjusted to new limits: power 14 -> 13, eirp 16 -> 15 (power min/max 10/20, "
        "eirp min/max 3/15)"}},
  };
  const DomainConfig config;
  for (const ValidateCase& test : cases) {
    const MacAddr base = mac("00:11:22:00:00:00");
    Radio radio = a_radio_with(test.old_limits).power(14).eirp(16).antenna(3, 1).build(config, 1, base);
    radio.tpc_managed = test.managed;
    const Radio other = a_radio_with(test.new_limits).antenna(3, 1).build(config, 1, base);
    const Capture capture;
    radio.set_validate_power(other);
    EXPECT_EQ(radio.power, test.power_after) << test.label;
    EXPECT_EQ(radio.eirp, test.eirp_after) << test.label;
    EXPECT_EQ(radio.power_min, test.new_limits.power_min) << test.label;
    EXPECT_EQ(radio.power_max, test.new_limits.power_max) << test.label;
    EXPECT_EQ(radio.eirp_min, test.new_limits.eirp_min) << test.label;
    EXPECT_EQ(radio.eirp_max, test.new_limits.eirp_max) << test.label;
    EXPECT_EQ(capture.lines(LOG_TRACE), test.logged) << test.label;
  }
}

TEST(RadioPower, ANewAntennaIsANewLimit) {
  const DomainConfig config;
  const std::vector<RadioBuilder> others = {a_radio().power_range(10, 20).antenna(4, 1),
                                            a_radio().power_range(10, 20).antenna(3, 0)};
  for (const RadioBuilder& other : others) {
    Radio radio = a_radio().power_range(10, 20).power(14).eirp(16).antenna(3, 1).tpc_managed().build(config);
    radio.set_validate_power(other.build(config));
    EXPECT_EQ(radio.eirp, 17);
  }
  Radio radio = a_radio().power_range(10, 20).power(14).antenna(0, 0).tpc_managed().build(config);
  radio.set_validate_power(a_radio().power_range(10, 20).build(config));
  EXPECT_FALSE(radio.has_antenna);
}

TEST(RadioPower, ThresholdsAreThoseOfTheBand) {
  DomainConfig config;
  config.ap_rssi_threshold_2g = -60, config.hysteresis_2g = 1;
  config.ap_rssi_threshold_5g = -70, config.hysteresis_5g = 2;
  config.ap_rssi_threshold_6g = -80, config.hysteresis_6g = 3;
  struct Case {
    std::int32_t band, high, middle, low;
  };
  for (const Case& test :
       std::vector<Case>{{0, -59, -60, -61}, {2, -59, -60, -61}, {5, -68, -70, -72}, {6, -77, -80, -83}}) {
    const Radio radio = a_radio().band(test.band).build(config);
    EXPECT_EQ(radio.rssi_threshold(ThresholdMode::high), test.high) << test.band;
    EXPECT_EQ(radio.rssi_threshold(ThresholdMode::middle), test.middle) << test.band;
    EXPECT_EQ(radio.rssi_threshold(ThresholdMode::low), test.low) << test.band;
  }
}

}  // namespace
}  // namespace rrm::testing
