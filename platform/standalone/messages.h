// Messages of the contract as frames of the bus, and back.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/bus/Frame.h"
#include "zal/IMsg.h"

namespace zal {

// All types that have a class of their own, in ascending order.
const std::vector<int>& message_family();

// An empty message of the type; IpcMsgOther for a type outside the family.
std::unique_ptr<IMsg> make_message(int type);

// The message that the frame carries. Null, with the reason told, if a field is missing or of the wrong kind.
std::unique_ptr<IMsg> message_from(int type, const bus::Fields& frame, std::string& reason);

bus::Fields frame_from(IMsg& message);

}  // namespace zal
