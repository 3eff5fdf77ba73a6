// Answers the controller's questions in the controller's terms: locations, bands as "2g", "5g" or "6g", addresses,
// days. Each question becomes one or more commands of the server's interface, run in this process, whose answers are
// joined with what the controller itself knows of its access points. Made anew for each use; owns nothing. Main thread
// only.
//
// Before the first setup there is no server, and every question fails politely.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ActiveApStorage.h"
#include "Api.h"
#include "json/JsonReader.h"

namespace rrm {
class JsonWriter;
}

// Why a question cannot be answered, in words for the controller's log.
class ApiFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class ApiZAL : public rrm::Api {
 public:
  // Neither is owned; `server` is null before the first setup.
  ApiZAL(rrm::RRM* server, const ActiveApStorage& active_aps) : server_(server), active_aps_(active_aps) {}

  // Runs one command of the server's interface and logs both texts. Empty without an answer.
  Answer run(const std::string& command);
  // The same for a command whose answer must be no failure. Throws ApiFailure, `no_answer` where there is none.
  rrm::JsonReader ask(const std::string& command, const std::string& no_answer);
  // The answer about one domain, which has `details`. Throws ApiFailure.
  rrm::JsonReader ask_domain(const std::string& domain);
  // The names of all configured domains. Throws ApiFailure.
  std::vector<std::string> configured_domains();

  // The controller's requests. Each is true with the answer, one JSON object or nothing, or false with the reason.
  bool morvane_common(std::string& answer, std::string& error);
  bool morvane_sessions(const std::optional<std::string>& location, std::string& answer, std::string& error);
  bool morvane_clear_sessions(const std::optional<zal::MacAddr>& mac, std::string& answer, std::string& error);
  bool morvane_rrm_stat(const std::string& location, std::string& answer, std::string& error);
  bool morvane_roaming_stat(const std::string& location, const std::optional<zal::MacAddr>& mac,
                            const std::optional<std::string>& band, std::string& answer, std::string& error);
  bool morvane_ap(const zal::MacAddr& mac, std::string& answer, std::string& error);
  bool morvane_optimize(const std::string& location, std::string& answer, std::string& error);
  bool morvane_report(const std::string& location, const std::optional<std::string>& band,
                      const std::optional<std::uint32_t>& days, std::string& answer, std::string& error);
  // 1 for a master, 2 for a backup, as the controller counts roles.
  bool morvane_role(std::int32_t& role, std::string& error);

 private:
  struct Session {
    std::string peer;  // IP address
    int id = 0;
  };
  struct Domain {
    int ap_count = 0;
    int unanswered_ap_count = 0;
  };
  struct Vap;
  struct Radio;
  struct RoamingVap;
  struct ReportRows;
  using RadiosByBand = std::map<std::string, Radio>;

  Answer dispatch(const std::string& command);
  std::vector<Session> ask_sessions();
  std::map<std::string, Domain> ask_domains();

  // The name of the band of an access point's radio, as the controller's knowledge of the board has it.
  std::string band_of(const std::string& mac, int radio_id) const;
  RadiosByBand get_radios(const std::string& location, const std::string& ap_mac);
  Radio read_radio(const rrm::JsonReader& interface) const;
  static void write_stat(rrm::JsonWriter& array, const Radio& radio);
  static void write_radio(rrm::JsonWriter& json, const std::string& band, const Radio& radio);
  static void write_vap(rrm::JsonWriter& array, const Vap& vap);
  static void write_roaming_vaps(rrm::JsonWriter& array, std::vector<RoamingVap>& vaps);
  void add_roaming_vaps(const rrm::JsonReader& ap, std::map<std::string, std::vector<RoamingVap>>& vaps) const;
  void fill_report_rows(const rrm::JsonReader& answer, const std::optional<std::string>& band, ReportRows& rows) const;
  void fill_rows_of_days(const std::string& location, const std::optional<std::string>& band, std::uint32_t days,
                         ReportRows& rows);

  rrm::RRM* const server_;
  const ActiveApStorage& active_aps_;
};
