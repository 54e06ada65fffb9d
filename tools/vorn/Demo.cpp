// SPDX-License-Identifier: MIT
// vorn demo: starts a private cloud, points the helper at it, runs the
// library's steps one by one and cleans up, also on Ctrl-C.

#include "Demo.h"

#include "CommandContext.h"
#include "ExitStatus.h"
#include "InterruptWatcher.h"
#include "LocalCloud.h"
#include "Output.h"

#include <VornNubraHelper.h>

#include <CLI/CLI.hpp>

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <unistd.h>

namespace Demo {

StepContext::StepContext(FILE* stream, VornNubraHelper* helperObject, LocalCloud* localCloud)
    : helper(helperObject)
    , cloud(localCloud)
    , m_stream(stream)
{
}

void StepContext::say(const QString& text)
{
    std::fprintf(m_stream, "        %s\n", text.toUtf8().constData());
    std::fflush(m_stream);
}

std::unique_ptr<ProgressBar> StepContext::progress(const QString& label)
{
    return std::make_unique<ProgressBar>(QStringLiteral("        ") + label, m_stream);
}

bool waitUntil(const std::function<bool()>& condition, int timeoutMs, int intervalMs)
{
    QElapsedTimer elapsed;
    elapsed.start();
    while (!condition()) {
        if (elapsed.elapsed() >= timeoutMs)
            return false;
        QEventLoop loop;
        QTimer::singleShot(intervalMs, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

namespace {

const char* outcomeName(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Passed:
        return "passed";
    case Outcome::Failed:
        return "FAILED";
    case Outcome::Skipped:
        break;
    }
    return "skipped (not available in this build)";
}

class Narrator {
public:
    Narrator(FILE* stream, int total)
        : m_stream(stream)
        , m_total(total)
    {
    }

    void begin(const Step& step)
    {
        ++m_index;
        std::fprintf(m_stream, "\n[%2d/%d] %s\n", m_index, m_total, step.title.toUtf8().constData());
        for (const QString& line : wrap(step.explanation, 100))
            std::fprintf(m_stream, "        %s\n", line.toUtf8().constData());
        std::fflush(m_stream);
    }

    void end(Outcome outcome, const QString& detail, qint64 elapsedMs)
    {
        if (!detail.isEmpty())
            std::fprintf(m_stream, "        -> %s\n", detail.toUtf8().constData());
        if (outcome == Outcome::Skipped)
            std::fprintf(m_stream, "        %s\n", outcomeName(outcome));
        else
            std::fprintf(m_stream, "        %s (%.2f s)\n", outcomeName(outcome), double(elapsedMs) / 1000.0);
        std::fflush(m_stream);
    }

private:
    static QStringList wrap(const QString& text, int width)
    {
        QStringList lines;
        QString line;
        for (const QString& word : text.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            if (!line.isEmpty() && line.size() + 1 + word.size() > width) {
                lines << line;
                line.clear();
            }
            line += (line.isEmpty() ? QString() : QStringLiteral(" ")) + word;
        }
        if (!line.isEmpty())
            lines << line;
        return lines;
    }

    FILE* m_stream;
    int m_total;
    int m_index = 0;
};

struct Record {
    QString title;
    Outcome outcome;
    QString detail;
};

QVariantMap summaryDocument(const std::vector<Record>& records, int exitStatus)
{
    QVariantList steps;
    int counts[3] = {0, 0, 0};
    for (const Record& record : records) {
        ++counts[int(record.outcome)];
        steps.append(QVariantMap{{QStringLiteral("title"), record.title},
                                 {QStringLiteral("outcome"), record.outcome == Outcome::Passed   ? QStringLiteral("passed")
                                                             : record.outcome == Outcome::Failed ? QStringLiteral("failed")
                                                                                                 : QStringLiteral("skipped")},
                                 {QStringLiteral("detail"), record.detail}});
    }
    return {{QStringLiteral("operation"), QStringLiteral("demo")},
            {QStringLiteral("passed"), counts[int(Outcome::Passed)]},
            {QStringLiteral("failed"), counts[int(Outcome::Failed)]},
            {QStringLiteral("skipped"), counts[int(Outcome::Skipped)]},
            {QStringLiteral("steps"), steps},
            {QStringLiteral("exitStatus"), exitStatus}};
}

} // namespace

int run(Output& out, const Options& options)
{
    // Narration goes to stdout, or to stderr when stdout carries the JSON
    // summary.
    FILE* stream = out.json() ? stderr : stdout;
    LocalCloud cloud;

    // Ctrl-C (or SIGTERM): stop the cloud, remove its folder and leave at
    // once. _exit skips the exit-time destruction of the helper, which may
    // be inside a wait right now.
    QObject::connect(&InterruptWatcher::instance(), &InterruptWatcher::interrupted, &cloud, [&cloud, stream](int) {
        std::fprintf(stream, "\nvorn demo: interrupted; stopping the local cloud and removing its files\n");
        std::fflush(stream);
        cloud.stop();
        std::fprintf(stream, "vorn demo: cleaned up\n");
        std::fflush(stream);
        std::fflush(stdout);
        ::_exit(ExitStatus::Interrupted);
    });

    std::vector<Step> steps = librarySteps();
    Narrator narrator(stream, int(steps.size()) + 1);
    std::vector<Record> records;
    std::fprintf(stream, "vorn demo: a guided tour of the VornNubraHelper library against a local cloud\n");

    // Step 1 is the cloud itself: nothing else can run without it.
    const Step startStep{QStringLiteral("Start a local cloud"),
                         QStringLiteral("nubra-devcloud serves the cloud's API, files and messages on a free loopback "
                                        "port and writes a client configuration; the helper is pointed at it through "
                                        "NUBRA_CONFIG before it is created (getInstance)."),
                         true, nullptr};
    narrator.begin(startStep);
    QElapsedTimer elapsed;
    elapsed.start();
    const QString binary = LocalCloud::findBinary(options.devcloudBinary);
    QString startError;
    if (binary.isEmpty())
        startError = QStringLiteral("nubra-devcloud not found beside vorn or on PATH (use --devcloud PATH)");
    else if (!cloud.start(binary))
        startError = cloud.error() + QStringLiteral("\n") + cloud.output().trimmed();
    VornNubraHelper* helper = nullptr;
    if (startError.isEmpty()) {
        qputenv("NUBRA_CONFIG", cloud.configPath().toLocal8Bit());
        helper = VornNubraHelper::getInstance();
        if (!helper || helper->configData().isEmpty())
            startError = QStringLiteral("the cloud client did not accept %1").arg(cloud.configPath());
    }
    if (!startError.isEmpty()) {
        narrator.end(Outcome::Failed, startError, elapsed.elapsed());
        records.push_back({startStep.title, Outcome::Failed, startError});
        out.document(summaryDocument(records, ExitStatus::Software));
        std::fprintf(stream, "\nvorn demo: the local cloud did not start; nothing else can run\n");
        return ExitStatus::Software;
    }
    const QString cloudDetail = QStringLiteral("%1 (configuration %2)").arg(cloud.baseUrl(), cloud.configPath());
    narrator.end(Outcome::Passed, cloudDetail, elapsed.elapsed());
    records.push_back({startStep.title, Outcome::Passed, cloudDetail});

    StepContext context(stream, helper, &cloud);
    bool failed = false;
    for (const Step& step : steps) {
        narrator.begin(step);
        elapsed.restart();
        context.detail.clear();
        Outcome outcome = Outcome::Skipped;
        if (step.available && (!failed || options.keepGoing))
            outcome = step.run(context);
        else if (step.available)
            context.detail = QStringLiteral("not run: an earlier step failed");
        narrator.end(outcome, context.detail, elapsed.elapsed());
        records.push_back({step.title, outcome, context.detail});
        failed = failed || outcome == Outcome::Failed;
    }

    cloud.stop();
    const QVariantMap summary = summaryDocument(records, failed ? ExitStatus::Software : ExitStatus::Ok);
    std::fprintf(stream, "\nvorn demo: %d passed, %d skipped (not available in this build), %d failed; local cloud "
                         "stopped and its files removed\n",
                 summary.value(QStringLiteral("passed")).toInt(), summary.value(QStringLiteral("skipped")).toInt(),
                 summary.value(QStringLiteral("failed")).toInt());
    std::fflush(stream);
    out.document(summary);
    return failed ? ExitStatus::Software : ExitStatus::Ok;
}

} // namespace Demo

void addDemoCommand(CLI::App& app, CommandContext& context)
{
    auto options = std::make_shared<Demo::Options>();
    auto devcloud = std::make_shared<std::string>();
    auto stopAtFailure = std::make_shared<bool>(false);
    CLI::App* demo = app.add_subcommand(
        "demo", "A guided tour: starts a local cloud, walks through every part of the library, cleans up");
    demo->add_option("--devcloud", *devcloud, "The nubra-devcloud binary (default: beside vorn, then PATH)");
    demo->add_flag("--stop-at-failure", *stopAtFailure, "Skip the remaining steps after a failed one");
    demo->footer("Exit status: 0 when no step failed (skipped steps are not failures), 70 when one did or the "
                 "local cloud did not start, 130 on Ctrl-C (the cloud is stopped and its files removed).");
    demo->callback([&context, options, devcloud, stopAtFailure] {
        context.action = [&context, options, devcloud, stopAtFailure] {
            options->devcloudBinary = QString::fromStdString(*devcloud);
            options->keepGoing = !*stopAtFailure;
            if (!context.options.configFile.empty())
                context.out().note(QStringLiteral("vorn demo: --config is ignored; the demo uses its own cloud"));
            return Demo::run(context.out(), *options);
        };
    });
}
