#include "websock/descriptor_limit.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "core/log.h"

namespace rrm {
namespace {

constexpr rlim_t library_descriptors = 3;  // the listener, the wake-up, and one that the library keeps free
constexpr rlim_t reserve = 1024;           // for all else that the process opens

void set_soft_limit(rlim_t soft) {
  rlimit limit = descriptor_limit();
  limit.rlim_cur = soft;
  if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
    RRM_LOG(LOG_ERROR, "Can't set the descriptor limit to %llu: %s", static_cast<unsigned long long>(soft),
            std::strerror(errno));
  }
}

}  // namespace

DescriptorPlan plan_descriptors(const rlimit& limit, unsigned session_capacity) {
  const rlim_t wanted = session_capacity + library_descriptors;
  // A hard limit that is too low for both leaves a part of itself to the rest of the process.
  const rlim_t kept = std::min(reserve, limit.rlim_max / 4);
  const rlim_t table = std::min(wanted, limit.rlim_max - kept);
  return {table, std::max(limit.rlim_cur, table + kept), table - std::min(table, library_descriptors)};
}

rlimit descriptor_limit() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  return limit;
}

DescriptorStage::DescriptorStage(const DescriptorPlan& plan) : afterwards_(plan.afterwards) {
  set_soft_limit(plan.while_creating);
}

DescriptorStage::~DescriptorStage() {
  set_soft_limit(afterwards_);
}

}  // namespace rrm
