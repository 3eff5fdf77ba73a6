// Serves the requests of the controller's management: checks what a request brings, puts it to the interface, and tells
// how it went. Main thread only; the interface is not owned.
#pragma once

#include <string>

#include "ApiZAL.h"
#include "zal/IMsg.h"

class MorvaneRequests {
 public:
  explicit MorvaneRequests(ApiZAL& api) : api_(api) {}

  // A failure is logged too, unless it is the asker's: of a request that cannot be read only the asker is told.
  zal::IpcMsgMorvaneResponse serve(const zal::IpcMsgMorvaneRequest& request);

 private:
  // What a request is about, in words for the log, and how it went.
  struct Outcome {
    std::string description;
    bool done = false;
    std::string answer;
    std::string error;
  };

  void act_and_log(const zal::IpcMsgMorvaneRequest& request, Outcome& outcome);
  void act(const zal::IpcMsgMorvaneRequest& request, Outcome& outcome);
  void act_on_location(const zal::IpcMsgMorvaneRequest& request, Outcome& outcome);
  void act_on_ap(const zal::IpcMsgMorvaneRequest& request, Outcome& outcome);

  ApiZAL& api_;
};
