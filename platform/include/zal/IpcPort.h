// The process's port on the controller's bus. It opens in its constructor and is silent at first: everything that
// arrives is kept back until the supervisor's run order. From then on messages are served by run_once_for_timeout, on
// its caller's thread, in the order of their arrival. What the process sends is kept, in order, until it has said with
// set_SendAndRecv that its peers are there. finalize ends the service for good.
//
// Bad input, a peer that goes away and a peer that does not read are the port's own business: they are logged, the port
// lives on and never waits for a peer. An exception of the callback passes through run_once_for_timeout.
//
// All operations belong to one thread, the owner's. An alarm (zal/alarm.h) may be raised from any thread.
#pragma once

#include <functional>
#include <memory>

#include "zal/Error.h"
#include "zal/IMsg.h"
#include "zal/Trace.h"

namespace zal {

// The number under which a process is known on the bus.
enum class PortId : int { rrm = 8 };

class IpcPort {
 public:
  using MsgCallback = std::function<Error(const IMsg& msg, IpcPort& port, void* user)>;

  // Joins the bus. Throws std::runtime_error if that is not possible. `trace` must outlive the port.
  IpcPort(PortId id, const Trace& trace);
  ~IpcPort();
  IpcPort(const IpcPort&) = delete;
  IpcPort& operator=(const IpcPort&) = delete;

  // Installs what serves the messages; `user` is handed back with each. False if there is a callback already or the
  // given one is empty.
  bool register_msg_callback(const MsgCallback& callback, void* user);

  // Serves the bus for `ms` milliseconds, waiting for traffic without using the CPU. Returns earlier when the port was
  // finalised or a signal arrived.
  void run_once_for_timeout(long ms);

  // Queues a message for the peers. The message is written down at once and may be changed or dropped afterwards.
  void send(std::shared_ptr<IMsg> msg);

  void set_SendAndRecv();
  void finalize();
  bool is_finalized() const;

 private:
  friend bool ipc_send_ready_and_wait_for_run(IpcPort& port);
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Tells the supervisor that this process is ready, and waits until it orders the process to run, however long that
// takes. False if the bus went away meanwhile.
bool ipc_send_ready_and_wait_for_run(IpcPort& port);

}  // namespace zal
