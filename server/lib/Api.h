// The server's command interface: a request is a JSON object, the answer a JSON text. Three families of requests exist:
// `cfg` reads and edits the configuration, `rrm` asks about domains, access points, sessions and reports, `vrrp` asks
// for the redundancy role or sets it. A subclass brings the transport, picks the family and hands its object over here.
//
// An edit takes effect at once: a change of the global settings restarts the server under its role, any other removes
// the workers of the domains concerned, whose access points come back by subscribing. Main thread only; no state.
#pragma once

#include <optional>
#include <string>

namespace rrm {

class JsonReader;
class RRM;

class Api {
 public:
  // Empty: no answer, which the caller reports as a failure. Then nothing was saved.
  using Answer = std::optional<std::string>;

  Api() = default;
  Api(const Api&) = delete;
  Api& operator=(const Api&) = delete;
  virtual ~Api() = default;

  virtual Answer process_cfg_command(RRM& rrm, const JsonReader& request);
  // What a query throws passes through.
  virtual Answer process_rrm_command(RRM& rrm, const JsonReader& request);
  virtual Answer process_vrrp_command(RRM& rrm, const JsonReader& request);
};

}  // namespace rrm
