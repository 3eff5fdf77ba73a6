// The process's one source of log lines. It exists before main and outlives the exit functions that main registers.
#pragma once

#include "zal/Trace.h"

inline const zal::Trace trace("RRM", false);
