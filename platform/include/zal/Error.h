// What a message callback answers to the port. The port passes the number on to whoever asked; 0 is success.
#pragma once

namespace zal {

enum class Error : int {
  none = 0,
  malformed = 1,        // the message lacks a field that its type needs; the callback never sees it
  unknown_message = 4,  // the process does not know the message's type
};

}  // namespace zal
