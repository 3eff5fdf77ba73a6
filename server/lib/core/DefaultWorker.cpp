#include "core/DefaultWorker.h"

#include <exception>
#include <string_view>

#include "RRM.h"
#include "core/QueueMessage.h"
#include "core/log.h"
#include "json/JsonReader.h"
#include "json/JsonWriter.h"

namespace rrm {

DefaultWorker::DefaultWorker(RRM* server) : Worker("default-domain", server, 10000, 2048, false) {}

void DefaultWorker::process_message(JsonReader& json, BaseSession& session) {
  try {
    if (process_internal_ipc_msg(json)) return;
    refuse_subscribe(json, session);
  } catch (const std::exception& error) {
    RRM_LOG(LOG_ERROR, "Exception at processing message on default worker: %s", error.what());
    emit_event_plain(6);
  }
}

void DefaultWorker::refuse_subscribe(const JsonReader& json, const BaseSession& session) {
  if (std::string_view(json.get_string("service")) != service_name::rrm) return;
  if (std::string_view(json.get_string("cmd")) != "subscribe-request") return;
  JsonWriter reply(service_name::rrm, "subscribe-response", nullptr);
  reply.add_string("status", "fail");
  reply.add_int("code", 503);
  owner->send_text(reply.to_string(), session);
}

}  // namespace rrm
