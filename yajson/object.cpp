#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "yajson/key_hash.h"
#include "yajson/value.h"

namespace yajson {
namespace {

constexpr std::size_t npos = ObjectIndex::npos;

// Each about twice the one before.
constexpr std::array<std::size_t, 30> bucket_counts{
    29,       59,        127,       257,       541,       1109,       2357,       5087,       10273,       20753,
    42043,    85229,     172933,    351061,    712697,    1447153,    2938679,    5967347,    12117689,    24607243,
    49969847, 101473717, 206062531, 418443163, 849728009, 1725516979, 3503925269, 7115350103, 14448973217, 29341304143};

std::size_t bucket_count_for(std::size_t entries) {
  const auto* count = std::lower_bound(bucket_counts.begin(), bucket_counts.end(), entries);
  if (count == bucket_counts.end()) throw std::bad_alloc();
  return *count;
}

}  // namespace

void ObjectIndex::rebuild(const std::vector<Member>& members) {
  buckets_.assign(bucket_count_for(members.size()), npos);
  next_.assign(buckets_.size(), npos);
  for (std::size_t position = 0; position < members.size(); ++position) enter(members, position);
}

std::size_t ObjectIndex::find(const std::vector<Member>& members, std::string_view key) const noexcept {
  std::size_t position = buckets_[hash_key(key) % buckets_.size()];
  while (position != npos && members[position].key != key) position = next_[position];
  return position;
}

void ObjectIndex::add_last(const std::vector<Member>& members) {
  if (members.size() > buckets_.size()) {
    rebuild(members);
  } else {
    enter(members, members.size() - 1);
  }
}

// An entry whose key is there already takes the earlier one's place in the chain.
void ObjectIndex::enter(const std::vector<Member>& members, std::size_t position) noexcept {
  const std::string& key = members[position].key;
  std::size_t* link = &buckets_[hash_key(key) % buckets_.size()];
  while (*link != npos && members[*link].key != key) link = &next_[*link];
  const std::size_t earlier = std::exchange(*link, position);
  if (earlier == npos) return;
  next_[position] = next_[earlier];
  has_repeats_ = true;
}

void Object::assign(const Object& other) {
  members_ = other.members_;
  index_.reset();
}

const Value* Object::find(std::string_view key) const noexcept {
  const std::size_t position = position_of(key);
  return position != npos ? &members_[position].value : nullptr;
}

Value* Object::find(std::string_view key) noexcept {
  return const_cast<Value*>(std::as_const(*this).find(key));
}

std::size_t Object::position_of(std::string_view key) const noexcept {
  if (members_.size() < index_threshold) return scan_for(key);
  try {
    if (index_ == nullptr) index_ = std::make_unique<ObjectIndex>(members_);
  } catch (const std::bad_alloc&) {
    return scan_for(key);
  }
  return index_->find(members_, key);
}

std::size_t Object::scan_for(std::string_view key) const noexcept {
  for (std::size_t position = 0; position < members_.size(); ++position) {
    if (members_[position].key == key) return position;
  }
  return npos;
}

void Object::set(std::string_view key, Value value) {
  if (Value* existing = find(key); existing != nullptr) {
    *existing = std::move(value);
  } else {
    append(key) = std::move(value);
  }
}

Value& Object::append(std::string_view key) {
  Member& member = members_.emplace_back(key);
  if (index_ != nullptr) index_last();
  return member.value;
}

// Without memory for it the index goes: the next look-up tries again.
void Object::index_last() noexcept {
  try {
    index_->add_last(members_);
  } catch (const std::bad_alloc&) {
    index_.reset();
  }
}

void Object::drop_repeated_keys() {
  if (members_.size() < index_threshold) {
    drop_repeated_few();
  } else {
    drop_repeated_many();
  }
}

void Object::drop_repeated_few() {
  for (std::size_t later = 1; later < members_.size(); ++later) {
    for (std::size_t earlier = 0; earlier < later; ++earlier) {
      if (members_[earlier].key != members_[later].key) continue;
      members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(earlier));
      --later;
      break;
    }
  }
}

void Object::drop_repeated_many() {
  if (index_ == nullptr) index_ = std::make_unique<ObjectIndex>(members_);
  if (!index_->has_repeats()) return;
  std::vector<bool> stays(members_.size());
  for (std::size_t i = 0; i < stays.size(); ++i) stays[i] = index_->find(members_, members_[i].key) == i;
  std::size_t kept = 0;
  for (std::size_t i = 0; i < stays.size(); ++i) {
    if (stays[i] && kept++ != i) members_[kept - 1] = std::move(members_[i]);
  }
  members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(kept), members_.end());
  index_ = std::make_unique<ObjectIndex>(members_);
}

}  // namespace yajson
