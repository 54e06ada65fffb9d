// Links the installed helper and makes one real call (NUBRA_CONFIG names
// the cloud).
#include <VornNubraHelper.h>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    VornNubraHelper* helper = VornNubraHelper::getInstance();
    if (!helper)
        return 1;
    QVariantMap result;
    const int unknown = helper->post(NubraCommon::Interface(7), {}, result, {}, 1000);
    const int code = helper->post(NubraCommon::Interface::FetchCountries, {}, result, {}, 10000);
    std::printf("unknown interface: %d\nfetchCountries: %d (%d countries)\n", unknown, code,
                result.value("total").toInt());
    return unknown == NubraCommon::UnknownInterface && code == NubraCommon::Success ? 0 : 2;
}
