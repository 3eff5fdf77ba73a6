#include <gtest/gtest.h>

#include <string>

#include "json/JsonReader.h"
#include "protocol/IncomingMessage.h"
#include "support/messages.h"

namespace rrm::protocol {
namespace {

using rrm::testing::a_message;
using rrm::testing::MessageJson;

std::optional<Command> validated(const std::string& message) {
  return validate(JsonReader(message.c_str()));
}

struct Word {
  const char* word;
  Command command;
};

constexpr Word words_of_access_points[] = {
    {"subscribe-request", Command::subscribe_request},
    {"unsubscribe-request", Command::unsubscribe_request},
    {"rrm-response", Command::rrm_response},
    {"rrm-mode-response", Command::rrm_mode_response},
    {"rrm-config-changed", Command::rrm_config_changed},
    {"rrm-assoc-state-changed", Command::rrm_assoc_state_changed},
    {"rrm-client-assoc", Command::rrm_client_assoc},
    {"rrm-client-disassoc", Command::rrm_client_disassoc},
    {"rrm-probe-response", Command::rrm_probe_response},
    {"rrm-disassoc-all-clients", Command::rrm_disassoc_all_clients},
    {"rrm-sta-roam", Command::rrm_sta_roam},
};

constexpr Word words_of_the_server[] = {
    {"drop-session", Command::drop_session},
    {"stop-load-balancer", Command::stop_load_balancer},
};

TEST(Validation, KnowsEveryWordOfAnAccessPoint) {
  for (const auto& [word, command] : words_of_access_points) {
    EXPECT_EQ(validated(a_message(word, "00:11:22:33:44:00").text()), command) << word;
    EXPECT_STREQ(command_name(command), word);
  }
}

TEST(Validation, KnowsTheOrdersBetweenTheServersThreads) {
  for (const auto& [word, command] : words_of_the_server) {
    EXPECT_EQ(validated(std::string(R"({"service":"rrm-internal", "cmd":")") + word + "\"}"), command) << word;
    EXPECT_STREQ(command_name(command), word);
  }
}

TEST(Validation, AWordBelongsToItsServiceOnly) {
  for (const auto& [word, command] : words_of_access_points) {
    EXPECT_FALSE(validated(a_message(word, "00:11:22:33:44:00").with("service", "rrm-internal").text())) << word;
  }
  for (const auto& [word, command] : words_of_the_server) {
    EXPECT_FALSE(validated(a_message(word, "00:11:22:33:44:00").text())) << word;
  }
}

TEST(Validation, AnAccessPointNamesItself) {
  for (const auto& [word, command] : words_of_access_points) {
    EXPECT_FALSE(validated(a_message(word, "").text())) << word;
    EXPECT_FALSE(validated(a_message(word, "00:11:22:33:44:00").without("ap-mac").text())) << word;
    EXPECT_FALSE(validated(a_message(word, "00:11:22:33:44:00").with("ap-mac", 17).text())) << word;
  }
  EXPECT_TRUE(validated(a_message("rrm-response", "no address").text())) << "what it says is judged later";
}

TEST(Validation, RefusesEverythingElse) {
  const auto message = a_message("rrm-response", "00:11:22:33:44:00");
  for (const char* cmd :
       {"", "rrm-respons", "rrm-responses", "RRM-RESPONSE", "rrm-update", "subscribe-response", "stop"}) {
    EXPECT_FALSE(validated(MessageJson(message).with("cmd", cmd).text())) << cmd;
  }
  for (const char* service : {"", "RRM", "rrm ", "internal-ipc", "rrm-internals"}) {
    EXPECT_FALSE(validated(MessageJson(message).with("service", service).text())) << service;
  }
  EXPECT_FALSE(validated(MessageJson(message).without("service").text()));
  EXPECT_FALSE(validated(MessageJson(message).without("cmd").text()));
  for (const char* text : {"", "null", "7", "[]", "{}", "{", "\"rrm\""}) EXPECT_FALSE(validated(text)) << text;
}

TEST(Validation, TheServersOrdersNeedNoAddressAndNoVersion) {
  EXPECT_TRUE(validated(R"({"service":"rrm-internal", "cmd":"drop-session"})"));
}

}  // namespace
}  // namespace rrm::protocol
