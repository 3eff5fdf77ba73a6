// The table of all settings. Everything that touches a setting by its key follows from its row: the default, reading,
// validation, the list of rejected values, and writing. A new setting is a member of its section and a row here.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <variant>

#include "Config.h"

namespace rrm {

// On or off: any number but 0 is on; written as 0 or 1.
template <class Section>
struct FlagSetting {
  bool Section::*member;
  bool standard;
};

// A bound that a validated document may move: the value of another key of the same section, or, where the section does
// not carry that key, a fixed value. Without a key the row's own bound holds.
struct PeerBound {
  const char* key = nullptr;
  std::int32_t without_key = 0;
};

// An integer in [min, max].
template <class Section>
struct NumberSetting {
  std::int32_t Section::*member;
  std::int32_t standard;
  std::int32_t min;
  std::int32_t max;
  PeerBound min_from = {};
  PeerBound max_from = {};
};

// A time "H:MM" in [min, max] seconds, kept as its text and as seconds. Without a member for the seconds it is a text
// that only validation looks into.
template <class Section>
struct TimeSetting {
  std::string Section::*text;
  std::int32_t Section::*seconds;
  const char* standard;
  std::int32_t min;
  std::int32_t max;
};

// A text; an empty one is never taken.
template <class Section>
struct TextSetting {
  std::string Section::*member;
  const char* standard;
};

template <class Section>
struct Setting {
  const char* key;
  const char* unit;  // empty for a plain number, a switch or a text
  int check;         // place in the order of validation, from 1; 0 is never validated
  std::variant<FlagSetting<Section>, NumberSetting<Section>, TimeSetting<Section>, TextSetting<Section>> kind;
};

// The rows of a section, in the order in which its keys are written.
template <class Section>
std::span<const Setting<Section>> settings_table();

template <>
std::span<const Setting<DomainConfig>> settings_table();
template <>
std::span<const Setting<GlobalSettings>> settings_table();

}  // namespace rrm
