#include "platform/standalone/AlarmMailbox.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace zal {

AlarmMailbox& AlarmMailbox::instance() {
  static auto* const mailbox = new AlarmMailbox;
  return *mailbox;
}

AlarmMailbox::AlarmMailbox() : wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (!wake_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

AlarmMailbox::~AlarmMailbox() {
  take();
}

bool AlarmMailbox::put(std::string frame) {
  if (count_.fetch_add(1) >= capacity) {
    count_.fetch_sub(1);
    return false;
  }
  auto* const entry = new Entry{std::move(frame), newest_.load()};
  while (!newest_.compare_exchange_weak(entry->next, entry)) {
  }
  eventfd_write(wake_.get(), 1);
  return true;
}

std::vector<std::string> AlarmMailbox::take() {
  eventfd_t ignored = 0;
  eventfd_read(wake_.get(), &ignored);
  std::vector<std::string> frames;
  for (Entry* entry = newest_.exchange(nullptr); entry != nullptr;) {
    frames.push_back(std::move(entry->frame));
    delete std::exchange(entry, entry->next);
  }
  count_.fetch_sub(frames.size());
  std::reverse(frames.begin(), frames.end());
  return frames;
}

}  // namespace zal
