// The server under test: its core with the real WebSocket worker on a free port of the loopback, master of three
// domains. What it reports is kept while it lives; one at a time.
#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Api.h"
#include "Config.h"
#include "RRM.h"
#include "core/mutex.h"
#include "support/temp_dir.h"
#include "websock/WebsockSession.h"

namespace hostile {

// Of the well-behaved access points; of the hostile ones that subscribe; and of those alone that are refused, so that
// it comes and goes with each of them.
inline constexpr const char* campus_domain = "campus";
inline constexpr const char* yard_domain = "yard";
inline constexpr const char* alley_domain = "alley";

// The events of the server by their numbers, as far as a peer's input can raise them.
enum Complaint : int {
  invalid_message = 0,
  wrong_version = 1,
  bad_addresses = 3,
  refused_by_domain = 4,
  not_written = 8,
  foreign_vap_address = 11,
  unknown_domain = 13,
  no_json = 14,
  answer_lost = 26,
};

class SiteServer {
 public:
  using Session = std::shared_ptr<rrm::WebsockSession>;

  SiteServer();
  ~SiteServer();
  SiteServer(const SiteServer&) = delete;
  SiteServer& operator=(const SiteServer&) = delete;

  std::vector<Session> sessions() const;
  // The numbers of the events since the last call; the changes of a domain's state are left out.
  std::set<int> take_events();
  // What the server tells of a domain, or of an access point of it.
  std::string domain(const std::string& domain);
  std::string access_point(const std::string& domain, const std::string& mac);
  // The log lines that tell how many access points took part in a step of an optimisation.
  std::vector<std::string> steps(const std::string& domain) const;

  const int port;

 private:
  std::string query(const std::string& request);
  static void on_log(const char* file, int line, const char* function, int level, const char* format, va_list args);
  static void on_event(const int& id, const std::shared_ptr<std::string>& payload);

  rrm::testing::TempDir directory_;
  mutable rrm::Mutex mutex_;
  std::set<int> events_ RRM_GUARDED_BY(mutex_);
  std::vector<std::string> steps_ RRM_GUARDED_BY(mutex_);
  rrm::GlobalConfig config_;
  rrm::RRM rrm_;
  rrm::Api api_;
};

}  // namespace hostile
