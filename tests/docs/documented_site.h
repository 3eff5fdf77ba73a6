// The site of the documentation's examples: the real gateway with its server on a real bus, and one access point on a
// real session. All that varies from run to run (port, process id, directory, host name, time) is either fixed or
// exchanged for what the pages say, in both directions.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "daemon/ApiZAL.h"
#include "daemon/RadioRM.h"
#include "platform/bus_peer.h"
#include "platform/trace_file.h"
#include "support/capture.h"
#include "support/temp_dir.h"
#include "support/ws_client.h"
#include "zal/IpcPort.h"

namespace docs {

class DocumentedSite {
 public:
  DocumentedSite();
  ~DocumentedSite();
  DocumentedSite(const DocumentedSite&) = delete;
  DocumentedSite& operator=(const DocumentedSite&) = delete;

  // Sends a frame as the page has it, and serves it to its end. All that the process sent since the last call, as the
  // page would have it. The access point connects as soon as the server is a master.
  std::vector<std::string> exchange(const std::string& frame);
  // The answer of the server's interface to a command; empty if there is none.
  std::optional<std::string> run(const std::string& command);
  // One report of the access point, in the files of the domain.
  void write_report();
  bool is_finalized() const { return port_->is_finalized(); }

 private:
  std::string to_run(std::string text) const;
  std::string to_page(std::string text) const;
  void send(const std::string& text);
  void order_run();
  std::vector<std::string> serve_to_the_end();
  void connect_access_point();

  rrm::testing::TempDir directory_;
  const int listen_port_;
  const std::vector<std::pair<std::string, std::string>> exchanged_;  // of the page, of this run
  rrm::testing::ManualClock clock_;
  zal::testing::TraceFile log_;
  zal::testing::BusPeer peer_;
  std::unique_ptr<zal::IpcPort> port_;
  std::unique_ptr<RadioRM> radio_;
  std::optional<rrm::testing::WsClient> access_point_;
};

}  // namespace docs
