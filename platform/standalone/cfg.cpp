#include "zal/cfg.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

namespace zal {

using nlohmann::json;

struct cfg_array_iterator_t {
  json::const_iterator next;
  json::const_iterator end;
};

namespace {

// A handle is a node of the tree under a type that nobody can look into.
const json* to_node(const cfg_t* handle) {
  return reinterpret_cast<const json*>(handle);
}
const cfg_t* to_handle(const json& node) {
  return reinterpret_cast<const cfg_t*>(&node);
}

}  // namespace

cfg_t* cfg_parse_buffer(const char* text, std::size_t length) {
  json node = json::parse(text, text + length, nullptr, false);
  return node.is_discarded() ? nullptr : reinterpret_cast<cfg_t*>(new json(std::move(node)));
}

void cfg_release(cfg_t* root) {
  delete reinterpret_cast<json*>(root);
}

const cfg_t* cfg_get_subtree_from_path(const cfg_t* root, const char* path) try {
  if (!root || !path) return nullptr;
  const json::json_pointer pointer(path);
  return to_node(root)->contains(pointer) ? to_handle(to_node(root)->at(pointer)) : nullptr;
} catch (const json::exception&) {
  return nullptr;
}

cfg_array_iterator_t* cfg_alloc_array_iterator(const cfg_t* array) {
  if (!array || !to_node(array)->is_array()) return nullptr;
  return new cfg_array_iterator_t{to_node(array)->cbegin(), to_node(array)->cend()};
}

const cfg_t* cfg_next_array_iterator(cfg_array_iterator_t* iterator) {
  if (!iterator || iterator->next == iterator->end) return nullptr;
  return to_handle(*iterator->next++);
}

void cfg_release_array_iterator(cfg_array_iterator_t* iterator) {
  delete iterator;
}

bool cfg_object_to_int(const cfg_t* node, int* value) {
  if (!node || !value || !to_node(node)->is_number_integer()) return false;
  const json& number = *to_node(node);
  constexpr auto most = std::numeric_limits<int>::max();
  if (number.is_number_unsigned() && number.get<std::uint64_t>() > static_cast<std::uint64_t>(most)) return false;
  const auto wide = number.get<std::int64_t>();
  if (wide < std::numeric_limits<int>::min() || wide > most) return false;
  *value = static_cast<int>(wide);
  return true;
}

}  // namespace zal
