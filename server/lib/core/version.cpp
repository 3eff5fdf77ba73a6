#include "core/version.h"

namespace rrm {

const char* const build_version = ZAL_RRM_VERSION;

}  // namespace rrm
