// The reports of optimisations, as rows by band.
#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "ApiZAL.h"
#include "answers.h"
#include "commands.h"
#include "core/clock.h"
#include "json/JsonWriter.h"
#include "trace.h"
#include "zal/boards.h"

using rrm::JsonReader;
using rrm::JsonWriter;

// The answer as it grows: one array for each band, by the number that the controller gives to the band.
struct ApiZAL::ReportRows {
  JsonWriter json;
  std::array<JsonWriter, 3> bands{JsonWriter::array(json, "2g"), JsonWriter::array(json, "5g"),
                                  JsonWriter::array(json, "6g")};
};

namespace {

std::string utc_text(std::time_t time) {
  std::tm utc{};
  gmtime_r(&time, &utc);
  std::array<char, 64> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d,%H:%M:%S UTC", &utc);
  return text.data();
}

// From the midnight that began the day so many days ago until now. There are no reports of before 1970, and the list
// of reports reads no such date.
std::pair<std::string, std::string> period_of_days(std::uint32_t days) {
  constexpr std::int64_t day = 86400;
  const std::int64_t now = rrm::wall_seconds().value_or(0);
  const std::int64_t start = now - now % day - days * day;
  return {utc_text(std::max<std::int64_t>(start, 0)), utc_text(now)};
}

// The levels and channels of a radio before and after; each EIRP where the report has it.
void write_changes(JsonWriter& row, const JsonReader& radio) {
  const JsonReader before = radio.get("before");
  const JsonReader after = radio.get("after");
  row.add_int("power-before", before.get_int("power"));
  row.add_int("power-after", after.get_int("power"));
  row.add_int("channel-before", before.get_int("channel"));
  row.add_int("channel-after", after.get_int("channel"));
  if (before.has("eirp")) row.add_int("eirp-before", before.get_int("eirp"));
  if (after.has("eirp")) row.add_int("eirp-after", after.get_int("eirp"));
}

}  // namespace

// Access points that the controller knows no longer are left out.
void ApiZAL::fill_report_rows(const JsonReader& answer, const std::optional<std::string>& band,
                              ReportRows& rows) const {
  const JsonReader report = answer.get("report");
  answers::for_each(report.get("details"), [&](const JsonReader& ap) {
    const std::string mac = answers::mac_text(ap.get_string("ap_mac"));
    const ActiveApStorage::Record record = active_aps_.find(zal::MacAddr::from_str(mac));
    if (record == nullptr) return;
    answers::for_each(ap.get("radio_interfaces"), [&](const JsonReader& radio) {
      const std::string name = band_of(mac, radio.get_int("radio_id"));
      const auto number = zal::IpcMsgRrmApInfo::band_from_str(name);
      if ((band && *band != name) || !number) return;
      JsonWriter row = JsonWriter::object(rows.bands.at(static_cast<std::size_t>(*number)), nullptr);
      row.add_string("ap-mac", mac);
      row.add_string("ip-addr", record->get_ip().value_or(""));
      row.add_string("board-type", record->get_board_type().value_or(""));
      row.add_string("location", report.get_string("domain"));
      row.add_string("report-time", report.get_string("date"));
      write_changes(row, radio);
    });
  });
}

void ApiZAL::fill_rows_of_days(const std::string& location, const std::optional<std::string>& band, std::uint32_t days,
                               ReportRows& rows) {
  const auto [start, finish] = period_of_days(days);
  // In the first second of its first day a period is still empty, which the list of reports would refuse.
  if (start == finish) return;
  const JsonReader list =
      ask(commands::report_list(location, start, finish), "no answer on morvane api request for report list");
  answers::for_each(list.get("data"), [&](const JsonReader& entry) {
    const std::string id = entry.get_string("id");
    // The text keeps its place-holder: the controller's log readers look for it.
    const JsonReader report =
        ask(commands::report(entry.get_string("domain"), id), "no answer on morvane api request for report '%s'" + id);
    fill_report_rows(report, band, rows);
  });
}

bool ApiZAL::morvane_report(const std::string& location, const std::optional<std::string>& band,
                            const std::optional<std::uint32_t>& days, std::string& answer, std::string& error) {
  trace.ap("Morvane HL-API: report: location: %s, band %s, days %u(%s)", location.c_str(),
           band ? band->c_str() : "<no band>", days.value_or(0), days ? "<value>" : "<default>");
  return answers::attempt(error, [&] {
    ReportRows rows;
    if (days) {
      fill_rows_of_days(location, band, *days, rows);
    } else {
      fill_report_rows(ask(commands::last_report(location), "no answer on morvane api request for last report"), band,
                       rows);
    }
    answer = rows.json.to_string();
  });
}
