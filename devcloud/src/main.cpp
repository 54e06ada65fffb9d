// SPDX-License-Identifier: MIT
// nubra-devcloud: a real cloud on loopback for development, demos and tests.

#include "CleanupWatcher.h"
#include "DevCloud.h"
#include "PublishCommand.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <pthread.h>
#include <sys/stat.h>
#include <thread>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("nubra-devcloud"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "A local cloud for the Vorn scanner software: the JSON API, file transfers and a message broker, on "
        "loopback, with seeded demo data and fault injection."));
    parser.addHelpOption();
    QCommandLineOption portOption(QStringLiteral("port"), QStringLiteral("TCP port; 0 picks a free one."),
                                  QStringLiteral("port"), QStringLiteral("0"));
    QCommandLineOption hostOption(QStringLiteral("host"), QStringLiteral("Address to bind (loopback by default)."),
                                  QStringLiteral("address"), QStringLiteral("127.0.0.1"));
    QCommandLineOption dataOption(QStringLiteral("data"),
                                  QStringLiteral("Data folder (kept); default: a temporary one, removed at exit."),
                                  QStringLiteral("folder"));
    QCommandLineOption configOption(QStringLiteral("write-config"),
                                    QStringLiteral("Write a client configuration pointing at this cloud."),
                                    QStringLiteral("file"));
    QCommandLineOption publishOption(QStringLiteral("publish"),
                                     QStringLiteral("Publish one message to the broker of a running dev cloud "
                                                    "(needs --config) and exit. Usage: --publish TOPIC PAYLOAD."),
                                     QStringLiteral("topic"));
    QCommandLineOption readConfigOption(QStringLiteral("config"),
                                        QStringLiteral("Client configuration written by a running dev cloud."),
                                        QStringLiteral("file"));
    QCommandLineOption brokerTlsOption(QStringLiteral("broker-tls"),
                                       QStringLiteral("The message broker listens with TLS (certificate for "
                                                      "127.0.0.1 signed by a CA made for this run, written to the "
                                                      "configuration's \"mqtt\" section as \"caFile\")."));
    QCommandLineOption tlsOption(QStringLiteral("tls"),
                                 QStringLiteral("Serve the API over HTTPS (certificate for 127.0.0.1 and localhost, "
                                                "signed by a CA made for this run and written to the configuration as "
                                                "\"caFile\")."));
    parser.addOptions({portOption, hostOption, dataOption, configOption, publishOption, readConfigOption,
                       brokerTlsOption, tlsOption});
    parser.addPositionalArgument(QStringLiteral("payload"), QStringLiteral("With --publish: the message text."));
    parser.process(app);

    if (parser.isSet(publishOption)) {
        const QStringList rest = parser.positionalArguments();
        if (rest.size() != 1) {
            std::fprintf(stderr, "nubra-devcloud: --publish TOPIC takes exactly one PAYLOAD\n");
            return 2;
        }
        return devcloud::publishFromCommandLine(parser.value(readConfigOption), parser.value(publishOption),
                                                rest.first().toUtf8());
    }

    bool portOk = false;
    devcloud::Options options;
    options.port = parser.value(portOption).toInt(&portOk);
    if (!portOk || options.port < 0 || options.port > 65535) {
        std::fprintf(stderr, "nubra-devcloud: invalid --port '%s'\n", qPrintable(parser.value(portOption)));
        return 2;
    }
    options.host = parser.value(hostOption);
    options.dataDir = parser.value(dataOption);
    options.writeConfig = parser.value(configOption);
    options.brokerTls = parser.isSet(brokerTlsOption);
    options.tls = parser.isSet(tlsOption);

    // What the dev cloud writes (database, stored files, the broker's files,
    // the configuration with the publisher's password) is its owner's only.
    umask(077);

    // Forked while the process has one thread, before anything it would
    // clean up exists.
    QString watcherError;
    if (!devcloud::CleanupWatcher::start(&watcherError))
        std::fprintf(stderr, "nubra-devcloud: %s (files may be left behind if it is killed)\n",
                     qPrintable(watcherError));

    // SIGTERM and SIGINT are taken by one thread with sigwait(), so that
    // stopping the server happens outside a signal handler.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    devcloud::DevCloud cloud(options);
    QString error;
    if (!cloud.setUp(&error)) {
        std::fprintf(stderr, "nubra-devcloud: %s\n", qPrintable(error));
        return 1;
    }

    std::thread signalThread([&cloud, stopSignals] {
        int received = 0;
        sigwait(&stopSignals, &received);
        std::fprintf(stderr, "nubra-devcloud: signal %d, stopping\n", received);
        cloud.stop();
    });

    std::printf("nubra-devcloud listening on %s\n", qPrintable(cloud.baseUrl()));
    std::fflush(stdout);
    const bool served = cloud.serve();

    // Wake the signal thread if the server ended by itself.
    pthread_kill(signalThread.native_handle(), SIGTERM);
    signalThread.join();
    std::printf("nubra-devcloud stopped\n");
    return served ? 0 : 1;
}
