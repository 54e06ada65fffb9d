// SPDX-License-Identifier: MIT
#include "Faults.h"

#include "Router.h"
#include "StopSignal.h"

#include <QStringList>

#include <algorithm>
#include <chrono>

namespace devcloud {

namespace {

void parseHttpStatus(const QString& item, Fault* fault)
{
    // Below 200 a status is interim (or not HTTP at all): the client would
    // wait for a final answer that never comes.
    const int status = item.mid(5).toInt();
    if (status >= 200 && status <= 599)
        fault->httpStatus = status;
    else
        fault->error = QStringLiteral("fault \"%1\": the status must be between 200 and 599").arg(item);
}

} // namespace

Fault Fault::parse(const QString& text)
{
    Fault fault;
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const QString item = part.trimmed();
        if (item.startsWith(QLatin1String("delay=")))
            fault.delayMs = std::clamp(item.mid(6).toInt(), 0, 120000);
        else if (item == QLatin1String("failure"))
            fault.failure = true;
        else if (item.startsWith(QLatin1String("http=")))
            parseHttpStatus(item, &fault);
        else if (item == QLatin1String("nonjson"))
            fault.nonJson = true;
        else if (item == QLatin1String("drop"))
            fault.drop = true;
    }
    return fault;
}

Fault Fault::fromRequest(const httplib::Request& request, const QJsonObject& body)
{
    QString text = QString::fromStdString(request.get_header_value("X-Devcloud-Fault"));
    if (text.isEmpty())
        text = QString::fromStdString(request.get_param_value("devcloudFault"));
    if (text.isEmpty())
        text = body.value(QStringLiteral("devcloudFault")).toString();
    return parse(text);
}

bool applyFault(const Fault& fault, httplib::Response& response)
{
    if (!fault.error.isEmpty()) {
        writeFailure(response, 400, QStringLiteral("badFault"), fault.error);
        return true;
    }
    if (fault.delayMs > 0 && !StopSignal::sleepFor(std::chrono::milliseconds(fault.delayMs))) {
        // The cloud is stopping: its connections are being closed, so no
        // answer would reach the client anyway.
        response.status = 503;
        return true;
    }
    if (fault.drop) {
        // A chunked provider that gives up at once: the head goes out, then
        // the connection is closed without a body.
        response.set_chunked_content_provider("application/json",
                                              [](size_t, httplib::DataSink&) { return false; });
        return true;
    }
    if (fault.nonJson) {
        response.status = 200;
        response.set_content("<html><body>maintenance</body></html>", "text/html");
        return true;
    }
    if (fault.httpStatus > 0) {
        response.status = fault.httpStatus;
        response.set_content("injected HTTP error", "text/plain");
        return true;
    }
    if (fault.failure) {
        writeFailure(response, 200, QStringLiteral("injected"), QStringLiteral("failure injected by request"));
        return true;
    }
    return false;
}

} // namespace devcloud
