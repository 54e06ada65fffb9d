// SPDX-License-Identifier: MIT
#pragma once

// The helper's leveled log. Every record is an INFO record attributed to
// "VornNubraHelper/src/VornNubraHelper" and the line of the statement, and
// passes one gate: with --equal_level set, records are written only when the
// verbosity (FLAGS_v) is exactly 0; otherwise whenever it is 0 or more.

#include <glog/logging.h>

#include "VornLogConfig.h"
#include "VornNubraHelperExport.h"

#if !VORN_GLOG_HAS_EQUAL_LEVEL
// Declared as DECLARE_bool(equal_level) would, but hidden: DECLARE_bool
// gives the variable default visibility, which would export it from the
// shared library. The flag stays reachable by name through gflags
// (--equal_level, gflags::SetCommandLineOption).
namespace fLB {
extern VORN_NUBRA_HELPER_NO_EXPORT bool FLAGS_equal_level;
}
using fLB::FLAGS_equal_level;
#endif

namespace VornLog {

inline bool gateOpen()
{
    return FLAGS_equal_level ? FLAGS_v == 0 : FLAGS_v >= 0;
}

constexpr const char* kSourceFile = "VornNubraHelper/src/VornNubraHelper";

} // namespace VornLog

#define VORN_LOG                                                                                                       \
    if (!VornLog::gateOpen()) {                                                                                        \
    } else                                                                                                             \
        google::LogMessage(VornLog::kSourceFile, __LINE__).stream()
