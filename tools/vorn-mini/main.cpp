// vorn-mini: starts a local nubra-devcloud and runs the helper's blocking
// calls against it, printing each result code and payload.

#include "DemoCloud.h"

#include <VornNubraHelper.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {

const char* codeName(NubraCommon::ErrorCode code)
{
    static const char* const names[] = {"Success",         "Timeout",         "NoManager",       "MissingField",
                                        "UnknownInterface", "RequestRejected", "ResponseFailed",  "TransportError",
                                        "SerializeFailed", "SubscribeFailed", "DownloadRunning", "NoDownload",
                                        "PackageExists"};
    const int value = int(code);
    return value >= 0 && value <= 12 ? names[value] : "?";
}

// The payload as compact JSON, cut to a readable length.
QByteArray shortJson(const QVariant& payload)
{
    QByteArray json = QJsonDocument::fromVariant(payload).toJson(QJsonDocument::Compact);
    if (json.isEmpty())
        json = payload.toString().toUtf8();
    if (json.size() > 240)
        json = json.left(240) + "... (" + QByteArray::number(json.size()) + " bytes)";
    return json;
}

// payload is read after the call ran: it points at the call's result.
template <typename Payload>
void show(const char* call, NubraCommon::ErrorCode code, const Payload* payload)
{
    std::printf("%-58s -> %2d %-16s %s\n", call, int(code), codeName(code),
                shortJson(QVariant::fromValue(*payload)).constData());
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    using NubraCommon::Interface;

    const QString binary = QCoreApplication::applicationDirPath() + QStringLiteral("/nubra-devcloud");
    if (!QFileInfo(binary).isExecutable()) {
        std::fprintf(stderr, "vorn-mini: %s not found (build the nubra-devcloud target)\n", qPrintable(binary));
        return 1;
    }
    DemoCloud cloud;
    QString error;
    if (!cloud.start(binary, &error)) {
        std::fprintf(stderr, "vorn-mini: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("nubra-devcloud at %s, client configuration %s\n\n", qPrintable(cloud.baseUrl()),
                qPrintable(cloud.configPath()));
    // The helper reads NUBRA_CONFIG when it is first created.
    qputenv("NUBRA_CONFIG", cloud.configPath().toUtf8());
    VornNubraHelper* helper = VornNubraHelper::getInstance();

    const int timeout = 10000;
    QVariantMap result;
    QVariant any;

    show("post fetchCountries", helper->post(Interface::FetchCountries, {}, result, {}, timeout), &result);
    show("post getUserProfile (placeholder token \"vqmpz\")",
         helper->post(Interface::GetUserProfile, {{"userID", 1001}}, result, {}, timeout), &result);

    const auto login = helper->post(Interface::UserLogin, {{"account", "demo@vorn.example"}, {"password", "scan3d!"}},
                                    result, {}, timeout);
    const QString token = result.value("token").toString();
    result.insert("token", token.left(6) + "..."); // no secrets on the screen
    show("post userLogin demo@vorn.example", login, &result);
    helper->setUserToken(token);

    show("post getUserProfile {userID: 1001}",
         helper->post(Interface::GetUserProfile, {{"userID", 1001}}, result, {}, timeout), &result);
    show("post getDeviceAction {sn: VS2024000123}",
         helper->post(Interface::GetDeviceAction, {{"sn", "VS2024000123"}}, result, {}, timeout), &result);
    show("postv2 parseScanPackage",
         helper->postv2(Interface::ParseScanPackage,
                        {{"sn", "VS2024000123"}, {"bucket", "scans-eu"}, {"dfsID", "dfs-7f3a9c01"}}, any, {}, timeout), &any);
    show("get listFAPackageInstance (whole reply map)",
         helper->get(Interface::ListFAPackageInstance, {}, result, timeout), &result);
    show("post authToken (token as query parameter)",
         helper->post(Interface::AuthToken, {}, result, {{"token", token}}, timeout), &result);

    std::printf("\nFailures:\n");
    result.clear();
    show("post interface 7 (not in the catalogue)", helper->post(Interface(7), {}, result, {}, timeout), &result);
    show("post getDeviceAction without \"sn\"", helper->post(Interface::GetDeviceAction, {}, result, {}, timeout), &result);
    show("post getDeviceAction, cloud answers after 2 s, wait 500 ms",
         helper->post(Interface::GetDeviceAction, {{"sn", "VS2024000123"}, {"devcloudFault", "delay=2000"}}, result,
                      {}, 500), &result);
    show("post getDeviceAction, cloud reports failure",
         helper->post(Interface::GetDeviceAction, {{"sn", "VS2024000123"}, {"devcloudFault", "failure"}}, result, {},
                      timeout), &result);
    result.clear();
    show("post getDeviceAction, cloud drops the connection",
         helper->post(Interface::GetDeviceAction, {{"sn", "VS2024000123"}, {"devcloudFault", "drop"}}, result, {},
                      timeout), &result);
    return 0;
}
