// Crash back-traces: after backtrace_init a fatal signal (an invalid access, an abort) first prints where every frame
// of the failing thread stood to standard error, and then ends the process as the signal always does, within seconds
// whatever the crash left behind. Takes SIGALRM for that. Once, at start.
#pragma once

namespace zal {

void backtrace_init(char* const* argv);

}  // namespace zal
