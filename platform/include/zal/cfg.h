// The controller's configuration tree: the values of JSON, read and built. A tree is owned by who parsed or made it and
// ends with cfg_release; subtrees and elements are views into it, are not released, and end with the next change of the
// tree. Objects keep the order in which their keys came. Null handles are taken everywhere and give null or false.
//
// A path leads from the root of a tree to a node: "/common/scpu", "/aps/0/mac", "" for the root itself; in a key "~1"
// stands for "/" and "~0" for "~". An operation that fails leaves the tree as it was; only want of memory throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace zal {

struct cfg_t;
struct cfg_array_iterator_t;
struct cfg_object_iterator_t;

// Parses a JSON text. Null if it is none.
cfg_t* cfg_parse_buffer(const char* text, std::size_t length);
// An empty object. Null, not an exception, if there is no memory for it.
cfg_t* cfg_get_empty();
void cfg_release(cfg_t* root);

// Reading

// The subtree under a path. Null if there is none.
const cfg_t* cfg_get_subtree_from_path(const cfg_t* root, const char* path);
// What an object has under exactly this key. Null if it has none or the node is no object.
const cfg_t* cfg_get_value(const cfg_t* object, const std::string& key);
// How many elements or keys an array or an object has; 0 for any other node.
std::size_t cfg_get_size(const cfg_t* node);

// Null if the node is no array. Ends with cfg_release_array_iterator, before its tree does.
cfg_array_iterator_t* cfg_alloc_array_iterator(const cfg_t* array);
// The next element, null at the end.
const cfg_t* cfg_next_array_iterator(cfg_array_iterator_t* iterator);
void cfg_release_array_iterator(cfg_array_iterator_t* iterator);

// Null if the node is no object. Ends with cfg_release_object_iterator, before its tree does.
cfg_object_iterator_t* cfg_alloc_object_iterator(const cfg_t* object);
// The next value, with its key told; null, with `key` left alone, at the end.
const cfg_t* cfg_next_object_iterator(cfg_object_iterator_t* iterator, std::string* key);
void cfg_release_object_iterator(cfg_object_iterator_t* iterator);

// Each is false, with `value` left alone, if the node is of another kind or, for an integer, none that fits.
bool cfg_object_to_int(const cfg_t* node, int* value);
bool cfg_object_to_bool(const cfg_t* node, bool* value);
bool cfg_object_to_string(const cfg_t* node, std::string* value);

// Building

// Sets what stands under a path. Objects on the way there are made; an array on the way must have the element that the
// path names. False if the path leads through a node that is neither, or is none. A subtree is copied, and may be of
// the same tree; a null one is refused.
bool cfg_set_param(cfg_t* root, const char* path, const char* value);
bool cfg_set_param(cfg_t* root, const char* path, const std::string& value);
bool cfg_set_param(cfg_t* root, const char* path, int value);
bool cfg_set_param(cfg_t* root, const char* path, std::int64_t value);
bool cfg_set_param(cfg_t* root, const char* path, bool value);
bool cfg_set_param(cfg_t* root, const char* path, const cfg_t* value);
bool cfg_set_empty_object(cfg_t* root, const char* path);
bool cfg_set_empty_array(cfg_t* root, const char* path);

// Appends to the array under a path, which is made as cfg_set_param makes it if nothing stands there. False also if
// what stands there is no array.
bool cfg_add_element(cfg_t* root, const char* path, const char* value);
bool cfg_add_element(cfg_t* root, const char* path, const std::string& value);
bool cfg_add_element(cfg_t* root, const char* path, int value);
bool cfg_add_element(cfg_t* root, const char* path, std::int64_t value);
bool cfg_add_element(cfg_t* root, const char* path, bool value);
bool cfg_add_element(cfg_t* root, const char* path, const cfg_t* value);

// The text of a tree or subtree, on one line and without blanks. Bytes that are not UTF-8 become U+FFFD. Empty for
// null.
std::string cfg_serialize_compact(const cfg_t* node);

// For owners in C++.
struct cfg_deleter {
  void operator()(cfg_t* root) const { cfg_release(root); }
  void operator()(cfg_array_iterator_t* iterator) const { cfg_release_array_iterator(iterator); }
  void operator()(cfg_object_iterator_t* iterator) const { cfg_release_object_iterator(iterator); }
};
using cfg_tree = std::unique_ptr<cfg_t, cfg_deleter>;
using cfg_array_walk = std::unique_ptr<cfg_array_iterator_t, cfg_deleter>;
using cfg_object_walk = std::unique_ptr<cfg_object_iterator_t, cfg_deleter>;

}  // namespace zal
