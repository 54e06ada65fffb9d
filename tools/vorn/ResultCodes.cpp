// SPDX-License-Identifier: MIT
#include "ResultCodes.h"

#include <NubraCommon.h>

#include <array>

namespace ResultCodes {

namespace {

struct Entry {
    NubraCommon::ErrorCode code;
    const char* name;
    const char* meaning;
};

// Indexed by value; the static_asserts keep it in step with the enum.
constexpr std::array<Entry, 13> kCodes{{
    {NubraCommon::Success, "Success", "the cloud answered with success"},
    {NubraCommon::Timeout, "Timeout", "no answer before the time-out"},
    {NubraCommon::NoManager, "NoManager", "the helper has no cloud client"},
    {NubraCommon::MissingField, "MissingField", "a field the request needs is missing"},
    {NubraCommon::UnknownInterface, "UnknownInterface", "no such request in the catalogue"},
    {NubraCommon::RequestRejected, "RequestRejected", "the cloud client refused to start the request"},
    {NubraCommon::ResponseFailed, "ResponseFailed", "the cloud answered with a failure"},
    {NubraCommon::TransportError, "TransportError", "the request failed on the way (network or protocol)"},
    {NubraCommon::SerializeFailed, "SerializeFailed", "nothing to protect, or the output file could not be written"},
    {NubraCommon::SubscribeFailed, "SubscribeFailed", "the subscription reported an error"},
    {NubraCommon::DownloadRunning, "DownloadRunning", "a package download is already running"},
    {NubraCommon::NoDownload, "NoDownload", "no package download to pause"},
    {NubraCommon::PackageExists, "PackageExists", "the package is already (partly) on disk"},
}};
static_assert(kCodes[NubraCommon::PackageExists].code == NubraCommon::PackageExists, "table out of step");
static_assert(kCodes[NubraCommon::TransportError].code == NubraCommon::TransportError, "table out of step");

} // namespace

QString name(int code)
{
    if (code < 0 || code >= int(kCodes.size()))
        return QStringLiteral("Unknown");
    return QString::fromLatin1(kCodes[std::size_t(code)].name);
}

QString meaning(int code)
{
    if (code < 0 || code >= int(kCodes.size()))
        return QStringLiteral("not a result code of the helper");
    return QString::fromLatin1(kCodes[std::size_t(code)].meaning);
}

} // namespace ResultCodes
