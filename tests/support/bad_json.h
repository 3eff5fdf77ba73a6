// Everything that can be wrong with one value of a JSON text, at every depth of it.
#pragma once

#include <functional>
#include <string>

namespace rrm::testing {

// One fault of an otherwise valid text. The kinds of faults: "missing" takes the member or element away, "unknown" adds
// a member that nobody knows to an object, and the rest put another value in the place: "null", "number" (7),
// "negative" (-7), "fraction" (1.5), "true", "text" ("x y"), "empty" (a text of nothing), "long" (64 KiB), "control"
// and "nul" (100 000 letters that end in control characters, or in a NUL with more behind it), "array" and "object" (of
// nothing).
struct Fault {
  std::string where;  // the faulty value by its keys and places, "/config/pattern"; "" is the whole text
  std::string how;    // the kind
  std::string text;   // the whole text with the fault in it
  std::string read;   // what is read of a faulty text, which ends at a NUL; empty if the value is no text
};

// Every fault of every value, or of one. Requires: `valid` is a JSON text.
void for_each_fault(const std::string& valid, const std::function<void(const Fault&)>& visit);
void for_each_fault_at(const std::string& where, const std::string& valid,
                       const std::function<void(const Fault&)>& visit);

// For tables of faults: whether a row's list of kinds, or "any", names this kind.
inline constexpr const char* any = "any";
bool names_kind(const std::string& kinds, const std::string& kind);
// The kinds that put a text in place; and what was read of it as a JSON text again.
inline constexpr const char* texts = "text long control nul";
std::string as_json(const std::string& read);
// The text with every such part replaced.
std::string replaced_all(std::string text, const std::string& part, const std::string& by);

}  // namespace rrm::testing
