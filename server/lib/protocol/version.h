// The version that every message of an access point carries: two numbers with a point between them.
#pragma once

#include <optional>

namespace rrm {

class JsonReader;

namespace protocol {

struct Version {
  int major_number = 0;
  int minor_number = 0;
};

// Reads the beginning of the text as "%d.%d" does: blanks and a sign may stand before each number, anything may follow
// the second. A number that does not fit an int reads as the nearest one that does. Empty if the text does not scan.
std::optional<Version> scan_version(const char* text);

// True if the message's version has the major number of `reference` and no higher minor number.
bool check_version(const JsonReader& message, const char* reference);

}  // namespace protocol
}  // namespace rrm
