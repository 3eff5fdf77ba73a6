#include "core/TimerList.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "core/clock.h"

namespace rrm {
namespace {

// In 32 bits, sign-extended: the sum wraps rather than overflows.
std::int64_t expiry_after(std::int32_t delay_s) {
  const auto sum = static_cast<std::uint32_t>(monotonic_seconds()) + static_cast<std::uint32_t>(delay_s);
  return static_cast<std::int32_t>(sum);
}

}  // namespace

void TimerList::add(Callback callback, std::uint32_t id, std::int32_t delay_s) {
  const std::int64_t expiry = expiry_after(delay_s);
  const auto later = [&](const Entry& entry) { return entry.expiry > expiry; };
  entries_.insert(std::find_if(entries_.begin(), entries_.end(), later), {std::move(callback), id, expiry});
}

void TimerList::replace(std::uint32_t id, Callback callback, std::int32_t delay_s) {
  remove(id);
  add(std::move(callback), id, delay_s);
}

void TimerList::remove(std::uint32_t id) {
  entries_.remove_if([id](const Entry& entry) { return entry.id == id; });
}

void TimerList::run_due() {
  const std::int64_t now = monotonic_seconds();
  const auto due = [now](const Entry& entry) { return entry.expiry <= now; };

  std::vector<Callback> callbacks;
  for (auto entry = entries_.begin(); entry != entries_.end() && due(*entry); ++entry) {
    callbacks.push_back(entry->callback);
  }
  for (const Callback& callback : callbacks) callback();
  if (!callbacks.empty()) entries_.remove_if(due);
}

}  // namespace rrm
