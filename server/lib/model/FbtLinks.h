// The 802.11r links of one VAP, in order, held so that a large domain fits into memory. All VAPs of an SSID on
// different APs are linked with each other, tens of millions of links in a domain of a thousand APs, but they all name
// the same few thousand peers: equal links are one object, whichever lists they stand in.
//
// A link never changes, and is safe to share between threads. A list belongs to one thread.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace rrm {

class JsonWriter;

// A peer of fast transition: the ids of its key holders and the key shared with it.
struct FbtLink {
  std::string remote_r0_kh_id;
  std::string remote_r1_kh_id;
  std::string remote_r1_kh_key;

  bool operator==(const FbtLink&) const = default;
  // Adds its object to an array, keys and all.
  void write(JsonWriter& array) const;
};

using SharedFbtLink = std::shared_ptr<const FbtLink>;

// The one object of all links that say this. Safe from any thread.
SharedFbtLink share_link(const FbtLink& link);
// The different links that somebody holds: one that nobody holds any more is gone at once, its key with it.
std::size_t shared_link_count();

class FbtLinks {
 public:
  using List = std::vector<SharedFbtLink>;
  using const_iterator = List::const_iterator;

  bool empty() const { return links_.empty(); }
  std::size_t size() const { return links_.size(); }
  const_iterator begin() const { return links_.begin(); }
  const_iterator end() const { return links_.end(); }
  const SharedFbtLink& operator[](std::size_t index) const { return links_[index]; }

  void clear() { links_.clear(); }
  void reserve(std::size_t count) { links_.reserve(count); }
  void push_back(const FbtLink& link) { push_back(share_link(link)); }
  void push_back(SharedFbtLink link) { links_.push_back(std::move(link)); }
  // The others keep their order.
  void erase(const_iterator place) { links_.erase(place); }
  // Erases the links that fit; each is asked about once, in order. If that throws, the list stays as it was.
  template <class Predicate>
  void erase_if(Predicate fits);

  // By what the links say.
  friend bool operator==(const FbtLinks& links, const std::vector<FbtLink>& texts);

 private:
  List links_;
};

template <class Predicate>
void FbtLinks::erase_if(Predicate fits) {
  std::vector<std::size_t> kept;
  kept.reserve(links_.size());
  for (std::size_t i = 0; i < links_.size(); ++i) {
    if (!fits(links_[i])) kept.push_back(i);
  }
  if (kept.size() == links_.size()) return;
  for (std::size_t i = 0; i < kept.size(); ++i) {
    if (kept[i] != i) links_[i] = std::move(links_[kept[i]]);
  }
  links_.resize(kept.size());
}

}  // namespace rrm
