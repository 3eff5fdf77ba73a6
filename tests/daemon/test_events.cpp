// The two hooks: which library lines pass, and what each numbered event becomes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/log.h"
#include "daemon/events.h"
#include "daemon/recording_platform.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zal::testing::Platform;

class DaemonEvents : public ::testing::Test {
 protected:
  void SetUp() override {
    Platform::instance().reset();
    install_report_hooks();
  }
  void TearDown() override { set_domain_changed_hook(nullptr); }

  static std::vector<std::string> notes_of(int event, std::optional<std::string> payload) {
    Platform::instance().clear();
    rrm::emit_event(event, payload ? std::make_shared<std::string>(*payload) : nullptr);
    return Platform::instance().notes();
  }
  static std::vector<std::string> alarm_notes_of(const std::string& text) { return notes_of(24, text); }
};

struct EventCase {
  int event;
  std::optional<std::string> payload;
  const char* note;
};

TEST_F(DaemonEvents, EachNumberHasItsGradeAndText) {
  const std::vector<EventCase> cases{
      {0, {}, "warn: Incoming message validation failed"},
      {1, {}, "warn: Incoming message version failed"},
      {2, {}, "error: broadcast_buffer_add json null"},
      {4, "w", "error: Exception at processing message on worker 'w'"},
      {5, "w", "error: Unhandled exception at worker 'w'"},
      {6, {}, "error: Exception at processing message on default worker"},
      {7, {}, "error: ws_send tmp_json null"},
      {8, {}, "error: Can't send msg to websocket"},
      {10, {}, "error: Exception at processing message on websock-server-worker"},
      {12, "hall", "error: Exception at processing stop_domain_event. Location: 'hall'"},
      {13, "hall", "error: Exception at processing message for location 'hall'"},
      {14, {}, "error: send_message json null"},
      {15, "w", "error: 'w' worker absent."},
      {16, "hall", "error: Error call delete_old_reports_in_domain 'hall'"},
      {17, "25:00", "error: Incorrect time in report_delete_at_time_utc: '25:00'"},
      {18, "hall", "error: Error while save radio report for location 'hall'"},
      {19, "hall", "warn: Query reports list exit with error code. Location: hall"},
      {20, "hall", "warn: Query last radio report exit with error code. Location: hall"},
      {21, "id", "warn: Report not found. Report Id: 'id'"},
      {22, {}, "warn: import_from_report exited with error"},
      // A null payload fills in as an empty text, and a payload that is not asked for is not shown.
      {4, {}, "error: Exception at processing message on worker ''"},
      {19, {}, "warn: Query reports list exit with error code. Location: "},
      {0, "%s%n", "warn: Incoming message validation failed"},
      {13, "%s%n", "error: Exception at processing message for location '%s%n'"},
  };
  for (const auto& [event, payload, note] : cases) {
    SCOPED_TRACE(event);
    EXPECT_THAT(notes_of(event, payload), ElementsAre(note));
  }
}

TEST_F(DaemonEvents, NumbersWithoutAMeaningAreSilent) {
  for (const int event : {9, 25, 26, 27, 1000, -1, 2147483647})
    EXPECT_THAT(notes_of(event, "payload"), IsEmpty()) << event;
}

TEST_F(DaemonEvents, MacEventsCarryTheAddress) {
  const std::vector<EventCase> cases{
      {3, "A8:F9:4B:00:11:22",
       "error_mac a8:f9:4b:00:11:22: Send subscribe-response 'fail' due to invalid MAC parameters"},
      {3, "a8f94b001122", "error_mac a8:f9:4b:00:11:22: Send subscribe-response 'fail' due to invalid MAC parameters"},
      {11, "A8:F9:4B:00:11:22", "error_mac a8:f9:4b:00:11:22: Invalid VAP MAC"},
      {11, "nonsense", "error_mac 00:00:00:00:00:00 invalid: Invalid VAP MAC"},
      {11, "a8:f9:4b:00:11-22", "error_mac 00:00:00:00:00:00 invalid: Invalid VAP MAC"},
      {11, "a8f94b00112g", "error_mac 00:00:00:00:00:00 invalid: Invalid VAP MAC"},
      {11, "", "error_mac 00:00:00:00:00:00 invalid: Invalid VAP MAC"},
      {3, {}, "error: Send subscribe-response 'fail' due to invalid MAC parameters"},
      {11, {}, "error: Invalid VAP MAC"},
  };
  for (const auto& [event, payload, note] : cases) EXPECT_THAT(notes_of(event, payload), ElementsAre(note));
}

TEST_F(DaemonEvents, AChangedDomainReachesTheHook) {
  std::vector<std::string> changed;
  set_domain_changed_hook([&changed](const std::string& domain) { changed.push_back(domain); });
  EXPECT_THAT(notes_of(23, "office"), IsEmpty());
  EXPECT_THAT(notes_of(23, ""), IsEmpty());
  EXPECT_THAT(notes_of(23, {}), IsEmpty());
  EXPECT_THAT(changed, ElementsAre("office", ""));
}

TEST_F(DaemonEvents, AChangedDomainWithoutAHookThrows) {
  EXPECT_THROW(notes_of(23, "office"), std::bad_function_call);
  EXPECT_THAT(notes_of(23, {}), IsEmpty());
}

TEST_F(DaemonEvents, StatusesZeroToFourRaiseTheAlarmAndFiveNothing) {
  for (int status = 0; status <= 4; ++status) {
    const std::string number = std::to_string(status);
    EXPECT_THAT(alarm_notes_of(R"({"location":"lab", "status":)" + number + "}"), ElementsAre("alarm: lab " + number));
  }
  EXPECT_THAT(alarm_notes_of(R"({"location":"lab", "status":5})"), IsEmpty());
}

TEST_F(DaemonEvents, AStatusWithoutAMeaningIsWarnedOf) {
  for (const char* status : {"6", "-1", "2147483647", "-2147483648"})
    EXPECT_THAT(alarm_notes_of(R"({"location":"lab", "status":)" + std::string(status) + "}"),
                ElementsAre("warn: Optimization status changed: unknown status"))
        << status;
}

TEST_F(DaemonEvents, AStatusTextWithoutItsKeysIsWarnedOf) {
  for (const char* text : {"", "{}", "nonsense", R"({"location":"lab"})", R"({"status":3})", "[]", "5"})
    EXPECT_THAT(alarm_notes_of(text), ElementsAre("warn: Optimization status changed: param corrupted")) << text;
  EXPECT_THAT(notes_of(24, {}), ElementsAre("warn: Optimization status changed: param corrupted"));
}

TEST_F(DaemonEvents, ALocationMayBeAnyText) {
  EXPECT_THAT(alarm_notes_of(R"({"location":"", "status":1})"), ElementsAre("alarm:  1"));
  EXPECT_THAT(alarm_notes_of(R"({"location":"a \"b\" %s", "status":1})"), ElementsAre("alarm: a \"b\" %s 1"));
}

TEST_F(DaemonEvents, OnlyALevelOfOneBitPasses) {
  for (const int level : {1, 2, 4, 8, 16, 32, 64, 128}) {
    Platform::instance().clear();
    RRM_LOG(level, "level %d", level);
    EXPECT_THAT(Platform::instance().notes(), ElementsAre("library: level " + std::to_string(level)));
  }
  Platform::instance().clear();
  for (const int level : {0, 3, 5, 6, 7, 24, 127, 129, 255, 256, 512, -1, -128, -2147483647 - 1}) RRM_LOG(level, "no");
  EXPECT_THAT(Platform::instance().notes(), IsEmpty());
}

}  // namespace
