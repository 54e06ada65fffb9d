// SPDX-License-Identifier: MIT
#pragma once

// One private nubra-devcloud for a whole test binary, started before the
// first test (a GoogleTest environment) and stopped after the last, for
// tests that fault, throttle or restart the cloud and must not disturb
// others. Its configuration is exported as NUBRA_CONFIG before any test
// runs, so the helper singleton, made later, talks to it.

#include "CloudAdmin.h"
#include "DevCloudProcess.h"

#include <QStringList>

namespace VornTest {

// Call once, at namespace scope: `const bool cloud = VornTest::usePrivateCloud();`
bool usePrivateCloud(const QStringList& extraArgs = {});

DevCloudProcess& privateCloud();
CloudAdmin& privateCloudAdmin();

} // namespace VornTest
