#include "model/FbtLinks.h"

#include <algorithm>
#include <functional>
#include <unordered_map>
#include <utility>

#include "core/mutex.h"
#include "json/JsonWriter.h"

namespace rrm {
namespace {

struct LinkHash {
  std::size_t operator()(const FbtLink& link) const {
    const std::hash<std::string> hash;
    return (hash(link.remote_r0_kh_id) * 31 + hash(link.remote_r1_kh_id)) * 31 + hash(link.remote_r1_kh_key);
  }
};

// The links that some list holds, and for a while those that no list holds any more.
class LinkTable {
 public:
  SharedFbtLink share(const FbtLink& link) {
    MutexLock lock(mutex_);
    std::weak_ptr<const FbtLink>& place = links_[link];
    SharedFbtLink shared = place.lock();
    if (shared == nullptr) {
      shared = std::make_shared<const FbtLink>(link);
      place = shared;
      forget_unused();
    }
    return shared;
  }

 private:
  // Only when the table has doubled, so that a new link costs the same however many there are.
  void forget_unused() RRM_REQUIRES(mutex_) {
    if (links_.size() < limit_) return;
    std::erase_if(links_, [](const auto& item) { return item.second.expired(); });
    limit_ = std::max(smallest_limit, 2 * links_.size());
  }

  static constexpr std::size_t smallest_limit = 1024;

  Mutex mutex_;
  std::unordered_map<FbtLink, std::weak_ptr<const FbtLink>, LinkHash> links_ RRM_GUARDED_BY(mutex_);
  std::size_t limit_ RRM_GUARDED_BY(mutex_) = smallest_limit;
};

}  // namespace

void FbtLink::write(JsonWriter& array) const {
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_string("remote-r0-kh-id", remote_r0_kh_id);
  object.add_string("remote-r1-kh-id", remote_r1_kh_id);
  object.add_string("remote-r1-kh-key", remote_r1_kh_key);
}

SharedFbtLink share_link(const FbtLink& link) {
  static LinkTable table;
  return table.share(link);
}

bool operator==(const FbtLinks& links, const std::vector<FbtLink>& texts) {
  return std::equal(links.begin(), links.end(), texts.begin(), texts.end(),
                    [](const SharedFbtLink& link, const FbtLink& text) { return *link == text; });
}

}  // namespace rrm
