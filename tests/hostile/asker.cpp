#include "hostile/asker.h"

#include <algorithm>
#include <stdexcept>

#include "hostile/site_server.h"
#include "json/JsonReader.h"
#include "support/messages.h"

namespace hostile {
namespace {

constexpr std::chrono::milliseconds rest{10};  // after each answer, or the asking alone would load the machine
constexpr const char* mac = "02:00:5F:00:00:00";

std::string subscription() {
  return rrm::testing::a_subscribe(mac)
      .with("domain", campus_domain)
      .with_radio(rrm::testing::a_2ghz_radio().disabled())
      .text();
}

// Its client is here, which it wants to have acknowledged.
std::string question() {
  return rrm::testing::a_message("rrm-client-assoc", mac)
      .with("domain", campus_domain)
      .with("radio", 0)
      .with("rssi", -50)
      .with("sta-mac", "02:00:5F:FF:00:00")
      .with("ssid", "staff")
      .with("need-ack", 1)
      .text();
}

}  // namespace

Asker::Asker(int port) : socket_(rrm::testing::WsClient::open(port)) {
  socket_.send_text(subscription());
  if (!is_told("subscribe-response")) throw std::runtime_error("no answer to a subscription");
  thread_ = std::thread([this] { ask_on(); });
}

Asker::~Asker() {
  stop();
}

void Asker::stop() {
  is_over_ = true;
  if (thread_.joinable()) thread_.join();
  socket_.close();
}

void Asker::ask_on() {
  using Steady = std::chrono::steady_clock;
  while (!is_over_ && has_every_answer_) {
    const Steady::time_point asked = Steady::now();
    socket_.send_text(question());
    has_every_answer_ = is_told("rrm-client-assoc-ack");
    slowest_ = std::max(slowest_, std::chrono::duration_cast<std::chrono::milliseconds>(Steady::now() - asked));
    if (has_every_answer_) ++answered_;
    std::this_thread::sleep_for(rest);
  }
}

// Whether such a message comes, whatever comes before it.
bool Asker::is_told(const std::string& cmd) {
  while (const auto text = socket_.receive_text()) {
    if (cmd == rrm::JsonReader(text->c_str()).get_string("cmd")) return true;
  }
  return false;
}

}  // namespace hostile
