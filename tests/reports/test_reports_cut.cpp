// Each of the three files, cut at each byte as a crash may leave it: queries answer, and the next report is whole.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>

#include "Config.h"
#include "json/JsonWriter.h"
#include "report_support.h"

namespace reports {
namespace {

using rrm::JsonWriter;
using testing::a_record;
using testing::default_settings;
using testing::ReportTest;

const std::string date = "2024-01-01,00:00:00";
const std::string next_date = "2024-01-01,12:00:00";
const std::string index_line = "1.1," + date + "\n";
const std::string config_line = "1.1," + date + "," + default_settings + "\n";
const std::string data_line = "1.1," + date + ",AA,A1,1,2,3,4,5,6,7,8,9,36 40,10,11,12,13,14,15\n";

class CutFile : public ReportTest {
 protected:
  void cut_everywhere(const std::string& name, const std::string& text) {
    for (std::size_t length = 0; length < text.size(); ++length) {
      SCOPED_TRACE(length);
      write(index_file(), index_line);
      write(config_file(), config_line);
      write(report_file(), data_line);
      write(name, text.substr(0, length));
      const int error = report_of(date);
      EXPECT_TRUE(error == 0 || error == EINVAL || error == EIO) << error;
      expect_next_report();
    }
  }

  int report_of(const std::string& report_date) const {
    JsonWriter writer;
    return get_radio_report(writer, report_date + ",lab", path());
  }

  void expect_next_report() {
    EXPECT_EQ(
        save_radio_report_to_files({{next_date + ",AA,B1", a_record()}}, "lab", next_date, path(), rrm::DomainConfig()),
        0);
    EXPECT_EQ(report_of(next_date), 0);
    JsonWriter newest;
    EXPECT_EQ(get_last_radio_report(newest, "lab", path(), true), 0);
    EXPECT_NE(std::string(newest.to_string()).find("\"radio_mac\":\"B1\""), std::string::npos);
    JsonWriter list;
    EXPECT_EQ(get_radio_report_list(list, "lab", path(), "2024-01-01,00:00:00 UTC", "2024-01-02,00:00:00 UTC", true),
              0);
    EXPECT_NE(std::string(list.to_string()).find("\"id\":\"2024-01-01,12:00:00,lab\""), std::string::npos);
  }
};

TEST_F(CutFile, OfTheIndex) {
  cut_everywhere(index_file(), index_line);
}

TEST_F(CutFile, OfTheSettings) {
  cut_everywhere(config_file(), config_line);
}

TEST_F(CutFile, OfTheData) {
  cut_everywhere(report_file(), data_line);
}

// A second line is cut: the first stays.
TEST_F(CutFile, OfTheIndexBehindAWholeLine) {
  cut_everywhere(index_file(), "1.1,2023-12-31,00:00:00\n" + index_line);
}

}  // namespace
}  // namespace reports
