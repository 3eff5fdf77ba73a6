#include "zal/cfg.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace zal {

using json = nlohmann::ordered_json;

struct cfg_array_iterator_t {
  json::const_iterator next;
  json::const_iterator end;
};

struct cfg_object_iterator_t {
  json::const_iterator next;
  json::const_iterator end;
};

namespace {

// A handle is a node of the tree under a type that nobody can look into.
const json* to_node(const cfg_t* handle) {
  return reinterpret_cast<const json*>(handle);
}
json* to_node(cfg_t* handle) {
  return reinterpret_cast<json*>(handle);
}
const cfg_t* to_handle(const json& node) {
  return reinterpret_cast<const cfg_t*>(&node);
}
cfg_t* to_tree(json node) {
  return reinterpret_cast<cfg_t*>(new json(std::move(node)));
}

// Empty if the text is no path.
std::optional<std::vector<std::string>> split_path(const char* path) try {
  if (!path) return std::nullopt;
  std::vector<std::string> keys;
  for (json::json_pointer rest(path); !rest.empty(); rest.pop_back()) keys.push_back(rest.back());
  std::reverse(keys.begin(), keys.end());
  return keys;
} catch (const json::exception&) {
  return std::nullopt;
}

// Null if the array has no such element.
json* element_of(json& array, std::string_view key) {
  std::size_t index = 0;
  const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), index);
  const bool is_index = error == std::errc() && end == key.data() + key.size() && (index == 0) == (key == "0");
  return is_index && index < array.size() ? &array[index] : nullptr;
}

json* child_of(json& node, const std::string& key) {
  if (node.is_array()) return element_of(node, key);
  return node.is_object() ? &node[key] : nullptr;
}

// The node under a path, made as null if it is not there. The way can only end in a node that was there before, so
// nothing has been made when it does.
json* reach(cfg_t* root, const char* path) {
  const auto keys = split_path(path);
  json* node = keys ? to_node(root) : nullptr;
  if (!node) return nullptr;
  bool is_new = false;
  for (const std::string& key : *keys) {
    if (is_new) *node = json::object();
    is_new = node->is_object() && !node->contains(key);
    node = child_of(*node, key);
    if (!node) return nullptr;
  }
  return node;
}

bool set(cfg_t* root, const char* path, json value) {
  json* const node = reach(root, path);
  if (node) *node = std::move(value);
  return node != nullptr;
}

bool add(cfg_t* root, const char* path, json value) {
  if (!cfg_get_subtree_from_path(root, path)) return set(root, path, json::array({std::move(value)}));
  json* const array = reach(root, path);
  if (array->is_array()) array->push_back(std::move(value));
  return array->is_array();
}

template <class Iterator>
const cfg_t* step(Iterator* iterator, std::string* key) {
  if (!iterator || iterator->next == iterator->end) return nullptr;
  if (key) *key = iterator->next.key();
  return to_handle(*iterator->next++);
}

}  // namespace

cfg_t* cfg_parse_buffer(const char* text, std::size_t length) {
  json node = json::parse(text, text + length, nullptr, false);
  return node.is_discarded() ? nullptr : to_tree(std::move(node));
}

cfg_t* cfg_get_empty() try { return to_tree(json::object()); } catch (const std::bad_alloc&) {
  return nullptr;
}

void cfg_release(cfg_t* root) {
  delete to_node(root);
}

const cfg_t* cfg_get_subtree_from_path(const cfg_t* root, const char* path) try {
  if (!root || !path) return nullptr;
  const json::json_pointer pointer(path);
  return to_node(root)->contains(pointer) ? to_handle(to_node(root)->at(pointer)) : nullptr;
} catch (const json::exception&) {
  return nullptr;
}

const cfg_t* cfg_get_value(const cfg_t* object, const std::string& key) {
  if (!object || !to_node(object)->is_object()) return nullptr;
  const auto found = to_node(object)->find(key);
  return found == to_node(object)->end() ? nullptr : to_handle(*found);
}

std::size_t cfg_get_size(const cfg_t* node) {
  return node && to_node(node)->is_structured() ? to_node(node)->size() : 0;
}

cfg_array_iterator_t* cfg_alloc_array_iterator(const cfg_t* array) {
  if (!array || !to_node(array)->is_array()) return nullptr;
  return new cfg_array_iterator_t{to_node(array)->cbegin(), to_node(array)->cend()};
}

const cfg_t* cfg_next_array_iterator(cfg_array_iterator_t* iterator) {
  return step(iterator, nullptr);
}

void cfg_release_array_iterator(cfg_array_iterator_t* iterator) {
  delete iterator;
}

cfg_object_iterator_t* cfg_alloc_object_iterator(const cfg_t* object) {
  if (!object || !to_node(object)->is_object()) return nullptr;
  return new cfg_object_iterator_t{to_node(object)->cbegin(), to_node(object)->cend()};
}

const cfg_t* cfg_next_object_iterator(cfg_object_iterator_t* iterator, std::string* key) {
  return step(iterator, key);
}

void cfg_release_object_iterator(cfg_object_iterator_t* iterator) {
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

bool cfg_object_to_bool(const cfg_t* node, bool* value) {
  if (!node || !value || !to_node(node)->is_boolean()) return false;
  *value = to_node(node)->get<bool>();
  return true;
}

bool cfg_object_to_string(const cfg_t* node, std::string* value) {
  if (!node || !value || !to_node(node)->is_string()) return false;
  *value = to_node(node)->get<std::string>();
  return true;
}

bool cfg_set_param(cfg_t* root, const char* path, const char* value) {
  return value && set(root, path, value);
}

bool cfg_set_param(cfg_t* root, const char* path, const std::string& value) {
  return set(root, path, value);
}

bool cfg_set_param(cfg_t* root, const char* path, int value) {
  return set(root, path, value);
}

bool cfg_set_param(cfg_t* root, const char* path, std::int64_t value) {
  return set(root, path, value);
}

bool cfg_set_param(cfg_t* root, const char* path, bool value) {
  return set(root, path, value);
}

bool cfg_set_param(cfg_t* root, const char* path, const cfg_t* value) {
  return value && set(root, path, *to_node(value));
}

bool cfg_set_empty_object(cfg_t* root, const char* path) {
  return set(root, path, json::object());
}

bool cfg_set_empty_array(cfg_t* root, const char* path) {
  return set(root, path, json::array());
}

bool cfg_add_element(cfg_t* root, const char* path, const char* value) {
  return value && add(root, path, value);
}

bool cfg_add_element(cfg_t* root, const char* path, const std::string& value) {
  return add(root, path, value);
}

bool cfg_add_element(cfg_t* root, const char* path, int value) {
  return add(root, path, value);
}

bool cfg_add_element(cfg_t* root, const char* path, std::int64_t value) {
  return add(root, path, value);
}

bool cfg_add_element(cfg_t* root, const char* path, bool value) {
  return add(root, path, value);
}

bool cfg_add_element(cfg_t* root, const char* path, const cfg_t* value) {
  return value && add(root, path, *to_node(value));
}

std::string cfg_serialize_compact(const cfg_t* node) {
  return node ? to_node(node)->dump(-1, ' ', false, json::error_handler_t::replace) : "";
}

}  // namespace zal
