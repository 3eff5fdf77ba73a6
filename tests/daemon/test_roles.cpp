// What each VRRP state of the controller orders, from each state before, and what is kept of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "daemon/DomainBackup.h"
#include "daemon/radio_support.h"
#include "daemon/role_orders.h"
#include "daemon/scripted_api.h"
#include "daemon/trace.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zal::testing::Housekeeping;
using zal::testing::Platform;
using zal::testing::RecordedRadio;
using zal::testing::without_commands;
using Notes = std::vector<std::string>;

constexpr const char* setup = R"({"global":{"enabled":1}})";
const std::string restored = "ap: RRM has been successfully restored";
const std::string no_master = "warn: Cannot update vrrp-role for RRM to MASTER";
const std::string no_standby = "warn: Cannot update vrrp-role for RRM to STANDBY";
const std::string with_domains = "order: master with domains";
const std::string alone = "order: master";
const std::string backup = "order: backup";
const std::string save_all = "save all";

class DaemonRoles : public ::testing::Test {
 protected:
  void SetUp() override { Platform::instance().reset(); }

  // A radio with a server that is in the given state, and nothing noted.
  std::unique_ptr<RecordedRadio> radio_in(int state, bool enabled = true) {
    Housekeeping housekeeping;
    housekeeping.save_all_domains = [this] {
      Platform::instance().note(save_all);
      return save_failure_;
    };
    auto radio = std::make_unique<RecordedRadio>(port_, housekeeping);
    radio->update_setup(zal::testing::text(R"({"global":{"enabled":0}})"));
    radio->set_vrrp_state(state);
    if (enabled) {
      // Enabling applies the present state once more: let that fail, so that the state stays.
      radio->backup_succeeds = radio->master_succeeds = radio->restore_succeeds = false;
      radio->update_setup(zal::testing::text(setup));
      radio->backup_succeeds = radio->master_succeeds = radio->restore_succeeds = true;
    }
    EXPECT_EQ(radio->vrrp_state(), state);
    Platform::instance().clear();
    return radio;
  }

  // Midnight, before the hour at which the server would delete old reports: those of this machine are not the test's.
  rrm::testing::ManualClock clock_{1000, 1700006400};
  rrm::testing::Capture log_;
  zal::IpcPort port_{zal::PortId::rrm, trace};
  std::optional<std::string> save_failure_;
};

struct RoleCase {
  int from;
  int to;
  bool restore_succeeds;
  bool other_succeeds;  // master alone, backup
  Notes notes;
  int after;
};

TEST_F(DaemonRoles, EachChangeOrdersItsRole) {
  const std::vector<RoleCase> cases{
      // State 0. A master that restored its domains keeps the state that it came from.
      {0, 0, true, true, {with_domains, restored}, 0},
      {3, 0, true, true, {with_domains, restored}, 3},
      {0, 0, false, true, {with_domains, alone}, 0},
      {3, 0, false, true, {with_domains, alone}, 0},
      {0, 0, false, false, {with_domains, alone, no_master}, 0},
      {3, 0, false, false, {with_domains, alone, no_master}, 3},
      {1, 0, true, true, {alone}, 0},
      {2, 0, true, true, {alone}, 0},
      {1, 0, true, false, {alone, no_master}, 1},
      {2, 0, true, false, {alone, no_master}, 2},
      {4, 0, true, true, {}, 4},
      {-1, 0, true, true, {}, -1},
      // State 1.
      {0, 1, true, true, {save_all, alone}, 1},
      {0, 1, true, false, {save_all, alone, no_master}, 0},
      {1, 1, true, true, {with_domains, restored}, 1},
      {3, 1, true, true, {with_domains, restored}, 1},
      {1, 1, false, true, {with_domains, alone}, 1},
      {3, 1, false, true, {with_domains, alone}, 1},
      {1, 1, false, false, {with_domains, alone, no_master}, 1},
      {3, 1, false, false, {with_domains, alone, no_master}, 3},
      {2, 1, true, true, {with_domains}, 1},
      {2, 1, false, true, {with_domains, no_master}, 1},
      {4, 1, true, true, {}, 1},
      {-1, 1, true, true, {}, 1},
      // State 2.
      {0, 2, true, true, {backup}, 2},
      {1, 2, true, true, {backup}, 2},
      {2, 2, true, true, {backup}, 2},
      {3, 2, true, true, {backup}, 2},
      {-1, 2, true, true, {backup}, 2},
      {0, 2, true, false, {backup, no_standby}, 0},
      {1, 2, true, false, {backup, no_standby}, 1},
      {2, 2, true, false, {backup, no_standby}, 2},
      {3, 2, true, false, {backup, no_standby}, 3},
      {-1, 2, true, false, {backup, no_standby}, -1},
      {4, 2, true, true, {}, 4},
      {5, 2, true, true, {}, 5},
      {2147483647, 2, true, true, {}, 2147483647},
      // State 3, and numbers without a meaning.
      {0, 3, true, true, {}, 3},
      {1, 3, true, true, {}, 3},
      {2, 3, true, true, {}, 3},
      {3, 3, true, true, {}, 3},
      {4, 3, true, true, {}, 3},
      {-1, 3, true, true, {}, 3},
      {0, 4, true, true, {}, 0},
      {1, 4, true, true, {}, 1},
      {2, 4, true, true, {}, 2},
      {3, 4, true, true, {}, 3},
      {4, 5, true, true, {}, 4},
      {-1, 4, true, true, {}, -1},
      {0, -1, true, true, {}, 0},
      {1, -1, true, true, {}, 1},
      {2, -1, true, true, {}, 2},
      {3, -1, true, true, {}, 3},
      {4, -1, true, true, {}, 4},
      {-1, -2, true, true, {}, -1},
  };
  for (const auto& [from, to, restore_succeeds, other_succeeds, notes, after] : cases) {
    SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to) + (restore_succeeds ? "" : ", restore fails") +
                 (other_succeeds ? "" : ", role fails"));
    const auto radio = radio_in(from);
    radio->restore_succeeds = restore_succeeds;
    radio->master_succeeds = radio->backup_succeeds = other_succeeds;
    radio->set_vrrp_state(to);
    EXPECT_EQ(Platform::instance().notes(), notes);
    EXPECT_EQ(radio->vrrp_state(), after);
  }
}

TEST_F(DaemonRoles, AFailedSaveIsLoggedAndTheRoleChangesAllTheSame) {
  const auto radio = radio_in(0);
  save_failure_ = "disk full";
  radio->set_vrrp_state(1);
  EXPECT_THAT(Platform::instance().notes(),
              ElementsAre(save_all, "warn: Cannot backup domains info: 'disk full'", alone));
  EXPECT_EQ(radio->vrrp_state(), 1);
}

TEST_F(DaemonRoles, AFailedSaveAndAFailedRoleAreBothLogged) {
  const auto radio = radio_in(0);
  save_failure_ = "disk full";
  radio->master_succeeds = false;
  radio->set_vrrp_state(1);
  EXPECT_THAT(Platform::instance().notes(),
              ElementsAre(save_all, "warn: Cannot backup domains info: 'disk full'", alone, no_master));
  EXPECT_EQ(radio->vrrp_state(), 0);
}

TEST_F(DaemonRoles, WithoutAServerTheStateIsOnlyStored) {
  RecordedRadio radio(port_);
  EXPECT_EQ(radio.vrrp_state(), 3);
  Platform::instance().clear();
  for (const int state : {0, 1, 2, 3, 7, -5}) {
    radio.set_vrrp_state(state);
    EXPECT_EQ(radio.vrrp_state(), state);
  }
  EXPECT_THAT(Platform::instance().notes(), IsEmpty());
}

TEST_F(DaemonRoles, WhileDisabledTheStateIsOnlyStored) {
  const auto radio = radio_in(3, false);
  for (const int state : {2, 0, 1, 9}) {
    radio->set_vrrp_state(state);
    EXPECT_EQ(radio->vrrp_state(), state);
  }
  EXPECT_THAT(Platform::instance().notes(), IsEmpty());
}

TEST_F(DaemonRoles, TheFirstSetupAppliesTheStateThatCameBefore) {
  RecordedRadio radio(port_);
  radio.set_vrrp_state(1);
  Platform::instance().clear();
  radio.update_setup(zal::testing::text(setup));
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("ap: Need to start RRM", with_domains, restored));
  EXPECT_EQ(radio.vrrp_state(), 1);
}

TEST_F(DaemonRoles, AnUndecidedStateOrdersNothingAtTheFirstSetup) {
  RecordedRadio radio(port_);
  Platform::instance().clear();
  radio.update_setup(zal::testing::text(setup));
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("ap: Need to start RRM"));
  EXPECT_EQ(radio.vrrp_state(), 3);
}

TEST_F(DaemonRoles, TurningOffOrdersBackupAndKeepsTheStateTurningOnAppliesItAgain) {
  const auto radio = radio_in(1);
  radio->update_setup(zal::testing::text(R"({"global":{"enabled":0}})"));
  EXPECT_THAT(without_commands(Platform::instance().notes()),
              ElementsAre("ap: RRM already exists, send messages to Api", backup));
  EXPECT_EQ(radio->vrrp_state(), 1);

  Platform::instance().clear();
  radio->update_setup(zal::testing::text(R"({"global":{"enabled":1}})"));
  EXPECT_THAT(without_commands(Platform::instance().notes()),
              ElementsAre("ap: RRM already exists, send messages to Api", with_domains, restored));
  EXPECT_EQ(radio->vrrp_state(), 1);
}

TEST_F(DaemonRoles, TurningOnAppliesEachStateAgain) {
  const std::vector<std::pair<int, Notes>> cases{
      {0, {with_domains, restored}}, {1, {with_domains, restored}}, {2, {backup}}, {3, {}}, {4, {}}, {-1, {}}};
  for (const auto& [state, orders] : cases) {
    SCOPED_TRACE(state);
    const auto radio = radio_in(state, false);
    radio->update_setup(zal::testing::text(setup));
    Notes expected{"ap: RRM already exists, send messages to Api"};
    expected.insert(expected.end(), orders.begin(), orders.end());
    EXPECT_EQ(without_commands(Platform::instance().notes()), expected);
    EXPECT_EQ(radio->vrrp_state(), state);
  }
}

// One bad value costs the whole section, and the server stays as it was, on or off.
TEST_F(DaemonRoles, ATurnThatTheServerRefusesOrdersNothing) {
  for (const bool was_enabled : {true, false}) {
    SCOPED_TRACE(was_enabled);
    const auto radio = radio_in(1, was_enabled);
    radio->update_setup(zal::testing::text(R"({"global":{"enabled":)" + std::string(was_enabled ? "0" : "1") +
                                           R"(,"report_delete_at_time_utc":"24:00"}})"));
    EXPECT_THAT(without_commands(Platform::instance().notes()),
                ElementsAre(R"(warn: Setup: invalid parameters: [{"report_delete_at_time_utc":"24:00"}])",
                            "ap: RRM already exists, send messages to Api",
                            R"(warn: Setup: 'set global' refused, invalid parameters: )"
                            R"([{"report_delete_at_time_utc":"24:00"}])"));
    EXPECT_EQ(radio->config()->enabled(), was_enabled);
    EXPECT_EQ(radio->vrrp_state(), 1);
  }
}

TEST_F(DaemonRoles, ATurnOffThatCannotOrderBackupIsLogged) {
  const auto radio = radio_in(1);
  radio->backup_succeeds = false;
  radio->update_setup(zal::testing::text(R"({"global":{"enabled":0}})"));
  EXPECT_THAT(without_commands(Platform::instance().notes()),
              ElementsAre("ap: RRM already exists, send messages to Api", backup, no_standby));
  EXPECT_EQ(radio->vrrp_state(), 1);
}

// The orders as commands, and what of the answers to them is taken for obedience.

struct OrderCase {
  RoleOrder order;
  std::string command;
};

class DaemonRoleOrders : public zal::testing::ScriptedApiTest {
 protected:
  DaemonRoleOrders() { rrm::testing::write_file(directory_.file("lab.json"), R"({"name":"lab"})"); }
  bool is_taken(RoleOrder order) {
    return is_role_taken(api_, order, DomainBackup(api_, directory_.path().string() + "/"));
  }

  const std::vector<OrderCase> orders{
      {RoleOrder::backup, R"({"vrrp":{"role":"backup"}})"},
      {RoleOrder::master, R"({"vrrp":{"role":"master"}})"},
      {RoleOrder::master_with_domains, R"({"vrrp":{"role":"master","domains":[{"name":"lab"}]}})"},
  };
  rrm::testing::TempDir directory_;
};

TEST_F(DaemonRoleOrders, EachOrderIsOneCommandThatMaySucceed) {
  for (const auto& [order, command] : orders) {
    api_.asked.clear();
    api_.answer(command, R"({"version":"2.1","server":"controller","morvane_version":"1.0","status":"success"})");
    EXPECT_TRUE(is_taken(order));
    EXPECT_THAT(api_.asked, ElementsAre(command));
  }
}

TEST_F(DaemonRoleOrders, AnOrderWithoutAnAnswerOrWithAFailureIsNotObeyed) {
  for (const auto& [order, command] : orders) {
    SCOPED_TRACE(command);
    api_.give_no_answer(command);
    EXPECT_FALSE(is_taken(order));
    for (const auto& [name, text] : failures()) {
      api_.answer(command, *text);
      EXPECT_FALSE(is_taken(order)) << name;
    }
  }
}

}  // namespace
