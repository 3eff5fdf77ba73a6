// What each optimisation of a domain leaves behind: per radio the channel and the power before and after, and the
// settings that it ran with. The records lie in three text files per domain and are appended to; the index is written
// last, so what stands in it is whole. Queries read them back while others write, and a daily rewrite thins them out so
// that a crash at any moment leaves either the old files or the new ones.
//
// Every operation takes the domain's locks by itself, against other threads and other processes, unless it says
// otherwise; all may be called from any thread. All int results are 0 for success, else an errno value, 22 for bad
// arguments and what is not there, 5 for what cannot be read; whatever fails is logged. Domains whose files would lie
// outside the given directory are refused with 22.
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>

namespace rrm {
class ApMap;
class JsonWriter;
struct DomainConfig;
}  // namespace rrm

namespace reports {

// One radio's entry. Power, EIRP and their limits are dBm, the bandwidth MHz, gain dBi, loss dB.
struct RadioReportRecord {
  std::int32_t power_before = 0;
  std::int32_t power_after = 0;
  std::int32_t eirp_before = 0;
  std::int32_t eirp_after = 0;
  std::int32_t channel_before = 0;
  std::int32_t channel_after = 0;
  std::int32_t radio_id = 0;
  std::int32_t bandwidth = 0;
  std::int32_t max_power = 0;
  std::int32_t min_power = 0;
  std::int32_t eirp_min = 0;
  std::int32_t eirp_max = 0;
  std::int32_t antenna_gain = 0;
  std::int32_t cable_loss = 0;
  std::int32_t primary_channel = 0;
  std::string available_channels;  // ascending, separated by one blank

  bool operator==(const RadioReportRecord&) const = default;
};

// By report key, whose order is the order of the lines.
using RadioReport = std::map<std::string, RadioReportRecord>;

// The key of a radio in a report. Throws std::invalid_argument if a part is empty.
std::string create_key_for_domain_radio_report(const std::string& optimize_start_date, const std::string& ap_mac_str,
                                               const std::string& radio_mac_str);

// Writing. Radios that nothing may be planned for, or that are off, are left out.
void remember_radio_report_before_optimize(RadioReport& report, const std::string& optimize_start_date,
                                           const rrm::ApMap& aps);
void remember_radio_report_after_optimize(RadioReport& report, const std::string& optimize_start_date,
                                          const rrm::ApMap& aps);
// Appends the report. A failure raises event 18 and takes back what it has appended to the file that failed; without a
// line in the index, queries do not see what the others have got. Throws nothing: what goes wrong here must not cost
// the plan that is reported. 22 stands for an exception, whose text is logged.
int save_radio_report_to_files(const RadioReport& report, const std::string& domain_name,
                               const std::string& report_date, const std::string& report_files_path,
                               const rrm::DomainConfig& config);

// Queries. What they find goes into `writer`; after a failure it may hold a part.
// The reports from `date_start` on and before `date_finish`, both "YYYY-MM-DD,HH:MM:SS UTC". A failure raises event 19.
int get_radio_report_list(rrm::JsonWriter& writer, const std::string& domain_name, const std::string& report_files_path,
                          const std::string& date_start, const std::string& date_finish, bool domain_exists);
// One report; its id is its date, a comma and the domain.
int get_radio_report(rrm::JsonWriter& writer, const std::string& report_id, const std::string& report_files_path);
// The newest one; nothing is written if there is none. A failure raises event 20.
int get_last_radio_report(rrm::JsonWriter& writer, const std::string& domain_name, const std::string& report_files_path,
                          bool domain_exists);

// Cleaning up.
// Sets `due` if the daily time, "H:MM" in UTC, has come and today's run has not been completed. 0 or 22.
int check_report_alarm_clock_every_min(const std::string& report_delete_at_time_utc, bool& due);
void mark_report_alarm_completed();
// Rewrites a domain's files without the records that are older than so many days, if there are any. What an earlier
// run that was cut off has left is put in order first.
int delete_old_reports_in_domain(const std::string& domain_name, std::uint32_t days_to_live_of_report,
                                 const std::string& files_path);
int delete_report_files_for_domain(const std::string& domain_name, const std::string& files_path);

}  // namespace reports
