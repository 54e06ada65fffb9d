// SPDX-License-Identifier: MIT
#pragma once

// The step functions of the demo, one file per part of the library; the
// list and its order are in DemoSteps.cpp. A step whose helper calls are not
// in this build is not declared here at all.

#include "Demo.h"

#include <QString>

namespace Demo {

constexpr int kCallTimeoutMs = 10000;

QString codeText(int code);
// Sets the step's detail and returns Passed when code is expected.
Outcome expectCode(StepContext& step, int code, int expected, const QString& whatHappened);
// Fails the step with a reason.
Outcome failStep(StepContext& step, const QString& reason);

#if VORN_CLI_ACCOUNT
Outcome captcha(StepContext& step);
Outcome spaces(StepContext& step);
Outcome upload(StepContext& step);
#endif
#if VORN_CLI_UPGRADE
Outcome upgradeCheck(StepContext& step);
Outcome packageDownload(StepContext& step);
Outcome fileDownload(StepContext& step);
#endif
#if VORN_CLI_SUBSCRIBE
Outcome subscription(StepContext& step);
#endif
#if VORN_CLI_PROTECT
Outcome protectJson(StepContext& step);
#endif

} // namespace Demo
