// SPDX-License-Identifier: MIT
// Links the installed helper and makes one real call (NUBRA_CONFIG names
// the cloud). Built by the packaging tests with CMake and with pkg-config.
#include <VornNubraHelper.h>

#include <QCoreApplication>

#include <cstdio>

static_assert(VORN_NUBRA_HELPER_VERSION >= VORN_NUBRA_HELPER_VERSION_CHECK(1, 0, 0),
              "the version header is installed and names this version");

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    if (!helper)
        return 1;
    QVariantMap result;
    const int unknown = helper->post(NubraCommon::Interface(7), {}, result, {}, 1000);
    const int code = helper->post(NubraCommon::Interface::FetchCountries, {}, result, {}, 10000);
    std::printf("VornNubraHelper %s\nunknown interface: %d\nfetchCountries: %d (%d countries)\n",
                VORN_NUBRA_HELPER_VERSION_STRING, unknown, code, result.value("total").toInt());
    return unknown == NubraCommon::UnknownInterface && code == NubraCommon::Success ? 0 : 2;
}
