// Backups that nobody wrote so: cut, foreign, hostile, and wrong in every single value. What can be read is restored,
// the rest is told and left out, and what runs is not touched.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "daemon/DomainBackup.h"
#include "daemon/commands.h"
#include "daemon/recording_platform.h"
#include "server/server_support.h"
#include "support/bad_json.h"
#include "support/capture.h"
#include "support/gate.h"
#include "support/messages.h"
#include "support/temp_dir.h"

namespace {

using rrm::testing::any;
using rrm::testing::Fault;
using rrm::testing::names_kind;
using rrm::testing::texts;
using rrm::testing::write_file;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Lines = std::vector<std::string>;

const char* const ap1 = "00:11:22:33:44:00";
const char* const ap2 = "00:11:22:33:55:00";
const char* const ap3 = "00:11:22:33:66:00";

// A radio with its address, its plan and one network.
std::string radio(int id, const std::string& members = "") {
  return R"({"id":)" + std::to_string(id) + R"(,"mac-offset":)" + std::to_string(16 * id) +
         R"(,"radio-mac-count":16,"status":1,"power-changed":0,"conflicted":0,"locked-tpc":0,"locked-dca":0,)"
         R"("locked-balancer":0,"locked-80211v":0,"channel":36,"band":5,"power":17,"max-power":20,"min-power":5,)"
         R"("bandwidth":20,"primary-channel":0,"available-channels":[36,40])" +
         members + "}";
}

std::string ap(const std::string& mac, const std::string& radios, const std::string& heard = "") {
  return R"({"mac":")" + mac + R"(","active":1,"ap-mac-count":48,"use-wildcard-80211r":0,"radios":{"received":1,)" +
         R"("interfaces":[)" + radios + R"(]},"visible-members":[)" + heard + R"(],"visible-rogue":[],)" +
         R"("board":"NVA-3wz","hw":"1.0","serial":"SN1"})";
}

std::string backup(const std::string& aps, const std::string& unanswered = "", const std::string& deleted = "") {
  return R"({"name":"lab","rrm-status":0,"fbt-status":0,"aps":[)" + aps + R"(],"unanswered-aps":[)" + unanswered +
         R"(],"deleted-aps":[)" + deleted + "]}";
}

// One access point of each set; the first has all that one can have.
std::string typical_backup() {
  const std::string vap =
      R"({"id":1,"ssid":"office","mac":"00:11:22:33:44:11","mobility-domain":4660,"use_802dot11k":1,)"
      R"("use_802dot11r":1,"use_802dot11v":0,"fbt-r0-keyholder":"SN1","fbt-r1-keyholder":"00:11:22:33:44:11",)"
      R"("fbt-rrb-key":"key","fbt-links":[{"remote-r0-kh-id":"SN2","remote-r1-kh-id":"00:11:22:33:55:11",)"
      R"("remote-r1-kh-key":"other"}]})";
  const std::string heard = R"({"mac":"00:11:22:33:55:10","dbm-signal":-60,"channel":40,"band":5,"bandwidth":20,)"
                            R"("tx-power":17,"primary":0})";
  return backup(ap(ap1, radio(1, R"(,"vaps":[)" + vap + R"(],"assoc_clients":[])"), heard), ap(ap2, radio(1)),
                ap(ap3, radio(1)));
}

// A server with real domains.
struct Site {
  explicit Site(const std::string& directory) : backups(api, directory) { server.make_real_domain_workers(); }
  // As a backup, with "hall" running.
  void start() {
    ask(commands::role_backup());
    server.start();
    const std::size_t before = server.sent().size();
    server.receive(rrm::testing::a_subscribe("00:11:22:33:77:00")
                       .with("domain", "hall")
                       .with_radio(rrm::testing::a_5ghz_radio())
                       .text(),
                   1);
    EXPECT_TRUE(rrm::testing::eventually([&] { return server.sent().size() > before; }));
  }
  std::string ask(const std::string& command) { return api.run(command).value_or("no answer"); }
  std::string restore() { return ask(commands::role_master(backups.load_all())); }
  std::string hall() {
    return ask(commands::domain("hall")) + ask(commands::ap("hall", "00:11:22:33:77:00")) +
           ask(R"({"cfg":{"operation":"get","level":"pattern","pattern":"common"}})") +
           ask(commands::configured_domains());
  }
  // The access points of "lab" that were restored.
  Lines restored() {
    Lines macs;
    const std::string lab = ask(commands::domain("lab"));
    const rrm::JsonReader answer(lab.c_str());
    EXPECT_EQ(answer.get("details").get("aps").size(), 0);
    EXPECT_EQ(answer.get("details").get("unanswered-aps").size(), 0);
    const rrm::JsonReader gone = answer.get("details").get("deleted-aps");
    for (int i = 0; i < gone.size(); ++i) macs.push_back(gone.at(i).get_string("mac"));
    return macs;
  }

  rrm::GlobalConfig config{"", R"({"global":{},"common":{},"patterns":[],
      "domains":[{"domain":"hall","pattern":"common"},{"domain":"lab","pattern":"common"}]})"};
  rrm::testing::TestServer server{&config};
  ActiveApStorage storage;
  ApiZAL api{&server, storage};
  DomainBackup backups;
};

class BadBackups : public ::testing::Test {
 protected:
  BadBackups() { zal::testing::Platform::instance().reset(); }

  void put(const std::string& name, const std::string& content) { write_file(directory_.file(name), content); }
  std::string directory() const { return directory_.path().string() + "/"; }
  // Warnings and errors of the server, then its events but those of the state of a plan.
  Lines told() const {
    Lines lines = log_.lines(rrm::LOG_WARNING);
    for (const std::string& line : log_.lines(rrm::LOG_ERROR)) lines.push_back(line);
    for (const auto& event : log_.events()) {
      if (event.id != 23 && event.id != status_event) {
        lines.push_back("event " + std::to_string(event.id) + " " + event.payload);
      }
    }
    return lines;
  }

  // The directory's backups on a server that runs: it becomes master, and "hall" stays as it is.
  struct Outcome {
    Lines restored;
    Lines told;
  };
  // And what was restored can be saved again.
  Outcome restore() {
    Outcome outcome = restore_only();
    if (site.server.find_worker("lab") != nullptr) {
      std::string error;
      EXPECT_TRUE(DomainBackup(site.api, saved_.path().string() + "/").save("lab", error)) << error;
    }
    return outcome;
  }
  Outcome restore_only() {
    site.start();
    const std::string before = site.hall();
    log_.clear();
    zal::testing::Platform::instance().clear();
    EXPECT_NE(site.restore().find(R"("status":"success")"), std::string::npos);
    Outcome outcome{site.restored(), told()};
    EXPECT_EQ(site.hall(), before);
    EXPECT_EQ(site.server.role(), rrm::RRM::role_master);
    return outcome;
  }

  static constexpr int status_event = 24;

  rrm::testing::ManualClock clock_{1000, 1700006400};
  rrm::testing::Capture log_;
  rrm::testing::TempDir directory_;
  rrm::testing::TempDir saved_;
  Site site{directory()};
};

TEST_F(BadBackups, ATypicalOneIsRestored) {
  put("lab.json", typical_backup());
  const Outcome outcome = restore();
  EXPECT_THAT(outcome.restored, ElementsAre(ap1, ap2, ap3));
  EXPECT_THAT(outcome.told, IsEmpty());
}

// Files

TEST_F(BadBackups, AFileThatIsCutAnywhereIsPassedOver) {
  const std::string whole = typical_backup();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    put("cut-" + std::to_string(length) + ".json", whole.substr(0, length));
  }
  const Outcome outcome = restore();
  EXPECT_THAT(outcome.restored, IsEmpty());
  EXPECT_THAT(outcome.told, IsEmpty());
}

TEST_F(BadBackups, AFileThatCannotBeReadKeepsNoOtherFromBeingRestored) {
  put("lab.json", typical_backup());
  std::filesystem::create_symlink("/proc/self/mem", directory_.file("broken.json"));
  std::filesystem::create_symlink("/dev/zero", directory_.file("endless.json"));
  std::filesystem::create_symlink("loop.json", directory_.file("loop.json"));
  std::filesystem::create_directory(directory_.file("directory.json"));
  std::string noise;
  for (unsigned i = 0; i < 4u << 20; ++i) noise += static_cast<char>(i * 2654435761u >> 24);
  put("noise.json", noise);
  put("grown.json", "");
  std::filesystem::resize_file(directory_.file("grown.json"), std::uintmax_t{1} << 36);
  const Outcome outcome = restore();
  EXPECT_THAT(outcome.restored, ElementsAre(ap1, ap2, ap3));
  EXPECT_THAT(outcome.told, IsEmpty());
}

TEST_F(BadBackups, ANameIsADomainsNameAndNeverAPath) {
  struct Case {
    const char* name;
    Lines told;
  };
  const auto unknown = [](const std::string& name) {
    return Lines{"Exception at processing message for domain '" + name + "': Domain not found", "event 13 " + name};
  };
  for (const auto& [name, stated] :
       {Case{R"("cellar")", unknown("cellar")}, Case{R"("../../etc/x")", unknown("../../etc/x")},
        Case{R"("/etc/x")", unknown("/etc/x")}, Case{R"("lab/")", unknown("lab/")},
        Case{R"("lab.json")", unknown("lab.json")}, Case{R"("LAB")", unknown("LAB")},
        Case{R"("l\u0000ab")", unknown("l")}, Case{R"("\u0000lab")", {}}, Case{R"("")", {}}}) {
    SCOPED_TRACE(name);
    put("lab.json", R"({"name":)" + std::string(name) + R"(,"aps":[)" + ap(ap1, radio(1)) + "]}");
    const Outcome outcome = restore();
    EXPECT_THAT(outcome.restored, IsEmpty());
    EXPECT_EQ(outcome.told, stated);
    EXPECT_THAT(std::distance(std::filesystem::directory_iterator(directory_.path()), {}), 1);
  }
}

// Every value

// What a fault costs. Faults without a row cost nothing: all is restored, and nothing is told.
struct Row {
  std::string where;
  std::string how;  // some of the kinds of faults, or any
  Lines restored;
  Lines told = {};  // "@" stands for the text that was read
};

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string with_text(std::string line, const std::string& text) {
  const std::size_t at = line.find('@');
  return at == std::string::npos ? line : line.replace(at, 1, text);
}

// Where no text belongs a long one reads as a short one.
bool may_be_long(const std::string& where) {
  const std::set<std::string> keys = {"name",
                                      "mac",
                                      "board",
                                      "hw",
                                      "serial",
                                      "ssid",
                                      "fbt-r0-keyholder",
                                      "fbt-r1-keyholder",
                                      "fbt-rrb-key",
                                      "remote-r0-kh-id",
                                      "remote-r1-kh-id",
                                      "remote-r1-kh-key"};
  return keys.contains(where.substr(where.rfind('/') + 1));
}

TEST_F(BadBackups, AValueThatIsWrongCostsNoMoreThanItsOwn) {
  const Lines none;
  const Lines all = {ap1, ap2, ap3};
  const Lines others = {ap2, ap3};
  const std::string zero = "00:00:00:00:00:00";
  const std::string vap = "00:11:22:33:44:11";
  const auto refused = [](const std::string& reason) {
    return Lines{reason, "Can't restore ap '00:11:22:33:44:00' from backup due to invalid MAC parameters",
                 "event 3 00:11:22:33:44:00"};
  };
  const auto bad_pool = [&](const std::string& numbers) {
    return refused("Invalid one or more radio MAC parameters:  " + numbers);
  };
  const auto no_factory = [](const std::string& mac) {
    return Lines{"Can't read factory settings from backup for ap '" + mac + "'"};
  };
  const auto bad_vap = [](const std::string& count) {
    return "Invalid VAP MAC 00:11:22:33:44:11: radio.mac=00:11:22:33:44:10, radio.max_mac_count=" + count;
  };
  const std::string vap_event = "event 11 00:11:22:33:44:10";
  const auto vap_moved = [](const std::string& from, const std::string& pool, const std::string& to) {
    return "VAP MAC " + from + " outside radio pool [" + pool + ", +16), using " + to + " for ssid=office";
  };
  // A pool that is none costs the network first and then the access point.
  const auto bad_count = [&](const std::string& count) {
    return Lines{
        bad_vap(count),
        "Invalid one or more radio MAC parameters:  radio-mac-count(" + count + "), mac-offset(16), ap-mac-count(48)",
        "Can't restore ap '00:11:22:33:44:00' from backup due to invalid MAC parameters", vap_event,
        "event 3 00:11:22:33:44:00"};
  };
  const Lines no_band = {
      "radio restore without band and band cannot be inferred: mac=00:11:22:33:44:00 id=0 channel=0"};
  const std::string first = "/aps/0";
  const std::string its_radio = "/aps/0/radios/interfaces/0";
  const std::vector<Row> rows = {
      {"", any, none},
      {"/name", texts, none, {"Exception at processing message for domain '@': Domain not found", "event 13 @"}},
      {"/name", any, none},
      {"/rrm-status", "number", all, {"Restore domain lab: unknown rrm-status 7 remapped to IDLE"}},
      {"/rrm-status", "negative", all, {"Restore domain lab: unknown rrm-status -7 remapped to IDLE"}},
      {"/aps", "missing null", none},
      {"/aps", any, others},
      {"/unanswered-aps", "missing null", {ap1}},
      {"/unanswered-aps", any, {ap1, ap3}},
      {"/deleted-aps", any, {ap1, ap2}},
      {first, "missing null", others},
      {first, any, others, no_factory(zero)},
      {first + "/mac", any, {zero, ap2, ap3}, {vap_moved(vap, "00:00:00:00:00:10", "00:00:00:00:00:11")}},
      {first + "/board", texts, all},
      {first + "/board", any, others, no_factory(ap1)},
      {first + "/hw", texts, all},
      {first + "/hw", any, others, no_factory(ap1)},
      {first + "/serial", texts, all},
      {first + "/serial", any, others, no_factory(ap1)},
      {first + "/ap-mac-count", "missing", all},
      {first + "/ap-mac-count", "number", others, bad_pool("radio-mac-count(16), mac-offset(16), ap-mac-count(7)")},
      {first + "/ap-mac-count", "true", others, bad_pool("radio-mac-count(16), mac-offset(16), ap-mac-count(1)")},
      {first + "/ap-mac-count", "negative", others, refused("Invalid ap-mac-count(-7)")},
      {first + "/ap-mac-count", any, others, refused("Invalid ap-mac-count(0)")},
      {its_radio, "missing null", all},
      {its_radio, any, all, no_band},
      {its_radio + "/id", "number", all, {"Skip invalid restore radio id=7, radios_count=3"}},
      {its_radio + "/mac-offset", "missing number", all},
      {its_radio + "/mac-offset", "true", all, {vap_moved(vap, "00:11:22:33:44:01", "00:11:22:33:44:02")}},
      {its_radio + "/mac-offset", "negative", others,
       Lines{vap_moved(vap, ap1, "00:11:22:33:44:01")} +
           bad_pool("radio-mac-count(16), mac-offset(-7), ap-mac-count(48)")},
      {its_radio + "/mac-offset", any, all, {vap_moved(vap, ap1, "00:11:22:33:44:01")}},
      {its_radio + "/radio-mac-count", "missing number", all},
      {its_radio + "/radio-mac-count", "true", all, {bad_vap("1"), vap_event}},
      {its_radio + "/radio-mac-count", "negative", others, bad_count("-7")},
      {its_radio + "/radio-mac-count", any, others, bad_count("0")},
      {its_radio + "/vaps/0/mac", "missing", all},
      {its_radio + "/vaps/0/mac", any, all, {vap_moved(zero, "00:11:22:33:44:10", vap)}},
  };
  std::set<const Row*> used;
  rrm::testing::for_each_fault(typical_backup(), [&](const Fault& fault) {
    if (fault.where.starts_with("/unanswered-aps/") || fault.where.starts_with("/deleted-aps/")) return;
    if (names_kind("long control nul", fault.how) && !may_be_long(fault.where)) return;
    SCOPED_TRACE(fault.where + " " + fault.how);
    put("lab.json", fault.text);
    const Outcome outcome = restore();
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& one) {
      return fault.how != "unknown" && one.where == fault.where && names_kind(one.how, fault.how);
    });
    if (row == rows.end()) {
      EXPECT_EQ(outcome.restored, all);
      EXPECT_THAT(outcome.told, IsEmpty());
      return;
    }
    used.insert(&*row);
    EXPECT_EQ(outcome.restored, row->restored);
    Lines stated;
    for (const std::string& line : row->told) stated.push_back(with_text(line, fault.read));
    EXPECT_EQ(outcome.told, stated);
  });
  for (const Row& row : rows) EXPECT_TRUE(used.contains(&row)) << row.where << " " << row.how;
}

// Hostile ones

std::string with_number(const std::string& json, const std::string& member, const std::string& number) {
  const std::size_t first = json.find("\"" + member + "\":") + member.size() + 3;
  EXPECT_GE(first, member.size() + 3) << member;
  return json.substr(0, first) + number + json.substr(json.find_first_of(",}", first));
}

TEST_F(BadBackups, ANumberBeyondAllBoundsHarmsNobody) {
  const std::string ap_of_radio = ap(ap1, radio(1));
  const std::string cannot = "Can't restore ap '00:11:22:33:44:00' from backup due to invalid MAC parameters";
  const std::string event = "event 3 00:11:22:33:44:00";
  const std::string bad_pool = "Invalid one or more radio MAC parameters:  ";
  struct Case {
    const char* member;
    const char* number;
    Lines told;  // nothing: it is restored
  };
  for (const auto& [member, number, told] : std::vector<Case>{
           {"channel", "1000000000", {}},
           {"channel", "-2147483648", {}},
           {"channel", "1e400", {}},
           {"band", "2147483647", {}},
           {"bandwidth", "2147483647", {}},
           {"power", "-2147483648", {}},
           {"max-power", "-2147483648", {}},
           {"primary-channel", "2147483647", {}},
           {"locked-tpc", "18446744073709551615", {}},
           {"status", "99999999999999999999999", {}},
           {"ap-mac-count", "2147483647", {}},
           {"ap-mac-count", "2147483648", {"Invalid ap-mac-count(-2147483648)", cannot, event}},
           {"ap-mac-count", "4294967296", {"Invalid ap-mac-count(0)", cannot, event}},
           {"mac-offset", "32", {}},
           {"mac-offset", "33", {bad_pool + "radio-mac-count(16), mac-offset(33), ap-mac-count(48)", cannot, event}},
           {"mac-offset",
            "2147483647",
            {bad_pool + "radio-mac-count(16), mac-offset(2147483647), ap-mac-count(48)", cannot, event}},
           {"mac-offset",
            "-2147483648",
            {bad_pool + "radio-mac-count(16), mac-offset(-2147483648), ap-mac-count(48)", cannot, event}},
           {"radio-mac-count",
            "2147483647",
            {bad_pool + "radio-mac-count(2147483647), mac-offset(16), ap-mac-count(48)", cannot, event}},
           {"id", "2147483647", {"Skip invalid restore radio id=2147483647, radios_count=3"}},
           {"id", "-2147483648", {}},
       }) {
    SCOPED_TRACE(std::string(member) + " " + number);
    put("lab.json", backup(with_number(ap_of_radio, member, number), ap(ap2, radio(1))));
    const Outcome outcome = restore();
    const bool is_restored = std::find(told.begin(), told.end(), cannot) == told.end();
    EXPECT_EQ(outcome.restored, is_restored ? Lines({ap1, ap2}) : Lines({ap2}));
    EXPECT_EQ(outcome.told, told);
  }
}

TEST_F(BadBackups, APoolOfTwoBillionAddressesCostsNoTime) {
  const std::string wide =
      with_number(with_number(ap(ap1, radio(0)), "ap-mac-count", "2147483647"), "radio-mac-count", "2147483647");
  put("lab.json", backup(wide, ap(ap2, radio(1))));
  const Outcome outcome = restore();
  EXPECT_THAT(outcome.restored, ElementsAre(ap1, ap2));
  EXPECT_THAT(outcome.told, IsEmpty());
}

TEST_F(BadBackups, RadiosThatNoAccessPointHasAreLeftOut) {
  put("lab.json", backup(ap(ap1, radio(0) + "," + radio(1) + "," + radio(2) + "," + radio(3) + "," + radio(1000))));
  const Outcome outcome = restore();
  EXPECT_THAT(outcome.restored, ElementsAre(ap1));
  EXPECT_THAT(outcome.told, ElementsAre("Skip invalid restore radio id=3, radios_count=3",
                                        "Skip invalid restore radio id=1000, radios_count=3"));
}

TEST_F(BadBackups, AnAccessPointThatIsThereTwiceIsTakenOnceAndAKeyThatIsRepeatedCountsAtItsLast) {
  put("lab.json", backup(ap(ap1, radio(1)) + "," + ap(ap1, radio(2)), ap(ap1, radio(0)), ap(ap1, radio(0))));
  EXPECT_THAT(restore().restored, ElementsAre(ap1));
  put("lab.json", backup(R"({"mac":"00:00:00:00:00:01",)" + ap(ap2, radio(1)).substr(1)));
  EXPECT_THAT(restore().restored, ElementsAre(ap2));
  put("lab.json", R"({"name":"cellar","aps":[],)" + backup(ap(ap3, radio(1))).substr(1));
  EXPECT_THAT(restore().restored, ElementsAre(ap3));
}

TEST_F(BadBackups, TenThousandAccessPointsAndMegabytesOfWhatTheyHearAreRestored) {
  std::string aps;
  for (int i = 0; i < 10000; ++i) {
    char mac[18];
    std::snprintf(mac, sizeof mac, "A8:F9:%02X:%02X:%02X:00", (i >> 12) & 0xFF, (i >> 4) & 0xFF, (i << 4) & 0xF0);
    aps += (i == 0 ? "" : ",") + ap(mac, "");
  }
  put("lab.json", backup(aps));
  Outcome outcome = restore_only();
  EXPECT_EQ(outcome.restored.size(), 10000u);
  EXPECT_THAT(outcome.told, IsEmpty());

  std::string heard;
  for (int i = 0; i < 40000; ++i) {
    char mac[18];
    std::snprintf(mac, sizeof mac, "02:00:00:%02X:%02X:%02X", (i >> 16) & 0xFF, (i >> 8) & 0xFF, i & 0xFF);
    heard += (i == 0 ? "" : ",") + (R"({"mac":")" + std::string(mac) + R"(","dbm-signal":-60,"channel":1000000000})");
  }
  put("lab.json", backup(ap(ap1, radio(1), heard)));
  outcome = restore();
  EXPECT_THAT(outcome.restored, ElementsAre(ap1));
  EXPECT_THAT(outcome.told, IsEmpty());
}

// Who is restored with hostile figures is listed, told its neighbours and counted like anybody else.
TEST_F(BadBackups, AnAccessPointReturnsFromAHostileBackup) {
  const std::string heard = R"({"mac":"00:11:22:33:55:10","dbm-signal":2147483647,"channel":1000000000,"band":-1,)"
                            R"("bandwidth":-2147483648,"tx-power":2147483647,"primary":99})";
  std::string hostile = radio(1);
  for (const char* member : {"channel", "power", "max-power", "bandwidth", "primary-channel"}) {
    hostile = with_number(hostile, member, "1000000000");
  }
  put("lab.json", backup(ap(ap1, hostile, heard) + "," + ap(ap2, hostile, heard)));
  EXPECT_THAT(restore().restored, ElementsAre(ap1, ap2));
  for (const char* mac : {ap1, ap2}) {
    const std::size_t before = site.server.sent().size();
    site.server.receive(rrm::testing::a_subscribe(mac).with_radio(rrm::testing::a_5ghz_radio()).text(), 9);
    ASSERT_TRUE(rrm::testing::eventually([&] { return site.server.sent().size() > before; }));
  }
  EXPECT_NE(site.ask(commands::domain("lab")).find(R"("ap-count":2,"unanswered-ap-count":0,"deleted-ap-count":0,)"),
            std::string::npos);
}

}  // namespace
