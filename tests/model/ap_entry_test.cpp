#include "ApEntry.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

struct BoardCase {
  const char* board;
  ApPlatform platform;
  const char* name;
};

TEST(ApPlatforms, AreToldByTheBoardsName) {
  using enum ApPlatform;
  const std::vector<BoardCase> cases = {
      {"NXA-12WZ", fast_path, "FastPath"},
      {"NVA-12WZ", fast_path, "FastPath"},
      {"NXA-2WZ", fast_path, "FastPath"},
      {"NVA-2WZ", fast_path, "FastPath"},
      {"NVA-3wz", brix, "BRIX"},
      {"NXA-3wz", brix, "BRIX"},
      {"NVA-1K", realtek, "Realtek"},
      {"NVA-2K", realtek, "Realtek"},
      {"NXA-2K", realtek, "Realtek"},
      {"NVA-20K", realtek, "Realtek"},
      {"NXA-20K", realtek, "Realtek"},
      {"NVA-200K", realtek, "Realtek"},
      {"NVA-3K", realtek, "Realtek"},
      {"NXA-3K", realtek, "Realtek"},
      {"NVA-30K", realtek, "Realtek"},
      {"NXA-30K", realtek, "Realtek"},
      {"nva-1k", realtek, "Realtek"},
      {"NVA-3WZ rev B", brix, "BRIX"},
      {"nVa-12wZ-outdoor", fast_path, "FastPath"},
      {"NXA-1K", unknown, "Unknown"},
      {"NXA-200K", unknown, "Unknown"},
      {"NVA-1", unknown, "Unknown"},
      {" NVA-1K", unknown, "Unknown"},
      {"", unknown, "Unknown"},
      {"something else", unknown, "Unknown"},
      {"NVA-1K-SX", unknown, "Unknown"},
      {"NVA-12WZ-sx-2", unknown, "Unknown"},
      {"NVA-3wz-Sx", unknown, "Unknown"},
      {"NVA-1KSX", realtek, "Realtek"},
      {"NVA-1K-S", realtek, "Realtek"},
  };
  const DomainConfig config;
  for (const BoardCase& test : cases) {
    const auto ap = an_ap().board(test.board).build(config);
    EXPECT_EQ(ap->platform, test.platform) << test.board;
    EXPECT_STREQ(platform_name(ap->platform), test.name) << test.board;
  }
  EXPECT_EQ(static_cast<std::int32_t>(unknown), -1);
  EXPECT_EQ(static_cast<std::int32_t>(brix), 0);
  EXPECT_EQ(static_cast<std::int32_t>(fast_path), 1);
  EXPECT_EQ(static_cast<std::int32_t>(realtek), 2);
  EXPECT_STREQ(platform_name(static_cast<ApPlatform>(3)), "Unknown");
}

TEST(ApFactoryRecord, IsReadFromItsObject) {
  EXPECT_EQ(factory_from_json(reader(R"({"board":"NVA-1K","hw":"1.2","serial":"SN1","mac":"00:11:22:aa:bb:cc"})")),
            (ApFactory{"NVA-1K", "1.2", "SN1", mac("00:11:22:AA:BB:CC")}));
  EXPECT_EQ(factory_from_json(reader(R"({"serial":7,"mac":"001122aabbcc"})")), ApFactory{});
  EXPECT_EQ(factory_from_json(reader("")), ApFactory{});
}

class ApEntryTest : public ::testing::Test {
 protected:
  static std::string dump(const ApEntry& ap) {
    return object_text([&](JsonWriter& object) { ap.dump_json(object); });
  }

  DomainConfig config;
  Capture capture;
};

TEST_F(ApEntryTest, IsNewWithDefaults) {
  const ApFactory factory{"NVA-1K", "1.2", "SN1", mac("00:11:22:00:00:01")};
  const ApEntry ap(config, mac("00:11:22:00:00:00"), a_session(7), factory);
  EXPECT_EQ(ap.mac, mac("00:11:22:00:00:00"));
  EXPECT_EQ(ap.config, &config);
  EXPECT_EQ(ap.session.id, 7U);
  EXPECT_EQ(ap.factory, factory);
  EXPECT_EQ(ap.delete_ttl, 0);
  EXPECT_FALSE(ap.session_dropped);
  EXPECT_FALSE(ap.active);
  EXPECT_FALSE(ap.fbt_changed);
  EXPECT_EQ(ap.ap_mac_count, 48U);
  EXPECT_FALSE(ap.use_wildcard_80211r);
  EXPECT_TRUE(ap.visible_members.empty());
  EXPECT_TRUE(ap.visible_rogue.empty());
  EXPECT_EQ(ap.radios.list.size(), 3U);
  EXPECT_EQ(ap.radios.list[1].mac, mac("00:11:22:00:00:10"));
}

TEST_F(ApEntryTest, KnowsTheMacsOfItsRadiosEnabledOrNot) {
  const auto ap = an_ap().mac("00:11:22:00:00:00").with_radio(a_radio()).build(config);
  EXPECT_EQ(ap->get_radio_mac(0), mac("00:11:22:00:00:00"));
  EXPECT_EQ(ap->get_radio_mac(2), mac("00:11:22:00:00:20"));
  EXPECT_TRUE(capture.lines(LOG_WARNING).empty());
  for (const std::int32_t id : {7, 3, -1}) {
    capture.clear();
    EXPECT_EQ(ap->get_radio_mac(id), mac("00:11:22:00:00:00"));
    EXPECT_EQ(capture.lines(), (std::vector<LogLine>{{LOG_WARNING,
                                                      "get_radio_mac fallback to base_mac=00:11:22:00:00:00 for "
                                                      "invalid/disabled radio_id=" +
                                                          std::to_string(id)}}));
  }
}

constexpr const char* disabled_radio =
    R"("status":0,"power-changed":0,"conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,)"
    R"("locked-80211v":0,"channel":1,"band":0,"power":0,"max-power":0,"min-power":0,"bandwidth":20,)"
    R"("primary-channel":0,"available-channels":[],"vaps":[],"assoc_clients":[]})";

TEST_F(ApEntryTest, WritesItself) {
  const auto ap = an_ap()
                      .mac("00:11:22:00:00:00")
                      .active()
                      .received()
                      .hears("00:11:22:00:01:00", {-60, 36, 5, 80, 17, 512})
                      .hears_rogue("00:99:99:00:00:01", {-70, 1, 2, 20, 0, 256})
                      .with([](ApEntry& entry) { entry.ap_mac_count = 32, entry.use_wildcard_80211r = true; })
                      .build(config);
  EXPECT_EQ(dump(*ap),
            std::string(R"({"mac":"00:11:22:00:00:00","active":1,"ap-mac-count":32,"use-wildcard-80211r":1,)"
                        R"("radios":{"received":1,"interfaces":[)") +
                R"({"id":0,"mac":"00:11:22:00:00:00","mac-offset":0,"radio-mac-count":16,)" + disabled_radio +
                R"(,{"id":1,"mac":"00:11:22:00:00:10","mac-offset":16,"radio-mac-count":16,)" + disabled_radio +
                R"(,{"id":2,"mac":"00:11:22:00:00:20","mac-offset":32,"radio-mac-count":16,)" + disabled_radio +
                R"(]},"visible-members":[{"mac":"00:11:22:00:01:00","dbm-signal":-60,"channel":36,"band":5,)"
                R"("bandwidth":80,"tx-power":17,"primary":512}],)"
                R"("visible-rogue":[{"mac":"00:99:99:00:00:01","dbm-signal":-70,"channel":1,"band":2,)"
                R"("bandwidth":20,"tx-power":0,"primary":256}]})");
}

TEST_F(ApEntryTest, WhatItWritesIsRestoredButForTheCycle) {
  const auto ap = an_ap()
                      .active()
                      .received()
                      .with_radio(a_radio().channel(36).bandwidth(40).primary(256).power(14).available({36, 40}))
                      .with_radio(a_radio().channel(1).disabled())
                      .with_radio(a_radio().channel(5).band(6).locked_balancer())
                      .hears("00:11:22:00:01:00", {-60, 36, 5, 80, 17, 512})
                      .hears_rogue("00:99:99:00:00:01", {-70, 1, 2, 20, 0, 256})
                      .with([](ApEntry& entry) { entry.ap_mac_count = 32, entry.use_wildcard_80211r = true; })
                      .build(config);
  const auto restored = an_ap().build(config);
  ChannelPools pools;
  restored->restore(reader(dump(*ap)), pools);
  EXPECT_FALSE(restored->active);
  EXPECT_FALSE(restored->radios.received);
  restored->active = restored->radios.received = true;
  EXPECT_EQ(dump(*restored), dump(*ap));
  EXPECT_EQ(pools[5], (ChannelSet{36, 40}));
}

TEST_F(ApEntryTest, ARestoreWithoutAnythingLeavesTheRadiosAlone) {
  const auto ap = an_ap()
                      .with_radio(a_radio().channel(36))
                      .hears("00:11:22:00:01:00", a_neighbour(-60, 36))
                      .with([](ApEntry& entry) { entry.ap_mac_count = 32, entry.use_wildcard_80211r = true; })
                      .build(config);
  ChannelPools pools;
  ap->restore(reader(R"({"radios":null,"visible-members":null,"visible-rogue":null})"), pools);
  EXPECT_EQ(ap->ap_mac_count, 48U);
  EXPECT_FALSE(ap->use_wildcard_80211r);
  EXPECT_EQ(ap->radios.list[0].channel, 36);
  EXPECT_TRUE(ap->radios.first_message);
  EXPECT_EQ(ap->visible_members.size(), 1U);
}

TEST_F(ApEntryTest, AKeyThatIsThereCountsWhateverItsType) {
  const auto ap = an_ap().with([](ApEntry& entry) { entry.use_wildcard_80211r = true; }).build(config);
  ChannelPools pools;
  ap->restore(reader(R"({"ap-mac-count":null,"use-wildcard-80211r":[]})"), pools);
  EXPECT_EQ(ap->ap_mac_count, 0U);
  EXPECT_FALSE(ap->use_wildcard_80211r);
}

TEST_F(ApEntryTest, ACloneIsACompleteCopyThatCannotBeSentTo) {
  const ManualClock clock;
  const auto ap = an_ap()
                      .session(7)
                      .ttl(3)
                      .active()
                      .received()
                      .with_radio(a_radio()
                                      .channel(36)
                                      .vap(a_vap("office").r().link("a", "b", "c"))
                                      .client("0a:00:00:00:00:01", -60, "office"))
                      .hears("00:11:22:00:01:00", a_neighbour(-60, 36))
                      .hears_rogue("00:99:99:00:00:01", a_neighbour(-70, 1))
                      .with([](ApEntry& entry) {
                        entry.ap_mac_count = 32, entry.use_wildcard_80211r = true;
                        entry.session_dropped = entry.fbt_changed = true;
                        entry.radios.list[0].problist.add(mac("0a:00:00:00:00:02"), 30);
                      })
                      .build(config);
  const std::string before = dump(*ap);
  const auto clone = ap->clone_entry();
  EXPECT_EQ(dump(*clone), before);
  EXPECT_EQ(clone->platform, ap->platform);
  EXPECT_EQ(clone->mac, ap->mac);
  EXPECT_EQ(clone->config, ap->config);
  EXPECT_EQ(clone->factory, ap->factory);
  EXPECT_EQ(clone->delete_ttl, 3);
  EXPECT_TRUE(clone->session_dropped);
  EXPECT_TRUE(clone->fbt_changed);
  EXPECT_EQ(clone->radios.list[0].problist.members().size(), 1U);
  EXPECT_EQ(clone->session, no_session);
  EXPECT_EQ(ap->session.id, 7U);

  clone->radios.list[0].channel = 44;
  clone->radios.list[0].vaps.clear();
  clone->radios.list[0].assoc.clear();
  clone->visible_members.clear();
  clone->visible_rogue.clear();
  EXPECT_EQ(dump(*ap), before);
}

}  // namespace
}  // namespace rrm::testing
