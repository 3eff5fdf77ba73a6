// What a setup says and cannot mean. The configuration passes over most of it without a word; here the operator is
// told.
#pragma once

#include <string>

namespace rrm {
class GlobalConfig;
}

// Warns of values that fail their checks, those of the common settings only if all global ones pass, and of domains
// that `loaded`, the configuration that was made of the setup, does not have or cannot serve: without a name, with a
// pattern that there is not, with a time zone that is none, or behind a section that is missing.
void tell_setup_faults(const std::string& setup, const rrm::GlobalConfig& loaded);
