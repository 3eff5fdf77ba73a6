// Any text as a command to the server, under its family's key, and as the backup of a domain: an answer is an object of
// the interface's version, and a command without an answer changes nothing.
#include <memory>
#include <string>
#include <string_view>

#include "Api.h"
#include "Config.h"
#include "RRM.h"
#include "RrmWorker.h"
#include "fuzz/fuzz.h"
#include "fuzz/quiet_server.h"
#include "fuzz/silence.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace {

using rrm::JsonReader;
using zal::fuzz::require;

// Reports lie nowhere, so that no command can leave a file behind.
constexpr const char* site = R"({"global":{"reports_path":"/nonexistent/reports"},"common":{},
    "patterns":[{"pattern":"office","use_dca":0}],
    "domains":[{"domain":"hall","pattern":"office"},{"domain":"lab","pattern":"common","time_zone":"3:00"}]})";

constexpr const char* backup = R"({"name":"lab","rrm-status":1,"aps":[{"mac":"00:11:22:00:00:00","board":"NVA-3wz",
    "hw":"1.0","serial":"SN1","radios":{"interfaces":[{"id":1,"status":1,"channel":36,"power":14}]}}]})";

class Server final : public zal::fuzz::QuietServer {
 public:
  using QuietServer::QuietServer;

  // Takes a domain over without a thread, in place of the one before.
  std::shared_ptr<rrm::RrmWorker> adopt(const JsonReader& text) {
    const auto lab = std::make_shared<rrm::RrmWorker>(config, config->common(), "lab", this, 0, 2);
    lab->execute_locked([&] { lab->restore(text); });
    rrm::MutexLock lock(workers.mutex);
    workers.map["lab"] = lab;
    return lab;
  }
};

void check_answer(const rrm::Api::Answer& answer) {
  if (!answer) return;
  const JsonReader json(answer->c_str());
  require(std::string_view(json.get_string("version")) == "2.1", "an answer is an object with its version");
}

void edit(rrm::Api& api, Server& server, const JsonReader& request) {
  const auto answer = api.process_cfg_command(server, request);
  check_answer(answer);
  if (answer) return;
  require(server.configuration() == rrm::GlobalConfig("", site), "without an answer nothing is changed");
  require(server.find_worker("lab") != nullptr, "without an answer no domain is taken away");
}

void ask(rrm::Api& api, Server& server, const JsonReader& request) {
  const auto answer = api.process_rrm_command(server, request);
  require(answer.has_value(), "a question is answered");
  check_answer(answer);
  require(server.configuration() == rrm::GlobalConfig("", site), "a question changes nothing");
}

void change_role(rrm::Api& api, Server& server, const JsonReader& request) {
  const auto answer = api.process_vrrp_command(server, request);
  require(answer.has_value(), "a request for a role is answered");
  check_answer(answer);
}

void take_over(Server& server, const JsonReader& text) {
  const auto lab = server.adopt(text);
  lab->execute_locked([&] {
    const auto counts = lab->ap_counts();
    require(counts.active == 0 && counts.unanswered == 0, "who is taken over is gone until it returns");
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zal::fuzz::silence_logs();
  const std::string input(reinterpret_cast<const char*>(data), size);
  const JsonReader envelope(input.c_str());
  if (envelope.empty()) return 0;  // no command reaches the interface then
  rrm::GlobalConfig config("", site);
  Server server(&config);
  take_over(server, envelope);
  server.adopt(JsonReader(backup));
  rrm::Api api;
  if (envelope.has("cfg")) {
    edit(api, server, envelope.get("cfg"));
  } else if (envelope.has("rrm")) {
    ask(api, server, envelope.get("rrm"));
  } else if (envelope.has("vrrp")) {
    change_role(api, server, envelope.get("vrrp"));
  }
  return 0;
}
