// The build's version, as the start banner and the command interface show it.
#pragma once

namespace rrm {

extern const char* const build_version;

}  // namespace rrm
