// What the report queries answer: the JSON to the letter, the errors with every line that they log, and which locks
// they respect.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <mutex>
#include <optional>

#include "Config.h"
#include "failing_files.h"
#include "json/JsonWriter.h"
#include "report_support.h"
#include "reports/file_lock.h"
#include "reports/queries.h"
#include "support/gate.h"

namespace reports {
namespace {

using rrm::JsonWriter;
using rrm::testing::eventually;
using testing::a_record;
using testing::default_settings;
using ::testing::ElementsAre;
using testing::invalid_argument_of;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using testing::ReportTest;
using testing::Texts;
using enum rrm::LogLevel;

class Query : public ReportTest {
 protected:
  std::string json() const { return writer_.to_string(); }

  // The lines of the three files of "lab".
  void write_index(const std::string& text) const { write(index_file(), text); }
  void write_config(const std::string& text) const { write(config_file(), text); }
  void write_data(const std::string& text) const { write(report_file(), text); }

  JsonWriter writer_;
};

// --- Report ids.

class ReportId : public ReportTest {};

TEST_F(ReportId, IsDateAndDomain) {
  std::string domain;
  std::string date;
  std::time_t time = 0;
  EXPECT_EQ(get_fields_from_report_id("2023-11-14,22:13:20,lab 1", domain, date, time), 0);
  EXPECT_EQ(domain, "lab 1");
  EXPECT_EQ(date, "2023-11-14,22:13:20");
  EXPECT_EQ(time, 1700000000);
  EXPECT_THAT(capture_.lines(), IsEmpty());
}

TEST_F(ReportId, OfADomainWithACommaGivesItsFirstPart) {
  std::string domain;
  std::string date;
  std::time_t time = 0;
  EXPECT_EQ(get_fields_from_report_id("2023-11-14,22:13:20,lab,floor 2", domain, date, time), 0);
  EXPECT_EQ(domain, "lab");
  EXPECT_EQ(date, "2023-11-14,22:13:20");
}

struct IdCase {
  const char* name;
  std::string id;
  Texts errors;
};

void PrintTo(const IdCase& c, std::ostream* out) {
  *out << c.name;
}

class BadReportId : public Query, public ::testing::WithParamInterface<IdCase> {};

TEST_P(BadReportId, IsRefusedWithItsWordsAndAnEvent) {
  const IdCase& c = GetParam();
  EXPECT_EQ(get_radio_report(writer_, c.id, path()), EINVAL);
  Texts expected = c.errors;
  expected.push_back("Error call 'get_fields_from_report_id'.");
  EXPECT_EQ(errors(), expected);
  EXPECT_THAT(events(), ElementsAre(event(21, c.id)));
  EXPECT_EQ(json(), "{}");
  EXPECT_THAT(content(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadReportId,
    ::testing::Values(IdCase{"A word",
                             "lab",
                             {"Not found field 2 in string: \"lab\".",
                              "Not found domain name in 'report_id': \"lab\"."}},
                      IdCase{"No domain",
                             "2023-11-14,22:13:20",
                             {"Not found field 2 in string: \"2023-11-14,22:13:20\".",
                              "Not found domain name in 'report_id': \"2023-11-14,22:13:20\"."}},
                      IdCase{"Empty domain",
                             "2023-11-14,22:13:20,",
                             {"Requested field 2 is empty (string: \"2023-11-14,22:13:20,\").",
                              "Not found domain name in 'report_id': \"2023-11-14,22:13:20,\"."}},
                      IdCase{"Empty domain in the middle",
                             "2023-11-14,22:13:20,,x",
                             {"Requested empty field 2 in string: \"2023-11-14,22:13:20,,x\".",
                              "Not found domain name in 'report_id': \"2023-11-14,22:13:20,,x\"."}},
                      IdCase{"No date",
                             "yesterday,noon,lab",
                             {"Parser error in string: \"yesterday,noon\".",
                              "Incorrect data/time in 'report_id': \"yesterday,noon,lab\"."}},
                      IdCase{"No such day",
                             "2023-11-32,22:13:20,lab",
                             {"Parser error in string: \"2023-11-32,22:13:20\".",
                              "Incorrect data/time in 'report_id': \"2023-11-32,22:13:20,lab\"."}}));

TEST_F(Query, OfOneReportRefusesEmptyArguments) {
  EXPECT_EQ(get_radio_report(writer_, "", path()), EINVAL);
  EXPECT_EQ(get_radio_report(writer_, "2023-11-14,22:13:20,lab", ""), EINVAL);
  EXPECT_EQ(capture_.lines(),
            (std::vector<rrm::testing::LogLine>{{LOG_ERROR, "Argument 'report_id' is empty."},
                                                {LOG_ERROR, "Argument 'report_files_path' is empty."}}));
  EXPECT_THAT(events(), IsEmpty());
  EXPECT_EQ(json(), "{}");
}

// --- The list.

class List : public Query {
 protected:
  static constexpr const char* start = "2024-01-01,00:00:00 UTC";
  static constexpr const char* finish = "2024-01-02,00:00:00 UTC";

  int list(const std::string& from = start, const std::string& to = finish, bool domain_exists = true) {
    return get_radio_report_list(writer_, "lab", path(), from, to, domain_exists);
  }
  static std::string final_line(int error, const std::string& from = start, const std::string& to = finish) {
    return "Query reports list exit with error code: " + std::to_string(error) +
           ". Domain: \"lab\". Reports start date: \"" + from + "\". Reports end date: \"" + to + "\".";
  }
};

TEST_F(List, HoldsTheReportsFromTheStartOnAndBeforeTheEnd) {
  write_index(
      "1.1,2023-12-31,23:59:59\n1.1,2024-01-01,00:00:00\n1.0,2024-01-01,12:30:00\n1.1,2024-01-01,23:59:59\n"
      "1.1,2024-01-02,00:00:00\n");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(json(),
            "{\"data\":["
            "{\"id\":\"2024-01-01,00:00:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,00:00:00 UTC\"},"
            "{\"id\":\"2024-01-01,12:30:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,12:30:00 UTC\"},"
            "{\"id\":\"2024-01-01,23:59:59,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,23:59:59 UTC\"}],"
            "\"count\":3}");
  EXPECT_THAT(capture_.lines(), IsEmpty());
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(List, HoldsNothingWhereNothingLiesInThePeriod) {
  write_index("1.1,2023-12-31,23:59:59\n");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(json(), "{\"data\":[],\"count\":0}");
}

TEST_F(List, GoesByTheMomentNotByThePlaceInTheFile) {
  write_index("1.1,2024-01-05,00:00:00\n1.1,2024-01-01,01:00:00\n");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(json(),
            "{\"data\":[{\"id\":\"2024-01-01,01:00:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,01:00:00 UTC\"}],"
            "\"count\":1}");
}

TEST_F(List, ReadsALastLineWithoutItsEnd) {
  write_index("1.1,2024-01-01,01:00:00");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(json(),
            "{\"data\":[{\"id\":\"2024-01-01,01:00:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,01:00:00 UTC\"}],"
            "\"count\":1}");
}

TEST_F(List, OfAKnownDomainWithoutAnIndexIsEmpty) {
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(json(), "{\"data\":[],\"count\":0}");
  EXPECT_EQ(capture_.lines(), (std::vector<rrm::testing::LogLine>{{LOG_TRACE, "No reports for domain: \"lab\"."}}));
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(List, OfAnUnknownDomainWithoutAnIndexIsAnError) {
  EXPECT_EQ(list(start, finish, false), ENOENT);
  EXPECT_EQ(json(), "{}");
  EXPECT_THAT(errors(),
              ElementsAre("basic_ios::clear: iostream error, errno = 2: No such file or directory", final_line(2)));
  EXPECT_THAT(events(), ElementsAre(event(19, "lab")));
}

TEST_F(List, OfAnUnknownDomainWithAnIndexIsRead) {
  write_index("1.1,2024-01-01,01:00:00\n");
  EXPECT_EQ(list(start, finish, false), 0);
}

TEST_F(List, OfAnEmptyIndexIsEmpty) {
  write_index("");
  EXPECT_EQ(list(), 0);
  EXPECT_EQ(json(), "{\"data\":[],\"count\":0}");
}

TEST_F(List, GoesOnBehindABadLineAndFailsAtTheEnd) {
  write_index("1.1,2024-01-01,01:00:00\n1.1,2024-13-01,00:00:00\n1.1,2024\n\n1.1,2024-01-01,02:00:00\n");
  EXPECT_EQ(list(), EIO);
  EXPECT_EQ(json(),
            "{\"data\":["
            "{\"id\":\"2024-01-01,01:00:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,01:00:00 UTC\"},"
            "{\"id\":\"2024-01-01,02:00:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,02:00:00 UTC\"}],"
            "\"count\":2}");
  const std::string in_file = "Incorrect report data/time in file: \"" + index_file() + "\", line: ";
  EXPECT_THAT(errors(),
              ElementsAre("Parser error in string: \"2024-13-01,00:00:00\".", in_file + "\"1.1,2024-13-01,00:00:00\".",
                          "Not found field 2 in string: \"1.1,2024\".", "Not found time in report line: \"1.1,2024\".",
                          in_file + "\"1.1,2024\".", "'source' string is empty.",
                          "Not found date in report line: \"\".", in_file + "\"\".", final_line(5)));
  EXPECT_THAT(events(), ElementsAre(event(19, "lab")));
}

TEST_F(List, RefusesEachEmptyArgument) {
  EXPECT_EQ(get_radio_report_list(writer_, "", path(), start, finish, true), EINVAL);
  EXPECT_EQ(get_radio_report_list(writer_, "lab", "", start, finish, true), EINVAL);
  EXPECT_EQ(get_radio_report_list(writer_, "lab", path(), "", finish, true), EINVAL);
  EXPECT_EQ(get_radio_report_list(writer_, "lab", path(), start, "", true), EINVAL);
  EXPECT_THAT(errors(), IsSupersetOf({"Argument 'domain_name' empty.", "Argument 'report_files_path' empty.",
                                      "Argument 'date_start' empty.", "Argument 'date_finish' empty."}));
  EXPECT_EQ(json(), "{}");
  EXPECT_THAT(content(), IsEmpty());
}

struct PeriodCase {
  const char* name;
  std::string start;
  std::string finish;
  Texts errors;
};

void PrintTo(const PeriodCase& c, std::ostream* out) {
  *out << c.name;
}

class BadPeriod : public List, public ::testing::WithParamInterface<PeriodCase> {};

TEST_P(BadPeriod, IsRefusedWithItsWordsAndAnEvent) {
  const PeriodCase& c = GetParam();
  write_index("1.1,2024-01-01,01:00:00\n");
  EXPECT_EQ(list(c.start, c.finish), EINVAL);
  Texts expected = c.errors;
  expected.push_back(final_line(22, c.start, c.finish));
  EXPECT_EQ(errors(), expected);
  EXPECT_THAT(events(), ElementsAre(event(19, "lab")));
  EXPECT_EQ(json(), "{}");
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadPeriod,
    ::testing::Values(
        PeriodCase{"Start without zone",
                   "2024-01-01,00:00:00",
                   "2024-01-02,00:00:00 UTC",
                   {"Incorrect text length in: \"2024-01-01,00:00:00\".",
                    "Incorrect data/time for 'date_start' in reports query (\"2024-01-01,00:00:00\")."}},
        PeriodCase{"End without zone",
                   "2024-01-01,00:00:00 UTC",
                   "2024-01-02,00:00:00",
                   {"Incorrect text length in: \"2024-01-02,00:00:00\".",
                    "Incorrect data/time for 'date_finish' in reports query (\"2024-01-02,00:00:00\")."}},
        PeriodCase{
            "Both wrong: the start is told",
            "x",
            "y",
            {"Incorrect text length in: \"x\".", "Incorrect data/time for 'date_start' in reports query (\"x\")."}},
        PeriodCase{"Equal",
                   "2024-01-01,00:00:00 UTC",
                   "2024-01-01,00:00:00 UTC",
                   {"'date_start' in reports query must < 'date_finish' (date_start = \"2024-01-01,00:00:00 UTC\", "
                    "date_finish = \"2024-01-01,00:00:00 UTC\")."}},
        PeriodCase{"Turned round",
                   "2024-01-01,00:00:01 UTC",
                   "2024-01-01,00:00:00 UTC",
                   {"'date_start' in reports query must < 'date_finish' (date_start = \"2024-01-01,00:00:01 UTC\", "
                    "date_finish = \"2024-01-01,00:00:00 UTC\")."}}));

TEST_F(List, OfASecondIsAPeriod) {
  write_index("1.1,2024-01-01,00:00:00\n1.1,2024-01-01,00:00:01\n");
  EXPECT_EQ(list("2024-01-01,00:00:00 UTC", "2024-01-01,00:00:01 UTC"), 0);
  EXPECT_EQ(json(),
            "{\"data\":[{\"id\":\"2024-01-01,00:00:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,00:00:00 UTC\"}],"
            "\"count\":1}");
}

TEST_F(List, BehindALockThatCannotBeHadIsItsError) {
  EXPECT_EQ(get_radio_report_list(writer_, "lab", file("gone"), "x", "y", true), ENOENT);
  EXPECT_THAT(errors(), ElementsAre("Cannot open report lock \"" + file("gone") +
                                        "/.report_lock_lab\": errno=2 (No such file or directory)",
                                    final_line(2, "x", "y")));
  EXPECT_THAT(events(), ElementsAre(event(19, "lab")));
}

// --- A report.

const std::string date = "2024-01-01,00:00:00";
const std::string id = date + ",lab";
const std::string line = "1.1," + date;

// Every setting in the order of the configuration, as a new domain has them.
const std::string default_config_json =
    "{\"use_dunva_rrm_scan\":1,\"use_dca\":1,\"use_tpc\":1,\"use_hd_mode\":1,\"dca_threshold\":25,"
    "\"ap_rssi_threshold_2g\":-70,\"ap_rssi_threshold_5g\":-70,\"ap_rssi_threshold_6g\":-70,\"hysteresis_2g\":2,"
    "\"hysteresis_5g\":2,\"hysteresis_6g\":2,\"optimization_time\":\"00:00\",\"use_optimization_time\":0,"
    "\"use_optimization_event\":1,\"away_timeout\":300,\"blacklist_thr_low\":-75,\"blacklist_thr_high\":-65,"
    "\"blacklist_timeout\":30,\"load_balance_sta_low\":5,\"load_balance_sta_high\":20,\"roam_attempt_timeout\":600,"
    "\"sta_load_balance_period\":60,\"load_balance_roam_count_min\":2,\"load_balance_roam_count_max\":4,"
    "\"use_all_ap_balance\":0,\"use_balance\":1,\"client_rssi_renew\":15,\"client_max_age\":20,"
    "\"client_try_no_balance\":2,\"no_balance_enterprise\":0,\"use_rrm_report\":1,\"report_days_to_live\":93,"
    "\"use_80211k\":1,\"use_80211r\":1,\"use_80211r_2g_cross_band\":1,\"use_80211v\":0,"
    "\"fbt_reassoc_deadline\":1000,\"fbt_over_ds\":0}";

// The radio that a data line of `fields` gives, and its JSON.
const std::string fields = "101,102,105,106,107,108,109,-110,115,36 40 44,103,104,111,112,113,114";
std::string radio_json(const std::string& mac) {
  return "{\"radio_id\":107,\"radio_mac\":\"" + mac +
         "\",\"before\":{\"power\":101,\"channel\":105,\"eirp\":103},"
         "\"after\":{\"power\":102,\"channel\":106,\"eirp\":104},\"bandwidth\":108,\"max_power\":109,\"min_power\":-"
         "110,"
         "\"primary_channel\":115,\"available_channels\":[36,40,44],\"eirp-min\":111,\"eirp-max\":112,"
         "\"antenna-configuration\":{\"antenna-gain\":113,\"cable-loss\":114}}";
}

std::string ap_json(const std::string& mac, const std::string& radios) {
  return "{\"ap_mac\":\"" + mac + "\",\"radio_interfaces\":[" + radios + "]}";
}

class Report : public Query {
 protected:
  void SetUp() override { write_config(line + "," + default_settings + "\n"); }

  int get(const std::string& report_id = id) { return get_radio_report(writer_, report_id, path()); }
  static std::string begin() {
    return "{\"report\":{\"id\":\"2024-01-01,00:00:00,lab\",\"domain\":\"lab\",\"date\":\"2024-01-01,00:00:00 UTC\"";
  }
  static std::string whole(const std::string& aps) {
    return begin() + ",\"domain_config\":" + default_config_json + ",\"details\":[" + aps + "]}}";
  }
  static std::string data_failed() { return "Error call 'get_radio_report_data'."; }
  static std::string config_failed() { return "Error call 'get_radio_report_domain_config'."; }
  static std::string not_found(int error) {
    return "Report not found. Report Id: \"2024-01-01,00:00:00,lab\". Domain: \"lab\". Report date: "
           "\"2024-01-01,00:00:00\". Exit code: " +
           std::to_string(error) + ".";
  }
};

TEST_F(Report, HoldsItsNameTheSettingsAndTheRadiosOfEachAp) {
  write_data(line + ",AA,A1," + fields + "\n" + line + ",AA,A2," + fields + "\n" + line + ",BB,B1," + fields + "\n");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(json(),
            whole(ap_json("AA", radio_json("A1") + "," + radio_json("A2")) + "," + ap_json("BB", radio_json("B1"))));
  EXPECT_THAT(capture_.lines(), IsEmpty());
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(Report, ThatWasSavedIsReadBack) {
  std::filesystem::remove(config_file());
  const RadioReport report{{date + ",AA,A1", a_record()}};
  ASSERT_EQ(save_radio_report_to_files(report, "lab", date, path(), rrm::DomainConfig()), 0);
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(json(), whole(ap_json("AA", radio_json("A1"))));
}

TEST_F(Report, OfAnOlderVersionHasNoEirpAndNoAntenna) {
  write_data("1.0," + date + ",AA,A1,101,102,105,106,107,108,109,-110,115,36 40 44\n");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(json(), whole(ap_json("AA",
                                  "{\"radio_id\":107,\"radio_mac\":\"A1\",\"before\":{\"power\":101,\"channel\":105},"
                                  "\"after\":{\"power\":102,\"channel\":106},\"bandwidth\":108,\"max_power\":109,"
                                  "\"min_power\":-110,\"primary_channel\":115,\"available_channels\":[36,40,44]}")));
}

TEST_F(Report, OfAnotherVersionHasNoneEvenIfTheFieldsAreThere) {
  write_data("1.2," + date + ",AA,A1," + fields + "\n");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(json().find("eirp"), std::string::npos);
  EXPECT_EQ(json().find("antenna-configuration"), std::string::npos);
}

TEST_F(Report, WithASingleChannelHasOneNumber) {
  write_data(line + ",AA,A1,1,2,3,4,5,6,7,8,9,36,10,11,12,13,14,15\n");
  EXPECT_EQ(get(), 0);
  EXPECT_NE(json().find("\"available_channels\":[36],"), std::string::npos);
}

TEST_F(Report, TakesEverySettingFromItsField) {
  write_config(line + ",0,5,0,1,7,-8,-9,10,11,12,13,-14,-15,16,17,18,1,0,21,22,23,-1,0,26,0\n");
  write_data(line + ",AA,A1," + fields + "\n");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(json(),
            begin() +
                ",\"domain_config\":{\"use_dunva_rrm_scan\":0,\"use_dca\":1,\"use_tpc\":0,\"use_hd_mode\":1,"
                "\"dca_threshold\":7,\"ap_rssi_threshold_2g\":-8,\"ap_rssi_threshold_5g\":-9,"
                "\"ap_rssi_threshold_6g\":-70,\"hysteresis_2g\":10,\"hysteresis_5g\":11,\"hysteresis_6g\":2,"
                "\"optimization_time\":\"00:00\",\"use_optimization_time\":0,\"use_optimization_event\":1,"
                "\"away_timeout\":13,\"blacklist_thr_low\":-14,\"blacklist_thr_high\":-15,\"blacklist_timeout\":16,"
                "\"load_balance_sta_low\":17,\"load_balance_sta_high\":18,\"roam_attempt_timeout\":600,"
                "\"sta_load_balance_period\":60,\"load_balance_roam_count_min\":2,\"load_balance_roam_count_max\":4,"
                "\"use_all_ap_balance\":1,\"use_balance\":0,\"client_rssi_renew\":21,\"client_max_age\":22,"
                "\"client_try_no_balance\":23,\"no_balance_enterprise\":1,\"use_rrm_report\":0,"
                "\"report_days_to_live\":26,\"use_80211k\":0,\"use_80211r\":1,\"use_80211r_2g_cross_band\":1,"
                "\"use_80211v\":0,\"fbt_reassoc_deadline\":1000,\"fbt_over_ds\":0},\"details\":[" +
                ap_json("AA", radio_json("A1")) + "]}}");
}

TEST_F(Report, IsFoundAmongOthers) {
  const std::string earlier = "1.1,2023-12-31,00:00:00";
  const std::string later = "1.1,2024-01-02,00:00:00";
  write_config(earlier + ",broken\n" + line + "," + default_settings + "\n" + later + ",broken\n" + "no date\n");
  write_data(earlier + ",AA\n" + line + ",AA,A1," + fields + "\n" + later + ",AA\n" + line + ",BB,B1," + fields + "\n");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(json(), whole(ap_json("AA", radio_json("A1"))));
  EXPECT_THAT(capture_.lines(), IsEmpty());
}

TEST_F(Report, TakesTheFirstSettingsOfItsDate) {
  write_config(line + "," + default_settings + "\n" + line + ",broken\n");
  write_data(line + ",AA,A1," + fields + "\n");
  EXPECT_EQ(get(), 0);
}

TEST_F(Report, EndsWithoutFailureAtALineWithoutADate) {
  write_data(line + ",AA,A1," + fields + "\n1.1,2024\n" + line + ",AA,A2," + fields + "\n");
  EXPECT_EQ(get(), 0);
  EXPECT_EQ(json(), whole(ap_json("AA", radio_json("A1"))));
  EXPECT_THAT(capture_.lines(LOG_TRACE), ElementsAre("Report loaded, but not found report data/time in file: \"" +
                                                     report_file() + "\", line: \"1.1,2024\"."));
}

TEST_F(Report, BehindALineWithoutADateIsNotFound) {
  write_data("1.1,2024\n" + line + ",AA,A1," + fields + "\n");
  EXPECT_EQ(get(), EIO);
  EXPECT_THAT(errors(),
              ElementsAre("Not found field 2 in string: \"1.1,2024\".", "Not found time in report line: \"1.1,2024\".",
                          "Not found report data/time in file: \"" + report_file() + "\", line: \"1.1,2024\".",
                          data_failed(), not_found(5)));
  EXPECT_EQ(json(), whole(""));
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(Report, WhoseDataLinesWereCutAwayHasItsSettings) {
  write_data("1.1,2023-12-31,00:00:00,AA,A1," + fields + "\n");
  EXPECT_EQ(get(), EINVAL);
  EXPECT_EQ(json(), whole(""));
  EXPECT_THAT(errors(), ElementsAre("Report data not found. Report Id: \"2024-01-01,00:00:00,lab\". Domain: \"lab\". "
                                    "Report date: \"2024-01-01,00:00:00\". File: \"" +
                                        report_file() + "\".",
                                    data_failed(), not_found(22)));
}

TEST_F(Report, WithoutSettingsEndsThere) {
  write_config("1.1,2023-12-31,00:00:00," + default_settings + "\n");
  write_data(line + ",AA,A1," + fields + "\n");
  EXPECT_EQ(get(), EINVAL);
  EXPECT_EQ(json(), begin() + ",\"domain_config\":{}}}");
  EXPECT_THAT(errors(), ElementsAre("Domain config for report not found. Report Id: \"2024-01-01,00:00:00,lab\". "
                                    "Domain: \"lab\". Report date: \"2024-01-01,00:00:00\". File: \"" +
                                        config_file() + "\".",
                                    config_failed(), not_found(22)));
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(Report, BehindSettingsWithoutADateIsNotFound) {
  write_config("1.1\n" + line + "," + default_settings + "\n");
  EXPECT_EQ(get(), EIO);
  EXPECT_THAT(errors(), ElementsAre("Not found field 1 in string: \"1.1\".", "Not found date in report line: \"1.1\".",
                                    "Not found report data/time in file: \"" + config_file() + "\", line: \"1.1\".",
                                    config_failed(), not_found(5)));
}

TEST_F(Report, WithoutItsFilesIsTheErrorOfTheOpening) {
  std::filesystem::remove(config_file());
  EXPECT_EQ(get(), ENOENT);
  EXPECT_EQ(json(), begin() + ",\"domain_config\":{}}}");
  EXPECT_THAT(errors(), ElementsAre("basic_ios::clear: iostream error, errno = 2: No such file or directory",
                                    config_failed(), not_found(2)));
}

TEST_F(Report, WithoutItsDataFileIsTheErrorOfTheOpening) {
  EXPECT_EQ(get(), ENOENT);
  EXPECT_EQ(json(), whole(""));
  EXPECT_THAT(errors(), ElementsAre("basic_ios::clear: iostream error, errno = 2: No such file or directory",
                                    data_failed(), not_found(2)));
}

TEST_F(Report, OfADomainWithACommaIsSoughtUnderItsFirstPart) {
  std::filesystem::remove(config_file());
  ASSERT_EQ(save_radio_report_to_files({}, "lab,2", date, path(), rrm::DomainConfig()), 0);
  EXPECT_EQ(get(date + ",lab,2"), ENOENT);
  EXPECT_THAT(errors().back(),
              "Report not found. Report Id: \"2024-01-01,00:00:00,lab,2\". Domain: \"lab\". Report date: "
              "\"2024-01-01,00:00:00\". Exit code: 2.");
}

TEST_F(Report, ByAnotherTextOfItsDateIsNotFound) {
  write_data(line + ",AA,A1," + fields + "\n");
  EXPECT_EQ(get("2024-1-1,0:0:0,lab"), EINVAL);
}

TEST_F(Report, BehindALockThatCannotBeHadRaisesItsEvent) {
  EXPECT_EQ(get_radio_report(writer_, id, file("gone")), ENOENT);
  EXPECT_THAT(errors(), ElementsAre("Cannot open report lock \"" + file("gone") +
                                    "/.report_lock_lab\": errno=2 (No such file or directory)"));
  EXPECT_THAT(events(), ElementsAre(event(21, id)));
  EXPECT_EQ(json(), "{}");
}

TEST_F(Report, PartsRefuseEmptyNames) {
  const ReportName name{id, "lab", date};
  const ReportName no_date{id, "lab", ""};
  EXPECT_EQ(invalid_argument_of([&] { get_radio_report_domain_config(writer_, name, ""); }),
            "get_radio_report_domain_config: Invalid argument 'filename'.");
  EXPECT_EQ(invalid_argument_of([&] { get_radio_report_domain_config(writer_, no_date, config_file()); }),
            "get_radio_report_domain_config: Invalid argument 'requested_report_date'.");
  EXPECT_EQ(invalid_argument_of([&] { get_radio_report_data(writer_, name, ""); }),
            "get_radio_report_data: Invalid argument 'filename'.");
  EXPECT_EQ(invalid_argument_of([&] { get_radio_report_data(writer_, no_date, report_file()); }),
            "get_radio_report_data: Invalid argument 'requested_report_date'.");
  EXPECT_EQ(json(), "{}");
}

// --- Fields that do not convert.

struct LineCase {
  const char* name;
  std::string rest;  // behind the date
  Texts errors;      // before the line about the whole
};

void PrintTo(const LineCase& c, std::ostream* out) {
  *out << c.name;
}

class BadDataLine : public Report, public ::testing::WithParamInterface<LineCase> {};

TEST_P(BadDataLine, IsAParserErrorWithItsReason) {
  const LineCase& c = GetParam();
  const std::string bad = line + c.rest;
  write_data(bad + "\n");
  EXPECT_EQ(get(), EIO);
  const Texts logged = errors();
  ASSERT_GE(logged.size(), 3U);
  EXPECT_THAT(logged, IsSupersetOf(c.errors));
  EXPECT_EQ(logged[logged.size() - 3], "Report parser error in string: \"" + bad + "\".");
  EXPECT_EQ(logged[logged.size() - 2], data_failed());
  EXPECT_EQ(logged[logged.size() - 1], not_found(5));
  EXPECT_EQ(json(), whole(ap_json("AA", "")));
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadDataLine,
    ::testing::Values(
        LineCase{"Cut behind the AP", ",AA", {}}, LineCase{"No radio", ",AA,,1,2,3,4,5,6,7,8,9,36,1,2,3,4,5,6", {}},
        LineCase{"Power", ",AA,A1,x,2,3,4,5,6,7,8,9,36,1,2,3,4,5,6", {"Argument \"x\" inconvertible."}},
        LineCase{"Channel too big",
                 ",AA,A1,1,2,2147483648,4,5,6,7,8,9,36,1,2,3,4,5,6",
                 {"Argument \"2147483648\" too big."}},
        LineCase{"Empty bandwidth", ",AA,A1,1,2,3,4,5,,7,8,9,36,1,2,3,4,5,6", {}},
        LineCase{"No channels", ",AA,A1,1,2,3,4,5,6,7,8,9,,1,2,3,4,5,6", {}},
        LineCase{"Channels apart by two blanks",
                 ",AA,A1,1,2,3,4,5,6,7,8,9,36  40,1,2,3,4,5,6",
                 {"String for convert is empty."}},
        LineCase{
            "A channel of letters", ",AA,A1,1,2,3,4,5,6,7,8,9,36 x 44,1,2,3,4,5,6", {"Argument \"x\" inconvertible."}},
        LineCase{"Cut before the EIRP", ",AA,A1,1,2,3,4,5,6,7,8,9,36", {}},
        LineCase{"Cut before the last field", ",AA,A1,1,2,3,4,5,6,7,8,9,36,1,2,3,4,5", {}},
        LineCase{"Last field cut", ",AA,A1,1,2,3,4,5,6,7,8,9,36,1,2,3,4,5,", {}},
        LineCase{"CRLF", ",AA,A1,1,2,3,4,5,6,7,8,9,36,1,2,3,4,5,6\r", {"Argument \"6\r\" inconvertible."}}));

TEST_F(Report, LineWithoutAnApIsRefusedByName) {
  write_data(line + "\n");
  EXPECT_EQ(get(), EIO);
  EXPECT_THAT(errors(),
              ElementsAre("Not found field 3 in string: \"" + line + "\".",
                          "Not found AP MAC-address in report line: \"" + line + "\".", data_failed(), not_found(5)));
  EXPECT_EQ(json(), whole(""));
}

TEST_F(Report, KeepsTheRadiosBeforeABadLine) {
  write_data(line + ",AA,A1," + fields + "\n" + line + ",AA,A2,x\n" + line + ",BB,B1," + fields + "\n");
  EXPECT_EQ(get(), EIO);
  EXPECT_EQ(json(), whole(ap_json("AA", radio_json("A1"))));
}

class BadSettings : public Report, public ::testing::WithParamInterface<LineCase> {};

TEST_P(BadSettings, AreAParserErrorWithItsReason) {
  const LineCase& c = GetParam();
  const std::string bad = line + c.rest;
  write_config(bad + "\n");
  write_data(line + ",AA,A1," + fields + "\n");
  EXPECT_EQ(get(), EIO);
  Texts expected = c.errors;
  for (const std::string& text : {"Report parser error in string: \"" + bad + "\".", config_failed(), not_found(5)})
    expected.push_back(text);
  EXPECT_EQ(errors(), expected);
  EXPECT_EQ(json(), begin() + ",\"domain_config\":{}}}");
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadSettings,
    ::testing::Values(LineCase{"None", "", {"Not found field 3 in string: \"" + line + "\"."}},
                      LineCase{"One short",
                               ",1,1,1,1,25,-70,-70,2,2,0,300,-75,-65,30,5,20,0,1,15,20,2,0,1,93",
                               {"Not found field 27 in string: \"" + line +
                                ",1,1,1,1,25,-70,-70,2,2,0,300,-75,-65,30,5,20,0,1,15,20,2,0,1,93\"."}},
                      LineCase{
                          "A word for a flag",
                          ",yes",
                          {"Argument \"yes\" inconvertible.", "Incorrect field 3 in string: \"" + line + ",yes\"."}},
                      LineCase{"CRLF",
                               "," + default_settings + "\r",
                               {"Argument \"1\r\" inconvertible.",
                                "Incorrect field 27 in string: \"" + line + "," + default_settings + "\r\"."}}));

// --- The newest report.

class Newest : public Report {
 protected:
  int last(bool domain_exists = true) { return get_last_radio_report(writer_, "lab", path(), domain_exists); }
  static std::string final_line(int error) {
    return "Query last radio report exit with error code: " + std::to_string(error) + ". Domain: \"lab\".";
  }
  std::string bad_date(const std::string& text) const {
    return "Incorrect report data/time in file: \"" + index_file() + "\", line: \"" + text + "\".";
  }
};

struct IndexCase {
  const char* name;
  std::string index;
};

void PrintTo(const IndexCase& c, std::ostream* out) {
  *out << c.name;
}

class NewestByIndex : public Newest, public ::testing::WithParamInterface<IndexCase> {};

TEST_P(NewestByIndex, IsTheOneOfTheLastLine) {
  write_index(GetParam().index);
  write_data(line + ",AA,A1," + fields + "\n");
  EXPECT_EQ(last(), 0);
  EXPECT_EQ(json(), whole(ap_json("AA", radio_json("A1"))));
  EXPECT_THAT(capture_.lines(), IsEmpty());
  EXPECT_THAT(events(), IsEmpty());
}

std::string many_index_lines(std::size_t bytes) {
  std::string text(bytes % 24, 'x');
  text += '\n';
  while (text.size() < bytes) text += "1.1,2023-12-31,00:00:00\n";
  return text;
}

INSTANTIATE_TEST_SUITE_P(
    Table, NewestByIndex,
    ::testing::Values(IndexCase{"The only line", line + "\n"}, IndexCase{"The only line, without its end", line},
                      IndexCase{"Behind others", "1.1,2023-12-31,00:00:00\n" + line + "\n"},
                      IndexCase{"Behind others, without its end", "1.1,2023-12-31,00:00:00\n" + line},
                      IndexCase{"Last in the file, not latest in time", "1.1,2025-12-31,00:00:00\n" + line + "\n"},
                      IndexCase{"Behind an empty line", "\n" + line + "\n"},
                      IndexCase{"Behind a bad line", "no date\n" + line + "\n"},
                      IndexCase{"Of an older version", "1.0," + date + "\n"},
                      IndexCase{"With fields behind the date", line + ",more\n"},
                      IndexCase{"A megabyte long", line + "," + std::string(1 << 20, 'x') + "\n"},
                      IndexCase{"Behind a megabyte", std::string(1 << 20, 'x') + "\n" + line + "\n"},
                      IndexCase{"In a file of many blocks", many_index_lines(100000) + line + "\n"}));

// Wherever the line begins and ends in the blocks that are read.
TEST_F(Newest, IsFoundAcrossEveryBoundary) {
  write_data(line + ",AA,A1," + fields + "\n");
  for (std::size_t length = 4060; length <= 4110; ++length) {
    for (const char* end : {"", "\n"}) {
      write_index("1.1,2023-12-31,00:00:00\n" + line + "," + std::string(length - line.size() - 1, 'x') + end);
      JsonWriter writer;
      EXPECT_EQ(get_last_radio_report(writer, "lab", path(), true), 0) << length;
    }
  }
}

struct NoneCase {
  const char* name;
  std::optional<std::string> index;
};

void PrintTo(const NoneCase& c, std::ostream* out) {
  *out << c.name;
}

class NoReports : public Newest, public ::testing::WithParamInterface<NoneCase> {};

TEST_P(NoReports, OfAKnownDomainIsNoFailure) {
  if (GetParam().index) write_index(*GetParam().index);
  EXPECT_EQ(last(), 0);
  EXPECT_EQ(json(), "{}");
  EXPECT_EQ(capture_.lines(), (std::vector<rrm::testing::LogLine>{{LOG_TRACE, "No reports for domain: \"lab\"."}}));
  EXPECT_THAT(events(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Table, NoReports,
                         ::testing::Values(NoneCase{"No index", std::nullopt}, NoneCase{"Empty index", ""},
                                           NoneCase{"An LF", "\n"}, NoneCase{"One byte", "x"}));

// Only the look-up fails, and what cannot be told counts as there.
TEST_F(Newest, IsReadWhereItCannotBeToldWhetherThereIsOne) {
  write_index(line + "\n");
  write_data(line + ",AA,A1," + fields + "\n");
  {
    const rrm::testing::FileWatch watch(path(), "look for report_idx_lab.txt", rrm::testing::FileFault::eio);
    EXPECT_EQ(last(), 0);
  }
  EXPECT_EQ(json(), whole(ap_json("AA", radio_json("A1"))));
  EXPECT_THAT(errors(), ElementsAre("Error while look for \"" + index_file() + "\", errno = 5: Input/output error"));
  EXPECT_THAT(events(), IsEmpty());
}

TEST_F(Newest, OfAnUnknownDomainWithoutAnIndexIsAnError) {
  EXPECT_EQ(last(false), ENOENT);
  EXPECT_EQ(json(), "{}");
  EXPECT_THAT(errors(),
              ElementsAre("basic_ios::clear: iostream error, errno = 2: No such file or directory", final_line(2)));
  EXPECT_THAT(events(), ElementsAre(event(20, "lab")));
}

TEST_F(Newest, OfAnUnknownDomainWithAnEmptyIndexIsAnError) {
  write_index("");
  EXPECT_EQ(last(false), EIO);
  EXPECT_THAT(errors(), ElementsAre("'source' string is empty.", "Not found date in report line: \"\".", bad_date(""),
                                    final_line(5)));
}

TEST_F(Newest, IsNotReadFromABadLine) {
  write_index(line + "\n1.1,2024-01-0\n");
  EXPECT_EQ(last(), EIO);
  EXPECT_EQ(json(), "{}");
  EXPECT_THAT(errors(), ElementsAre("Not found field 2 in string: \"1.1,2024-01-0\".",
                                    "Not found time in report line: \"1.1,2024-01-0\".", bad_date("1.1,2024-01-0"),
                                    final_line(5)));
  EXPECT_THAT(events(), ElementsAre(event(20, "lab")));
}

TEST_F(Newest, IsNotReadFromTwoEmptyBytes) {
  write_index("\n\n");
  EXPECT_EQ(last(), EIO);
  EXPECT_EQ(errors().at(2), bad_date(""));
}

TEST_F(Newest, ThatCannotBeReadSaysWhereItStopped) {
  write_index(line + "\n");
  write_data("");
  EXPECT_EQ(last(), EINVAL);
  EXPECT_EQ(json(), whole(""));
  EXPECT_THAT(errors(), ElementsAre("Report data not found. Report Id: \"2024-01-01,00:00:00,lab\". Domain: \"lab\". "
                                    "Report date: \"2024-01-01,00:00:00\". File: \"" +
                                        report_file() + "\".",
                                    data_failed(), not_found(22),
                                    "Error call 'get_radio_report_unlocked'. Exit code: 22.", final_line(22)));
  EXPECT_THAT(events(), ElementsAre(event(20, "lab")));
}

TEST_F(Newest, OfADomainWithACommaIsFound) {
  ASSERT_EQ(save_radio_report_to_files({{date + ",AA,A1", a_record()}}, "lab,2", date, path(), rrm::DomainConfig()), 0);
  EXPECT_EQ(get_last_radio_report(writer_, "lab,2", path(), true), 0);
  EXPECT_EQ(json(),
            "{\"report\":{\"id\":\"2024-01-01,00:00:00,lab,2\",\"domain\":\"lab,2\",\"date\":\"2024-01-01,"
            "00:00:00 UTC\",\"domain_config\":" +
                default_config_json + ",\"details\":[" + ap_json("AA", radio_json("A1")) + "]}}");
}

TEST_F(Newest, RefusesEachEmptyArgument) {
  EXPECT_EQ(get_last_radio_report(writer_, "", path(), true), EINVAL);
  EXPECT_EQ(get_last_radio_report(writer_, "lab", "", true), EINVAL);
  EXPECT_THAT(errors(), IsSupersetOf({"Argument 'domain_name' empty.", "Argument 'report_files_path' empty."}));
  EXPECT_EQ(json(), "{}");
}

TEST_F(Newest, BehindALockThatCannotBeHadIsItsError) {
  EXPECT_EQ(get_last_radio_report(writer_, "lab", file("gone"), true), ENOENT);
  EXPECT_THAT(errors(), ElementsAre("Cannot open report lock \"" + file("gone") +
                                        "/.report_lock_lab\": errno=2 (No such file or directory)",
                                    final_line(2)));
  EXPECT_THAT(events(), ElementsAre(event(20, "lab")));
}

// --- Locks.

class QueryLocks : public Report {
 protected:
  void SetUp() override {
    Report::SetUp();
    write_index(line + "\n");
    write_data(line + ",AA,A1," + fields + "\n");
  }
  std::string lock_file() const { return file(".report_lock_lab"); }
  bool file_is_locked() const {
    const int fd = ::open(lock_file().c_str(), O_RDWR | O_CLOEXEC);
    const bool locked = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0;
    if (fd >= 0) ::close(fd);
    return locked;
  }
  // All three, on a thread of their own.
  std::future<int> ask() const {
    return std::async(std::launch::async, [directory = path()] {
      JsonWriter writer;
      return get_radio_report_list(writer, "lab", directory, "2024-01-01,00:00:00 UTC", "2024-01-02,00:00:00 UTC",
                                   true) +
             get_radio_report(writer, id, directory) + get_last_radio_report(writer, "lab", directory, true);
    });
  }
};

TEST_F(QueryLocks, QueriesRunBesideOneAnother) {
  const DomainReadAccess access("lab", path());
  EXPECT_EQ(ask().get(), 0);
}

TEST_F(QueryLocks, QueriesOfAnotherDomainDoNotWait) {
  const DomainWriteAccess access("hall", path());
  EXPECT_EQ(ask().get(), 0);
}

TEST_F(QueryLocks, AQueryWaitsForAWriterOfAnotherProcess) {
  std::future<int> answer;
  {
    const DomainFileLock lock("lab", path(), true);
    answer = ask();
    EXPECT_TRUE(eventually([&] { return testing::is_waited_for(lock_file()); }));
    EXPECT_NE(answer.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  }
  EXPECT_EQ(answer.get(), 0);
}

// And holds the file's lock by then: all take the two in the same order.
TEST_F(QueryLocks, AQueryWaitsForAWriterOfThisProcess) {
  std::future<int> answer;
  {
    const auto mutex = domain_mutex("lab");
    const std::unique_lock lock(*mutex);
    answer = ask();
    EXPECT_TRUE(eventually([&] { return file_is_locked(); }));
    EXPECT_NE(answer.wait_for(std::chrono::seconds(0)), std::future_status::ready);
  }
  EXPECT_EQ(answer.get(), 0);
}

TEST_F(QueryLocks, QueriesChangeNoFile) {
  auto before = content();
  before[".report_lock_lab"] = "";
  EXPECT_EQ(ask().get(), 0);
  EXPECT_EQ(content(), before);
}

}  // namespace
}  // namespace reports
