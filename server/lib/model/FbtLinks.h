// The 802.11r links of one VAP, in order, held so that a large domain fits into memory. All VAPs of an SSID on
// different APs are linked with each other, tens of millions of links in a domain of a thousand APs, but they all name
// the same few thousand peers: equal links are one object, whichever lists they stand in. And a copied list is shared
// with the original until one of the two is changed, so that copying a whole domain does not copy its links.
//
// A link never changes. A list belongs to one thread; what it shares with lists of other threads is safe to share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
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

class FbtLinks {
 public:
  using List = std::vector<SharedFbtLink>;
  using const_iterator = List::const_iterator;

  bool empty() const { return size() == 0; }
  std::size_t size() const { return list().size(); }
  const_iterator begin() const { return list().begin(); }
  const_iterator end() const { return list().end(); }
  const SharedFbtLink& operator[](std::size_t index) const { return list()[index]; }

  void push_back(const FbtLink& link) { push_back(share_link(link)); }
  void push_back(SharedFbtLink link) { own().push_back(std::move(link)); }
  // Room for so many links in all, and no more.
  void reserve(std::size_t count);
  // The others keep their order.
  void erase(const_iterator place);
  // Erases the links that fit; each is asked about once, in order.
  template <class Predicate>
  void erase_if(Predicate fits);

  // By what the links say.
  friend bool operator==(const FbtLinks& links, const std::vector<FbtLink>& texts);

 private:
  const List& list() const;
  List& own();  // this list, no longer shared with any copy

  std::shared_ptr<List> list_;  // null for an empty list that never held anything
};

template <class Predicate>
void FbtLinks::erase_if(Predicate fits) {
  const auto found = std::find_if(begin(), end(), std::ref(fits));
  if (found == end()) return;
  const auto kept = found - begin();
  List& links = own();
  const auto first = links.begin() + kept;
  links.erase(std::remove_if(first + 1, links.end(), std::ref(fits)), links.end());
  links.erase(links.begin() + kept);
}

}  // namespace rrm
