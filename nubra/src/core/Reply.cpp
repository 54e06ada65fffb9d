// SPDX-License-Identifier: MIT
#include <Nubra/Reply.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMetaEnum>
#include <QPointer>
#include <QTimer>

namespace Nubra {

const char* const Reply::outcomeCategory = "nubra.outcome";

namespace {
Q_LOGGING_CATEGORY(lcNubraOutcome, Reply::outcomeCategory, QtWarningMsg)
} // namespace

namespace {

// Method indexes of the four signals and the slots that hear them.
struct SelfConnections {
    int pairs[4][2];
    SelfConnections()
    {
        const QMetaObject& meta = Reply::staticMetaObject;
        const char* names[4][2] = {{"stop()", "stopEmitted()"},
                                   {"stop(QString)", "stopItemEmitted(QString)"},
                                   {"abort()", "abortEmitted()"},
                                   {"abort(QString)", "abortItemEmitted(QString)"}};
        for (int i = 0; i < 4; ++i) {
            pairs[i][0] = meta.indexOfSignal(names[i][0]);
            pairs[i][1] = meta.indexOfSlot(names[i][1]);
            Q_ASSERT(pairs[i][0] >= 0 && pairs[i][1] >= 0);
        }
    }
};

} // namespace

Reply::Reply(const QString& requestName, QObject* parent)
    : QObject(parent)
    , m_requestName(requestName)
{
    // stop()/abort() are signals so that anyone can listen to them; the
    // reply itself is the one that acts on them.
    static const SelfConnections self;
    for (const auto& pair : self.pairs)
        QMetaObject::connect(this, pair[0], this, pair[1], Qt::DirectConnection);
}

void Reply::stopEmitted() { onStop(QString()); }
void Reply::stopItemEmitted(const QString& item) { onStop(item); }

void Reply::abortEmitted()
{
    if (!m_notifyingAbort)
        onAbort(QString());
}

void Reply::abortItemEmitted(const QString& item) { onAbort(item); }

Reply::~Reply() = default;

int Reply::status() const { return m_status; }
QString Reply::requestName() const { return m_requestName; }
bool Reply::isFinished() const { return m_finished; }
Error::ErrorCode Reply::error() const { return m_error; }
QString Reply::errorString() const { return m_errorString; }
int Reply::httpStatus() const { return m_httpStatus; }

void Reply::setStatus(int status) { m_status = status; }
void Reply::setHttpStatus(int status) { m_httpStatus = status; }

void Reply::logOutcome(Error::ErrorCode code, const QString& message, int httpStatus) const
{
    QJsonObject record{{QStringLiteral("request"), m_requestName},
                       {QStringLiteral("error"), int(code)},
                       {QStringLiteral("errorName"),
                        QString::fromLatin1(QMetaEnum::fromType<Error::ErrorCode>().valueToKey(code))},
                       {QStringLiteral("message"), message}};
    if (httpStatus > 0)
        record.insert(QStringLiteral("httpStatus"), httpStatus);
    qCInfo(lcNubraOutcome).noquote() << QString::fromUtf8(QJsonDocument(record).toJson(QJsonDocument::Compact));
}

void Reply::finishWith(const QVariantMap& result)
{
    if (m_finished)
        return;
    m_finished = true;
    // A cloud answer that reports a failure is a failure to whoever waits
    // for it, though not an error of the client.
    if (lcNubraOutcome().isInfoEnabled()
        && result.value(QStringLiteral("status")).toString() == QLatin1String("failure"))
        logOutcome(Error::NoError, result.value(QStringLiteral("message")).toString(), m_httpStatus);
    emit finished(result);
}

void Reply::failWith(Error::ErrorCode code, const QString& message, const QVariantMap& extra)
{
    if (m_finished)
        return;
    if (m_error == Error::NoError) {
        m_error = code;
        m_errorString = message;
    }
    if (lcNubraOutcome().isInfoEnabled())
        logOutcome(code, message, extra.contains(QStringLiteral("httpStatus")) ? extra.value(QStringLiteral("httpStatus")).toInt()
                                                                               : m_httpStatus);
    QVariantMap map = extra;
    map.insert(QStringLiteral("status"), QStringLiteral("failure"));
    map.insert(QStringLiteral("errorCode"), int(code));
    map.insert(QStringLiteral("message"), message);
    // Finished from here on: a receiver of errorOccurred that aborts or
    // fails the reply again must not cause a second errorOccurred or a
    // second finished.
    m_finished = true;
    const QPointer<Reply> self(this);
    emit errorOccurred(code);
    // A receiver may have deleted the reply outright.
    if (self)
        emit finished(map);
}

void Reply::finishPausedLater(std::function<QVariantMap()> result)
{
    QMetaObject::invokeMethod(
        this,
        [this, result = std::move(result)] {
            finishWith({{QStringLiteral("status"), QStringLiteral("paused")},
                        {QStringLiteral("errorCode"), 0},
                        {QStringLiteral("result"), result()}});
        },
        Qt::QueuedConnection);
}

void Reply::failLater(Error::ErrorCode code, const QString& message)
{
    QMetaObject::invokeMethod(
        this, [this, code, message] { failWith(code, message); }, Qt::QueuedConnection);
}

void Reply::notifyAbort()
{
    m_notifyingAbort = true;
    emit abort();
    m_notifyingAbort = false;
}

void Reply::onStop(const QString&) {}

void Reply::onAbort(const QString& item)
{
    if (item.isEmpty())
        failWith(Error::Cancelled, QStringLiteral("request aborted"));
}

} // namespace Nubra
