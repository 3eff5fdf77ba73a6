// The service: the order of its start, its exit statuses, and what a pass of the main loop does.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/log.h"
#include "daemon/events.h"
#include "daemon/radio_support.h"
#include "daemon/service.h"
#include "daemon/trace.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using zal::testing::Housekeeping;
using zal::testing::Platform;
using zal::testing::RecordedRadio;
using zal::testing::text;
using Notes = std::vector<std::string>;

class DaemonService : public ::testing::Test {
 protected:
  void SetUp() override {
    Platform::instance().reset();
    catch_sighup();
  }
  void TearDown() override { set_domain_changed_hook(nullptr); }

  static Notes notes() { return Platform::instance().notes(); }
};

TEST_F(DaemonService, StartsInOrderAndEndsWithSuccess) {
  EXPECT_EQ(serve(), 0);
  EXPECT_THAT(notes(), ElementsAre("port: 8", "timer: 60000", "register", "ready", "finalize", "port closed"));
}

TEST_F(DaemonService, ARefusedRegistrationEndsItWithoutAWord) {
  Platform::instance().registers = false;
  EXPECT_EQ(serve(), -1);
  EXPECT_THAT(notes(), ElementsAre("port: 8", "timer: 60000", "register", "port closed"));
}

TEST_F(DaemonService, WithoutARunOrderItEndsWithAnError) {
  Platform::instance().is_ordered_to_run = false;
  EXPECT_EQ(serve(), -1);
  EXPECT_THAT(notes(), ElementsAre("port: 8", "timer: 60000", "register", "ready",
                                   "error: Send ipc ready and wait for ipc run failed", "port closed"));
}

TEST_F(DaemonService, ChangedDomainsAreMarkedOnlyFromTheRunOrderOn) {
  install_report_hooks();
  Platform::instance().is_ordered_to_run = false;
  serve();
  EXPECT_THROW(rrm::emit_event_text(23, "office"), std::bad_function_call);

  // A master by its number whose server does not run. To save a domain begins with a question about it.
  Platform::instance().reset();
  rrm::testing::ManualClock clock;
  const rrm::testing::TempDir backups;
  Platform::instance().serve = [&, pass = 0](zal::IpcPort& port, long) mutable {
    const auto deliver = [&port](const zal::IMsg& message) {
      EXPECT_EQ(Platform::instance().callback(message, port, Platform::instance().user), zal::Error::none);
    };
    if (++pass == 1) {
      deliver(zal::testing::setup_message(R"({"global":{"enabled":0,"listen_port":0}})"));
      deliver(zal::testing::vrrp_message(0));
      rrm::emit_event_text(23, "office");
    } else {
      Platform::instance().clear();
      clock.advance(1);
      port.finalize();
    }
  };
  EXPECT_EQ(serve(backups.path().string() + "/"), 0);
  EXPECT_THAT(zal::testing::questions(notes()), ElementsAre(R"({"rrm":{"domain":"office"}})"));
  EXPECT_THAT(notes(), Contains("warn: Cannot backup domains info: 'failure from morvane api'"));
}

TEST_F(DaemonService, PassesFollowOneAnotherUntilThePortIsFinalised) {
  Notes passes;
  Platform::instance().serve = [&passes](zal::IpcPort& port, long ms) {
    passes.push_back(std::to_string(ms));
    if (passes.size() == 3) port.finalize();
  };
  EXPECT_EQ(serve(), 0);
  EXPECT_THAT(passes, ElementsAre("25", "25", "25"));
}

TEST_F(DaemonService, AnExceptionOfTheServicePassesOut) {
  Platform::instance().serve = [](zal::IpcPort&, long) { throw std::runtime_error("digest"); };
  EXPECT_THROW(serve(), std::runtime_error);
  EXPECT_THAT(notes(), Contains("port closed"));
}

TEST_F(DaemonService, WhatEscapesTheBodyIsLoggedAndGivesTheStatusOfAFailure) {
  EXPECT_EQ(status_of([] { return 7; }), 7);
  EXPECT_THAT(notes(), IsEmpty());
  EXPECT_EQ(status_of([]() -> int { throw std::out_of_range("no %s"); }), -1);
  EXPECT_EQ(status_of([]() -> int { throw 5; }), -1);
  EXPECT_THAT(notes(), ElementsAre("error: SYSTEM: Got exception: no %s", "error: SYSTEM: Got exception: UNKNOWN"));
}

// A loop whose passes a test plays one by one.
class DaemonLoop : public DaemonService {
 protected:
  void SetUp() override {
    DaemonService::SetUp();
    radio_.update_setup(text(R"({"global":{"enabled":1}})"));
    Platform::instance().clear();
  }

  // Runs the loop, with one step before each pass, and ends with the last pass.
  void play(std::vector<std::function<void()>> steps) {
    std::size_t pass = 0;
    Platform::instance().serve = [&](zal::IpcPort& port, long) {
      steps[pass]();
      if (++pass == steps.size()) port.finalize();
    };
    MainLoop(port_, radio_).run();
  }
  static Housekeeping housekeeping() {
    Housekeeping result;
    result.check_old_reports = [] { Platform::instance().note("check old reports"); };
    result.save_domain = [](const std::string& domain) {
      Platform::instance().note("save " + domain);
      return std::optional<std::string>();
    };
    return result;
  }

  rrm::testing::ManualClock clock_;
  rrm::testing::Capture log_;
  zal::IpcPort port_{zal::PortId::rrm, trace};
  RecordedRadio radio_{port_, housekeeping()};
};

TEST_F(DaemonLoop, MarkedDomainsAreSavedWhenTheSecondChanges) {
  radio_.set_vrrp_state(1);
  Platform::instance().clear();
  play({
      [&] { radio_.mark_domain_for_backup("first"); },  // the first pass only looks at the clock
      [] { Platform::instance().note("same second"); },
      [&] {
        Platform::instance().note("next second");
        clock_.advance(1);
      },
      [&] { radio_.mark_domain_for_backup("second"); },
      [&] {
        Platform::instance().note("much later");
        clock_.advance(100);
      },
  });
  EXPECT_THAT(notes(),
              ElementsAre("same second", "next second", "save first", "much later", "finalize", "save second"));
}

TEST_F(DaemonLoop, OnlyAMasterSaves) {
  for (const int state : {0, 1, 2, 3}) {
    SCOPED_TRACE(state);
    zal::IpcPort port(zal::PortId::rrm, trace);
    RecordedRadio radio(port, housekeeping());
    radio.update_setup(text(R"({"global":{"enabled":0}})"));
    radio.set_vrrp_state(state);
    radio.mark_domain_for_backup("office");
    int pass = 0;
    Platform::instance().serve = [&](zal::IpcPort& served, long) {
      clock_.advance(1);
      if (++pass == 3) served.finalize();
    };
    Platform::instance().clear();
    MainLoop(port, radio).run();
    if (state < 2)
      EXPECT_THAT(notes(), ElementsAre("save office", "finalize"));
    else
      EXPECT_THAT(notes(), ElementsAre("finalize"));
  }
}

TEST_F(DaemonLoop, OldReportsAreCheckedBetweenTheBusAndTheSeconds) {
  radio_.set_vrrp_state(1);
  Platform::instance().clear();
  play({
      [&] { radio_.mark_domain_for_backup("office"); },
      [&] {
        Platform::instance().note("bus");
        Platform::instance().timer_has_expired = true;
        clock_.advance(1);
        raise(SIGHUP);
      },
  });
  EXPECT_THAT(notes(), ElementsAre("bus", "finalize", "check old reports", "save office",
                                   "sys: Reload config by SIGHUP", "reload"));
}

TEST_F(DaemonLoop, TwoSignalsBeforeALookAreOne) {
  play({
      [] {
        raise(SIGHUP);
        raise(SIGHUP);
      },
      [] { Platform::instance().note("second pass"); },
  });
  EXPECT_THAT(notes(), ElementsAre("sys: Reload config by SIGHUP", "reload", "second pass", "finalize"));
}

TEST_F(DaemonLoop, ASignalBeforeTheLoopIsActedOnByItsFirstPass) {
  raise(SIGHUP);
  EXPECT_THAT(notes(), IsEmpty());
  play({[] { Platform::instance().note("first pass"); }});
  EXPECT_THAT(notes(), ElementsAre("first pass", "finalize", "sys: Reload config by SIGHUP", "reload"));
}

}  // namespace
