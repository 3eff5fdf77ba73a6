#include "yajson/object.h"

#include <algorithm>
#include <array>
#include <new>
#include <utility>
#include <vector>

#include "yajson/key_hash.h"

namespace yajson {
namespace {

// Primes, each about twice the one before.
constexpr std::array<std::uint32_t, 28> bucket_counts{
    29,       59,       127,       257,       521,       1049,       2099,       4201,      8419,    16843,
    33703,    67409,    134837,    269683,    539389,    1078787,    2157587,    4315183,   8630387, 17260781,
    34521589, 69043189, 138086407, 276172823, 552345671, 1104691373, 2209382761, 4294967291};

std::uint32_t bucket_count_for(std::size_t entries) {
  const auto* count = std::lower_bound(bucket_counts.begin(), bucket_counts.end(), entries);
  if (count == bucket_counts.end()) throw std::bad_alloc();
  return *count;
}

std::size_t bucket_of(std::string_view key, std::size_t buckets) noexcept {
  return static_cast<std::uint32_t>(hash_key(key)) % static_cast<std::uint32_t>(buckets);
}

}  // namespace

ObjectIndex::ObjectIndex(const Members& members)
    : buckets_(ArenaAllocator<std::uint32_t>(members.get_allocator())), next_(buckets_.get_allocator()) {
  rebuild(members);
}

void ObjectIndex::rebuild(const Members& members) {
  buckets_.assign(bucket_count_for(members.size()), none);
  next_.assign(buckets_.size(), none);
  has_repeats_ = false;
  for (std::uint32_t position = 0; position < members.size(); ++position) enter(members, position);
}

std::uint32_t ObjectIndex::find(const Members& members, std::string_view key) const noexcept {
  std::uint32_t position = buckets_[bucket_of(key, buckets_.size())];
  while (position != none && members[position].key() != key) position = next_[position];
  return position;
}

void ObjectIndex::add_last(const Members& members) {
  if (members.size() > buckets_.size()) {
    rebuild(members);
  } else {
    enter(members, static_cast<std::uint32_t>(members.size() - 1));
  }
}

// An entry whose key is there already takes the earlier one's place in the chain.
void ObjectIndex::enter(const Members& members, std::uint32_t position) noexcept {
  const Member& member = members[position];
  std::uint32_t* link = &buckets_[bucket_of(member.key(), buckets_.size())];
  while (*link != none && !members[*link].same_key(member)) link = &next_[*link];
  const std::uint32_t earlier = std::exchange(*link, position);
  if (earlier == none) return;
  next_[position] = next_[earlier];
  has_repeats_ = true;
}

const Value* Object::find(std::string_view key) const noexcept {
  const ObjectIndex* entries = index();
  if (entries == nullptr) return scan_for(key);
  const std::uint32_t position = entries->find(members_, key);
  return position != ObjectIndex::none ? &members_[position].value : nullptr;
}

// Null below the threshold, and where there is no memory for an index.
const ObjectIndex* Object::index() const noexcept {
  if (members_.size() < index_threshold) return nullptr;
  try {
    if (index_ == nullptr) build_index();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return index_;
}

const Value* Object::scan_for(std::string_view key) const noexcept {
  for (const Member& member : members_) {
    if (member.key() == key) return &member.value;
  }
  return nullptr;
}

void Object::build_index() const {
  index_ = make_in<ObjectIndex>(arena(), members_);
}

void Object::drop_index() noexcept {
  if (index_ != nullptr) end_in(arena(), std::exchange(index_, nullptr));
}

// Without memory for the new entry the index goes; the next look-up tries again.
void Object::index_last() noexcept {
  try {
    index_->add_last(members_);
  } catch (const std::bad_alloc&) {
    drop_index();
  }
}

void Object::set(std::string_view key, Value value) {
  if (Value* existing = find(key); existing != nullptr) {
    *existing = std::move(value);
  } else {
    append(key) = std::move(value);
  }
}

void Object::assign(const Object& other) {
  drop_index();
  members_ = other.members_;
}

void Object::drop_repeated_keys() {
  if (members_.size() < index_threshold) {
    drop_repeated_few();
  } else {
    drop_repeated_many();
  }
}

// Only a key whose mark has been seen is compared with those before it.
void Object::drop_repeated_few() {
  std::uint64_t seen = 0;
  for (auto later = members_.begin(); later != members_.end(); ++later) {
    const std::uint64_t mark = std::uint64_t{1} << later->key_mark();
    if ((std::exchange(seen, seen | mark) & mark) == 0) continue;
    const auto earlier = std::find_if(members_.begin(), later, [&](const Member& m) { return m.same_key(*later); });
    if (earlier != later) later = members_.erase(earlier) + (later - earlier - 1);
  }
}

void Object::drop_repeated_many() {
  if (index_ == nullptr) build_index();
  if (!index_->has_repeats()) return;
  std::vector<bool> stays;
  for (const Member& member : members_) stays.push_back(&member == &members_[index_->find(members_, member.key())]);
  std::size_t kept = 0;
  for (std::size_t i = 0; i < stays.size(); ++i) {
    if (!stays[i]) continue;
    if (kept != i) members_[kept] = std::move(members_[i]);
    ++kept;
  }
  members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(kept), members_.end());
  drop_index();
  build_index();
}

}  // namespace yajson
