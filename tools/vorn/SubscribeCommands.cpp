// SPDX-License-Identifier: MIT
// subscribe: messages of server topics until a time or count is reached.
#include "CommandContext.h"

#include <CLI/CLI.hpp>

#if VORN_CLI_SUBSCRIBE

#include "ExitStatus.h"
#include "InterruptWatcher.h"
#include "ResultCodes.h"

#include <VornNubraHelper.h>

#include <QDateTime>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>
#include <QVariantList>

namespace {

struct SubscribeArgs {
    std::vector<std::string> topics;
    double seconds = 10.0;
    int count = 0;
    int settleMs = 1500;
    std::string token;
};

int runSubscribe(CommandContext& context, const SubscribeArgs& args)
{
    Output& out = context.out();
    int status = ExitStatus::Ok;
    VornNubraHelper* helper = context.helper(&status);
    if (!helper)
        return status;
    // The helper sends its user token as the broker user name when the user
    // name argument is not empty.
    QString userName;
    const QString token = context.userToken(args.token);
    if (!token.isEmpty()) {
        helper->setUserToken(token);
        userName = QStringLiteral("vorn");
    }

    QVariantList topics;
    for (const std::string& topic : args.topics)
        topics << QString::fromStdString(topic);

    QVariantList messages;
    QEventLoop listening;
    const int wanted = args.count;
    const QMetaObject::Connection relay = QObject::connect(
        helper, &VornNubraHelper::subscribeData, [&](const QString& topic, const QVariantMap& data) {
            // Messages can keep coming while subscribe() still waits out
            // its time-out: the count is a limit, not a minimum.
            if (wanted > 0 && messages.size() >= wanted)
                return;
            const QVariantMap message{{QStringLiteral("topic"), topic},
                                      {QStringLiteral("data"), data},
                                      {QStringLiteral("receivedAt"),
                                       QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)}};
            messages << message;
            out.note(QStringLiteral("[%1] %2").arg(topic, Output::toJsonText(data, false)));
            if (wanted > 0 && messages.size() >= wanted)
                listening.quit();
        });
    bool interrupted = false;
    const QMetaObject::Connection stop =
        QObject::connect(&InterruptWatcher::instance(), &InterruptWatcher::interrupted, [&](int, int) {
            interrupted = true;
            listening.quit();
        });

    // subscribe() waits for its whole time-out whatever happens (ending by it
    // is its normal outcome), so it gets only the time the connection and the
    // subscription need; vorn listens for the rest itself.
    const int totalMs = int(args.seconds * 1000.0);
    const int waitMs = qMin(args.settleMs, totalMs);
    QElapsedTimer elapsed;
    elapsed.start();
    const int subscribeCode = helper->subscribe(userName, QString(), topics, waitMs);
    // Timeout is subscribe()'s normal end. Success means the wait ended
    // early: in a fresh process (never "already connected") that is a
    // refused connection or subscription.
    const bool subscribed = subscribeCode == NubraCommon::Timeout;
    if (subscribed && !interrupted && !(wanted > 0 && messages.size() >= wanted)) {
        out.note(QStringLiteral("subscribed to %1; listening %2")
                     .arg(QString::fromStdString(args.topics.front()) +
                              (args.topics.size() > 1 ? QStringLiteral(" and %1 more").arg(args.topics.size() - 1)
                                                      : QString()),
                          wanted > 0 ? QStringLiteral("for %1 message(s), at most %2 s").arg(wanted).arg(args.seconds)
                                     : QStringLiteral("for %1 s (Ctrl-C ends)").arg(args.seconds)));
        const qint64 left = totalMs - elapsed.elapsed();
        if (left > 0) {
            QTimer::singleShot(int(left), &listening, &QEventLoop::quit);
            listening.exec();
        }
    }
    QObject::disconnect(relay);
    QObject::disconnect(stop);
    const int disconnectCode = helper->disconnectFromServer();

    // Ending by the wait's time-out is subscribe()'s success; a count not
    // reached is a time-out of vorn's own.
    // A working subscription is a success, whatever the number of messages;
    // whether --count messages came is the exit status's question.
    const int code = subscribed ? int(NubraCommon::Success)
        : subscribeCode == NubraCommon::Success ? int(NubraCommon::SubscribeFailed)
                                                : subscribeCode;
    const bool countMissed = subscribed && wanted > 0 && messages.size() < wanted;
    out.answer(QStringLiteral("subscribe"), code, QVariantMap{{QStringLiteral("messages"), messages}},
               {{QStringLiteral("subscribeResult"),
                 QStringLiteral("%1 (%2)%3")
                     .arg(ResultCodes::name(subscribeCode))
                     .arg(subscribeCode)
                     .arg(subscribed ? QStringLiteral(", the helper's normal end of its wait") : QString())},
                {QStringLiteral("received"), messages.size()},
                {QStringLiteral("disconnectResult"),
                 QStringLiteral("%1 (%2)").arg(ResultCodes::name(disconnectCode)).arg(disconnectCode)}});
    if (countMissed)
        out.note(QStringLiteral("%1 of %2 message(s) arrived within %3 s (exit status 1)")
                     .arg(messages.size())
                     .arg(wanted)
                     .arg(args.seconds));
    if (interrupted)
        return ExitStatus::Interrupted;
    return countMissed ? 1 : code;
}

} // namespace

void addSubscribeCommands(CLI::App& app, CommandContext& context)
{
    auto args = std::make_shared<SubscribeArgs>();
    CLI::App* command = app.add_subcommand(
        "subscribe", "Subscribe server topics and print their messages until a time or a count is reached");
    command->add_option("topics", args->topics, "Topic filters, e.g. devices/+/status")->required();
    command->add_option("-s,--seconds", args->seconds, "How long to listen")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command->add_option("-n,--count", args->count, "Stop after this many messages (exit 1 when fewer came)")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--settle", args->settleMs,
                        "Milliseconds given to subscribe() to connect and subscribe before vorn listens on")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command->add_option("--token", args->token, "User token: the broker user name and credential")
        ->envname("VORN_TOKEN");
    command->footer("Example:\n  vorn subscribe 'devices/+/status' --count 1 --seconds 30 --token \"$VORN_TOKEN\"\n"
                    "Exit status: 0 subscribed (and --count messages came), 1 fewer than --count messages came, 9 "
                    "(SubscribeFailed) the broker refused the connection or the subscription, 130 Ctrl-C.");
    command->callback([&context, args] { context.action = [&context, args] { return runSubscribe(context, *args); }; });
}

#else
void addSubscribeCommands(CLI::App& app, CommandContext& context)
{
    addUnavailableCommand(app, context, "subscribe", "Print the messages of server topics");
}
#endif
