// The backups of domains: what a file holds, when it is written and when not, which files are read, and a domain's way
// into a file and out of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "daemon/DomainBackup.h"
#include "daemon/commands.h"
#include "daemon/recording_platform.h"
#include "daemon/scripted_api.h"
#include "server/server_support.h"
#include "support/capture.h"
#include "support/gate.h"
#include "support/messages.h"
#include "support/temp_dir.h"

namespace {

using rrm::testing::read_file;
using rrm::testing::write_file;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using zal::testing::Platform;

const char* const ap1 = "A8:F9:4B:00:11:00";
const char* const ap2 = "A8:F9:4B:00:22:00";
const char* const lab_command = R"({"rrm":{"domain":"lab"}})";
const std::string failure = "failure from morvane api";
const std::string malformed_answer = "malformed answer from morvane api";

std::string ap_command(const std::string& mac) {
  return R"({"rrm":{"domain":"lab","ap":")" + mac + "\"}}";
}
std::string links_command(const std::string& mac) {
  return R"({"rrm":{"domain":"lab","ap":")" + mac + R"(","fbt-links":{}}})";
}
// An access point in a domain's details.
std::string known(const std::string& mac, const std::string& serial = "SN1") {
  return R"({"board":"NVA-3wz","mac":")" + mac + R"(","serial":")" + serial +
         R"(","hw":"1.0","radios":[{"id":0,"vaps":[]}]})";
}
std::string details(const std::string& aps, const std::string& unanswered = "", const std::string& deleted = "") {
  return R"({"version":"2.1","details":{"name":"lab","rrm-status":3,"fbt-status":1,"aps":[)" + aps +
         R"(],"unanswered-aps":[)" + unanswered + R"(],"deleted-aps":[)" + deleted + "]}}";
}
// An access point's own answer; the VAPs of its two radios are told short in one form and in full in the other.
std::string whole(const std::string& set, const std::string& mac) {
  return R"({"version":"2.1",")" + set + R"(":{"mac":")" + mac +
         R"(","active":1,"radios":{"received":1,"interfaces":[{"id":0,"vaps":["short"],"assoc_clients":[]},)"
         R"({"id":1,"vaps":[]}]},"visible-members":[],"visible-rogue":[]}})";
}
std::string links(const std::string& set) {
  return R"({"version":"2.1",")" + set + R"(":{"radios":[{"id":0,"vaps":["full"]},{"id":1,"vaps":["other"]}]}})";
}
std::string saved_ap(const std::string& mac, const std::string& serial = "SN1") {
  return R"({"mac":")" + mac +
         R"(","active":1,"radios":{"received":1,"interfaces":[{"id":0,"vaps":["full"],"assoc_clients":[]},)"
         R"({"id":1,"vaps":["other"]}]},"visible-members":[],"visible-rogue":[],"board":"NVA-3wz","hw":"1.0",)"
         R"("serial":")" +
         serial + "\"}";
}
std::string saved_domain(const std::string& aps, const std::string& deleted = "", const std::string& unanswered = "") {
  return R"({"name":"lab","rrm-status":3,"fbt-status":1,"aps":[)" + aps + R"(],"deleted-aps":[)" + deleted +
         R"(],"unanswered-aps":[)" + unanswered + "]}";
}

class DaemonBackup : public zal::testing::ScriptedApiTest {
 protected:
  void answer_ap(const std::string& set, const std::string& mac) {
    api_.answer(ap_command(mac), whole(set, mac));
    api_.answer(links_command(mac), links(set));
  }
  void answer_one_ap() {
    api_.answer(lab_command, details(known(ap1)));
    answer_ap("active-ap", ap1);
  }
  // Empty on success, or the reason.
  std::string save(const std::string& domain = "lab") {
    std::string error;
    const bool is_saved = backup().save(domain, error);
    EXPECT_EQ(is_saved, error.empty());
    return error;
  }
  DomainBackup backup() { return {api_, directory()}; }
  std::string directory() const { return directory_.path().string() + "/"; }
  std::string saved(const std::string& domain = "lab") const { return read_file(directory_.file(domain + ".json")); }
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path()))
      names.push_back(entry.path().filename());
    return names;
  }
  void put(const std::string& name, const std::string& content) { write_file(directory_.file(name), content); }

  rrm::testing::TempDir directory_;
};

// Writing

TEST_F(DaemonBackup, ADomainIsSavedSetBySet) {
  const char* const ap3 = "A8:F9:4B:00:33:00";
  const char* const ap4 = "A8:F9:4B:00:44:00";
  api_.answer(lab_command, details(known(ap1) + "," + known(ap2, "SN2"), known(ap3, "SN3"), known(ap4, "SN4")));
  answer_ap("active-ap", ap1);
  answer_ap("active-ap", ap2);
  answer_ap("unanswered-ap", ap3);
  answer_ap("deleted-ap", ap4);
  EXPECT_EQ(save(), "");
  EXPECT_EQ(saved(),
            saved_domain(saved_ap(ap1) + "," + saved_ap(ap2, "SN2"), saved_ap(ap4, "SN4"), saved_ap(ap3, "SN3")));
  EXPECT_THAT(files(), ElementsAre("lab.json"));
  EXPECT_THAT(api_.asked,
              ElementsAre(lab_command, ap_command(ap1), links_command(ap1), ap_command(ap2), links_command(ap2),
                          ap_command(ap3), links_command(ap3), ap_command(ap4), links_command(ap4)));
}

TEST_F(DaemonBackup, ADomainWithoutAccessPointsIsSavedEmpty) {
  api_.answer(lab_command, details(""));
  EXPECT_EQ(save(), "");
  EXPECT_EQ(saved(), saved_domain(""));
}

TEST_F(DaemonBackup, AFileIsReplacedAsAWhole) {
  put("lab.json", std::string(100000, 'x'));
  answer_one_ap();
  EXPECT_EQ(save(), "");
  EXPECT_EQ(saved(), saved_domain(saved_ap(ap1)));
}

TEST_F(DaemonBackup, AnAccessPointThatLeftItsSetMeanwhileIsLeftOut) {
  api_.answer(lab_command, details(known(ap1) + "," + known(ap2)));
  answer_ap("deleted-ap", ap1);
  answer_ap("active-ap", ap2);
  EXPECT_EQ(save(), "");
  EXPECT_EQ(saved(), saved_domain(saved_ap(ap2)));
  api_.answer(ap_command(ap1), whole("active-ap", ap1));
  EXPECT_EQ(save(), "");
  EXPECT_EQ(saved(), saved_domain(saved_ap(ap2))) << "it went between the two questions about it";
}

TEST_F(DaemonBackup, WithoutAnAnswerTheFileStaysAsItWas) {
  put("lab.json", "as it was");
  answer_one_ap();
  const std::string no_answer = "no answer on morvane api ";
  const std::vector<std::pair<std::string, std::string>> questions{
      {links_command(ap1), no_answer + "fbt-info request for 'A8:F9:4B:00:11:00'"},
      {ap_command(ap1), no_answer + "request for specific ap 'A8:F9:4B:00:11:00'"},
      {lab_command, no_answer + "request for specific location 'lab'"},
  };
  for (const auto& [command, reason] : questions) {
    SCOPED_TRACE(command);
    api_.give_no_answer(command);
    EXPECT_EQ(save(), reason);
    for (const auto& [name, text] : failures()) {
      api_.answer(command, *text);
      EXPECT_EQ(save(), failure) << name;
    }
  }
  for (const auto& [name, text] : malformed()) {
    api_.answer(lab_command, *text);
    EXPECT_EQ(save(), malformed_answer) << name;
  }
  EXPECT_EQ(saved(), "as it was");
  EXPECT_THAT(files(), ElementsAre("lab.json"));
}

TEST_F(DaemonBackup, TheTwoAnswersAboutAnAccessPointHaveToFit) {
  answer_one_ap();
  put("lab.json", "as it was");
  for (const char* text :
       {R"({"active-ap":{"radios":[{"id":0,"vaps":[]}]}})",
        R"({"active-ap":{"radios":[{"id":0,"vaps":[]},{"id":1,"vaps":[]},{"id":2,"vaps":[]}]}})",
        R"({"active-ap":{"radios":[{"id":0,"vaps":[]},{"id":1}]}})", R"({"active-ap":{"radios":[]}})",
        R"({"active-ap":{"radios":[7,8]}})", R"({"active-ap":{"radios":null}})", R"({"active-ap":{}})",
        R"({"active-ap":null})", R"({"active-ap":[]})"}) {
    api_.answer(links_command(ap1), text);
    EXPECT_EQ(save(), malformed_answer) << text;
  }
  api_.answer(links_command(ap1), links("active-ap"));
  for (const char* text :
       {R"({"active-ap":{}})", R"({"active-ap":null})", R"({"active-ap":{"radios":{}}})",
        R"({"active-ap":{"radios":{"interfaces":[{"id":0}]}}})", R"({"active-ap":{"radios":{"interfaces":[7,8]}}})"}) {
    api_.answer(ap_command(ap1), text);
    EXPECT_EQ(save(), malformed_answer) << text;
  }
  EXPECT_EQ(saved(), "as it was");
}

// A network's name may be any bytes, and only under the same name are its keys found again.
TEST_F(DaemonBackup, ANetworkNameThatIsNoUtf8IsKeptAsItIs) {
  const std::string name = "caf\xE9\xC3\xA9";
  std::string known_ap = known(ap1);
  known_ap.replace(known_ap.find(R"("vaps":[])"), 9, R"("vaps":[{"ssid":")" + name + "\"}]");
  api_.answer(lab_command, details(known_ap));
  answer_ap("active-ap", ap1);
  std::string with_name = links("active-ap");
  with_name.replace(with_name.find(R"("full")"), 6, "\"" + name + "\"");
  api_.answer(links_command(ap1), with_name);
  EXPECT_EQ(save(), "");
  std::string expected = saved_domain(saved_ap(ap1));
  expected.replace(expected.find(R"("full")"), 6, "\"" + name + "\"");
  EXPECT_EQ(saved(), expected);
}

TEST_F(DaemonBackup, AThousandAccessPointsAreSaved) {
  std::string aps;
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    char mac[18];
    std::snprintf(mac, sizeof mac, "A8:F9:4B:%02X:%02X:00", (static_cast<unsigned>(i) / 256) & 0xFF,
                  static_cast<unsigned>(i) & 0xFF);
    aps += (i == 0 ? "" : ",") + known(mac);
    expected += (i == 0 ? "" : ",") + saved_ap(mac);
    answer_ap("active-ap", mac);
  }
  api_.answer(lab_command, details(aps));
  EXPECT_EQ(save(), "");
  EXPECT_EQ(saved(), saved_domain(expected));
}

TEST_F(DaemonBackup, AFileIsNamedAfterItsDomain) {
  for (const std::string& name : {std::string("two words"), std::string("qu\"ote"), std::string("line\nend"),
                                  std::string("lab.json"), std::string(".."), std::string(250, 'n')}) {
    SCOPED_TRACE(name);
    api_.answer(commands::domain(name), details(""));
    EXPECT_EQ(save(name), "");
    EXPECT_TRUE(std::filesystem::exists(directory_.file(name + ".json")));
  }
}

TEST_F(DaemonBackup, ANameCannotLeadOutOfTheDirectory) {
  for (const char* name : {"../lab", "a/b", "/lab", "lab/"}) {
    EXPECT_EQ(save(name), std::string("no file can be named after domain '") + name + "'");
  }
  EXPECT_THAT(api_.asked, IsEmpty());
  EXPECT_THAT(files(), IsEmpty());
}

TEST_F(DaemonBackup, WithoutTheDirectoryNothingIsAskedOrSaved) {
  std::filesystem::remove_all(directory_.path());
  std::string error;
  EXPECT_FALSE(backup().save("lab", error));
  EXPECT_FALSE(backup().save_all(error));
  EXPECT_EQ(error, "");
  EXPECT_THAT(api_.asked, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(directory_.path()));
}

// While it lives this process may write no files longer than `bytes`.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : old_handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &old_limit_);
    const rlimit limit{bytes, old_limit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &old_limit_);
    std::signal(SIGXFSZ, old_handler_);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
  void (*const old_handler_)(int);
  rlimit old_limit_{};
};

TEST_F(DaemonBackup, WithoutRoomForItTheFileStaysAndNothingIsLeftBehind) {
  put("lab.json", "as it was");
  answer_one_ap();
  for (const rlim_t bytes : {rlim_t{0}, rlim_t{100}}) {
    const FileSizeLimit limit(bytes);
    EXPECT_EQ(save(), "cannot write '" + directory_.file("lab.json") + "': File too large");
  }
  EXPECT_EQ(saved(), "as it was");
  EXPECT_THAT(files(), ElementsAre("lab.json"));
}

TEST_F(DaemonBackup, NothingIsWrittenThroughALink) {
  put("other", "as it was");
  std::filesystem::create_symlink(directory_.file("other"), directory_.file(".unfinished"));
  std::filesystem::create_symlink(directory_.file("other"), directory_.file("lab.json"));
  answer_one_ap();
  EXPECT_EQ(save(), "");
  EXPECT_EQ(read_file(directory_.file("other")), "as it was");
  EXPECT_FALSE(std::filesystem::is_symlink(directory_.file("lab.json")));
  EXPECT_EQ(saved(), saved_domain(saved_ap(ap1)));
}

// It holds the keys of 802.11r.
TEST_F(DaemonBackup, AFileIsForItsUserAlone) {
  answer_one_ap();
  EXPECT_EQ(save(), "");
  EXPECT_EQ(std::filesystem::status(directory_.file("lab.json")).permissions(),
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(DaemonBackup, AFileThatCannotBeReplacedIsTold) {
  put("lab.json/inside", "");
  answer_one_ap();
  EXPECT_EQ(save(), "cannot write '" + directory_.file("lab.json") + "': Is a directory");
  EXPECT_THAT(files(), ElementsAre("lab.json"));
}

TEST_F(DaemonBackup, AFileThatCannotBeMadeIsTold) {
  put(".unfinished/inside", "");
  answer_one_ap();
  EXPECT_EQ(save(), "cannot write '" + directory_.file("lab.json") + "': File exists");
  EXPECT_THAT(files(), ElementsAre(".unfinished"));
}

TEST_F(DaemonBackup, WhatACrashLeftUnfinishedIsReplaced) {
  put(".unfinished", R"({"name":"half)");
  answer_one_ap();
  EXPECT_EQ(save(), "");
  EXPECT_THAT(files(), ElementsAre("lab.json"));
}

// All domains

class DaemonBackupOfAll : public DaemonBackup {
 protected:
  static constexpr const char* configured = R"({"cfg":{"operation":"get","level":"domain"}})";
  std::string save_all() {
    std::string error;
    const bool is_saved = backup().save_all(error);
    EXPECT_EQ(is_saved, error.empty());
    return error;
  }
};

TEST_F(DaemonBackupOfAll, EveryConfiguredDomainIsSaved) {
  api_.answer(configured, R"({"domains":[{"name":"hall"},{"name":"lab"}]})");
  api_.answer(R"({"rrm":{"domain":"hall"}})", details(""));
  answer_one_ap();
  EXPECT_EQ(save_all(), "");
  EXPECT_THAT(files(), UnorderedElementsAre("hall.json", "lab.json"));
  EXPECT_EQ(saved(), saved_domain(saved_ap(ap1)));
}

TEST_F(DaemonBackupOfAll, TheFirstDomainThatCannotBeSavedEndsTheSaving) {
  api_.answer(configured, R"({"domains":[{"name":"hall"},{"name":"lab"},{"name":"yard"}]})");
  api_.answer(R"({"rrm":{"domain":"hall"}})", details(""));
  api_.answer(lab_command, R"({"error":"domain not found"})");
  EXPECT_EQ(save_all(), failure);
  EXPECT_THAT(files(), ElementsAre("hall.json"));
}

TEST_F(DaemonBackupOfAll, TheConfiguredDomainsHaveToBeTold) {
  api_.give_no_answer(configured);
  EXPECT_EQ(save_all(), "no answer on morvane api request for configured ap-locations");
  for (const auto& [name, text] : failures()) {
    api_.answer(configured, *text);
    EXPECT_EQ(save_all(), failure) << name;
  }
  for (const auto& [name, text] : malformed()) {
    api_.answer(configured, *text);
    EXPECT_EQ(save_all(), malformed_answer) << name;
  }
  EXPECT_THAT(files(), IsEmpty());
}

// Reading

TEST_F(DaemonBackup, EveryBackupIsReadAsItStands) {
  const std::string spaced = "{ \"name\" : \"b\",\n \"aps\": [] }\n";
  put("a.json", R"({"name":"a"})");
  put("b.json", spaced);
  EXPECT_THAT(backup().load_all(), UnorderedElementsAre(R"({"name":"a"})", spaced));
}

TEST_F(DaemonBackup, WithoutADirectoryThereAreNoBackups) {
  EXPECT_THAT(backup().load_all(), IsEmpty());
  EXPECT_THAT(DomainBackup(api_, directory() + "missing/").load_all(), IsEmpty());
  put("plain", "");
  EXPECT_THAT(DomainBackup(api_, directory() + "plain").load_all(), IsEmpty());
}

TEST_F(DaemonBackup, FilesThatAreNoBackupArePassedOver) {
  put("good.json", R"({"name":"good"})");
  const std::string nested = R"({"name":"deep","aps":)" + std::string(508, '[') + std::string(508, ']') + "}";
  const std::vector<std::pair<const char*, std::string>> foreign{
      {"empty.json", ""},
      {"zeroes.json", std::string(4096, '\0')},
      {"half.json", R"({"name":"half","aps":[)"},
      {"text.json", "nonsense"},
      {"array.json", R"([{"name":"array"}])"},
      {"number.json", "7"},
      {"null.json", "null"},
      {"nameless.json", R"({"aps":[]})"},
      {"two.json", R"({"name":"two"},{"name":"three"})"},
      {"order.json", R"({"name":"x"}],"role":"backup","more":[{})"},
      {"deep.json", R"({"name":"deep","aps":)" + std::string(511, '[') + std::string(511, ']') + "}"},
      {"deeper-in-the-command.json", R"({"name":"deep","aps":)" + std::string(510, '[') + std::string(510, ']') + "}"},
      {".unfinished", R"({"name":"unfinished"})"},
      {"lab.json.tmp", R"({"name":"left"})"},
      {"lab.JSON", R"({"name":"loud"})"},
      {"readme.txt", R"({"name":"text"})"},
      {".json", R"({"name":""})"},
      {"directory.json/inside.json", R"({"name":"inside"})"},
  };
  for (const auto& [name, content] : foreign) put(name, content);
  ASSERT_EQ(mkfifo(directory_.file("pipe.json").c_str(), 0600), 0);
  std::filesystem::create_symlink("nowhere", directory_.file("dangling.json"));
  EXPECT_THAT(backup().load_all(), ElementsAre(R"({"name":"good"})"));
  put("nested.json", nested);
  EXPECT_THAT(backup().load_all(), UnorderedElementsAre(R"({"name":"good"})", nested));
  const std::string command = commands::role_master(backup().load_all());
  EXPECT_EQ(rrm::JsonReader(command.c_str()).get("vrrp").get("domains").size(), 2) << "it can be read as a whole";
}

TEST_F(DaemonBackup, AFileThatLostItsEndToZeroesIsReadUpToThem) {
  put("lab.json", R"({"name":"lab"})" + std::string(100, '\0'));
  put("hall.json", R"({"name":"hall"})" + std::string("\n\0}}", 4));
  EXPECT_THAT(backup().load_all(), UnorderedElementsAre(R"({"name":"lab"})", "{\"name\":\"hall\"}\n"));
}

// The way into a file and out of it

// A server with real domains and nothing else, and the interface to it.
struct Site {
  explicit Site(const std::string& directory) : backup(api, directory) { server.make_real_domain_workers(); }
  std::string ask(const std::string& command) { return api.run(command).value_or("no answer"); }

  rrm::GlobalConfig config{
      "", R"({"global":{},"common":{},"patterns":[],"domains":[{"domain":"lab","pattern":"common"}]})"};
  rrm::testing::TestServer server{&config};
  ActiveApStorage storage;
  ApiZAL api{&server, storage};
  DomainBackup backup;
};

class DaemonBackupOfASite : public ::testing::Test {
 protected:
  DaemonBackupOfASite() { zal::testing::Platform::instance().reset(); }
  std::string directory() const { return directory_.path().string() + "/"; }
  std::string save(Site& site) {
    std::string error;
    EXPECT_TRUE(site.backup.save("lab", error)) << error;
    return read_file(directory_.file("lab.json"));
  }
  static std::string restore(Site& site) { return site.ask(commands::role_master(site.backup.load_all())); }

  rrm::testing::ManualClock clock_{1000, 1700006400};
  rrm::testing::Capture log_;
  rrm::testing::TempDir directory_;
};

// The members of one array of a backup.
std::string set_of(const std::string& backup, const std::string& key) {
  return rrm::JsonReader(backup.c_str()).get(key.c_str()).to_string();
}

TEST_F(DaemonBackupOfASite, ADomainComesBackWithItsAccessPointsGone) {
  Site first(directory());
  const std::size_t before = first.server.sent().size();
  first.server.receive(
      rrm::testing::a_subscribe(ap1).with_radio(rrm::testing::a_5ghz_radio().with_vap(0, "office")).text(), 1);
  ASSERT_TRUE(rrm::testing::eventually([&] { return first.server.sent().size() > before; }));
  const std::string saved = save(first);
  EXPECT_EQ(saved.find(R"({"name":"lab","rrm-status":)"), 0u) << saved;
  EXPECT_EQ(set_of(saved, "deleted-aps"), "[]");
  EXPECT_EQ(set_of(saved, "unanswered-aps"), "[]");
  const rrm::JsonReader reader(saved.c_str());
  const rrm::JsonReader ap = reader.get("aps").at(0);
  EXPECT_STREQ(ap.get_string("mac"), ap1);
  EXPECT_STREQ(ap.get_string("board"), "NVA-3wz");
  EXPECT_STREQ(ap.get_string("hw"), "1.0");
  EXPECT_STREQ(ap.get_string("serial"), "SN11:00");

  Site second(directory());
  EXPECT_NE(restore(second).find(R"("status":"success")"), std::string::npos);
  EXPECT_EQ(second.server.role(), rrm::RRM::role_master);
  const std::string lab = second.ask(commands::domain("lab"));
  EXPECT_NE(lab.find(R"("ap-count":0,"unanswered-ap-count":0,"deleted-ap-count":1,)"), std::string::npos) << lab;
  const std::string answer = second.ask(commands::ap("lab", ap1));
  EXPECT_NE(answer.find(R"("deleted-ap":{"mac":"A8:F9:4B:00:11:00","active":0,)"), std::string::npos) << answer;
  EXPECT_NE(answer.find(R"("ssid":"office")"), std::string::npos) << answer;
}

TEST_F(DaemonBackupOfASite, KeysAndLinksSurviveBeingRestoredAndSavedAgain) {
  const std::string vaps =
      R"([{"id":0,"ssid":"office","mac":"A8:F9:4B:00:11:10","mobility-domain":4660,"use_802dot11k":1,)"
      R"("use_802dot11r":1,"use_802dot11v":0,"fbt-r0-keyholder":"SN1","fbt-r1-keyholder":"A8:F9:4B:00:11:10",)"
      R"("fbt-rrb-key":"00112233445566778899aabbccddeeff","fbt-links":[{"remote-r0-kh-id":"SN2",)"
      R"("remote-r1-kh-id":"A8:F9:4B:00:22:10","remote-r1-kh-key":"ffeeddccbbaa99887766554433221100"}]}])";
  write_file(directory_.file("lab.json"),
             R"({"name":"lab","rrm-status":0,"fbt-status":0,"aps":[{"mac":"A8:F9:4B:00:11:00","ap-mac-count":48,)"
             R"("radios":{"received":1,"interfaces":[{"id":1,"mac-offset":16,"radio-mac-count":16,"status":1,)"
             R"("channel":36,"band":5,"power":17,"max-power":20,"min-power":5,"bandwidth":20,)"
             R"("available-channels":[36,40],"vaps":)" +
                 vaps +
                 R"(}]},"visible-members":[],"visible-rogue":[],"board":"NVA-3wz","hw":"1.0","serial":"SN1"}]})");
  Site site(directory());
  restore(site);
  const std::string saved = save(site);
  EXPECT_EQ(set_of(saved, "aps"), "[]");
  EXPECT_EQ(set_of(saved, "unanswered-aps"), "[]");
  const std::string gone = set_of(saved, "deleted-aps");
  const rrm::JsonReader reader(gone.c_str());
  ASSERT_EQ(reader.size(), 1);
  const rrm::JsonReader radio = reader.at(0).get("radios").get("interfaces").at(1);
  EXPECT_EQ(radio.get_int("channel"), 36);
  EXPECT_EQ(radio.get_int("power"), 17);
  const rrm::JsonReader given(vaps.c_str());
  const rrm::JsonReader vap = radio.get("vaps").at(0);
  for (const char* key : {"ssid", "mac", "fbt-r0-keyholder", "fbt-r1-keyholder", "fbt-rrb-key"})
    EXPECT_STREQ(vap.get_string(key), given.at(0).get_string(key)) << key;
  EXPECT_STREQ(vap.get("fbt-links").to_string(), given.at(0).get("fbt-links").to_string());

  Site another(directory());
  restore(another);
  EXPECT_EQ(save(another), saved) << "from here on a backup of the restored is the backup";
}

TEST_F(DaemonBackupOfASite, AHalfFileKeepsNoOtherDomainFromComingBack) {
  write_file(directory_.file("hall.json"), R"({"name":"hall","aps":[{"mac":)");
  write_file(directory_.file("lab.json"), R"({"name":"lab","rrm-status":0,"fbt-status":0,"aps":[]})");
  Site site(directory());
  restore(site);
  EXPECT_THAT(site.server.domains(), ElementsAre("lab"));
}

}  // namespace
