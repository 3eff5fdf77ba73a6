#include "hostile/site_server.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <string_view>
#include <utility>

#include "WebsockServerWorker.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "support/capture.h"
#include "support/ws_client.h"

namespace hostile {
namespace {

constexpr int backup_due = 23;
constexpr int state_changed = 24;

std::atomic<SiteServer*> current{nullptr};

std::string configuration(int port, const std::string& reports) {
  std::string domains;
  for (const char* name : {campus_domain, yard_domain, alley_domain}) {
    domains += (domains.empty() ? "" : ",") + std::string(R"({"domain":")") + name +
               R"(","pattern":"common","time_zone":"0:00"})";
  }
  return R"({"global":{"listen_port":)" + std::to_string(port) + R"(,"reports_path":")" + reports +
         R"("},"common":{"use_rrm_report":0},"patterns":[],"domains":[)" + domains + "]}";
}

}  // namespace

SiteServer::SiteServer()
    : port(rrm::testing::free_port()), config_("", configuration(port, directory_.path().string())), rrm_(&config_) {
  current = this;
  rrm::set_log_hook(on_log);
  rrm::set_event_hook(on_event);
  rrm_.update_vrrp_role(rrm::RRM::role_master, nullptr);
}

SiteServer::~SiteServer() {
  rrm_.release();
  current = nullptr;
  rrm::set_event_hook(nullptr);
}

std::vector<SiteServer::Session> SiteServer::sessions() const {
  return static_cast<const rrm::WebsockServerWorker&>(*rrm_.websocket()).sessions_snapshot();
}

std::set<int> SiteServer::take_events() {
  const rrm::MutexLock lock(mutex_);
  return std::exchange(events_, {});
}

std::string SiteServer::query(const std::string& request) {
  return api_.process_rrm_command(rrm_, rrm::JsonReader(request.c_str())).value();
}

std::string SiteServer::domain(const std::string& domain) {
  return query(R"({"domain":")" + domain + "\"}");
}

std::string SiteServer::access_point(const std::string& domain, const std::string& mac) {
  return query(R"({"domain":")" + domain + R"(","ap":")" + mac + "\"}");
}

std::vector<std::string> SiteServer::steps(const std::string& domain) const {
  const rrm::MutexLock lock(mutex_);
  std::vector<std::string> steps;
  std::copy_if(steps_.begin(), steps_.end(), std::back_inserter(steps),
               [&](const std::string& step) { return step.find(" domain " + domain + " ") != std::string::npos; });
  return steps;
}

// The formats are constant: only the few lines that are wanted cost more than a look.
void SiteServer::on_log(const char*, int, const char*, int, const char* format, va_list args) {
  SiteServer* const server = current;
  if (server == nullptr || !std::string_view(format).ends_with(" on domain %s size %zu drop %d")) return;
  std::string text = rrm::testing::format_text(format, args);
  const rrm::MutexLock lock(server->mutex_);
  server->steps_.push_back(std::move(text));
}

void SiteServer::on_event(const int& id, const std::shared_ptr<std::string>&) {
  SiteServer* const server = current;
  if (server == nullptr || id == backup_due || id == state_changed) return;
  const rrm::MutexLock lock(server->mutex_);
  server->events_.insert(id);
}

}  // namespace hostile
