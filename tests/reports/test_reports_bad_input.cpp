// Names, directories and files as they should not be: every operation answers with its error and its words, and touches
// nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Config.h"
#include "json/JsonWriter.h"
#include "report_support.h"
#include "reports/file_lock.h"
#include "reports/recovery.h"

namespace reports {
namespace {

using rrm::JsonWriter;
using testing::a_record;
using ::testing::Contains;
using testing::default_settings;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::Nobody;
using testing::ReportTest;
using ::testing::StartsWith;
using testing::Texts;
using enum rrm::LogLevel;

const std::string date = "2024-01-01,00:00:00";
const std::string line = "1.1," + date;
const std::string fields = "1,2,3,4,5,6,7,8,9,36 40,10,11,12,13,14,15";

// An operation on a domain, as others call it, with the number of the event that its failure raises; 0 for none.
struct Operation {
  const char* name;
  int event;
  std::function<int(const std::string& domain, const std::string& path)> run;
};

const std::vector<Operation> operations{
    {"save", 18,
     [](const std::string& domain, const std::string& path) {
       return save_radio_report_to_files({{date + ",AA,A1", a_record()}}, domain, date, path, rrm::DomainConfig());
     }},
    {"list", 19,
     [](const std::string& domain, const std::string& path) {
       JsonWriter writer;
       return get_radio_report_list(writer, domain, path, "2024-01-01,00:00:00 UTC", "2024-01-02,00:00:00 UTC", true);
     }},
    {"report", 21,
     [](const std::string& domain, const std::string& path) {
       JsonWriter writer;
       return get_radio_report(writer, date + "," + domain, path);
     }},
    {"last", 20,
     [](const std::string& domain, const std::string& path) {
       JsonWriter writer;
       return get_last_radio_report(writer, domain, path, true);
     }},
    {"cleanup", 0,
     [](const std::string& domain, const std::string& path) { return delete_old_reports_in_domain(domain, 1, path); }},
    {"removal", 0,
     [](const std::string& domain, const std::string& path) { return delete_report_files_for_domain(domain, path); }},
};

// --- Domains.

// The reports lie in a directory of their own, so that what stands beside it is seen too.
class DomainName : public ReportTest, public ::testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(reports_);
    std::filesystem::create_directory(reports_ + "/report_sub");
    write(file("report_lab.txt"), "beside");
    write(file("lab.txt"), "beside");
  }

  int run(const std::string& name, const std::string& domain) const {
    for (const Operation& operation : operations)
      if (operation.name == name) return operation.run(domain, reports_);
    throw std::invalid_argument(name);
  }

  const std::string reports_ = file("reports");
};

class DomainNameThatLeadsAway : public DomainName {};

TEST_P(DomainNameThatLeadsAway, IsRefusedByEveryOperation) {
  const std::string& domain = GetParam();
  const auto before = content();
  for (const Operation& operation : operations) {
    SCOPED_TRACE(operation.name);
    capture_.clear();
    EXPECT_EQ(operation.run(domain, reports_), EINVAL);
    EXPECT_THAT(errors(), Contains(std::string("Domain \"") + domain.c_str() + "\" cannot have report files."));
    std::vector<rrm::testing::Event> expected;
    if (operation.event == 21) expected.push_back(event(21, date + "," + domain));
    if (operation.event != 0 && operation.event != 21) expected.push_back(event(operation.event, domain));
    EXPECT_EQ(events(), expected);
    EXPECT_EQ(content(), before);
  }
}

TEST_P(DomainNameThatLeadsAway, HasNoLockAndNoRecovery) {
  const auto before = content();
  EXPECT_EQ(DomainFileLock(GetParam(), reports_, true).error(), EINVAL);
  EXPECT_EQ(reports_recovery_procedure_in_domain(GetParam(), reports_), EINVAL);
  EXPECT_EQ(content(), before);
}

INSTANTIATE_TEST_SUITE_P(Table, DomainNameThatLeadsAway,
                         ::testing::Values("/", "../lab", "/../lab", "sub/../../report_lab", "sub/lab", "lab/",
                                           "/etc/x", "../../../../../../../../tmp/lab", std::string("lab\0x", 5),
                                           std::string("\0", 1)));

TEST_F(DomainName, ThatLeadsAwayIsToldWhenASaveFails) {
  EXPECT_EQ(operations.front().run("../lab", reports_), EINVAL);
  EXPECT_THAT(errors(),
              ElementsAre("Domain \"../lab\" cannot have report files.",
                          "Error while save radio report for domain: \"../lab\". Report date: \"2024-01-01,00:00:00\". "
                          "Exit code: 22."));
}

class UnusualDomainName : public DomainName {};

TEST_P(UnusualDomainName, IsTakenAsItIs) {
  const std::string& domain = GetParam();
  const auto before = content();
  for (const char* operation : {"save", "list", "report", "last"}) EXPECT_EQ(run(operation, domain), 0) << operation;
  auto expected = before;
  expected["reports/.report_lock_" + domain] = "";
  expected["reports/report_" + domain + ".txt"] = "1.1,2024-01-01,00:00:00,AA,A1" + testing::record_text;
  expected["reports/report_cfg_" + domain + ".txt"] = "1.1,2024-01-01,00:00:00," + default_settings + "\n";
  expected["reports/report_idx_" + domain + ".txt"] = "1.1,2024-01-01,00:00:00\n";
  EXPECT_EQ(content(), expected);

  EXPECT_EQ(run("cleanup", domain), 0);
  for (const char* name : {"reports/report_", "reports/report_cfg_", "reports/report_idx_"})
    expected[name + domain + ".txt"] = "";
  EXPECT_EQ(content(), expected);

  EXPECT_EQ(run("removal", domain), 0);
  EXPECT_EQ(content(), before);
  EXPECT_THAT(errors(), IsEmpty());
  EXPECT_THAT(events(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, UnusualDomainName,
                         ::testing::Values(" ", "two words", " lab ", ".", "..", "...", "lab.txt", "..lab", "Büro 3",
                                           "会議室", "\xff\xfe", "lab\n", "tab\t", "\"quoted\"", "back\\slash",
                                           "%s%n%d", "-rf", "*", "$(lab)", "lab;x", std::string(231, 'x')));

TEST_F(DomainName, InAnAnswerIsEscaped) {
  ASSERT_EQ(operations.front().run("\"a\\b\n", reports_), 0);
  JsonWriter writer;
  EXPECT_EQ(
      get_radio_report_list(writer, "\"a\\b\n", reports_, "2024-01-01,00:00:00 UTC", "2024-01-02,00:00:00 UTC", true),
      0);
  EXPECT_STREQ(writer.to_string(),
               "{\"data\":[{\"id\":\"2024-01-01,00:00:00,\\\"a\\\\b\\n\",\"domain\":\"\\\"a\\\\b\\n\",\"date\":"
               "\"2024-01-01,00:00:00 UTC\"}],\"count\":1}");
}

// The longest of the names, that of the mark of a rewrite, would not fit: nothing is begun that could not be cleaned.
TEST_F(DomainName, ThatIsTooLongIsRefusedByEveryOperation) {
  for (const std::size_t length : {std::size_t{232}, std::size_t{1} << 20}) {
    const std::string domain(length, 'x');
    const auto before = content();
    for (const Operation& operation : operations) {
      SCOPED_TRACE(operation.name);
      capture_.clear();
      EXPECT_EQ(operation.run(domain, reports_), EINVAL);
      EXPECT_EQ(errors().front(), "Domain \"" + domain + "\" cannot have report files.");
      EXPECT_EQ(content(), before);
    }
  }
}

// --- Directories.

class Directory : public ReportTest {
 protected:
  // Every operation ends at the lock, with this error.
  void expect_no_lock(const std::string& directory, int error, const std::string& words) {
    const auto before = content();
    for (const Operation& operation : operations) {
      SCOPED_TRACE(operation.name);
      capture_.clear();
      EXPECT_EQ(operation.run("lab", directory), error);
      EXPECT_EQ(errors().front(), "Cannot open report lock \"" + directory +
                                      "/.report_lock_lab\": errno=" + std::to_string(error) + " (" + words + ")");
      EXPECT_EQ(events().size(), operation.event == 0 ? 0U : 1U);
      EXPECT_EQ(content(), before);
    }
  }
};

TEST_F(Directory, ThatIsNotThere) {
  expect_no_lock(file("missing"), ENOENT, "No such file or directory");
}

TEST_F(Directory, ThatHasVanishedSinceTheLastReport) {
  const std::string directory = file("reports");
  std::filesystem::create_directory(directory);
  ASSERT_EQ(operations.front().run("lab", directory), 0);
  std::filesystem::remove_all(directory);
  expect_no_lock(directory, ENOENT, "No such file or directory");
}

TEST_F(Directory, ThatIsAFile) {
  write(file("reports"), "no directory");
  expect_no_lock(file("reports"), ENOTDIR, "Not a directory");
}

TEST_F(Directory, ThatMayNotBeWritten) {
  ASSERT_EQ(operations.front().run("hall", path()), 0);
  std::filesystem::permissions(dir_.path(), std::filesystem::perms(0555));
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path()))
    std::filesystem::permissions(entry.path(), std::filesystem::perms(0444));
  {
    const Nobody nobody;
    expect_no_lock(path(), EACCES, "Permission denied");
  }
  std::filesystem::permissions(dir_.path(), std::filesystem::perms(0755));
}

TEST_F(Directory, WithADirectoryForALock) {
  std::filesystem::create_directory(file(".report_lock_lab"));
  expect_no_lock(path(), EISDIR, "Is a directory");
}

TEST_F(Directory, WithAFileThatMayNotBeWrittenTakesNoReport) {
  write(report_file(), line + ",AA,A1," + fields + "\n");
  std::filesystem::permissions(report_file(), std::filesystem::perms(0444));
  std::filesystem::permissions(dir_.path(), std::filesystem::perms(0777));
  auto expected = content();
  expected[".report_lock_lab"] = "";
  {
    const Nobody nobody;
    EXPECT_EQ(operations.front().run("lab", path()), EACCES);
  }
  EXPECT_EQ(errors().front(), "basic_ios::clear: iostream error, errno = 13: Permission denied");
  EXPECT_EQ(content(), expected);
}

// --- A directory where a file should be.

class DirectoryForAFile : public ReportTest {
 protected:
  void SetUp() override {
    write(index_file(), line + "\n");
    write(config_file(), line + "," + default_settings + "\n");
    write(report_file(), line + ",AA,A1," + fields + "\n");
  }
  static void put_directory(const std::string& name) {
    std::filesystem::remove(name);
    std::filesystem::create_directory(name);
  }

  JsonWriter writer_;
};

TEST_F(DirectoryForAFile, OfTheIndexFailsTheList) {
  put_directory(index_file());
  EXPECT_EQ(get_radio_report_list(writer_, "lab", path(), "2024-01-01,00:00:00 UTC", "2024-01-02,00:00:00 UTC", true),
            EISDIR);
  EXPECT_STREQ(writer_.to_string(), "{\"data\":[]}");
  EXPECT_THAT(errors(), ElementsAre("basic_filebuf::underflow error reading the file: Is a directory, errno = 21: Is a "
                                    "directory",
                                    "Query reports list exit with error code: 21. Domain: \"lab\". Reports start date: "
                                    "\"2024-01-01,00:00:00 UTC\". Reports end date: \"2024-01-02,00:00:00 UTC\"."));
  EXPECT_THAT(events(), ElementsAre(event(19, "lab")));
}

TEST_F(DirectoryForAFile, OfTheIndexFailsTheNewestReport) {
  put_directory(index_file());
  EXPECT_EQ(get_last_radio_report(writer_, "lab", path(), true), EISDIR);
  EXPECT_STREQ(writer_.to_string(), "{}");
  EXPECT_EQ(errors().back(), "Query last radio report exit with error code: 21. Domain: \"lab\".");
  EXPECT_THAT(events(), ElementsAre(event(20, "lab")));
}

TEST_F(DirectoryForAFile, OfTheSettingsFailsTheReport) {
  put_directory(config_file());
  EXPECT_EQ(get_radio_report(writer_, date + ",lab", path()), EISDIR);
  EXPECT_EQ(errors().at(1), "Error call 'get_radio_report_domain_config'.");
}

TEST_F(DirectoryForAFile, OfTheDataFailsTheReport) {
  put_directory(report_file());
  EXPECT_EQ(get_radio_report(writer_, date + ",lab", path()), EISDIR);
  EXPECT_EQ(errors().at(1), "Error call 'get_radio_report_data'.");
}

// --- Lines.

class Lines : public ReportTest {
 protected:
  int list() {
    return get_radio_report_list(writer_, "lab", path(), "2024-01-01,00:00:00 UTC", "2024-01-02,00:00:00 UTC", true);
  }
  int get() { return get_radio_report(writer_, date + ",lab", path()); }
  std::string json() const { return writer_.to_string(); }

  static constexpr const char* one_entry =
      "{\"data\":[{\"id\":\"2024-01-01,00:00:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,00:00:00 UTC\"}],"
      "\"count\":1}";

  JsonWriter writer_;
};

std::string every_byte() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

class BadIndexLine : public Lines, public ::testing::WithParamInterface<std::string> {};

TEST_P(BadIndexLine, IsPassedOverAndFailsTheList) {
  write(index_file(), GetParam() + "\n" + line + "\n" + GetParam());
  EXPECT_EQ(list(), EIO);
  EXPECT_EQ(json(), one_entry);
  EXPECT_THAT(events(), ElementsAre(event(19, "lab")));
}

INSTANTIATE_TEST_SUITE_P(Binary, BadIndexLine,
                         ::testing::Values(every_byte(), std::string(100, '\0'), std::string(100, '\xff'),
                                           std::string("1.1,2024-01-01\0,00:00:00", 24), std::string(1 << 20, 'x'),
                                           std::string(1 << 20, ','),
                                           "1.1," + std::string(1 << 20, '1') + ",00:00:00"));
INSTANTIATE_TEST_SUITE_P(Cut, BadIndexLine,
                         ::testing::Values("1", "1.1", "1.1,", "1.1,2024-0", "1.1,2024-01-01", "1.1,2024-01-01,"));
INSTANTIATE_TEST_SUITE_P(Dates, BadIndexLine,
                         ::testing::Values("1.1,01.01.2024,00:00:00", "1.1,2024/01/01,00:00:00",
                                           "1.1,2024-13-01,00:00:00", "1.1,2024-01-32,00:00:00",
                                           "1.1,2024-00-01,00:00:00", "1.1,2024-01-00,00:00:00",
                                           "1.1,2024-01-01,24:00:00", "1.1,2024-01-01,00:60:00",
                                           "1.1,2024-01-01,00:00:62", "1.1,2024-01-01 00:00:00",
                                           "1.1,2024-01-01T00:00:00Z", "1.1,1704067200,0", "1.1,today,now",
                                           "1.1,-2024-01-01,00:00:00", "1.1,1969-12-31,23:59:59",
                                           "1.1;2024-01-01;00:00:00", "1.1,00:00:00,2024-01-01"));

TEST_F(Lines, OfAMegabyteAreReadLikeOthers) {
  std::string channels = "36";
  while (channels.size() < (1U << 20)) channels += " 36";
  write(index_file(), line + "," + std::string(1 << 20, 'x') + "\n");
  write(config_file(), line + "," + default_settings + "," + std::string(1 << 20, 'x') + "\n");
  write(report_file(), "1.1,2023-12-31,00:00:00," + std::string(1 << 20, 'x') + "\n" + line +
                           ",AA,A1,1,2,3,4,5,6,7,8,9," + channels + ",10,11,12,13,14,15\n");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(json(), one_entry);
  JsonWriter report;
  EXPECT_EQ(get_radio_report(report, date + ",lab", path()), 0);
  EXPECT_GT(std::string(report.to_string()).size(), channels.size());
}

TEST_F(Lines, ThatEndInCrLfKeepTheCr) {
  write(index_file(), line + "\r\n");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(json(),
            "{\"data\":[{\"id\":\"2024-01-01,00:00:00\\r,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,00:00:00\\r "
            "UTC\"}],\"count\":1}");
}

TEST_F(Lines, OfAnIndexThatEndInCrLfNameNoReport) {
  write(index_file(), line + "\r\n");
  write(config_file(), line + "," + default_settings + "\n");
  EXPECT_EQ(get_last_radio_report(writer_, "lab", path(), true), EINVAL);
  EXPECT_THAT(errors().front(),
              StartsWith("Domain config for report not found. Report Id: \"2024-01-01,00:00:00\r,lab\"."));
}

TEST_F(Lines, OfBytesBehindTheReportDoNotTouchIt) {
  write(config_file(), line + "," + default_settings + "\n" + every_byte());
  write(report_file(), line + ",AA,A1," + fields + "\n" + every_byte());
  EXPECT_EQ(get(), 0);
}

TEST_F(Lines, OfBytesBeforeTheReportFailTheQuery) {
  write(config_file(), line + "," + default_settings + "\n");
  write(report_file(), std::string("\0\1\2\xff", 4) + "\n" + line + ",AA,A1," + fields + "\n");
  EXPECT_EQ(get(), EIO);
  EXPECT_EQ(errors().back(),
            "Report not found. Report Id: \"2024-01-01,00:00:00,lab\". Domain: \"lab\". Report date: "
            "\"2024-01-01,00:00:00\". Exit code: 5.");
}

}  // namespace
}  // namespace reports
