// Answers a subscribe that cannot be served with a refusal. The dispatcher starts and stops this worker but routes
// nothing to it: it serves only what another part of the server puts on its queue.
#pragma once

#include "Worker.h"

namespace rrm {

class DefaultWorker final : public Worker {
 public:
  explicit DefaultWorker(RRM* server);

  void process_message(JsonReader& json, BaseSession& session) override;
  void report_status(JsonWriter&) override {}
  void report_details(JsonWriter& writer) override { report_status(writer); }

 private:
  void refuse_subscribe(const JsonReader& json, const BaseSession& session);
};

}  // namespace rrm
