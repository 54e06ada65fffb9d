#include "http/TransferSetup.h"

#include "config/ClientConfig.h"
#include "http/CurlTransfer.h"

#include <QRegularExpression>

namespace Nubra {

void applyConfig(CurlTransfer& transfer, const ClientConfig& config)
{
    transfer.setCaFile(config.caFile());
    if (!config.proxy().isEmpty())
        transfer.setProxy(config.proxy());
    else if (!config.environmentNamesProxy())
        transfer.setDirect();
}

void appendQuery(QUrlQuery& query, const QVariantMap& params)
{
    for (auto it = params.begin(); it != params.end(); ++it) {
        if (it.value().type() == QVariant::List || it.value().type() == QVariant::StringList) {
            for (const QVariant& item : it.value().toList())
                query.addQueryItem(it.key(), item.toString());
        } else {
            query.addQueryItem(it.key(), it.value().toString());
        }
    }
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
    QUrlQuery query(copy);
    const auto items = query.queryItems();
    QUrlQuery redacted;
    for (const auto& item : items)
        redacted.addQueryItem(item.first, QStringLiteral("***"));
    copy.setQuery(redacted);
    return copy.toString();
}

} // namespace Nubra
