#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "Config.h"
#include "model/mac_params.h"
#include "support/builders.h"
#include "support/capture.h"

namespace rrm {
namespace {

using rrm::testing::a_radio;
using rrm::testing::an_ap;
using rrm::testing::ApBuilder;
using rrm::testing::Capture;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Three enabled radios with the pools 0, 16 and 32, sixteen addresses each.
ApBuilder a_full_ap() {
  return an_ap()
      .mac("00:11:22:33:44:00")
      .with_radio(a_radio().channel(1))
      .with_radio(a_radio().channel(36))
      .with_radio(a_radio().channel(37).band(6));
}

class MacParams : public ::testing::Test {
 protected:
  // The error lines; the check's answer must agree with them.
  std::vector<std::string> faults(const ApBuilder& builder, std::uint32_t ap_mac_count) {
    const auto ap = builder.build(config);
    ap->ap_mac_count = ap_mac_count;
    capture.clear();
    const bool valid = check_mac_params(*ap);
    const auto lines = capture.lines(LOG_ERROR);
    EXPECT_EQ(valid, lines.empty());
    return lines;
  }

  DomainConfig config;
  Capture capture;
};

TEST_F(MacParams, TheDefaultPoolsFitExactly) {
  EXPECT_THAT(faults(a_full_ap(), 48), IsEmpty());
  EXPECT_THAT(faults(a_full_ap(), 47),
              ElementsAre("Invalid one or more radio MAC parameters:  radio-mac-count(16), mac-offset(32), "
                          "ap-mac-count(47)"));
}

TEST_F(MacParams, ADisabledRadioTakesNoRoom) {
  const auto without_third = an_ap().with_radio(a_radio().channel(1)).with_radio(a_radio().channel(36));
  EXPECT_THAT(faults(without_third, 32), IsEmpty());
  EXPECT_THAT(faults(without_third, 31),
              ElementsAre("Invalid one or more radio MAC parameters:  radio-mac-count(16), mac-offset(16), "
                          "ap-mac-count(31)"));
}

TEST_F(MacParams, AnApHasAddresses) {
  EXPECT_THAT(faults(an_ap(), 1), IsEmpty());
  EXPECT_THAT(faults(an_ap(), 0), ElementsAre("Invalid ap-mac-count(0)"));
  EXPECT_THAT(faults(an_ap(), static_cast<std::uint32_t>(-1)), ElementsAre("Invalid ap-mac-count(-1)"));
  EXPECT_THAT(faults(a_full_ap(), 0), ElementsAre("Invalid ap-mac-count(0)")) << "nothing else is looked at";
}

TEST_F(MacParams, AnEnabledRadioHasAPoolWithinTheAps) {
  struct Case {
    std::int32_t offset;
    std::int32_t count;
    const char* fault;  // null: none
  };
  constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
  const Case cases[] = {
      {0, 1, nullptr},
      {0, 0, "radio-mac-count(0), mac-offset(0), ap-mac-count(48)"},
      {0, -1, "radio-mac-count(-1), mac-offset(0), ap-mac-count(48)"},
      {-1, 16, "radio-mac-count(16), mac-offset(-1), ap-mac-count(48)"},
      {0, 48, nullptr},
      {0, 49, "radio-mac-count(49), mac-offset(0), ap-mac-count(48)"},
      {47, 1, nullptr},
      {48, 1, "radio-mac-count(1), mac-offset(48), ap-mac-count(48)"},
      {highest, highest, "radio-mac-count(2147483647), mac-offset(2147483647), ap-mac-count(48)"},
  };
  for (const Case& one : cases) {
    const auto enabled = faults(an_ap().with_radio(a_radio().channel(1).pool(one.offset, one.count)), 48);
    if (one.fault == nullptr) {
      EXPECT_THAT(enabled, IsEmpty()) << one.offset << "+" << one.count;
    } else {
      EXPECT_THAT(enabled, ElementsAre(std::string("Invalid one or more radio MAC parameters:  ") + one.fault));
    }
    EXPECT_THAT(faults(an_ap().with_radio(a_radio().channel(1).pool(one.offset, one.count).disabled()), 48), IsEmpty())
        << "disabled: " << one.offset << "+" << one.count;
  }
}

TEST_F(MacParams, TwoRadiosAtOneOffsetAreToldFromBothSides) {
  const auto twins = an_ap()
                         .mac("00:11:22:33:44:00")
                         .with_radio(a_radio().channel(1).pool(16, 8))
                         .with_radio(a_radio().channel(36).pool(16, 16));
  EXPECT_THAT(
      faults(twins, 48),
      ElementsAre("MAC ranges overlapped: radio0 00:11:22:33:44:10 max_mac_count=8, radio1 00:11:22:33:44:10",
                  "MAC ranges overlapped: radio1 00:11:22:33:44:10 max_mac_count=16, radio0 00:11:22:33:44:10"));
}

TEST_F(MacParams, APoolThatReachesIntoTheNextIsToldOnce) {
  const auto reaching = an_ap()
                            .mac("00:11:22:33:44:00")
                            .with_radio(a_radio().channel(1).pool(0, 17))
                            .with_radio(a_radio().channel(36).pool(16, 16));
  EXPECT_THAT(
      faults(reaching, 48),
      ElementsAre("MAC ranges overlapped: radio0 00:11:22:33:44:00 max_mac_count=17, radio1 00:11:22:33:44:10"));
  const auto touching = an_ap()
                            .mac("00:11:22:33:44:00")
                            .with_radio(a_radio().channel(1).pool(0, 16))
                            .with_radio(a_radio().channel(36).pool(16, 16));
  EXPECT_THAT(faults(touching, 48), IsEmpty());
}

TEST_F(MacParams, EveryFaultIsToldAndOnlyARadioThatFitsIsComparedWithTheOthers) {
  const auto ap = an_ap()
                      .mac("00:11:22:33:44:00")
                      .with_radio(a_radio().channel(1).pool(0, 0))
                      .with_radio(a_radio().channel(36).pool(0, 16))
                      .with_radio(a_radio().channel(37).band(6).pool(40, 16));
  EXPECT_THAT(
      faults(ap, 48),
      ElementsAre("Invalid one or more radio MAC parameters:  radio-mac-count(0), mac-offset(0), ap-mac-count(48)",
                  "MAC ranges overlapped: radio1 00:11:22:33:44:00 max_mac_count=16, radio0 00:11:22:33:44:00",
                  "Invalid one or more radio MAC parameters:  radio-mac-count(16), mac-offset(40), ap-mac-count(48)"));
}

TEST_F(MacParams, ADisabledRadioLiesInNobodysWay) {
  const auto ap =
      an_ap().with_radio(a_radio().channel(1).pool(0, 16)).with_radio(a_radio().channel(36).pool(0, 16).disabled());
  EXPECT_THAT(faults(ap, 48), IsEmpty());
}

}  // namespace
}  // namespace rrm
