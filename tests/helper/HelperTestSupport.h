// SPDX-License-Identifier: MIT
#pragma once

// Shared by the helper's unit tests: private access, glog and Qt message
// capture (all from tests/support).

#include "GlogCapture.h"
#include "HelperTestAccess.h"
#include "QtMessageCapture.h"
