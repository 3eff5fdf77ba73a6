#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <vector>

#include "support/builders.h"
#include "support/capture.h"
#include "texts.h"

namespace rrm::testing {
namespace {

using Texts = std::vector<std::string>;

// One AP's radios, which read what a test says. The settings are switched before the first read.
class RadioReading : public ::testing::Test {
 protected:
  void read(const std::string& message, bool apply_vaps = true, bool list_flag = false) {
    radios().from_json(reader(message), pools, apply_vaps, list_flag);
  }
  // A message of radio 0 alone.
  void read_radio(const std::string& members) { read(R"({"radios":[{)" + members + "}]}"); }
  void restore(const std::string& backup) { radios().restore(reader(backup), pools); }

  Radios& radios() {
    if (!radios_) radios_ = std::make_unique<Radios>(config, base);
    return *radios_;
  }
  Radio& radio(std::int32_t id = 0) { return *radios().find(id); }
  std::string dump(std::int32_t id = 0) {
    return object_text([&](JsonWriter& object) { radio(id).dump_json(object); });
  }

  const MacAddr base = mac("00:11:22:00:00:00");
  Capture capture;
  ManualClock clock;
  DomainConfig config;
  ChannelPools pools;

 private:
  std::unique_ptr<Radios> radios_;
};

constexpr const char* enabled_36 = R"("status":1,"channel":36,"band":5)";

TEST_F(RadioReading, BeforeTheFirstMessageAnApHasThreeDefaultRadios) {
  EXPECT_TRUE(radios().first_message);
  EXPECT_FALSE(radios().received);
  ASSERT_EQ(radios().list.size(), 3U);
  EXPECT_EQ(
      dump(2),
      R"({"id":2,"mac":"00:11:22:00:00:20","mac-offset":32,"radio-mac-count":16,"status":0,"power-changed":0,)"
      R"("conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,"locked-80211v":0,"channel":1,"band":0,)"
      R"("power":0,"max-power":0,"min-power":0,"bandwidth":20,"primary-channel":0,"available-channels":[],)"
      R"("vaps":[],"assoc_clients":[]})");
  EXPECT_EQ(radio().eirp, -1);
  EXPECT_EQ(radio().eirp_min, -1);
  EXPECT_EQ(radio().eirp_max, -1);
  EXPECT_EQ(radio().priority, 255U);
  EXPECT_EQ(radio().sent_priority, 0U);
  EXPECT_FALSE(radio().lists_stale);
}

TEST_F(RadioReading, AMessageIsReadWhole) {
  read(R"({"radios":[{"id":1,"status":1,"channel":36,"band":5,"power":14,"power-max":20,"power-min":8,"eirp-min":6,)"
       R"("eirp-max":30,"eirp":17,"antenna-configuration":{"antenna-gain":5,"cable-loss":2},"bandwidth":80,)"
       R"("primary-channel":"ll","available-channels":"36 40 44 48","mac-offset":20,"radio-mac-count":8,)"
       R"("locked-for-tpc":1,"locked-for-dca":2,"locked-for-balancer":3,"locked-for-80211v":0,)"
       R"("vaps":[{"id":2,"ssid":"office","802dot11k":1}],)"
       R"("assoclist":[{"rssi":-61,"mac":"0a:00:00:00:00:01","ssid":"office"}]}]})");
  EXPECT_EQ(
      dump(1),
      R"({"id":1,"mac":"00:11:22:00:00:14","mac-offset":20,"radio-mac-count":8,"status":1,"power-changed":0,)"
      R"("conflicted":0,"locked-tpc":1,"locked-dca":2,"locked-balancer":3,"locked-80211v":0,"channel":36,"band":5,)"
      R"("power":14,"max-power":20,"min-power":8,"bandwidth":80,"primary-channel":256,"eirp-min":6,"eirp-max":30,)"
      R"("eirp":17,"available-channels":[36,40,44,48],"antenna-configuration":{"antenna-gain":5,"cable-loss":2},)"
      R"("vaps":[{"id":2,"ssid":"office","mac":"00:11:22:00:00:16","mobility-domain":32255,"use_802dot11k":1,)"
      R"("use_802dot11r":0,"use_802dot11v":1}],)"
      R"("assoc_clients":[{"mac":"0A:00:00:00:00:01","dbm-signal":-61,"ssid":"office","no-balance":0}]})");
}

TEST_F(RadioReading, EveryKeyThatIsMissingReadsAsNothing) {
  radio().power = 5, radio().power_max = 5, radio().power_min = 5, radio().bandwidth = 80;
  read(R"({"radios":[{}]})");
  EXPECT_EQ(
      dump(),
      R"({"id":0,"mac":"00:11:22:00:00:00","mac-offset":0,"radio-mac-count":16,"status":0,"power-changed":0,)"
      R"("conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":1,"locked-80211v":1,"channel":0,"band":0,)"
      R"("power":0,"max-power":0,"min-power":0,"bandwidth":0,"primary-channel":0,"available-channels":[],)"
      R"("vaps":[],"assoc_clients":[]})");
}

// What a message leaves in the log shows the order in which it is read: the band before the pool, the pool before the
// VAPs, the VAPs before the clients.
TEST_F(RadioReading, ReadsInOrder) {
  read(R"({"radios":[{"id":0,"status":1,"channel":36,"power":14,"mac-offset":16,)"
       R"("vaps":[{"id":3,"ssid":"office"}],"assoclist":[{"rssi":-61,"mac":"0a:00:00:00:00:01","ssid":"office"}]}]})");
  EXPECT_EQ(capture.lines(),
            (std::vector<LogLine>{
                {LOG_TRACE, "radio message without band: inferred/reused band=5 mac=00:11:22:00:00:00 id=0 channel=36"},
                {LOG_DUMP, "radio id=0, max_mac_count=16, mac_offset=16, mac = 00:11:22:00:00:10"},
                {LOG_DUMP, "----------------------------------"},
                {LOG_DUMP, "wlan_id = 0, mac = 00:11:22:00:00:10 , channel = 36, band = 5, power = 14"},
                {LOG_DUMP, "      vap_id = 3, 802.11k = 0, 802.11r = 0, 802.11v = 0, ssid = office"},
                {LOG_DUMP, "----------------------------------"},
                {LOG_TRACE, "Assocc clients:  1 - 0"},
                {LOG_TRACE, "Client (1/1) 0A:00:00:00:00:01 - office rssi -61 no_balance 0"},
            }));
}

struct LockCase {
  const char* members;
  std::int32_t tpc, dca, balancer, k_and_v;
};

TEST_F(RadioReading, AnApThatDoesNotKnowTheBalancerLocksIsNotBalanced) {
  const std::vector<LockCase> cases = {
      {"", 0, 0, 1, 1},
      {R"("locked-for-tpc":0,"locked-for-dca":0,"locked-for-balancer":0,"locked-for-80211v":0)", 0, 0, 0, 0},
      {R"("locked-for-tpc":2,"locked-for-dca":3,"locked-for-balancer":4,"locked-for-80211v":5)", 2, 3, 4, 5},
      {R"("locked-for-tpc":null,"locked-for-dca":[],"locked-for-balancer":null,"locked-for-80211v":"x")", 0, 0, 0, 0},
  };
  for (const LockCase& test : cases) {
    read_radio(test.members);
    EXPECT_EQ(radio().locked_tpc, test.tpc) << test.members;
    EXPECT_EQ(radio().locked_dca, test.dca) << test.members;
    EXPECT_EQ(radio().locked_balancer, test.balancer) << test.members;
    EXPECT_EQ(radio().locked_80211v, test.k_and_v) << test.members;
  }
}

constexpr const char* full_radio =
    R"("status":1,"channel":36,"band":5,"power":14,"power-max":20,"power-min":8,"bandwidth":40,)"
    R"("primary-channel":"lower","available-channels":"36 40","mac-offset":3,"locked-for-balancer":0,)"
    R"("vaps":[{"id":0,"ssid":"office"}],"assoclist":[{"rssi":-61,"mac":"0a:00:00:00:00:01","ssid":"office"}])";

TEST_F(RadioReading, WithoutTheRadiosNothingChanges) {
  for (const char* message : {"{}", R"({"radios":null})", R"({"radios":{}})", R"({"radios":"none"})", "[]", ""}) {
    read(std::string(R"({"radios":[{)") + full_radio + "}]}");
    const std::string before = dump();
    read(message);
    EXPECT_EQ(dump(), before) << message;
    EXPECT_TRUE(radio().tpc_managed) << message;
  }
}

TEST_F(RadioReading, TheFirstMessageIsOverEvenWithoutRadios) {
  read("{}");
  EXPECT_FALSE(radios().first_message);
}

TEST_F(RadioReading, ARadioThatNoElementNamesIsBlankedAndKeepsTheRest) {
  for (const char* message : {R"({"radios":[]})", R"({"radios":[null]})", R"({"radios":[{"id":1}]})",
                              R"({"radios":[{"id":-1}]})", R"({"radios":[{"id":3}]})"}) {
    read(std::string(R"({"radios":[{)") + full_radio + "}]}");
    radio().problist.add(mac("0a:00:00:00:00:02"), 30);
    radio().power_changed = -3;
    ASSERT_TRUE(radio().tpc_managed && radio().dca_managed);
    read(message);
    EXPECT_EQ(dump(),
              R"({"id":0,"mac":"00:11:22:00:00:03","mac-offset":3,"radio-mac-count":16,"status":0,"power-changed":-3,)"
              R"("conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":0,"locked-80211v":1,"channel":0,)"
              R"("band":5,"power":14,"max-power":20,"min-power":8,"bandwidth":40,"primary-channel":256,)"
              R"("available-channels":[],"vaps":[],)"
              R"("assoc_clients":[{"mac":"0A:00:00:00:00:01","dbm-signal":-61,"ssid":"office","no-balance":0}]})")
        << message;
    EXPECT_FALSE(radio().tpc_managed) << message;
    EXPECT_FALSE(radio().dca_managed) << message;
    EXPECT_EQ(radio().problist.members().size(), 1U) << message;
  }
}

// The limits of its antenna are the AP's, the marks and weights the domain's: neither goes with a radio that is away.
TEST_F(RadioReading, ABlankedRadioKeepsItsLimitsAndMarks) {
  for (const bool from_backup : {false, true}) {
    read_radio(R"("status":1,"channel":36,"band":5,"power":14,"power-max":20,"power-min":8,"eirp-min":6,"eirp-max":30,)"
               R"("antenna-configuration":{"antenna-gain":5,"cable-loss":2},"radio-mac-count":8,"bandwidth":20)");
    radio().lists_stale = radio().conflicted = true;
    radio().priority = 127, radio().sent_priority = 126;
    if (from_backup) {
      restore(R"({"interfaces":[]})");
    } else {
      read(R"({"radios":[]})");
    }
    EXPECT_EQ(dump(),
              R"({"id":0,"mac":"00:11:22:00:00:00","mac-offset":0,"radio-mac-count":8,"status":0,"power-changed":0,)"
              R"("conflicted":1,"locked-tpc":0,"locked-dca":0,"locked-balancer":1,"locked-80211v":1,"channel":0,)"
              R"("band":5,"power":14,"max-power":20,"min-power":8,"bandwidth":20,"primary-channel":0,"eirp-min":6,)"
              R"("eirp-max":30,"eirp":17,"available-channels":[],)"
              R"("antenna-configuration":{"antenna-gain":5,"cable-loss":2},"vaps":[],"assoc_clients":[]})")
        << from_backup;
    EXPECT_TRUE(radio().lists_stale) << from_backup;
    EXPECT_EQ(radio().priority, 127U) << from_backup;
    EXPECT_EQ(radio().sent_priority, 126U) << from_backup;
    EXPECT_FALSE(radio().tpc_managed || radio().dca_managed) << from_backup;
  }
}

TEST_F(RadioReading, AnEmptyArrayBlanksAllThree) {
  read(R"({"radios":[{"status":1,"channel":1},{"status":1,"channel":36},{"status":1,"channel":40}]})");
  read(R"({"radios":[]})");
  for (std::int32_t id = 0; id < 3; ++id) {
    EXPECT_FALSE(radio(id).status) << id;
    EXPECT_EQ(radio(id).channel, 0) << id;
  }
}

struct IdCase {
  const char* label;
  const char* elements;
  std::vector<std::int32_t> channels;  // of radios 0 to 2
  Texts warnings;
};

TEST_F(RadioReading, AnElementIsItsIdOrItsPlace) {
  const std::vector<IdCase> cases = {
      {"by place", R"({"channel":1},{"channel":36},{"channel":5})", {1, 36, 5}, {}},
      {"by id, in any order", R"({"id":2,"channel":1},{"id":0,"channel":36})", {36, 0, 1}, {}},
      {"a null element takes a place", R"(null,{"channel":36})", {0, 36, 0}, {}},
      {"a negative id is passed over in silence", R"({"id":-1,"channel":1},{"channel":36})", {0, 36, 0}, {}},
      {"the smallest id", R"({"id":-2147483648,"channel":1})", {0, 0, 0}, {}},
      {"an id at the count",
       R"({"id":3,"channel":1},{"channel":36})",
       {0, 36, 0},
       {"Skip invalid radio id=3, radios_count=3"}},
      {"the largest id",
       R"({"id":2147483647,"channel":1})",
       {0, 0, 0},
       {"Skip invalid radio id=2147483647, radios_count=3"}},
      {"a place at the count",
       R"({"channel":1},{"channel":2},{"channel":3},{"channel":4})",
       {1, 2, 3},
       {"Skip invalid radio id=3, radios_count=3"}},
      {"the last of two with one id stays", R"({"id":1,"channel":1},{"id":1,"channel":6})", {0, 6, 0}, {}},
      {"an id of another type reads as 0", R"({"channel":1},{"id":"x","channel":6})", {6, 0, 0}, {}},
  };
  for (const IdCase& test : cases) {
    capture.clear();
    read(std::string(R"({"radios":[)") + test.elements + "]}");
    for (std::int32_t id = 0; id < 3; ++id) {
      EXPECT_EQ(radio(id).channel, test.channels.at(static_cast<std::size_t>(id))) << test.label << ", radio " << id;
    }
    Texts skipped;
    for (const std::string& line : capture.lines(LOG_WARNING)) {
      if (line.starts_with("Skip")) skipped.push_back(line);
    }
    EXPECT_EQ(skipped, test.warnings) << test.label;
  }
}

struct PowerCase {
  const char* label;
  bool use_tpc;
  bool managed_before;
  const char* members;
  std::int32_t power;
  bool managed;
};

TEST_F(RadioReading, APlannedPowerStaysWhateverTheApReports) {
  const std::vector<PowerCase> cases = {
      {"not planned yet", true, false, R"("status":1,"power":20)", 20, true},
      {"planned", true, true, R"("status":1,"power":20)", 14, true},
      {"planned, the power missing", true, true, R"("status":1)", 14, true},
      {"planned, power control off", false, true, R"("status":1,"power":20)", 20, true},
      {"never planned with power control off", false, false, R"("status":1,"power":20)", 20, false},
      {"planned, then locked", true, true, R"("status":1,"power":20,"locked-for-tpc":1)", 20, true},
      {"locked from the start", true, false, R"("status":1,"power":20,"locked-for-tpc":1)", 20, false},
      {"planned, then disabled", true, true, R"("status":0,"power":20)", 20, false},
      {"disabled from the start", true, false, R"("status":0,"power":20)", 20, false},
  };
  for (const PowerCase& test : cases) {
    config.use_tpc = test.use_tpc;
    radio().power = 14;
    radio().tpc_managed = test.managed_before;
    read_radio(test.members);
    EXPECT_EQ(radio().power, test.power) << test.label;
    EXPECT_EQ(radio().tpc_managed, test.managed) << test.label;
  }
}

TEST_F(RadioReading, APlannedChannelIsTakenAsReported) {
  read_radio(enabled_36);
  ASSERT_TRUE(radio().dca_managed);
  read_radio(R"("status":1,"channel":44)");
  EXPECT_EQ(radio().channel, 44);
  EXPECT_TRUE(radio().dca_managed);
}

struct DcaCase {
  const char* label;
  bool use_dca;
  bool managed_before;
  const char* members;
  bool managed;
};

TEST_F(RadioReading, TheChannelBelongsToThePlanOnceNothingStandsAgainstIt) {
  const std::vector<DcaCase> cases = {
      {"enabled", true, false, R"("status":1)", true},
      {"allocation off", false, false, R"("status":1)", false},
      {"locked", true, false, R"("status":1,"locked-for-dca":1)", false},
      {"disabled", true, false, R"("status":0)", false},
      {"locked later", true, true, R"("status":1,"locked-for-dca":1)", true},
      {"disabled later", true, true, R"("status":0)", false},
  };
  for (const DcaCase& test : cases) {
    config.use_dca = test.use_dca;
    radio().dca_managed = test.managed_before;
    read_radio(test.members);
    EXPECT_EQ(radio().dca_managed, test.managed) << test.label;
  }
}

struct BandCase {
  const char* label;
  std::int32_t before;
  const char* members;
  std::int32_t band;
  LogLine logged;  // level 0: nothing
};

LogLine inferred(std::int32_t band, std::int32_t channel) {
  return {LOG_TRACE, "radio message without band: inferred/reused band=" + std::to_string(band) +
                         " mac=00:11:22:00:00:00 id=0 channel=" + std::to_string(channel)};
}

LogLine unknown_band(std::int32_t channel) {
  return {LOG_WARNING, "radio message without band and band cannot be inferred: mac=00:11:22:00:00:00 id=0 channel=" +
                           std::to_string(channel)};
}

TEST_F(RadioReading, TheBandIsGivenInferredOrKept) {
  const std::vector<BandCase> cases = {
      {"2 is given", 5, R"("channel":36,"band":2)", 2, {}},
      {"5 is given", 0, R"("channel":1,"band":5)", 5, {}},
      {"6 is given", 0, R"("channel":1,"band":6)", 6, {}},
      {"3 is none: from the channel", 6, R"("channel":36,"band":3)", 5, inferred(5, 36)},
      {"0 is none: from the channel", 5, R"("channel":1,"band":0)", 2, inferred(2, 1)},
      {"a text is none, unless it is a number", 5, R"("channel":1,"band":"x")", 2, inferred(2, 1)},
      {"a number in a text", 5, R"("channel":1,"band":"6")", 6, {}},
      {"none, and no band of the channel", 5, R"("channel":20,"band":7)", 0, unknown_band(20)},
      {"absent, and known: kept", 6, R"("channel":36)", 6, inferred(6, 36)},
      {"absent, and unknown: from the channel", 0, R"("channel":200)", 6, inferred(6, 200)},
      {"absent, and no band of the channel", 0, R"("channel":0)", 0, unknown_band(0)},
  };
  for (const BandCase& test : cases) {
    radio().band = test.before;
    capture.clear();
    read_radio(test.members);
    EXPECT_EQ(radio().band, test.band) << test.label;
    const bool logged = test.logged.level != 0;
    EXPECT_EQ(capture.has_line(test.logged.level, test.logged.text), logged) << test.label;
    EXPECT_EQ(capture.lines(LOG_TRACE).size() + capture.lines(LOG_WARNING).size(), logged ? 1U : 0U) << test.label;
  }
}

struct EirpCase {
  const char* label;
  const char* members;
  std::int32_t eirp, eirp_min, eirp_max, gain, loss;
  bool has_antenna;
};

TEST_F(RadioReading, TheEirpKeysGoTogether) {
  const std::vector<EirpCase> cases = {
      {"none of them: all stay", "", 15, 3, 30, 5, 1, true},
      {"only the EIRP", R"("eirp":20)", 20, -1, -1, 0, 0, false},
      {"only the lowest", R"("eirp-min":4)", 4, 4, -1, 0, 0, false},
      {"only the highest", R"("eirp-max":9)", -1, -1, 9, 0, 0, false},
      {"only the antenna", R"("antenna-configuration":{"antenna-gain":2,"cable-loss":1})", 12, -1, -1, 2, 1, true},
      {"an antenna without its numbers", R"("antenna-configuration":{})", 11, -1, -1, 0, 0, true},
      {"a null antenna is none", R"("antenna-configuration":null)", -1, -1, -1, 0, 0, false},
      {"an antenna of another kind is none", R"("antenna-configuration":[5])", -1, -1, -1, 0, 0, false},
      {"all of them: the EIRP is taken as it is",
       R"("eirp":9,"eirp-min":1,"eirp-max":8,"antenna-configuration":{"antenna-gain":2})", 9, 1, 8, 2, 0, true},
      {"a null EIRP is one of 0, and is taken as it is", R"("eirp":null,"eirp-min":4)", 0, 4, -1, 0, 0, false},
      {"null limits are limits of 0", R"("eirp-min":null,"eirp-max":null)", 0, 0, 0, 0, 0, false},
      {"without the EIRP: it is worked out", R"("eirp-min":1,"eirp-max":28,"antenna-configuration":{"antenna-gain":2})",
       13, 1, 28, 2, 0, true},
  };
  for (const EirpCase& test : cases) {
    radio().eirp = 40, radio().eirp_min = 3, radio().eirp_max = 30;
    radio().has_antenna = true, radio().antenna_gain = 5, radio().cable_loss = 1;
    read_radio(std::string(R"("status":0,"power":11,"power-max":40)") + (*test.members ? "," : "") + test.members);
    EXPECT_EQ(radio().eirp, test.eirp) << test.label;
    EXPECT_EQ(radio().eirp_min, test.eirp_min) << test.label;
    EXPECT_EQ(radio().eirp_max, test.eirp_max) << test.label;
    EXPECT_EQ(radio().antenna_gain, test.gain) << test.label;
    EXPECT_EQ(radio().cable_loss, test.loss) << test.label;
    EXPECT_EQ(radio().has_antenna, test.has_antenna) << test.label;
  }
}

TEST_F(RadioReading, TheEirpIsWorkedOutWithTheLimitsOfTheSameMessage) {
  radio().power_max = 10;
  read_radio(R"("status":1,"power":14,"power-max":18,"eirp-min":20,"antenna-configuration":{"antenna-gain":3})");
  EXPECT_EQ(radio().power, 17);
  EXPECT_EQ(radio().eirp, 20);
}

struct PoolCase {
  const char* label;
  bool first;
  const char* members;
  std::int32_t offset, count;
  bool mac_set;
};

TEST_F(RadioReading, TheMacPoolComesFromTheMessageOrStays) {
  const std::vector<PoolCase> cases = {
      {"first message, absent: the defaults", true, R"("id":2)", 32, 16, true},
      {"first message, given", true, R"("id":2,"mac-offset":40,"radio-mac-count":8)", 40, 8, true},
      {"first message, an offset alone", true, R"("id":2,"mac-offset":40)", 40, 16, true},
      {"later, absent: what was", false, R"("id":2)", 5, 6, false},
      {"later, the same", false, R"("id":2,"mac-offset":5,"radio-mac-count":6)", 5, 6, false},
      {"later, another offset", false, R"("id":2,"mac-offset":7)", 7, 6, true},
      {"later, another count", false, R"("id":2,"radio-mac-count":7)", 5, 7, true},
      {"later, 0 is a value", false, R"("id":2,"mac-offset":0,"radio-mac-count":0)", 0, 0, true},
      {"null and other types are there and read as 0", true, R"("id":2,"mac-offset":null,"radio-mac-count":[])", 0, 0,
       true},
      {"an offset that wraps leaves the AP's address", false, R"("id":2,"mac-offset":-1)", -1, 6, true},
  };
  for (const PoolCase& test : cases) {
    radios().first_message = test.first;
    radio(2).mac_offset = 5, radio(2).max_mac_count = 6, radio(2).mac = base.plus(5);
    capture.clear();
    read_radio(test.members);
    EXPECT_EQ(radio(2).mac_offset, test.offset) << test.label;
    EXPECT_EQ(radio(2).max_mac_count, test.count) << test.label;
    EXPECT_EQ(radio(2).mac, base.plus(test.offset)) << test.label;
    const std::string line = "radio id=2, max_mac_count=" + std::to_string(test.count) +
                             ", mac_offset=" + std::to_string(test.offset) +
                             ", mac = " + base.plus(test.offset).to_string();
    EXPECT_EQ(capture.count(line), test.mac_set ? 1U : 0U) << test.label;
  }
}

TEST_F(RadioReading, ASecondMessageIsNotTheFirst) {
  read_radio(R"("mac-offset":5,"radio-mac-count":6)");
  read_radio("");
  EXPECT_EQ(radio().mac_offset, 5);
  EXPECT_EQ(radio().max_mac_count, 6);
}

TEST_F(RadioReading, ThePositionOfThePrimaryIsAText) {
  struct Case {
    const char* text;
    std::int32_t code;
  };
  // At 80 MHz and 2.4 GHz no position is forced and all four stand.
  for (const Case& test : std::vector<Case>{{R"("upper")", 512},
                                            {R"("lower")", 256},
                                            {R"("ll")", 256},
                                            {R"("lu")", 512},
                                            {R"("ul")", 768},
                                            {R"("uu")", 1024},
                                            {R"("Upper")", 0},
                                            {R"("none")", 0},
                                            {R"("")", 0},
                                            {"512", 0},
                                            {"null", 0}}) {
    read_radio(std::string(R"("status":1,"channel":6,"band":2,"bandwidth":80,"primary-channel":)") + test.text);
    EXPECT_EQ(radio().primary_channel, test.code) << test.text;
  }
}

TEST_F(RadioReading, ThePositionIsMadeToAgreeWithTheChannel) {
  read_radio(R"("status":1,"channel":36,"band":5,"bandwidth":40,"primary-channel":"uu")");
  EXPECT_EQ(radio().primary_channel, 256);
}

struct ChannelsCase {
  const char* label;
  const char* text;
  ChannelSet channels;
  ChannelSet pool_5ghz;
};

TEST_F(RadioReading, AvailableChannelsAreTheNumbersOfAText) {
  const std::vector<ChannelsCase> cases = {
      {"blanks", R"("36 40  44")", {36, 40, 44}, {36, 40, 44}},
      {"anything else separates", R"("36,40;x44-48")", {36, 40, 44, 48}, {36, 40, 44, 48}},
      {"no order, repeats", R"("44 36 44")", {36, 44}, {36, 44}},
      {"0 is none", R"("0 36 00")", {36}, {36}},
      {"every digit", R"("36 64 149 157 108 112")", {36, 64, 108, 112, 149, 157}, {36, 64, 108, 112, 149, 157}},
      {"leading zeros", R"("036")", {36}, {36}},
      {"a channel of no band is permitted, but in no pool", R"("36 234")", {36, 234}, {36}},
      {"numbers beyond 32 bits are one number of no band",
       R"("36 2147483647 2147483648 99999999999999999999999")",
       {36, INT_MAX},
       {36}},
      {"a 5 GHz radio has no pool for 166 and above", R"("36 165 166")", {36, 165, 166}, {36, 165}},
      {"a list of numbers is no text", "[36,40]", {}, {}},
      {"nothing", R"("")", {}, {}},
  };
  for (const ChannelsCase& test : cases) {
    pools = {};
    read_radio(std::string(enabled_36) + R"(,"available-channels":)" + test.text);
    EXPECT_EQ(radio().available_channels, test.channels) << test.label;
    EXPECT_EQ(pools[5], test.pool_5ghz) << test.label;
  }
}

TEST_F(RadioReading, PoolsOnlyGrow) {
  read_radio(R"("status":1,"channel":36,"band":5,"available-channels":"36 40")");
  read_radio(R"("status":1,"channel":36,"band":5,"available-channels":"36 44")");
  read(R"({"radios":[]})");
  EXPECT_EQ(pools[5], (ChannelSet{36, 40, 44}));
}

TEST_F(RadioReading, EachBandHasItsPool) {
  read(R"({"radios":[{"status":1,"channel":1,"band":2,"available-channels":"1 6"},)"
       R"({"status":1,"channel":36,"band":5,"available-channels":"36"},)"
       R"({"status":1,"channel":5,"band":6,"available-channels":"5 200"}]})");
  EXPECT_EQ(pools, (ChannelPools{ChannelSet{}, {}, {1, 6}, {}, {}, {36}, {5, 200}}));
}

TEST_F(RadioReading, ARadioWithoutABandSortsByTheNumber) {
  read_radio(R"("status":1,"channel":0,"available-channels":"1 36 20")");
  EXPECT_EQ(pools, (ChannelPools{ChannelSet{}, {}, {1}, {}, {}, {36}, {}}));
}

TEST_F(RadioReading, AChannelOffTheListIsScannedToo) {
  struct Case {
    const char* label;
    const char* members;
    ChannelSet pool;
  };
  for (const Case& test :
       std::vector<Case>{{"off the list", R"("status":1,"channel":44,"band":5,"available-channels":"36")", {36, 44}},
                         {"disabled", R"("status":0,"channel":44,"band":5,"available-channels":"36")", {36}},
                         {"an empty list permits all", R"("status":1,"channel":44,"band":5)", {}},
                         {"no channel", R"("status":1,"channel":0,"band":5,"available-channels":"36")", {36}},
                         {"no band", R"("status":1,"channel":200,"band":5,"available-channels":"36")", {36}}}) {
    pools = {};
    read_radio(test.members);
    EXPECT_EQ(pools[5], test.pool) << test.label;
  }
}

TEST_F(RadioReading, StaleListsStayStale) {
  read(R"({"radios":[{}]})", true, true);
  EXPECT_TRUE(radio().lists_stale);
  read(R"({"radios":[{}]})", true, false);
  EXPECT_TRUE(radio().lists_stale);
  EXPECT_FALSE(radio(1).lists_stale);
}

constexpr const char* two_lists = R"("status":1,"channel":36,"vaps":[{"id":0,"ssid":"guest"}],)"
                                  R"("assoclist":[{"rssi":-70,"mac":"0a:00:00:00:00:02","ssid":"guest"}])";

TEST_F(RadioReading, VapsAndClientsAreReadOnlyForAFeatureThatUsesThem) {
  struct Case {
    const char* label;
    bool DomainConfig::*feature;
    bool read;
  };
  for (const Case& test : std::vector<Case>{{"none", nullptr, false},
                                            {"balance", &DomainConfig::use_balance, true},
                                            {"802.11k", &DomainConfig::use_80211k, true},
                                            {"802.11r", &DomainConfig::use_80211r, true},
                                            {"802.11v", &DomainConfig::use_80211v, true}}) {
    config.use_balance = config.use_80211k = config.use_80211r = config.use_80211v = false;
    if (test.feature != nullptr) config.*test.feature = true;
    radio().vaps.clear();
    radio().vaps.insert(a_vap("office").build());
    radio().assoc.clear();
    read_radio(two_lists);
    EXPECT_EQ(radio().vaps.find("guest") != nullptr, test.read) << test.label;
    EXPECT_EQ(radio().vaps.find("office") != nullptr, !test.read) << test.label;
    EXPECT_EQ(radio().assoc.load(), test.read ? 1 : 0) << test.label;
  }
}

// A radio that does not mention its lock for 802.11v is locked at once, for the VAPs of the very same message.
TEST_F(RadioReading, TheLocksOfAMessageHoldForItsVaps) {
  struct Case {
    const char* label;
    bool from_backup;
    std::int32_t locked_before;
    const char* members;
    bool use_v;
  };
  for (const Case& test : std::vector<Case>{
           {"not mentioned", false, 0, R"("x":0)", false},
           {"locked", false, 0, R"("locked-for-80211v":1)", false},
           {"unlocked", false, 1, R"("locked-for-80211v":0)", true},
           {"not mentioned in a backup", true, 1, R"("x":0)", true},
           {"locked in a backup", true, 0, R"("locked-80211v":1)", false},
       }) {
    radio().locked_80211v = test.locked_before;
    const std::string element =
        std::string(R"({"vaps":[{"id":0,"ssid":"office","802dot11v":1,"use_802dot11v":1}],)") + test.members + "}";
    if (test.from_backup) {
      restore(R"({"interfaces":[)" + element + "]}");
    } else {
      read(R"({"radios":[)" + element + "]}");
    }
    ASSERT_NE(radio().vaps.find("office"), nullptr) << test.label;
    EXPECT_EQ(radio().vaps.find("office")->use_802dot11v, test.use_v) << test.label;
  }
}

TEST_F(RadioReading, VapsStayUnlessTheyAreApplied) {
  radio().vaps.insert(a_vap("office").build());
  read(std::string(R"({"radios":[{)") + two_lists + "}]}", false);
  EXPECT_NE(radio().vaps.find("office"), nullptr);
  EXPECT_EQ(radio().vaps.find("guest"), nullptr);
  EXPECT_EQ(radio().assoc.load(), 1);
  EXPECT_EQ(capture.count("----------------------------------"), 0U);
}

TEST_F(RadioReading, AppliedVapsThatAreMissingAreNone) {
  for (const char* members : {"", R"("vaps":null)"}) {
    radio().vaps.insert(a_vap("office").build());
    capture.clear();
    read_radio(members);
    EXPECT_TRUE(radio().vaps.empty()) << members;
    EXPECT_EQ(capture.count("----------------------------------"), 2U) << members;
  }
}

TEST_F(RadioReading, WithoutAListTheClientsStay) {
  radio().assoc.add_client(mac("0a:00:00:00:00:01"), -61, "office", true, false);
  radio().assoc.add_expected(mac("0a:00:00:00:00:03"), {});
  for (const char* list : {"null", "{}", "\"none\"", "7"}) read_radio(std::string(R"("assoclist":)") + list);
  read_radio("");
  EXPECT_EQ(radio().assoc.load(), 2);
  read_radio(R"("assoclist":[])");
  EXPECT_EQ(radio().assoc.load(), 1);
}

TEST_F(RadioReading, NumbersBeyond32BitsAreCut) {
  read_radio(R"("status":1,"channel":4294967332,"power":-4294967295,"bandwidth":8589934632)");
  EXPECT_EQ(radio().channel, 36);
  EXPECT_EQ(radio().power, 1);
  EXPECT_EQ(radio().bandwidth, 40);
}

TEST_F(RadioReading, NumbersAtTheEndsOverflowNothing) {
  for (const std::string number : {"-2147483648", "2147483647"}) {
    std::string members = R"("status":1)";
    for (const char* key : {"channel", "band", "power", "power-max", "power-min", "eirp-min", "eirp-max", "bandwidth",
                            "mac-offset", "radio-mac-count"}) {
      members += std::string(",\"") + key + "\":" + number;
    }
    members += R"(,"antenna-configuration":{"antenna-gain":)" + number + R"(,"cable-loss":-2147483647})";
    members += R"(,"vaps":[{"id":)" + number + R"(,"ssid":"office"}])";
    read_radio(members);
    EXPECT_EQ(radio().antenna_gain, std::stol(number)) << number;
    EXPECT_EQ(radio().lower_power(INT_MAX, INT_MIN), 0) << number;
    EXPECT_EQ(radio().primary_channel, 0) << number;
  }
}

// A value of any type, often one that some key makes sense of.
std::string random_value(std::mt19937& random) {
  const std::vector<std::string> values = {
      "0",
      "1",
      "-1",
      "2",
      "3",
      "5",
      "6",
      "20",
      "36",
      "40",
      "80",
      "160",
      "165",
      "166",
      "233",
      "320",
      "2147483647",
      "-2147483648",
      "1e300",
      "99999999999",
      "null",
      "true",
      "[]",
      "{}",
      "1.5",
      R"("")",
      R"("36 40 0 99999999999 200")",
      R"("ul")",
      R"("6")",
      R"([{"id":15,"ssid":"a"},{"id":16,"ssid":"b"},{"id":1,"ssid":"c","mac":"here"},null,7])",
      R"([{"rssi":-60,"mac":"0a:00:00:00:00:01","ssid":"a"},{},null])",
      R"({"antenna-gain":2147483647,"cable-loss":-1})"};
  return values[random() % values.size()];
}

std::string random_message(std::mt19937& random) {
  const std::vector<std::string> keys = {"id",
                                         "status",
                                         "channel",
                                         "band",
                                         "power",
                                         "power-max",
                                         "power-min",
                                         "eirp-min",
                                         "eirp-max",
                                         "eirp",
                                         "vaps",
                                         "bandwidth",
                                         "mac-offset",
                                         "radio-mac-count",
                                         "assoclist",
                                         "locked-for-tpc",
                                         "locked-for-dca",
                                         "locked-for-balancer",
                                         "locked-for-80211v",
                                         "primary-channel",
                                         "available-channels",
                                         "antenna-configuration"};
  std::string elements;
  for (unsigned count = random() % 4; count > 0; --count) {
    std::string members = R"("x":0)";
    for (const std::string& key : keys) {
      if (random() % 2 == 0) members += ",\"" + key + "\":" + random_value(random);
    }
    elements += (elements.empty() ? "{" : ",{") + members + "}";
  }
  return R"({"radios":[)" + elements + "]}";
}

void expect_sound(const Radio& radio, const std::string& message) {
  EXPECT_TRUE(radio.status || (!radio.tpc_managed && !radio.dca_managed)) << message;
  EXPECT_TRUE(radio.band == 0 || radio.band == 2 || radio.band == 5 || radio.band == 6) << message;
  EXPECT_TRUE(radio.primary_channel >= 0 && radio.primary_channel <= 1024 && radio.primary_channel % 256 == 0)
      << message;
  EXPECT_TRUE(radio.bandwidth != 20 || radio.primary_channel == 0) << message;
  EXPECT_TRUE(radio.available_channels.empty() || *radio.available_channels.begin() > 0) << message;
  for (const auto& [ssid, vap] : radio.vaps) EXPECT_TRUE(vap.mac.in_pool(radio.mac, radio.max_mac_count)) << message;
}

TEST_F(RadioReading, WhateverAnApSendsItsRadiosStaySound) {
  std::mt19937 random(31);
  for (int trial = 0; trial < 2000 && !HasFailure(); ++trial) {
    const std::string message = random_message(random);
    read(message);
    for (std::int32_t id = 0; id < 3; ++id) {
      ASSERT_EQ(radio(id).id, id);
      expect_sound(radio(id), message);
      radio(id).lower_power(-60, -70);
      radio(id).raise_power(-90, -70, -72);
      EXPECT_FALSE(reader(dump(id)).empty()) << message;
    }
    capture.clear();
  }
  for (const std::int32_t band : {0, 1, 3, 4}) EXPECT_TRUE(pools.at(static_cast<std::size_t>(band)).empty()) << band;
  for (const ChannelSet& pool : pools) {
    for (const std::int32_t channel : pool) EXPECT_TRUE(channel >= 1 && channel <= 233) << channel;
  }
}

// The form of the backup.

TEST_F(RadioReading, ABackupIsRestoredWithoutWhatTheNextMessageBrings) {
  restore(R"({"received":1,"interfaces":[{"id":1,"mac":"00:99:99:99:99:99","mac-offset":20,"radio-mac-count":8,)"
          R"("status":1,"power-changed":-3,"conflicted":1,"locked-tpc":0,"locked-dca":0,"locked-balancer":2,)"
          R"("locked-80211v":3,"channel":36,"band":5,"power":14,"max-power":20,"min-power":8,"bandwidth":80,)"
          R"("primary-channel":1024,"eirp-min":6,"eirp-max":30,"eirp":17,"available-channels":[44,36],)"
          R"("antenna-configuration":{"antenna-gain":5,"cable-loss":2},)"
          R"("vaps":[{"id":2,"ssid":"office","mac":"00:11:22:00:00:15","use_802dot11k":1,"use_802dot11r":1,)"
          R"("fbt-r0-keyholder":"r0","fbt-r1-keyholder":"r1","fbt-rrb-key":"key"}],)"
          R"("assoc_clients":[{"mac":"0A:00:00:00:00:01","dbm-signal":-61,"ssid":"office","no-balance":0}]}]})");
  EXPECT_EQ(dump(1),
            R"({"id":1,"mac":"00:11:22:00:00:14","mac-offset":20,"radio-mac-count":8,"status":1,"power-changed":0,)"
            R"("conflicted":0,"locked-tpc":0,"locked-dca":0,"locked-balancer":2,"locked-80211v":3,"channel":36,)"
            R"("band":5,"power":14,"max-power":20,"min-power":8,"bandwidth":80,"primary-channel":256,)"
            R"("available-channels":[36,44],)"
            R"("vaps":[{"id":2,"ssid":"office","mac":"00:11:22:00:00:15","mobility-domain":32255,"use_802dot11k":1,)"
            R"("use_802dot11r":1,"use_802dot11v":0}],"assoc_clients":[]})");
  EXPECT_EQ(radio(1).vaps.find("office")->fbt_rrb_key, "key");
  EXPECT_EQ(radio(1).eirp, -1);
  EXPECT_EQ(radio(1).eirp_min, -1);
  EXPECT_EQ(radio(1).eirp_max, -1);
  EXPECT_FALSE(radio(1).has_antenna);
  EXPECT_TRUE(radio(1).tpc_managed);
  EXPECT_TRUE(radio(1).dca_managed);
  EXPECT_FALSE(radios().received);
  EXPECT_FALSE(radios().first_message);
  EXPECT_EQ(pools[5], (ChannelSet{36, 44}));
  EXPECT_FALSE(radio(0).status);
  EXPECT_EQ(radio(0).channel, 0);
}

TEST_F(RadioReading, ABackupLocksNothingByItself) {
  restore(R"({"interfaces":[{"status":1,"channel":36,"locked-for-tpc":1,"locked-for-balancer":1}]})");
  EXPECT_EQ(radio().locked_tpc, 0);
  EXPECT_EQ(radio().locked_dca, 0);
  EXPECT_EQ(radio().locked_balancer, 0);
  EXPECT_EQ(radio().locked_80211v, 0);
}

TEST_F(RadioReading, ABackupsPoolIsTheDefaultWhereItIsMissing) {
  radio(1).mac_offset = 5, radio(1).max_mac_count = 6;
  restore(R"({"interfaces":[{"id":1}]})");
  EXPECT_EQ(radio(1).mac_offset, 16);
  EXPECT_EQ(radio(1).max_mac_count, 16);
  EXPECT_EQ(radio(1).mac, base.plus(16));
}

TEST_F(RadioReading, ARestoredRadioIsPlannedUnderTheSameConditions) {
  struct Case {
    const char* label;
    bool use_tpc, use_dca;
    const char* members;
    bool tpc, dca;
  };
  for (const Case& test :
       std::vector<Case>{{"both", true, true, R"("status":1)", true, true},
                         {"disabled", true, true, R"("status":0)", false, false},
                         {"locked", true, true, R"("status":1,"locked-tpc":1,"locked-dca":1)", false, false},
                         {"no power control", false, true, R"("status":1)", false, true},
                         {"no channel allocation", true, false, R"("status":1)", true, false}}) {
    config.use_tpc = test.use_tpc, config.use_dca = test.use_dca;
    radio().tpc_managed = radio().dca_managed = false;
    restore(std::string(R"({"interfaces":[{)") + test.members + "}]}");
    EXPECT_EQ(radio().tpc_managed, test.tpc) << test.label;
    EXPECT_EQ(radio().dca_managed, test.dca) << test.label;
  }
}

TEST_F(RadioReading, ARestoredPowerIsAlwaysTaken) {
  radio().tpc_managed = true, radio().power = 14;
  restore(R"({"interfaces":[{"status":1,"power":20}]})");
  EXPECT_EQ(radio().power, 20);
}

TEST_F(RadioReading, AChannelOffTheRestoredListIsScannedToo) {
  restore(R"({"interfaces":[{"status":1,"channel":44,"band":5,"available-channels":[36]}]})");
  EXPECT_EQ(pools[5], (ChannelSet{36, 44}));
}

TEST_F(RadioReading, ARestoredPositionIsANumber) {
  restore(R"({"interfaces":[{"channel":6,"band":2,"bandwidth":80,"primary-channel":768}]})");
  EXPECT_EQ(radio().primary_channel, 768);
  restore(R"({"interfaces":[{"channel":6,"band":2,"bandwidth":80,"primary-channel":"ul"}]})");
  EXPECT_EQ(radio().primary_channel, 0);
}

TEST_F(RadioReading, ARestoredListIsTakenAsItStands) {
  restore(R"({"interfaces":[{"band":5,"available-channels":[40,36,0,-1,2147483647,36]}]})");
  EXPECT_EQ(radio().available_channels, (ChannelSet{-1, 0, 36, 40, INT_MAX}));
  EXPECT_EQ(pools, (ChannelPools{ChannelSet{}, {}, {}, {}, {}, {36, 40}, {}}));
}

TEST_F(RadioReading, RestoresInOrder) {
  restore(R"({"interfaces":[{"status":1,"channel":36,"power":14,"vaps":[{"id":3,"ssid":"office"}]},)"
          R"({"id":3},{"channel":20}]})");
  EXPECT_EQ(capture.lines(),
            (std::vector<LogLine>{
                {LOG_TRACE, "radio restore without band: inferred/reused band=5 mac=00:11:22:00:00:00 id=0 channel=36"},
                {LOG_DUMP, "radio id=0, max_mac_count=16, mac_offset=0, mac = 00:11:22:00:00:00"},
                {LOG_DUMP, "----------------------------------"},
                {LOG_DUMP, "wlan_id = 0, mac = 00:11:22:00:00:00 , channel = 36, power = 14"},
                {LOG_DUMP, "      vap_id = 3, 802.11k = 0, 802.11r = 0, 802.11v = 0, ssid = office"},
                {LOG_DUMP, "----------------------------------"},
                {LOG_WARNING, "Skip invalid restore radio id=3, radios_count=3"},
                {LOG_WARNING,
                 "radio restore without band and band cannot be inferred: mac=00:11:22:00:00:20 id=2 channel=20"},
                {LOG_DUMP, "radio id=2, max_mac_count=16, mac_offset=32, mac = 00:11:22:00:00:20"},
                {LOG_DUMP, "----------------------------------"},
                {LOG_DUMP, "wlan_id = 2, mac = 00:11:22:00:00:20 , channel = 20, power = 0"},
                {LOG_DUMP, "----------------------------------"},
            }));
}

TEST_F(RadioReading, WithoutItsInterfacesABackupChangesNothing) {
  read_radio(full_radio);
  const std::string before = dump();
  restore("{}");
  EXPECT_EQ(dump(), before);
  restore(R"({"interfaces":[]})");
  EXPECT_EQ(radio().channel, 0);
}

// A message after a restore brings the EIRP limits back, and the plan's power stays.
TEST_F(RadioReading, TheNextMessageBringsTheLimitsBack) {
  restore(R"({"interfaces":[{"status":1,"channel":36,"band":5,"power":14,"max-power":20,"min-power":8}]})");
  read_radio(R"("status":1,"channel":36,"band":5,"power":20,"power-max":20,"power-min":8,"eirp-max":15,)"
             R"("antenna-configuration":{"antenna-gain":3,"cable-loss":0})");
  EXPECT_EQ(radio().power, 12);
  EXPECT_EQ(radio().eirp, 15);
}

}  // namespace
}  // namespace rrm::testing
