// SPDX-License-Identifier: MIT
#include "VornLog.h"

#if !VORN_GLOG_HAS_EQUAL_LEVEL
#include <gflags/gflags.h>

// This glog has no --equal_level; the helper's log gate needs it, so it is
// defined here with glog's intended default.
DEFINE_bool(equal_level, false, "Write helper log records only when the verbosity is exactly 0");
#endif
