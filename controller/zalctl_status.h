// `zalctl status`: what the controller knows of its daemon, and what the daemon says of its role and its domains.
#pragma once

#include "controller/zalctl_base.h"

namespace controller {

void tell_status(const CtlBase& base);

}  // namespace controller
