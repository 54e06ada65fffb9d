// SPDX-License-Identifier: MIT
#pragma once

#include "ProgressBar.h"

#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <vector>

class LocalCloud;
class Output;
class VornNubraHelper;

// The guided tour: each step runs part of the library against the demo's
// own local cloud, explains what it shows and ends as passed, failed or
// skipped (its helper calls are not in this build).
namespace Demo {

enum class Outcome { Passed, Failed, Skipped };

// What a step may use and where it reports.
class StepContext {
public:
    StepContext(FILE* stream, VornNubraHelper* helper, LocalCloud* cloud);

    VornNubraHelper* helper;
    LocalCloud* cloud;
    QVariantMap shared; // values handed from step to step (token, user id, ...)

    // One indented line under the step.
    void say(const QString& text);
    // A progress bar under the step (live on a terminal, plain lines otherwise).
    std::unique_ptr<ProgressBar> progress(const QString& label);
    // The step's one-line result, shown after its outcome.
    QString detail;

    FILE* stream() const { return m_stream; }

private:
    FILE* m_stream;
};

struct Step {
    QString title;
    QString explanation; // what the step shows, one or two sentences
    bool available;      // false: its helper calls are not in this build
    std::function<Outcome(StepContext&)> run;
};

// The steps after the cloud is up, in order.
std::vector<Step> librarySteps();

// Runs the whole demo; returns the exit status.
struct Options {
    QString devcloudBinary; // empty: beside vorn, then PATH
    bool keepGoing = true;  // run every step even after a failure
};
int run(Output& out, const Options& options);

// Waits in a local event loop until condition() holds or timeoutMs passes,
// looking again every intervalMs.
bool waitUntil(const std::function<bool()>& condition, int timeoutMs, int intervalMs = 50);

} // namespace Demo
