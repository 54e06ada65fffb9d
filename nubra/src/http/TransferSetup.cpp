// SPDX-License-Identifier: MIT
#include "http/TransferSetup.h"

#include "config/ClientConfig.h"
#include "http/CurlTransfer.h"
#include "http/RedirectPolicy.h"

#include <QRegularExpression>
#include <QUrlQuery>

namespace Nubra {

void applyConfig(CurlTransfer& transfer, const ClientConfig& config)
{
    transfer.setCaFile(config.caFile());
    if (!config.proxy().isEmpty())
        transfer.setProxy(config.proxy());
    else if (!config.environmentNamesProxy())
        transfer.setDirect();
}

void appendQuery(QUrl& url, const QVariantMap& params)
{
    if (params.isEmpty())
        return;
    // Built by hand rather than with QUrlQuery, which leaves '+' as it is
    // (servers read a bare '+' in a query as a space: "a+b" would arrive as
    // "a b") and re-encodes the '%' of anything encoded beforehand.
    QByteArray query = url.query(QUrl::FullyEncoded).toLatin1();
    const auto add = [&query](const QString& key, const QVariant& value) {
        if (!query.isEmpty())
            query += '&';
        query += QUrl::toPercentEncoding(key) + '=' + QUrl::toPercentEncoding(value.toString());
    };
    for (auto it = params.begin(); it != params.end(); ++it) {
        if (it.value().userType() == QMetaType::QVariantList || it.value().userType() == QMetaType::QStringList) {
            for (const QVariant& item : it.value().toList())
                add(it.key(), item);
        } else {
            add(it.key(), it.value());
        }
    }
    url.setQuery(QString::fromLatin1(query), QUrl::StrictMode);
}

bool isSecretName(const QString& name)
{
    static const QRegularExpression secret(QStringLiteral("token|auth|password|passwd|secret|cookie|code|key"),
                                           QRegularExpression::CaseInsensitiveOption);
    return secret.match(name).hasMatch();
}

QString redactedUrl(const QUrl& url)
{
    QUrl copy = url;
    copy.setUserInfo(QString());
    copy.setFragment(QString());
    QUrlQuery query(copy);
    const auto items = query.queryItems();
    QUrlQuery redacted;
    for (const auto& item : items)
        redacted.addQueryItem(item.first, QStringLiteral("***"));
    if (copy.hasQuery())
        copy.setQuery(redacted);
    return copy.toString();
}

QString webUrlProblem(const QUrl& url)
{
    if (!url.isValid() || url.isRelative() || url.host().isEmpty()) {
        if (!url.scheme().isEmpty() && !isWebScheme(url.scheme()))
            return QStringLiteral("unsupported scheme \"%1\" (only http and https)").arg(url.scheme());
        return QStringLiteral("not a valid http(s) URL");
    }
    if (!isWebScheme(url.scheme()))
        return QStringLiteral("unsupported scheme \"%1\" (only http and https)").arg(url.scheme());
    return {};
}

} // namespace Nubra
