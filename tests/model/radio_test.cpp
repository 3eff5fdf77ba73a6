// What a radio knows about channels and bands, how radios compare, what they weigh and what they write.
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

class RadioTest : public ::testing::Test {
 protected:
  DomainConfig config;
  Capture capture;
  ManualClock clock;
};

TEST_F(RadioTest, ItsMacIsItsOffsetInTheApsPool) {
  Radio radio = a_radio().build(config, 2, mac("00:11:22:00:00:00"));
  EXPECT_EQ(radio.mac, mac("00:11:22:00:00:20"));
  radio.mac_offset = 5;
  radio.set_mac(mac("00:11:22:00:01:00"));
  EXPECT_EQ(radio.mac, mac("00:11:22:00:01:05"));
  EXPECT_EQ(radio.base_mac, mac("00:11:22:00:01:00"));
  EXPECT_EQ(capture.lines(LOG_DUMP),
            std::vector<std::string>{"radio id=2, max_mac_count=16, mac_offset=5, mac = 00:11:22:00:01:05"});
}

struct BandCase {
  std::int32_t band;
  std::int32_t channel;
  std::int32_t radio_band;
  std::int32_t inferred;
};

TEST_F(RadioTest, AKnownBandSortsTheChannelsThatTwoBandsNumber) {
  const std::vector<BandCase> cases = {
      {0, INT_MIN, 0, 0}, {0, 0, 0, 0},   {0, 1, 2, 2},   {0, 14, 2, 2},  {0, 15, 0, 0},      {0, 36, 5, 5},
      {0, 165, 5, 5},     {0, 166, 0, 6}, {0, 233, 0, 6}, {0, 234, 0, 0}, {0, INT_MAX, 0, 0}, {2, 36, 2, 2},
      {2, 166, 0, 6},     {5, 1, 5, 5},   {5, 165, 5, 5}, {5, 166, 0, 6}, {5, 200, 0, 6},     {5, 234, 0, 0},
      {6, 0, 0, 0},       {6, 1, 6, 6},   {6, 165, 6, 6}, {6, 166, 6, 6}, {6, 233, 6, 6},     {6, 234, 0, 0},
  };
  for (const BandCase& test : cases) {
    const Radio radio = a_radio().band(test.band).build(config);
    EXPECT_EQ(radio.radio_band_of(test.channel), test.radio_band) << test.band << ", " << test.channel;
    EXPECT_EQ(radio.band_or_inferred(test.channel), test.inferred) << test.band << ", " << test.channel;
  }
}

struct OffListCase {
  const char* label;
  RadioBuilder radio;
  bool off_list;
  bool off_profile;
};

TEST_F(RadioTest, IsOffItsListOnAChannelThatIsNotPermitted) {
  const std::vector<OffListCase> cases = {
      {"not on the list", a_radio().channel(44).available({36}), true, true},
      {"on the list", a_radio().channel(36).available({36}), false, false},
      {"no list", a_radio().channel(44), false, false},
      {"no channel", a_radio().channel(0).available({36}), false, false},
      {"disabled", a_radio().channel(44).available({36}).disabled(), false, false},
      {"locked", a_radio().channel(44).available({36}).locked_dca(), true, false},
      {"locked for power", a_radio().channel(44).available({36}).locked_tpc(), true, true},
  };
  for (const OffListCase& test : cases) {
    const Radio radio = test.radio.build(config);
    EXPECT_EQ(radio.channel_off_list(), test.off_list) << test.label;
    EXPECT_EQ(radio.off_profile(), test.off_profile) << test.label;
  }
}

TEST_F(RadioTest, CountsTheDistinctChannelsOfTheMembersThatItsApHears) {
  const auto ap = an_ap()
                      .with_radio(a_radio())
                      .hears("00:00:00:00:00:01", a_neighbour(-60, 36))
                      .hears("00:00:00:00:00:02", a_neighbour(-60, 36))
                      .hears("00:00:00:00:00:03", a_neighbour(-60, 1))
                      .hears("00:00:00:00:00:04", a_neighbour(-60, 255))
                      .hears("00:00:00:00:00:05", a_neighbour(-60, 0))
                      .hears("00:00:00:00:00:06", a_neighbour(-60, 256))
                      .hears("00:00:00:00:00:07", a_neighbour(-60, -1))
                      .hears("00:00:00:00:00:08", a_neighbour(-60, INT_MIN))
                      .hears_rogue("00:00:00:00:00:09", a_neighbour(-60, 11))
                      .build(config);
  Radio& radio = ap->radios.list[0];
  radio.update_visible_channels(*ap);
  EXPECT_EQ(radio.visible_channels, 3);
}

TEST_F(RadioTest, AMoveCorrectsWhatTheOthersHear) {
  const auto moved = an_ap().mac("00:11:22:00:00:00").with_radio(a_radio().channel(36)).build(config);
  const auto exact = an_ap()
                         .mac("00:11:22:00:01:00")
                         .hears("00:11:22:00:00:00", a_neighbour(-60, 36))
                         .hears("00:11:22:00:00:01", a_neighbour(-60, 36))
                         .build(config);
  const auto flipped = an_ap().mac("00:11:22:00:02:00").hears("02:11:22:00:00:00", a_neighbour(-60, 36)).build(config);
  const auto rogue =
      an_ap().mac("00:11:22:00:03:00").hears_rogue("00:11:22:00:00:00", a_neighbour(-60, 36)).build(config);
  ApMap aps = a_set({moved, exact, flipped, rogue});
  Radio& radio = moved->radios.list[0];
  radio.set_neighbour_channel(aps, radio.mac, 44);
  EXPECT_EQ(exact->visible_members.find(mac("00:11:22:00:00:00"))->channel, 44);
  EXPECT_EQ(exact->visible_members.find(mac("00:11:22:00:00:01"))->channel, 36);
  EXPECT_EQ(flipped->visible_members.find(mac("02:11:22:00:00:00"))->channel, 44);
  EXPECT_EQ(rogue->visible_rogue.find(mac("00:11:22:00:00:00"))->channel, 36);
  EXPECT_EQ(radio.visible_channels, 1);  // of the last one that hears it
}

// Comparison.

using Edit = std::function<void(Radio&)>;

struct CompareCase {
  const char* label;
  Edit edit;  // of the other radio
  bool equal;
};

TEST_F(RadioTest, SettingsAreEqualWhenAllThatTheApMayReportIs) {
  const std::vector<CompareCase> cases = {
      {"the same", [](Radio&) {}, true},
      {"id", [](Radio& r) { r.id = 1; }, false},
      {"power_max", [](Radio& r) { r.power_max = 1; }, false},
      {"power_min", [](Radio& r) { r.power_min = 1; }, false},
      {"eirp", [](Radio& r) { r.eirp = 1; }, false},
      {"eirp_min", [](Radio& r) { r.eirp_min = 1; }, false},
      {"eirp_max", [](Radio& r) { r.eirp_max = 1; }, false},
      {"antenna_gain", [](Radio& r) { r.antenna_gain = 1; }, false},
      {"cable_loss", [](Radio& r) { r.cable_loss = 1; }, false},
      {"has_antenna", [](Radio& r) { r.has_antenna = true; }, false},
      {"status", [](Radio& r) { r.status = false; }, false},
      {"bandwidth", [](Radio& r) { r.bandwidth = 40; }, false},
      {"locked_tpc", [](Radio& r) { r.locked_tpc = 1; }, false},
      {"locked_dca", [](Radio& r) { r.locked_dca = 1; }, false},
      {"locked_balancer", [](Radio& r) { r.locked_balancer = 1; }, false},
      {"locked_80211v", [](Radio& r) { r.locked_80211v = 1; }, false},
      {"a channel more", [](Radio& r) { r.available_channels.insert(40); }, false},
      {"another channel", [](Radio& r) { r.available_channels = {40}; }, false},
      {"a channel less", [](Radio& r) { r.available_channels.clear(); }, false},
      {"the channel itself does not matter", [](Radio& r) { r.channel = 40; }, true},
      {"nor the power", [](Radio& r) { r.power = 1; }, true},
      {"nor the position", [](Radio& r) { r.primary_channel = 256; }, true},
      {"nor the band", [](Radio& r) { r.band = 6; }, true},
      {"nor the pool", [](Radio& r) { r.mac_offset = r.max_mac_count = 1; }, true},
      {"nor the VAPs", [](Radio& r) { r.vaps.insert(a_vap("office").build()); }, true},
  };
  for (const CompareCase& test : cases) {
    const Radio radio = a_radio().channel(36).available({36}).build(config);
    Radio other = radio;
    test.edit(other);
    EXPECT_EQ(radio.equal_settings(other), test.equal) << test.label;
    EXPECT_EQ(other.equal_settings(radio), test.equal) << test.label;
  }
}

TEST_F(RadioTest, DisabledRadiosAreAlikeWhateverTheySay) {
  const Radio radio = a_radio().disabled().channel(36).available({36}).vap(a_vap("office")).build(config);
  const Radio other = a_radio().disabled().channel(1).bandwidth(40).locked_tpc().build(config);
  const Radio elsewhere = a_radio().disabled().channel(1).build(config, 1);
  EXPECT_TRUE(radio.equal_settings(other));
  EXPECT_TRUE(radio.equivalent_channel(other));
  EXPECT_TRUE(radio.equivalent_vaps(other));
  EXPECT_FALSE(radio.equal_settings(elsewhere));
  EXPECT_FALSE(radio.equivalent_channel(elsewhere));
  EXPECT_FALSE(radio.equivalent_vaps(elsewhere));
}

TEST_F(RadioTest, ChannelsAreEquivalentWhenAllThreeAgreeOrThePlanDecides) {
  const std::vector<CompareCase> edits = {
      {"the same", [](Radio&) {}, true},
      {"channel", [](Radio& r) { r.channel = 40; }, false},
      {"bandwidth", [](Radio& r) { r.bandwidth = 40; }, false},
      {"position", [](Radio& r) { r.primary_channel = 256; }, false},
      {"band does not matter", [](Radio& r) { r.band = 6; }, true},
      {"power does not matter", [](Radio& r) { r.power = 1; }, true},
  };
  for (const CompareCase& test : edits) {
    const Radio radio = a_radio().channel(36).build(config);
    Radio other = radio;
    test.edit(other);
    EXPECT_EQ(radio.equivalent_channel(other), test.equal) << test.label;
  }
  struct Case {
    const char* label;
    bool use_dca;
    RadioBuilder radio;
    bool equivalent;
  };
  for (const Case& test :
       std::vector<Case>{{"planned", true, a_radio().channel(36).dca_managed(), true},
                         {"not planned yet", true, a_radio().channel(36), false},
                         {"allocation off", false, a_radio().channel(36).dca_managed(), false},
                         {"locked", true, a_radio().channel(36).dca_managed().locked_dca(), false},
                         {"disabled", true, a_radio().channel(36).dca_managed().disabled(), false}}) {
    config.use_dca = test.use_dca;
    EXPECT_EQ(test.radio.build(config).equivalent_channel(a_radio().channel(40).build(config)), test.equivalent)
        << test.label;
  }
}

// Load.

RadioBuilder with_load(int clients, int expected) {
  return a_radio().with([=](Radio& radio) {
    for (int i = 0; i < clients; ++i) {
      radio.assoc.add_client(MacAddr::from_number(static_cast<std::uint64_t>(i) + 1), -60, "office", false, false);
    }
    for (int i = 0; i < expected; ++i) {
      radio.assoc.add_expected(MacAddr::from_number(static_cast<std::uint64_t>(i) + 1000), {});
    }
  });
}

TEST_F(RadioTest, ItsPriorityFallsWithItsLoad) {
  config.use_80211v = true;
  struct Case {
    int clients, expected;
    std::uint32_t priority;
  };
  for (const Case& test : std::vector<Case>{
           {0, 0, 255}, {4, 0, 255}, {3, 1, 255}, {5, 0, 127}, {4, 1, 127}, {19, 0, 127}, {20, 0, 0}, {0, 20, 0}}) {
    Radio radio = with_load(test.clients, test.expected).build(config);
    radio.priority = 1;
    EXPECT_TRUE(radio.update_priority());
    EXPECT_EQ(radio.priority, test.priority) << test.clients << " + " << test.expected;
    EXPECT_FALSE(radio.update_priority());
  }
}

TEST_F(RadioTest, LevelsAreSortedByLoad) {
  config.use_80211v = true;
  config.load_balance_sta_low = 20, config.load_balance_sta_high = 5;
  EXPECT_EQ(a_radio().build(config).priority_levels,
            (std::vector<std::pair<std::int32_t, std::uint32_t>>{{4, 127}, {19, 255}}));
}

TEST_F(RadioTest, PrioritiesNeedBothBalancers) {
  struct Case {
    bool use_80211v, use_balance;
    std::size_t levels;
  };
  for (const Case& test : std::vector<Case>{{true, true, 2}, {true, false, 0}, {false, true, 0}, {false, false, 0}}) {
    config.use_80211v = test.use_80211v, config.use_balance = test.use_balance;
    Radio radio = with_load(20, 0).build(config);
    EXPECT_EQ(radio.priority_levels.size(), test.levels);
    EXPECT_EQ(radio.update_priority(), test.levels != 0);
  }
  config.use_80211v = config.use_balance = true;
  Radio radio = with_load(20, 0).build(config);
  config.use_balance = false;
  EXPECT_FALSE(radio.update_priority());
}

TEST_F(RadioTest, NeedsBalanceAboveTheLowLoad) {
  EXPECT_FALSE(with_load(5, 0).build(config).need_balance());
  EXPECT_TRUE(with_load(5, 1).build(config).need_balance());
  EXPECT_FALSE(with_load(0, 0).build(config).need_balance());
}

// Writing.

std::string settings_text() {
  return R"("dunva-sta-rssi-thr-low":-75,"dunva-sta-rssi-thr-high":-65,"dunva-roam-attempt-timeout":600,)"
         R"("dunva-client-rssi-renew":15,"dunva-client-max-age":20,"dunva-try-no-balance":2,"no-balance-enterprise":0})";
}

TEST_F(RadioTest, TellsItsApWhatThePlanWants) {
  struct Case {
    const char* label;
    RadioBuilder radio;
    std::string head;
  };
  const std::vector<Case> cases = {
      {"plain", a_radio().channel(36).bandwidth(80).primary(768).power(14),
       R"({"id":1,"channel":36,"band":5,"power":14,"bandwidth":80,"primary-channel":"ul",)"},
      {"a lowest EIRP", a_radio().channel(36).eirp_range(5, -1).eirp(9),
       R"({"id":1,"channel":36,"band":5,"power":0,"eirp-min":5,"eirp":9,"bandwidth":20,"primary-channel":"none",)"},
      {"a lowest EIRP of 0", a_radio().channel(36).eirp_range(0, -1),
       R"({"id":1,"channel":36,"band":5,"power":0,"eirp-min":0,"eirp":-1,"bandwidth":20,"primary-channel":"none",)"},
      {"a highest EIRP of 0", a_radio().channel(36).eirp_range(-1, 0),
       R"({"id":1,"channel":36,"band":5,"power":0,"eirp-max":0,"eirp":-1,"bandwidth":20,"primary-channel":"none",)"},
      {"an EIRP alone is not told", a_radio().channel(36).eirp(9),
       R"({"id":1,"channel":36,"band":5,"power":0,"bandwidth":20,"primary-channel":"none",)"},
      {"an antenna", a_radio().channel(36).eirp(9).antenna(5, 2),
       R"({"id":1,"channel":36,"band":5,"power":0,"eirp":9,"antenna-configuration":{"antenna-gain":5,"cable-loss":2},)"
       R"("bandwidth":20,"primary-channel":"none",)"},
      {"the band of a channel that the radio's band does not have", a_radio().channel(200).band(5),
       R"({"id":1,"channel":200,"band":6,"power":0,"bandwidth":20,"primary-channel":"none",)"},
      {"the radio's own band", a_radio().channel(36).band(6),
       R"({"id":1,"channel":36,"band":6,"power":0,"bandwidth":20,"primary-channel":"none",)"},
  };
  for (const Case& test : cases) {
    const Radio radio = test.radio.build(config, 1);
    EXPECT_EQ(array_text([&](JsonWriter& array) { radio.write_radio_config(array); }),
              "[" + test.head + settings_text() + "]")
        << test.label;
  }
}

TEST_F(RadioTest, TellsItsApTheDomainsSteeringSettings) {
  config.blacklist_thr_low = -1, config.blacklist_thr_high = -2, config.roam_attempt_timeout = 3;
  config.client_rssi_renew = 4, config.client_max_age = 5, config.client_try_no_balance = 6;
  config.no_balance_enterprise = true;
  EXPECT_EQ(
      array_text([&](JsonWriter& array) { a_radio().channel(1).build(config).write_radio_config(array); }),
      R"([{"id":0,"channel":1,"band":2,"power":0,"bandwidth":20,"primary-channel":"none",)"
      R"("dunva-sta-rssi-thr-low":-1,"dunva-sta-rssi-thr-high":-2,"dunva-roam-attempt-timeout":3,)"
      R"("dunva-client-rssi-renew":4,"dunva-client-max-age":5,"dunva-try-no-balance":6,"no-balance-enterprise":1}])");
}

TEST_F(RadioTest, WritesAllOfItselfIntoTheBackup) {
  const Radio radio = a_radio()
                          .pool(20, 8)
                          .channel(40)
                          .bandwidth(40)
                          .primary(512)
                          .power(14)
                          .power_range(8, 20)
                          .power_changed(-2)
                          .eirp_range(3, 30)
                          .eirp(17)
                          .antenna(5, 2)
                          .available({44, 36, 40})
                          .with([](Radio& r) {
                            r.conflicted = true;
                            r.locked_tpc = 1, r.locked_dca = 2, r.locked_balancer = 3, r.locked_80211v = 4;
                          })
                          .vap(a_vap("office").id(1).r().link("r0", "02:00:00:00:00:01", "key"))
                          .client("0a:00:00:00:00:01", -61, "office")
                          .build(config, 1, mac("00:11:22:00:00:00"));
  EXPECT_EQ(object_text([&](JsonWriter& object) { radio.dump_json(object); }),
            R"({"id":1,"mac":"00:11:22:00:00:14","mac-offset":20,"radio-mac-count":8,"status":1,"power-changed":-2,)"
            R"("conflicted":1,"locked-tpc":1,"locked-dca":2,"locked-balancer":3,"locked-80211v":4,"channel":40,)"
            R"("band":5,"power":14,"max-power":20,"min-power":8,"bandwidth":40,"primary-channel":512,"eirp-min":3,)"
            R"("eirp-max":30,"eirp":17,"available-channels":[36,40,44],)"
            R"("antenna-configuration":{"antenna-gain":5,"cable-loss":2},)"
            R"("vaps":[{"id":1,"ssid":"office","mac":"00:11:22:00:00:15","mobility-domain":32255,"use_802dot11k":0,)"
            R"("use_802dot11r":1,"use_802dot11v":0,"fbt-links":["02:00:00:00:00:01"]}],)"
            R"("assoc_clients":[{"mac":"0A:00:00:00:00:01","dbm-signal":-61,"ssid":"office","no-balance":0}]})");
}

TEST_F(RadioTest, WritesItsShareOfSteeringMessages) {
  config.blacklist_timeout = 45;
  Radio radio = a_radio().build(config, 2);
  radio.problist.add(mac("0a:00:00:00:00:01"), 30);
  radio.problist.add(mac("0a:00:00:00:00:02"), 30);
  radio.problist.release(mac("0a:00:00:00:00:02"));
  radio.problist.add_disassoc(mac("0a:00:00:00:00:03"), 30, "office");
  EXPECT_EQ(array_text([&](JsonWriter& array) { radio.write_blacklist(array); }),
            R"([{"id":2,"blacklist":[{"mac":"0A:00:00:00:00:01","action":"block","timeout":45},)"
            R"({"mac":"0A:00:00:00:00:02","action":"unblock"}]}])");
  EXPECT_EQ(array_text([&](JsonWriter& array) { radio.write_disassoc_list(array); }),
            R"([{"id":2,"diassoc-list":[{"mac":"0A:00:00:00:00:03","ssid":"office","timeout":45}]}])");
  EXPECT_EQ(
      array_text([&](JsonWriter& array) { radio.write_probe_entry(array, mac("0a:00:00:00:00:04"), "guest", 7); }),
      R"([{"id":2,"probe-list":[{"ssid":"guest","mac":"0A:00:00:00:00:04","timeout":7}]}])");
}

}  // namespace
}  // namespace rrm::testing
