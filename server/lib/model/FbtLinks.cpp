#include "model/FbtLinks.h"

#include <algorithm>
#include <functional>
#include <unordered_set>
#include <utility>

#include "core/mutex.h"
#include "json/JsonWriter.h"

namespace rrm {
namespace {

class LinkTable;

// A link in the table, from its making to the end of the last list that holds it.
struct ListedLink : std::enable_shared_from_this<ListedLink> {
  ListedLink(const FbtLink& says, std::shared_ptr<LinkTable> in) : link(says), table(std::move(in)) {}
  ListedLink(const ListedLink&) = delete;
  ListedLink& operator=(const ListedLink&) = delete;
  ~ListedLink();

  const FbtLink link;
  const std::shared_ptr<LinkTable> table;
};

// Links are looked for by what they say.
struct LinkHash {
  using is_transparent = void;
  std::size_t operator()(const FbtLink& link) const {
    const std::hash<std::string> hash;
    return (hash(link.remote_r0_kh_id) * 31 + hash(link.remote_r1_kh_id)) * 31 + hash(link.remote_r1_kh_key);
  }
  std::size_t operator()(const ListedLink* listed) const { return (*this)(listed->link); }
};
struct LinkEqual {
  using is_transparent = void;
  bool operator()(const ListedLink* a, const ListedLink* b) const { return a->link == b->link; }
  bool operator()(const FbtLink& link, const ListedLink* listed) const { return link == listed->link; }
  bool operator()(const ListedLink* listed, const FbtLink& link) const { return link == listed->link; }
};

class LinkTable : public std::enable_shared_from_this<LinkTable> {
 public:
  SharedFbtLink share(const FbtLink& link) {
    std::shared_ptr<ListedLink> shared;  // outlives the lock, which its end would take again
    MutexLock lock(mutex_);
    const auto place = links_.find(link);
    if (place != links_.end()) shared = (*place)->weak_from_this().lock();
    if (shared == nullptr) {
      shared = std::make_shared<ListedLink>(link, shared_from_this());
      if (place != links_.end()) links_.erase(place);  // one that ends at this moment
      links_.insert(shared.get());
    }
    return {shared, &shared->link};
  }

  void forget(const ListedLink& ending) {
    MutexLock lock(mutex_);
    const auto place = links_.find(ending.link);
    if (place != links_.end() && *place == &ending) links_.erase(place);
  }

  std::size_t size() const {
    MutexLock lock(mutex_);
    return links_.size();
  }

 private:
  mutable Mutex mutex_;
  std::unordered_set<ListedLink*, LinkHash, LinkEqual> links_ RRM_GUARDED_BY(mutex_);
};

ListedLink::~ListedLink() {
  table->forget(*this);
}

// Held by each of its links too, which may live longer than what is static.
LinkTable& link_table() {
  static const auto table = std::make_shared<LinkTable>();
  return *table;
}

}  // namespace

void FbtLink::write(JsonWriter& array) const {
  JsonWriter object = JsonWriter::object(array, nullptr);
  object.add_string("remote-r0-kh-id", remote_r0_kh_id);
  object.add_string("remote-r1-kh-id", remote_r1_kh_id);
  object.add_string("remote-r1-kh-key", remote_r1_kh_key);
}

SharedFbtLink share_link(const FbtLink& link) {
  return link_table().share(link);
}

std::size_t shared_link_count() {
  return link_table().size();
}

bool operator==(const FbtLinks& links, const std::vector<FbtLink>& texts) {
  return std::equal(links.begin(), links.end(), texts.begin(), texts.end(),
                    [](const SharedFbtLink& link, const FbtLink& text) { return *link == text; });
}

}  // namespace rrm
