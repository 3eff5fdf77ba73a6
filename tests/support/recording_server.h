// A server without sockets for a worker that is driven by hand: keeps what is sent, and notes orders to close a
// session.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "RRM.h"
#include "Worker.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm::testing {

class RecordingServer final : public RRM {
 public:
  struct Sent {
    std::uint32_t session = 0;
    std::string text;
  };

  explicit RecordingServer(GlobalConfig* configuration) : RRM(configuration) {
    websock_worker = std::make_shared<Transport>(this, closed_);
  }
  ~RecordingServer() override { release(); }

  void send_text(const char* text, const BaseSession& session) override { sent_.push_back({session.id, text}); }
  void send_text(std::string&& text, const BaseSession& session) override {
    sent_.push_back({session.id, std::move(text)});
  }

  std::vector<Sent> take_sent() { return std::exchange(sent_, {}); }
  std::vector<std::uint32_t> take_closed() { return std::exchange(closed_, {}); }

 private:
  class Transport final : public Worker {
   public:
    Transport(RRM* server, std::vector<std::uint32_t>& closed)
        : Worker("websock", server, 10000, 2, false), closed_(closed) {}
    void process_message(JsonReader&, BaseSession&) override {}
    void report_status(JsonWriter&) override {}
    void report_details(JsonWriter&) override {}
    void enqueue_message(JsonReader&&, const BaseSession& session) override { closed_.push_back(session.id); }
    void enqueue_message_force(JsonReader&&, const BaseSession& session) override { closed_.push_back(session.id); }

   private:
    std::vector<std::uint32_t>& closed_;
  };

  std::vector<Sent> sent_;
  std::vector<std::uint32_t> closed_;
};

}  // namespace rrm::testing
