// The messages of the bus, setups and their differences, AP records, the marks for backups and the slow timer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdarg>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "daemon/ActiveApStorage.h"
#include "daemon/radio_support.h"
#include "daemon/trace.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"
#include "support/capture.h"
#include "support/temp_dir.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::UnorderedElementsAre;
using zal::Error;
using zal::testing::ap_message;
using zal::testing::deliver;
using zal::testing::Housekeeping;
using zal::testing::Platform;
using zal::testing::RecordedRadio;
using zal::testing::setup_message;
using zal::testing::text;
using zal::testing::vrrp_message;

using Notes = std::vector<std::string>;

// Two domains on one pattern, one on another, one on the common settings.
constexpr const char* site_setup = R"({
  "global": {"enabled": 1, "listen_port": 8099},
  "common": {"use_dca": 1},
  "patterns": [{"pattern": "dense", "use_tpc": 1}, {"pattern": "wide", "use_tpc": 0}],
  "domains": [{"domain": "north", "pattern": "dense", "time_zone": "3:00"},
              {"domain": "south", "pattern": "dense", "time_zone": "3:00"},
              {"domain": "yard", "pattern": "wide"},
              {"domain": "hall", "pattern": "common"}]})";

// The setup with one part of its text replaced.
std::string changed_setup(const std::string& part, const std::string& replacement) {
  std::string setup = site_setup;
  const auto at = setup.find(part);
  EXPECT_NE(at, std::string::npos) << part;
  return setup.replace(at, part.size(), replacement);
}

class DaemonGateway : public ::testing::Test {
 protected:
  void SetUp() override {
    Platform::instance().reset();
    radio_ = std::make_unique<RecordedRadio>(port_, housekeeping());
  }

  Housekeeping housekeeping() {
    Housekeeping result;
    result.check_old_reports = [] { Platform::instance().note("check old reports"); };
    result.save_domain = [this](const std::string& domain) {
      Platform::instance().note("save " + domain);
      if (on_save_) on_save_();
      return save_failure_;
    };
    return result;
  }

  // A running site with a worker in each of its domains, and nothing noted.
  void run_site() {
    radio_->update_setup(text(site_setup));
    subscribe_all();
    log_.clear();
    Platform::instance().clear();
  }
  void subscribe_all() {
    for (const char* domain : {"north", "south", "yard", "hall"}) subscribe(domain);
  }
  void subscribe(const std::string& domain) {
    rrm::JsonReader message((R"({"version":"2.4","domain":")" + domain + R"(","cmd":"subscribe-request"})").c_str());
    radio_->server()->process_incoming_message(message, rrm::BaseSession{});
  }
  Notes workers() const {
    Notes names;
    for (const char* domain : {"north", "south", "yard", "hall"})
      if (radio_->server()->find_worker(domain)) names.push_back(domain);
    return names;
  }
  // What a setup logs, without the workers' own lines and the texts of the commands.
  Notes notes_of_setup(const std::string& setup) {
    Platform::instance().clear();
    radio_->update_setup(text(setup));
    return zal::testing::without_commands(Platform::instance().notes());
  }

  // Midnight, before the hour at which the server would delete old reports: those of this machine are not the test's.
  rrm::testing::ManualClock clock_{1000, 1700006400};
  rrm::testing::Capture log_;
  zal::IpcPort port_{zal::PortId::rrm, trace};
  std::unique_ptr<RecordedRadio> radio_;
  std::optional<std::string> save_failure_;
  std::function<void()> on_save_;
};

TEST_F(DaemonGateway, HousekeepingMessagesDoWhatTheySay) {
  Platform::instance().clear();
  EXPECT_EQ(deliver(zal::IPC_MSG__PEERS_READY(), port_, *radio_), Error::none);
  EXPECT_EQ(deliver(zal::IPC_MSG__TIMEZONE_CHANGED(), port_, *radio_), Error::none);
  EXPECT_EQ(deliver(zal::IpcMsgOther(163), port_, *radio_), Error::none);
  EXPECT_FALSE(port_.is_finalized());
  EXPECT_EQ(deliver(zal::IPC_MSG__SHUTDOWN(), port_, *radio_), Error::none);
  EXPECT_TRUE(port_.is_finalized());
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("set_SendAndRecv", "sys: Force update tzset", "finalize"));
}

TEST_F(DaemonGateway, AChangedTimeZoneHoldsFromThenOn) {
  setenv("TZ", "UTC0", 1);
  tzset();
  setenv("TZ", "ABC-3", 1);
  deliver(zal::IPC_MSG__TIMEZONE_CHANGED(), port_, *radio_);
  EXPECT_EQ(timezone, -3 * 3600);
  unsetenv("TZ");
  tzset();
}

TEST_F(DaemonGateway, AnyOtherTypeIsUnknown) {
  Platform::instance().clear();
  for (const int type : {0, -1, 1, 34, 44, 62, 125, 127, 134, 161, 172, 999})
    EXPECT_EQ(deliver(zal::IpcMsgOther(type), port_, *radio_), Error{4}) << type;
  EXPECT_THAT(Platform::instance().notes(), ::testing::Each("warn: uncaught"));
  EXPECT_EQ(Platform::instance().notes().size(), 12u);
}

TEST_F(DaemonGateway, AStateMessageBeforeAnySetupIsAppliedByTheFirst) {
  Platform::instance().clear();
  EXPECT_EQ(deliver(vrrp_message(1), port_, *radio_), Error::none);
  EXPECT_EQ(radio_->vrrp_state(), 1);
  EXPECT_THAT(Platform::instance().notes(), IsEmpty());
  EXPECT_EQ(deliver(setup_message("{}"), port_, *radio_), Error::none);
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("ap: Need to start RRM", "order: master with domains",
                                                        "ap: RRM has been successfully restored"));
}

TEST_F(DaemonGateway, TheFirstSetupBuildsTheServerFromItsText) {
  radio_->update_setup(text(site_setup));
  EXPECT_EQ(radio_->config()->global().listen_port, 8099);
  EXPECT_EQ(radio_->config()->domain_info("north")->pattern, "dense");
  EXPECT_EQ(radio_->config()->path(), "");
  EXPECT_EQ(&radio_->server()->configuration(), radio_->config());
  EXPECT_EQ(radio_->server()->role(), rrm::RRM::role_backup);
}

// What is wrong is passed over, and nobody would ever learn of it from the answer.
TEST_F(DaemonGateway, ASetupsFaultsAreToldBesideWhatIsTaken) {
  radio_->update_setup(text(R"({
    "global": {"listen_port": 70000},
    "patterns": [{"pattern": "dense", "client_max_age": 301, "hysteresis_5g": "much"}],
    "common": {"dca_threshold": -1},
    "domains": [{"domain": "north", "pattern": "dense"}, {"domain": "south", "pattern": "none"},
                {"domain": "west", "pattern": "dense", "time_zone": "15:00"}, {"pattern": "dense"}]})"));
  EXPECT_THAT(Platform::instance().notes(),
              IsSupersetOf({R"(warn: Setup: invalid parameters: )"
                            R"([{"listen_port":70000},{"hysteresis_5g":0},{"client_max_age":301}])",
                            R"(warn: Setup: domains not taken over: 'south', 'west', '')"}));
  EXPECT_EQ(radio_->config()->global().listen_port, 8099);
  EXPECT_EQ(radio_->config()->pattern("dense")->client_max_age, 20);
  EXPECT_TRUE(radio_->config()->domain_info("north"));
}

TEST_F(DaemonGateway, DomainsBehindAMissingSectionAreTold) {
  radio_->update_setup(
      text(R"({"global": {}, "patterns": [], "domains": [{"domain": "north", "pattern": "common"}]})"));
  EXPECT_THAT(Platform::instance().notes(), Contains("warn: Setup: domains not taken over: 'north'"));
  EXPECT_FALSE(radio_->config()->domain_info("north"));
}

TEST_F(DaemonGateway, AFirstSetupThatIsNoObjectLeavesTheDefaults) {
  for (const char* setup : {"", "nonsense", "[]", "5", "{\"global\":"}) {
    SCOPED_TRACE(setup);
    RecordedRadio radio(port_);
    Platform::instance().clear();
    radio.update_setup(text(setup));
    EXPECT_THAT(Platform::instance().notes(),
                ElementsAre("ap: Need to start RRM", "error: Setup is no JSON object, the defaults hold"));
    EXPECT_TRUE(*radio.config() == rrm::GlobalConfig(""));
  }
  RecordedRadio radio(port_);
  radio.update_setup(nullptr);
  EXPECT_NE(radio.server(), nullptr);
}

TEST_F(DaemonGateway, ALaterSetupThatIsNoObjectChangesNothing) {
  run_site();
  const rrm::GlobalConfig before("", std::string(site_setup));
  for (const char* setup : {"", "nonsense", "[]", "null", "{\"global\":"}) {
    SCOPED_TRACE(setup);
    EXPECT_THAT(notes_of_setup(setup), ElementsAre("error: Setup is no JSON object, nothing changes"));
    EXPECT_TRUE(*radio_->config() == before);
  }
  EXPECT_THAT(workers(), ElementsAre("north", "south", "yard", "hall"));
}

TEST_F(DaemonGateway, AnEmptyObjectIsAppliedAsItStands) {
  run_site();
  EXPECT_THAT(notes_of_setup("{}"), ElementsAre("ap: RRM already exists, send messages to Api"));
  EXPECT_TRUE(*radio_->config() == rrm::GlobalConfig(""));
  EXPECT_THAT(workers(), IsEmpty());
}

TEST_F(DaemonGateway, TheSameSetupChangesNothing) {
  run_site();
  EXPECT_THAT(notes_of_setup(site_setup), ElementsAre("ap: RRM already exists, send messages to Api"));
  EXPECT_THAT(workers(), ElementsAre("north", "south", "yard", "hall"));
  EXPECT_THAT(log_.lines(rrm::LOG_TRACE), Not(Contains("Global config changed")));
}

TEST_F(DaemonGateway, ALaterSetupKeepsTheObjects) {
  run_site();
  const auto* const config = radio_->config();
  const auto* const server = radio_->server();
  radio_->update_setup(text(changed_setup("8099", "8100")));
  EXPECT_EQ(radio_->config(), config);
  EXPECT_EQ(radio_->server(), server);
}

TEST_F(DaemonGateway, AGlobalChangeRestartsTheServer) {
  run_site();
  notes_of_setup(changed_setup("8099", "8100"));
  EXPECT_EQ(radio_->config()->global().listen_port, 8100);
  EXPECT_THAT(workers(), IsEmpty());
  const auto lines = log_.lines(rrm::LOG_TRACE);
  EXPECT_THAT(lines, IsSupersetOf({"Global config changed", "Cancel domain hall", "Cancel domain yard"}));
}

struct ChangeCase {
  const char* name;
  const char* part;
  const char* replacement;
  Notes workers_left;
};

TEST_F(DaemonGateway, ADifferenceRemovesTheWorkersConcernedAndNoOther) {
  const std::vector<ChangeCase> cases{
      {"common changed", "\"use_dca\": 1", "\"use_dca\": 0", {"north", "south", "yard"}},
      {"pattern changed", "\"use_tpc\": 1", "\"use_tpc\": 0", {"yard", "hall"}},
      {"pattern added",
       R"([{"pattern": "dense")",
       R"([{"pattern": "new"}, {"pattern": "dense")",
       {"north", "south", "yard", "hall"}},
      {"domain's time zone changed", "3:00", "4:00", {"south", "yard", "hall"}},
      {"domain's pattern changed",
       R"("yard", "pattern": "wide")",
       R"("yard", "pattern": "dense")",
       {"north", "south", "hall"}},
      {"domain removed",
       R"(,
              {"domain": "hall", "pattern": "common"})",
       "",
       {"north", "south", "yard"}},
      {"domain added",
       R"([{"domain": "north")",
       R"([{"domain": "new", "pattern": "wide"}, {"domain": "north")",
       {"north", "south", "yard", "hall"}},
  };
  for (const auto& [name, part, replacement, left] : cases) {
    SCOPED_TRACE(name);
    radio_ = std::make_unique<RecordedRadio>(port_, housekeeping());
    run_site();
    const std::string next = changed_setup(part, replacement);
    EXPECT_THAT(notes_of_setup(next), ElementsAre("ap: RRM already exists, send messages to Api"));
    EXPECT_EQ(workers(), left);
  }
}

TEST_F(DaemonGateway, ADomainMovesFromAPatternThatGoes) {
  run_site();
  const std::string next = R"({
    "global": {"enabled": 1, "listen_port": 8099}, "common": {"use_dca": 1},
    "patterns": [{"pattern": "dense", "use_tpc": 1}],
    "domains": [{"domain": "north", "pattern": "dense", "time_zone": "3:00"},
                {"domain": "south", "pattern": "dense", "time_zone": "3:00"},
                {"domain": "yard", "pattern": "dense"}, {"domain": "hall", "pattern": "common"}]})";
  EXPECT_THAT(notes_of_setup(next), ElementsAre("ap: RRM already exists, send messages to Api"));
  EXPECT_TRUE(*radio_->config() == rrm::GlobalConfig("", next));
  EXPECT_THAT(workers(), ElementsAre("north", "south", "hall"));
}

TEST_F(DaemonGateway, AfterADifferenceTheConfigurationIsThatOfTheSetup) {
  run_site();
  const std::string next = R"({
    "global": {"enabled": 1, "listen_port": 9000, "reports_path": "/mnt/data/zal//morvane-reports/"},
    "common": {"use_dca": 0, "away_timeout": 60},
    "patterns": [{"pattern": "wide", "use_tpc": 1}, {"pattern": "new", "optimization_time": "3:30"}],
    "domains": [{"domain": "yard", "pattern": "new", "time_zone": "-2:30"}, {"domain": "attic", "pattern": "common"}]})";
  radio_->update_setup(text(next));
  const rrm::GlobalConfig expected("", next);
  EXPECT_TRUE(*radio_->config() == expected);
  for (const char* domain : {"yard", "attic"})
    EXPECT_EQ(radio_->config()->domain_config(domain), expected.domain_config(domain)) << domain;
  EXPECT_EQ(radio_->config()->domain_info("yard")->time_zone, "-2:30");
  EXPECT_EQ(radio_->config()->time_zone_offset("yard"), -9000);
}

TEST_F(DaemonGateway, EachDifferenceIsOneCommandInTheOrderOfTheirKinds) {
  run_site();
  const std::string next = R"({
    "global": {"enabled": 1, "listen_port": 8100}, "common": {"use_dca": 1},
    "patterns": [{"pattern": "dense", "use_tpc": 0}, {"pattern": "new", "use_dca": 0}],
    "domains": [{"domain": "north", "pattern": "dense", "time_zone": "4:00"},
                {"domain": "yard", "pattern": "new"}, {"domain": "hall", "pattern": "common"},
                {"domain": "attic", "pattern": "new", "time_zone": "-2:30"}]})";
  const rrm::GlobalConfig wanted("", next);
  const auto settings = [](const auto& section) {
    rrm::JsonWriter writer;
    rrm::write_settings(section, writer);
    return std::string(writer.to_string());
  };
  const auto edit = [](const std::string& operation, const std::string& level, const std::string& name = "") {
    return R"({"version":"2.0","cfg":{"operation":")" + operation + R"(","level":")" + level + "\"" +
           (name.empty() ? "" : ",\"" + level + R"(":")" + name + "\"");
  };
  radio_->update_setup(text(next));
  EXPECT_THAT(zal::testing::questions(Platform::instance().notes()),
              ElementsAre(edit("set", "global") + R"(,"config":)" + settings(wanted.global()) + "}}",
                          edit("set", "pattern", "dense") + R"(,"config":)" + settings(*wanted.pattern("dense")) + "}}",
                          edit("add", "pattern", "new") + R"(,"config":)" + settings(*wanted.pattern("new")) + "}}",
                          edit("remove", "pattern", "wide") + "}}",
                          edit("set", "domain", "north") + R"(,"config":{"pattern":"dense","time_zone":"4:00"}}})",
                          edit("add", "domain", "attic") + R"(,"config":{"pattern":"new","time_zone":"-2:30"}}})",
                          edit("add", "domain", "yard") + R"(,"config":{"pattern":"new"}}})",
                          edit("remove", "domain", "south") + "}}"));
  EXPECT_TRUE(*radio_->config() == wanted);
}

TEST_F(DaemonGateway, AValueThatFailsItsCheckLeavesTheGlobalSettingsAndIsLogged) {
  run_site();
  const auto notes =
      notes_of_setup(R"({"global":{"enabled":1,"listen_port":8101,"report_delete_at_time_utc":"24:00"},"common":{}})");
  EXPECT_THAT(
      notes,
      Contains(R"(warn: Setup: 'set global' refused, invalid parameters: [{"report_delete_at_time_utc":"24:00"}])"));
  EXPECT_EQ(radio_->config()->global().listen_port, 8099);
}

TEST_F(DaemonGateway, ADomainOnAnUnknownPatternIsRefusedAndLogged) {
  run_site();
  const auto notes = notes_of_setup(changed_setup(R"("yard", "pattern": "wide")", R"("yard", "pattern": "none")"));
  EXPECT_THAT(notes, Contains("warn: Setup: 'set domain yard' refused, invalid parameters: []"));
  EXPECT_EQ(radio_->config()->domain_info("yard")->pattern, "wide");
}

TEST_F(DaemonGateway, ANewDomainOnAnUnknownPatternIsRefusedAndLogged) {
  run_site();
  const auto notes = notes_of_setup(
      changed_setup(R"([{"domain": "north")", R"([{"domain": "new", "pattern": "none"}, {"domain": "north")"));
  EXPECT_THAT(notes, Contains(R"(warn: Setup: 'add domain new' refused, invalid parameters: [{"pattern":"none"}])"));
  EXPECT_FALSE(radio_->config()->domain_info("new"));
}

TEST_F(DaemonGateway, RecordsOfAccessPointsAreKeptByTheirAddress) {
  const auto mac = zal::MacAddr::from_str("a8f94b001122");
  EXPECT_EQ(deliver(ap_message("A8:F9:4B:00:11:22", R"({"location":"office"})"), port_, *radio_), Error::none);
  ASSERT_NE(radio_->active_aps().find(mac), nullptr);
  EXPECT_EQ(radio_->active_aps().find(mac)->get_location(), "office");

  deliver(ap_message("a8f94b001122", R"({"location":"hall"})"), port_, *radio_);
  EXPECT_EQ(radio_->active_aps().find(mac)->get_location(), "hall");

  deliver(ap_message("a8f94b001122", "{}"), port_, *radio_);
  EXPECT_EQ(radio_->active_aps().find(mac), nullptr);
}

TEST_F(DaemonGateway, ABadAddressStandsForTheInvalidOne) {
  EXPECT_EQ(deliver(ap_message("nonsense", R"({"location":"office"})"), port_, *radio_), Error::none);
  EXPECT_NE(radio_->active_aps().find(zal::MacAddr()), nullptr);
}

TEST_F(DaemonGateway, AllRecordsAreForgottenAtOnce) {
  for (const char* mac : {"a8f94b001122", "a8f94b001123"})
    deliver(ap_message(mac, R"({"location":"office"})"), port_, *radio_);
  EXPECT_EQ(deliver(zal::IPC_MSG__RRM_AP_INFO_CLEARED(), port_, *radio_), Error::none);
  radio_->active_aps().for_each([](const auto&, const auto&) {
    ADD_FAILURE();
    return false;
  });
}

TEST(DaemonApStorage, AWalkEndsWhereItsVisitorSaysSo) {
  ActiveApStorage storage;
  storage.for_each(nullptr);
  for (const char* mac : {"a8f94b001122", "a8f94b001123", "a8f94b001124"})
    storage.update(zal::MacAddr::from_str(mac), R"({"ip":"10.0.0.1"})");
  std::vector<std::string> seen;
  storage.for_each([&](const zal::MacAddr& mac, const auto&) {
    seen.push_back(mac.to_string());
    return false;
  });
  EXPECT_THAT(seen, UnorderedElementsAre("a8:f9:4b:00:11:22", "a8:f9:4b:00:11:23", "a8:f9:4b:00:11:24"));
  int visits = 0;
  storage.for_each([&](const auto&, const auto&) { return ++visits == 2; });
  EXPECT_EQ(visits, 2);
  EXPECT_THROW(storage.for_each(nullptr), std::bad_function_call);
}

TEST_F(DaemonGateway, MarkedDomainsAreSavedOnce) {
  run_site();
  radio_->mark_domain_for_backup("north");
  radio_->mark_domain_for_backup("hall");
  radio_->mark_domain_for_backup("north");
  radio_->backup_marked_domains();
  EXPECT_THAT(Platform::instance().notes(), UnorderedElementsAre("save north", "save hall"));
  Platform::instance().clear();
  radio_->backup_marked_domains();
  EXPECT_THAT(Platform::instance().notes(), IsEmpty());
  radio_->mark_domain_for_backup("hall");
  radio_->backup_marked_domains();
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("save hall"));
}

TEST_F(DaemonGateway, AFailedSaveIsLoggedAndNotTriedAgain) {
  run_site();
  save_failure_ = "disk full";
  radio_->mark_domain_for_backup("north");
  radio_->backup_marked_domains();
  radio_->backup_marked_domains();
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("save north", "warn: Cannot backup domains info: 'disk full'"));
}

TEST_F(DaemonGateway, AMarkThatIsSetWhileItsDomainIsSavedIsNotLost) {
  run_site();
  on_save_ = [this] {
    std::thread([this] { radio_->mark_domain_for_backup("north"); }).join();
    on_save_ = nullptr;
  };
  radio_->mark_domain_for_backup("north");
  radio_->backup_marked_domains();
  radio_->backup_marked_domains();
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("save north", "save north"));
}

TEST_F(DaemonGateway, WithoutAServerTheMarksStay) {
  radio_->mark_domain_for_backup("north");
  Platform::instance().clear();
  radio_->backup_marked_domains();
  EXPECT_THAT(Platform::instance().notes(), IsEmpty());
  radio_->update_setup(text(site_setup));
  Platform::instance().clear();
  radio_->backup_marked_domains();
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("save north"));
}

TEST_F(DaemonGateway, MarksOfManyThreadsMeetTheWalk) {
  run_site();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([this, i] {
      for (int n = 0; n < 200; ++n) radio_->mark_domain_for_backup(std::to_string(i) + "-" + std::to_string(n));
    });
  for (int i = 0; i < 50; ++i) radio_->backup_marked_domains();
  for (auto& thread : threads) thread.join();
  radio_->backup_marked_domains();
  EXPECT_EQ(Platform::instance().notes().size(), 800u);
}

TEST_F(DaemonGateway, OldReportsAreCheckedWhenTheTimerHasExpired) {
  EXPECT_THAT(Platform::instance().notes(), Contains("timer: 60000"));
  Platform::instance().timer_has_expired = true;
  Platform::instance().clear();
  radio_->poll_maintenance();
  EXPECT_THAT(Platform::instance().notes(), IsEmpty());
  EXPECT_EQ(Platform::instance().timer_resets, 0);

  run_site();
  radio_->poll_maintenance();
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("check old reports"));
  EXPECT_EQ(Platform::instance().timer_resets, 1);

  Platform::instance().timer_has_expired = false;
  radio_->poll_maintenance();
  EXPECT_THAT(Platform::instance().notes(), ElementsAre("check old reports"));
  EXPECT_EQ(Platform::instance().timer_resets, 1);
}

// Looks into a radio whose server is just being stopped, and reports to it as a worker may until its end.
class LookDuringTheStop {
 public:
  explicit LookDuringTheStop(RadioRM& radio) {
    watched = &radio;
    seen.clear();
    rrm::set_log_hook(on_log);
  }
  ~LookDuringTheStop() {
    rrm::set_log_hook([](const char*, int, const char*, int, const char*, va_list) {});
  }
  LookDuringTheStop(const LookDuringTheStop&) = delete;
  LookDuringTheStop& operator=(const LookDuringTheStop&) = delete;

  static inline Notes seen;

 private:
  static void on_log(const char*, int, const char*, int, const char* format, va_list) {
    if (std::string(format) != "Cancel domain %s") return;
    watched->mark_domain_for_backup("north");
    seen.push_back(watched->active_aps().find(zal::MacAddr::from_str("a8f94b001122")) ? "record" : "no record");
    seen.push_back(watched->config()->domain_info("north") ? "domain" : "no domain");
  }

  static inline RadioRM* watched = nullptr;
};

TEST_F(DaemonGateway, TheServerIsStoppedBeforeAnythingElseGoes) {
  deliver(ap_message("a8f94b001122", R"({"location":"office"})"), port_, *radio_);
  const LookDuringTheStop look(*radio_);
  radio_->update_setup(text(site_setup));
  subscribe("north");
  radio_.reset();
  EXPECT_THAT(LookDuringTheStop::seen, ElementsAre("record", "domain"));
}

// The orders and the savings as they reach the server and the disk.

class PlainRadio final : public RadioRM {
 public:
  using RadioRM::RadioRM;
  bool order(RoleOrder role) { return order_role(role); }
};

class DaemonGatewayToTheServer : public DaemonGateway {
 protected:
  DaemonGatewayToTheServer() {
    rrm::testing::write_file(backup_of("north"), R"({"name":"north","rrm-status":0,"fbt-status":0,"aps":[]})");
  }
  void run() {
    plain_.update_setup(text(R"({"global":{"enabled":1,"listen_port":0},"common":{},"patterns":[],
        "domains":[{"domain":"north","pattern":"common"}]})"));
    Platform::instance().clear();
  }
  std::string backup_of(const std::string& domain) const { return backups_.file(domain + ".json"); }
  bool is_saved(const std::string& domain) const { return std::filesystem::exists(backup_of(domain)); }
  static Notes commands() { return zal::testing::questions(Platform::instance().notes()); }

  rrm::testing::TempDir backups_;
  PlainRadio plain_{port_, backups_.path().string() + "/"};
  const std::string master_with_domains =
      R"({"vrrp":{"role":"master","domains":[{"name":"north","rrm-status":0,"fbt-status":0,"aps":[]}]}})";
};

TEST_F(DaemonGatewayToTheServer, ARoleOrderChangesTheRoleOfTheServer) {
  run();
  EXPECT_TRUE(plain_.order(RoleOrder::master_with_domains));
  EXPECT_EQ(plain_.server()->role(), rrm::RRM::role_master);
  EXPECT_TRUE(plain_.order(RoleOrder::backup));
  EXPECT_EQ(plain_.server()->role(), rrm::RRM::role_backup);
  EXPECT_TRUE(plain_.order(RoleOrder::master));
  EXPECT_EQ(plain_.server()->role(), rrm::RRM::role_master);
  EXPECT_THAT(commands(),
              ElementsAre(master_with_domains, R"({"vrrp":{"role":"backup"}})", R"({"vrrp":{"role":"master"}})"));
}

TEST_F(DaemonGatewayToTheServer, WithoutAServerNoOrderIsObeyed) {
  for (const RoleOrder order : {RoleOrder::backup, RoleOrder::master, RoleOrder::master_with_domains})
    EXPECT_FALSE(plain_.order(order));
}

TEST_F(DaemonGatewayToTheServer, AMasterRestoresWhatTheDirectoryHolds) {
  run();
  plain_.set_vrrp_state(1);
  EXPECT_THAT(commands(), ElementsAre(master_with_domains));
  EXPECT_NE(plain_.server()->find_worker("north"), nullptr);
}

TEST_F(DaemonGatewayToTheServer, AMarkedDomainIsSavedInTheDirectory) {
  run();
  plain_.set_vrrp_state(1);
  std::filesystem::remove(backup_of("north"));
  plain_.mark_domain_for_backup("north");
  plain_.backup_marked_domains();
  EXPECT_EQ(rrm::testing::read_file(backup_of("north")),
            R"({"name":"north","rrm-status":0,"fbt-status":0,"aps":[],"deleted-aps":[],"unanswered-aps":[]})");
}

TEST_F(DaemonGatewayToTheServer, AMarkedDomainThatCannotBeSavedIsLoggedWithTheReason) {
  run();
  plain_.mark_domain_for_backup("south");
  plain_.backup_marked_domains();
  EXPECT_THAT(Platform::instance().notes(), Contains("warn: Cannot backup domains info: 'failure from morvane api'"));
  EXPECT_FALSE(is_saved("south"));
}

TEST_F(DaemonGatewayToTheServer, EveryDomainIsSavedBeforeAMasterIsMasterAlone) {
  run();
  for (const int state : {1, 0}) plain_.set_vrrp_state(state);
  std::filesystem::remove(backup_of("north"));
  Platform::instance().clear();
  plain_.set_vrrp_state(1);
  EXPECT_THAT(commands(), ElementsAre(R"({"cfg":{"operation":"get","level":"domain"}})",
                                      R"({"rrm":{"domain":"north"}})", R"({"vrrp":{"role":"master"}})"));
  EXPECT_TRUE(is_saved("north"));
}

TEST_F(DaemonGatewayToTheServer, DomainsThatCannotBeSavedAreLoggedWithTheReason) {
  run();
  for (const int state : {2, 0, 1}) plain_.set_vrrp_state(state);
  EXPECT_THAT(Platform::instance().notes(), Contains("warn: Cannot backup domains info: 'failure from morvane api'"))
      << "nobody runs the domain";
  EXPECT_EQ(plain_.vrrp_state(), 1);
}

}  // namespace
