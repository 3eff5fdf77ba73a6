// The log lines of the library go nowhere.
#pragma once

#include <cstdarg>

#include "core/log.h"

namespace zal::fuzz {

inline void silence_logs() {
  rrm::set_log_hook([](const char*, int, const char*, int, const char*, va_list) {});
}

}  // namespace zal::fuzz
