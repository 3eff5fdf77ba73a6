// The body of an object value: its members in the order of insertion, and from 16 members on a hash index over their
// keys. Everything lies in the arena that the object was made in, or on the heap.
//
// The first look-up among 16 members or more builds the index, also through a const object: several threads may read an
// object only once that has happened. The parser leaves every index built.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

#include "yajson/value.h"

namespace yajson {

class Member {
 public:
  Member(std::string_view key, MonotonicArena* arena) : key_(key, arena) {}

  std::string_view key() const noexcept { return key_.as_string(); }
  bool same_key(const Member& other) const noexcept { return key_.same_text(other.key_); }
  // Equal keys have equal marks.
  unsigned key_mark() const noexcept { return key_.text_mark(); }
  bool has_key(const Value& text) const noexcept { return key_.same_text(text); }

 private:
  Value key_;  // a string

 public:
  Value value;
};

using Members = std::vector<Member, ArenaAllocator<Member>>;

// From key to position: a hash table with prime bucket counts and at most one entry a bucket on average. It keeps
// positions only and reads the keys where the members are, so it stays valid when the members move.
class ObjectIndex {
 public:
  static constexpr std::uint32_t none = static_cast<std::uint32_t>(-1);

  // Of equal keys the last one counts.
  explicit ObjectIndex(const Members& members);

  // The key's position, or `none`.
  std::uint32_t find(const Members& members, std::string_view key) const noexcept;
  // Enters the last member.
  void add_last(const Members& members);
  // True if a key came more than once.
  bool has_repeats() const noexcept { return has_repeats_; }

 private:
  using Positions = std::vector<std::uint32_t, ArenaAllocator<std::uint32_t>>;

  void rebuild(const Members& members);
  void enter(const Members& members, std::uint32_t position) noexcept;

  Positions buckets_;  // where each chain begins
  Positions next_;     // by position: the chain's next
  bool has_repeats_ = false;
};

class Object {
 public:
  static constexpr std::size_t index_threshold = 16;

  explicit Object(MonotonicArena* arena) noexcept : members_(ArenaAllocator<Member>(arena)) {}
  ~Object() { drop_index(); }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  MonotonicArena* arena() const noexcept { return members_.get_allocator().arena(); }
  const Members& members() const noexcept { return members_; }
  std::size_t size() const noexcept { return members_.size(); }
  void reserve(std::size_t count) { members_.reserve(count); }

  Value* find(std::string_view key) noexcept { return const_cast<Value*>(std::as_const(*this).find(key)); }
  const Value* find(std::string_view key) const noexcept;
  void set(std::string_view key, Value value);
  // Takes deep copies of the members.
  void assign(const Object& other);

  // Appends a null member, whether or not the key is there already, and returns its value.
  Value& append(std::string_view key) {
    Member& member = members_.emplace_back(key, arena());
    if (index_ != nullptr) index_last();
    return member.value;
  }
  // Of each repeated key only the last member stays, where it stands.
  void drop_repeated_keys();

 private:
  const ObjectIndex* index() const noexcept;
  const Value* scan_for(std::string_view key) const noexcept;
  void build_index() const;
  void drop_index() noexcept;
  void index_last() noexcept;
  void drop_repeated_few();
  void drop_repeated_many();

  Members members_;
  mutable ObjectIndex* index_ = nullptr;  // owned
};

}  // namespace yajson
