#include "zal/backtrace.h"

#include <backward.hpp>

namespace zal {

// The frames' names come from the running program itself, so the arguments are not needed.
void backtrace_init(char* const*) {
  static const backward::SignalHandling handling;
}

}  // namespace zal
