#include <gtest/gtest.h>

#include "ApEntry.h"
#include "Config.h"
#include "json/JsonReader.h"
#include "protocol/messages.h"
#include "support/builders.h"

namespace rrm::protocol {
namespace {

using rrm::testing::a_radio;
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

}  // namespace
}  // namespace rrm::protocol
