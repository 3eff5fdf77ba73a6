#include <gtest/gtest.h>

#include "ApEntry.h"
#include "Config.h"
#include "json/JsonReader.h"
#include "protocol/messages.h"
#include "support/builders.h"
#include "support/capture.h"

namespace rrm::protocol {
namespace {

using rrm::testing::a_neighbour;
using rrm::testing::a_radio;
using rrm::testing::a_set;
using rrm::testing::a_vap;
using rrm::testing::an_ap;
using rrm::testing::mac;

// What an AP is told of a radio behind its own values, with default settings.
#define DEFAULT_RADIO_SETTINGS                                                                      \
  R"("dunva-sta-rssi-thr-low":-75,"dunva-sta-rssi-thr-high":-65,"dunva-roam-attempt-timeout":600,)" \
  R"("dunva-client-rssi-renew":15,"dunva-client-max-age":20,"dunva-try-no-balance":2,"no-balance-enterprise":0})"

const char* const radios_text =
    R"("radios":[{"id":0,"channel":6,"band":2,"power":14,"bandwidth":20,"primary-channel":"none",)" DEFAULT_RADIO_SETTINGS
    R"(,{"id":1,"channel":36,"band":5,"power":17,"bandwidth":80,"primary-channel":"ll",)" DEFAULT_RADIO_SETTINGS "]";

void no_list(JsonWriter&) {}

class Messages : public ::testing::Test {
 protected:
  std::shared_ptr<ApEntry> ap() const {
    return an_ap()
        .mac("0a:bc:de:00:11:22")
        .with_radio(a_radio().channel(6).power(14))
        .with_radio(a_radio().channel(36).bandwidth(80).primary(primary_lower).power(17))
        .with_radio(a_radio().channel(37).band(6).disabled())
        .build(config);
  }

  DomainConfig config;
  rrm::testing::Capture capture;
};

TEST_F(Messages, ASubscribeThatSucceedsIsAnsweredWithTheDomainsSettingsAndTheEnabledRadios) {
  EXPECT_EQ(subscribe_success("lab", *ap(), config, no_list).to_string(),
            R"({"service":"rrm","version":"2.4","cmd":"subscribe-response","status":"success","domain":"lab",)"
            R"("ap-mac":"0A:BC:DE:00:11:22","config":{"use-tpc":1,"use-dca":1,"use-load-balance":1,"use-80211r":1,)"
            R"("use-80211v":0,)" +
                std::string(radios_text) + "}}");
}

TEST_F(Messages, EverySwitchOfTheDomainHasItsKey) {
  struct Case {
    bool DomainConfig::*setting;
    const char* expected;
  };
  const Case cases[] = {
      {&DomainConfig::use_tpc,
       R"({"use-tpc":1,"use-dca":0,"use-load-balance":0,"use-80211r":0,"use-80211v":0,"radios":[]})"},
      {&DomainConfig::use_dca,
       R"({"use-tpc":0,"use-dca":1,"use-load-balance":0,"use-80211r":0,"use-80211v":0,"radios":[]})"},
      {&DomainConfig::use_balance,
       R"({"use-tpc":0,"use-dca":0,"use-load-balance":1,"use-80211r":0,"use-80211v":0,"radios":[]})"},
      {&DomainConfig::use_80211r,
       R"({"use-tpc":0,"use-dca":0,"use-load-balance":0,"use-80211r":1,"use-80211v":0,"radios":[]})"},
      {&DomainConfig::use_80211v,
       R"({"use-tpc":0,"use-dca":0,"use-load-balance":0,"use-80211r":0,"use-80211v":1,"radios":[]})"},
  };
  for (const Case& one : cases) {
    config.use_tpc = config.use_dca = config.use_balance = config.use_80211r = config.use_80211v = false;
    config.*one.setting = true;
    const std::string text = subscribe_success("lab", *an_ap().build(config), config, no_list).to_string();
    const JsonReader message(text.c_str());
    const JsonReader settings = message.get("config");
    EXPECT_STREQ(settings.to_string(), one.expected);
  }
}

TEST_F(Messages, ADomainsNameIsEscaped) {
  EXPECT_EQ(request_mode("a\"b\\c\n", mac("00:00:00:00:00:01")).to_string(),
            std::string(R"({"service":"rrm","version":"2.4","cmd":"rrm-request-mode","domain":"a\"b\\c\n",)"
                        R"("ap-mac":"00:00:00:00:00:01"})"));
}

TEST_F(Messages, ASubscribeThatFailsNamesItsCause) {
  struct Case {
    SubscribeFailure failure;
    const char* expected;
  };
  const Case cases[] = {
      {SubscribeFailure::invalid_mac_parameters,
       R"({"service":"rrm","version":"2.4","cmd":"subscribe-response","status":"fail","code":400,"ap-mac":"0A:BC:DE:00:11:22"})"},
      {SubscribeFailure::server_disabled,
       R"({"service":"rrm","version":"2.4","cmd":"subscribe-response","status":"fail","code":404,"ap-mac":"0A:BC:DE:00:11:22"})"},
      {SubscribeFailure::not_served,
       R"({"service":"rrm","version":"2.4","cmd":"subscribe-response","status":"fail","code":503,"ap-mac":"0A:BC:DE:00:11:22"})"},
  };
  for (const Case& one : cases) {
    EXPECT_STREQ(subscribe_failure(one.failure, mac("0a:bc:de:00:11:22")).to_string(), one.expected);
  }
}

TEST_F(Messages, AModeRequestCarriesTheDomainAndTheAp) {
  EXPECT_STREQ(
      request_mode("lab", mac("0a:bc:de:00:11:22")).to_string(),
      R"({"service":"rrm","version":"2.4","cmd":"rrm-request-mode","domain":"lab","ap-mac":"0A:BC:DE:00:11:22"})");
}

TEST_F(Messages, AScanOrderListsTheChannelsOfEachBand) {
  ChannelPools channels;
  channels[2] = {11, 1, 6};
  channels[5] = {100, 36};
  channels[6] = {213, 37};
  EXPECT_STREQ(scan_order("lab", mac("0a:bc:de:00:11:22"), 6, channels, true).to_string(),
               R"({"service":"rrm","version":"2.4","cmd":"rrm-update","domain":"lab","ap-mac":"0A:BC:DE:00:11:22",)"
               R"("rrm-scan-delay":6,"rrm-scan-channels":"1 6 11 36 100",)"
               R"("rrm-scan-channels-list":[{"2":"1 6 11","5":"36 100","6":"37 213"}],"dunva-rrm-scanning":1})");
}

TEST_F(Messages, AScanOrderWithoutChannelsCarriesEmptyTexts) {
  EXPECT_STREQ(scan_order("lab", mac("0a:bc:de:00:11:22"), 0, ChannelPools{}, false).to_string(),
               R"({"service":"rrm","version":"2.4","cmd":"rrm-update","domain":"lab","ap-mac":"0A:BC:DE:00:11:22",)"
               R"("rrm-scan-delay":0,"rrm-scan-channels":"",)"
               R"("rrm-scan-channels-list":[{"2":"","5":"","6":""}],"dunva-rrm-scanning":0})");
}

TEST_F(Messages, TheScanTextHasNoBlankAtEitherEndWhicheverBandIsEmpty) {
  struct Case {
    ChannelSet band2;
    ChannelSet band5;
    const char* expected;
  };
  const Case cases[] = {{{1}, {}, "1"}, {{}, {36}, "36"}, {{1}, {36}, "1 36"}, {{1, 6}, {36, 40}, "1 6 36 40"}};
  for (const Case& one : cases) {
    ChannelPools channels;
    channels[2] = one.band2;
    channels[5] = one.band5;
    channels[6] = {53};
    const std::string text = scan_order("lab", MacAddr(), 0, channels, true).to_string();
    EXPECT_STREQ(JsonReader(text.c_str()).get_string("rrm-scan-channels"), one.expected);
  }
}

TEST_F(Messages, AnInfoTellsTheSettingsWithTheRadios) {
  EXPECT_EQ(rrm_info(*ap(), config, true).to_string(),
            R"({"service":"rrm","version":"2.4","cmd":"rrm-info","ap-mac":"0A:BC:DE:00:11:22","use-tpc":1,"use-dca":1,)"
            R"("use-load-balance":1,"use-80211v":0,)" +
                std::string(radios_text) + "}");
}

TEST_F(Messages, AnInfoMayLeaveTheRadiosOut) {
  config.use_tpc = false;
  config.use_80211v = true;
  EXPECT_STREQ(
      rrm_info(*ap(), config, false).to_string(),
      R"({"service":"rrm","version":"2.4","cmd":"rrm-info","ap-mac":"0A:BC:DE:00:11:22","use-tpc":0,"use-dca":1,)"
      R"("use-load-balance":1,"use-80211v":1})");
}

// The list is the caller's, and stands behind the radios.
TEST_F(Messages, ASubscribesAnswerHasRoomForTheNeighboursInItsConfiguration) {
  const auto add_list = [](JsonWriter& settings) {
    JsonWriter list = JsonWriter::array(settings, "802dot11k");
    list.add_int(nullptr, 1);
  };
  EXPECT_EQ(subscribe_success("lab", *an_ap().build(config), config, add_list).to_string(),
            std::string(R"({"service":"rrm","version":"2.4","cmd":"subscribe-response","status":"success",)"
                        R"("domain":"lab","ap-mac":"00:11:22:00:00:00","config":{"use-tpc":1,"use-dca":1,)"
                        R"("use-load-balance":1,"use-80211r":1,"use-80211v":0,"radios":[],"802dot11k":[1]}})"));
}

// 802.11r

TEST_F(Messages, AnApIsToldTheKeysAndLinksOfItsEnabled80211rVaps) {
  config.fbt_over_ds = true;
  config.fbt_reassoc_deadline = 2000;
  const auto own =
      an_ap()
          .with_radio(a_radio().channel(6).vap(a_vap("lab").id(1).r().keyholders("A", "00:11:22:00:00:01", "k1")))
          .with_radio(a_radio()
                          .channel(36)
                          .vap(a_vap("guests").id(1).k().keyholders("A", "00:11:22:00:00:11", "k2"))
                          .vap(a_vap("office")
                                   .id(2)
                                   .r()
                                   .keyholders("A", "00:11:22:00:00:12", "k3")
                                   .link("B", "00:11:22:00:01:12", "k4")
                                   .link("*", "ff:ff:ff:ff:ff:ff", "k5")))
          .with_radio(a_radio().channel(37).band(6).disabled().vap(a_vap("lab").id(1).r()))
          .build(config);
  EXPECT_STREQ(fbt_info(*own, a_set({own}), config).to_string(),
               R"({"service":"rrm","version":"2.4","cmd":"fbt-info","ap-mac":"00:11:22:00:00:00",)"
               R"("morvane-use-80211r":1,"fbt-over-ds":1,"fbt-reassoc-deadline":2000,"vaps":[)"
               R"({"vap_id":1,"radio_id":0,"fbt-rrb-key":"k1","mobility-domain":24586,"r0-key-holder-id":"A",)"
               R"("r1-key-holder-id":"00:11:22:00:00:01","remotes":[]},)"
               R"({"vap_id":2,"radio_id":1,"fbt-rrb-key":"k3","mobility-domain":32255,"r0-key-holder-id":"A",)"
               R"("r1-key-holder-id":"00:11:22:00:00:12","remotes":[)"
               R"({"remote-r0-kh-id":"B","remote-r1-kh-id":"00:11:22:00:01:12","remote-r1-kh-key":"k4"},)"
               R"({"remote-r0-kh-id":"*","remote-r1-kh-id":"ff:ff:ff:ff:ff:ff","remote-r1-kh-key":"k5"}]}]})");
}

TEST_F(Messages, AKeyHolderHasTheLocalBitInWhichTheRadioIsHeard) {
  struct Case {
    const char* heard;
    const char* key_holder;
  };
  const Case cases[] = {
      {"00:11:22:00:00:00", "00:11:22:00:00:01"},
      {"02:11:22:00:00:00", "02:11:22:00:00:01"},
      {"02:11:22:00:00:01", "02:11:22:00:00:01"},
      {"00:99:00:00:00:00", "00:11:22:00:00:01"},
  };
  for (const Case& one : cases) {
    const auto own =
        an_ap()
            .with_radio(a_radio().channel(6).vap(a_vap("lab").id(1).r().keyholders("A", "00:11:22:00:00:01", "k")))
            .build(config);
    const auto listener = an_ap().mac("00:11:22:00:01:00").hears(one.heard, a_neighbour(-60, 6)).build(config);
    const std::string text = fbt_info(*own, a_set({own, listener}), config).to_string();
    EXPECT_STREQ(JsonReader(text.c_str()).get("vaps").at(0).get_string("r1-key-holder-id"), one.key_holder)
        << one.heard;
  }
}

// Clients

TEST_F(Messages, AProbeRequestNamesTheClientToEachRadio) {
  const auto own = ap();
  const std::vector<const Radio*> radios = {&own->radios.list[0], &own->radios.list[2]};
  EXPECT_STREQ(probe_request("lab", own->mac, radios, mac("02:00:00:00:00:aa"), "office", 0).to_string(),
               R"({"service":"rrm","version":"2.4","cmd":"rrm-probe-request","ap-mac":"0A:BC:DE:00:11:22",)"
               R"("domain":"lab","radios":[)"
               R"({"id":0,"probe-list":[{"ssid":"office","mac":"02:00:00:00:00:AA","timeout":0}]},)"
               R"({"id":2,"probe-list":[{"ssid":"office","mac":"02:00:00:00:00:AA","timeout":0}]}]})");
}

TEST_F(Messages, AnAcknowledgementNamesTheClientAndWhereItStays) {
  EXPECT_STREQ(client_assoc_ack("lab", mac("0a:bc:de:00:11:22"), mac("02:00:00:00:00:aa"), 1, "office").to_string(),
               R"({"service":"rrm","version":"2.4","cmd":"rrm-client-assoc-ack","domain":"lab",)"
               R"("ap-mac":"0A:BC:DE:00:11:22","sta-mac":"02:00:00:00:00:AA","radio":1,"ssid":"office"})");
}

TEST_F(Messages, ABlacklistTellsWhatEachRadioHasGathered) {
  config.blacklist_timeout = 45;
  const auto own = ap();
  own->radios.list[0].problist.add(mac("02:00:00:00:00:aa"), 10);
  own->radios.list[2].problist.add(mac("02:00:00:00:00:bb"), 10);
  own->radios.list[2].problist.add(mac("02:00:00:00:00:cc"), 10);
  own->radios.list[2].problist.release(mac("02:00:00:00:00:cc"));
  EXPECT_STREQ(blacklist("lab", *own).to_string(),
               R"({"service":"rrm","version":"2.4","cmd":"rrm-blacklist","ap-mac":"0A:BC:DE:00:11:22","domain":"lab",)"
               R"("radios":[{"id":0,"blacklist":[{"mac":"02:00:00:00:00:AA","action":"block","timeout":45}]},)"
               R"({"id":2,"blacklist":[{"mac":"02:00:00:00:00:BB","action":"block","timeout":45},)"
               R"({"mac":"02:00:00:00:00:CC","action":"unblock"}]}]})");
}

TEST_F(Messages, ADisassociationOrderTellsWhatEachRadioHasGathered) {
  config.blacklist_timeout = 45;
  const auto own = ap();
  own->radios.list[0].problist.add(mac("02:00:00:00:00:aa"), 10);
  own->radios.list[1].problist.add_disassoc(mac("02:00:00:00:00:bb"), 10, "office");
  EXPECT_STREQ(disassoc_request("lab", *own).to_string(),
               R"({"service":"rrm","version":"2.4","cmd":"rrm-disassoc-request","ap-mac":"0A:BC:DE:00:11:22",)"
               R"("domain":"lab","radios":[)"
               R"({"id":1,"diassoc-list":[{"mac":"02:00:00:00:00:BB","ssid":"office","timeout":45}]}]})");
}

TEST_F(Messages, AnOverloadBeginsWithTheAp) {
  EXPECT_STREQ(sta_overload(mac("0a:bc:de:00:11:22")).to_string(),
               R"({"service":"rrm","version":"2.4","cmd":"rrm-sta-overload","ap-mac":"0A:BC:DE:00:11:22"})");
}

}  // namespace
}  // namespace rrm::protocol
