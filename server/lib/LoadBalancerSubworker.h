// Looks for a better radio for a client when it associates or its signal worsens. The server cannot see how others hear
// a client, so it asks: the APs around are told whom to listen for, and when all have answered, or some seconds later,
// the choice is made. A client that moves is blacklisted around its destination and ordered off the radio it is on. A
// client that stays is acknowledged, which its AP has waited for: exactly once, on every road out of a query.
//
// Works only with balancing on; while that is paused, nobody new is asked about and nobody moves. On the domain
// worker's thread, like all sub-workers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "IRrmSubworker.h"
#include "protocol/ClientEvent.h"
#include "steering/ProbeRequestMap.h"
#include "steering/destination.h"

namespace rrm {

class LoadBalancerSubworker final : public IRrmSubworker {
 public:
  explicit LoadBalancerSubworker(RrmWorker& worker) : IRrmSubworker(worker) {}

  void force_optimization() override {}
  // Takes rrm-client-assoc, rrm-client-disassoc, rrm-probe-response and rrm-disassoc-all-clients.
  bool process_message(const JsonReader& json, protocol::Command command, const std::shared_ptr<ApEntry>& ap) override;
  // Once a second: decides the queries that are answered or out of time, and watches the worker's own load.
  void process_timer() override;
  void stop() override {}

  // Asks around which radio would serve a client of this one better. False if there is nobody to ask: then no query
  // runs, and the client stays.
  bool start_query(const ApEntry& ap, const Radio& radio, const MacAddr& client, const std::string& ssid);
  // Gives up the client's query, if there is one: the client stays, or has gone already.
  void end_query(const MacAddr& client);

 private:
  void process_client_assoc(const protocol::ClientEvent& event, ApEntry& ap);
  void process_client_disassoc(const protocol::ClientEvent& event, ApEntry& ap);
  void process_client_disassoc_all(ApEntry& ap);
  void process_probe_response(const JsonReader& json, ApEntry& ap);
  bool take_probe_answers(const JsonReader& probe_list, const ApEntry& ap, const Radio& radio);

  void accept_client(const protocol::ClientEvent& event, ApEntry& ap, Radio& radio, bool paused);
  void forget_expected_around(const ApEntry& ap, const MacAddr& client, const std::string& ssid);

  bool post_probe_req(const ApEntry& ap, const MacAddr& client, const std::string& ssid, std::int32_t timeout,
                      std::int32_t band);
  bool send_probe_request(const ApEntry& ap, const MacAddr& client, const std::string& ssid, std::int32_t timeout,
                          std::int32_t band);
  void acknowledge(const ApEntry& ap, Radio& radio, const MacAddr& client, const std::string& ssid);
  void acknowledge_at(const MacAddr& source, const MacAddr& client, const std::string& ssid);

  void process_result(const MacAddr& client, const ProbeRequest& query);
  void move(const MacAddr& client, const ProbeRequest& query, std::int32_t source_radio,
            const SteeringChoice& destination);
  void watch_overload();

  ProbeRequestMap probe_requests_;
};

}  // namespace rrm
