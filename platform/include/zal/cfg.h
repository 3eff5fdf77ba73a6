// The controller's configuration tree, read-only. A tree is owned by who parsed it and ends with cfg_release; subtrees
// and elements are views into it and are not released. Null handles are taken everywhere and give null or false.
#pragma once

#include <cstddef>

namespace zal {

struct cfg_t;
struct cfg_array_iterator_t;

// Parses a JSON text. Null if it is none.
cfg_t* cfg_parse_buffer(const char* text, std::size_t length);
void cfg_release(cfg_t* root);

// The subtree under a path of the form "/common/scpu". Null if there is none.
const cfg_t* cfg_get_subtree_from_path(const cfg_t* root, const char* path);

// Null if the node is no array. Ends with cfg_release_array_iterator, before its tree does.
cfg_array_iterator_t* cfg_alloc_array_iterator(const cfg_t* array);
// The next element, null at the end.
const cfg_t* cfg_next_array_iterator(cfg_array_iterator_t* iterator);
void cfg_release_array_iterator(cfg_array_iterator_t* iterator);

// False, with `value` left alone, if the node is no integer or none that an int can hold.
bool cfg_object_to_int(const cfg_t* node, int* value);

}  // namespace zal
