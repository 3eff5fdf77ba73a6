// A server that listens nowhere and hears nothing: what becomes of it is up to the input.
#pragma once

#include <memory>

#include "RRM.h"
#include "Worker.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace zal::fuzz {

class QuietServer : public rrm::RRM {
 public:
  explicit QuietServer(rrm::GlobalConfig* configuration) : RRM(configuration) {
    default_worker = std::make_shared<QuietWorker>(this);
    websock_worker = std::make_shared<QuietWorker>(this);
    ping_worker = std::make_shared<QuietWorker>(this);
  }
  ~QuietServer() override { release(); }

 private:
  // What it is sent goes nowhere.
  class QuietWorker final : public rrm::Worker {
   public:
    explicit QuietWorker(rrm::RRM* server) : Worker("quiet", server, 10000, 2, true) {}
    void process_message(rrm::JsonReader& json, rrm::BaseSession&) override { process_internal_ipc_msg(json); }
    void enqueue_message(rrm::JsonReader&&, const rrm::BaseSession&) override {}
    void enqueue_message_force(rrm::JsonReader&&, const rrm::BaseSession&) override {}
    void report_status(rrm::JsonWriter&) override {}
    void report_details(rrm::JsonWriter&) override {}
  };
};

}  // namespace zal::fuzz
