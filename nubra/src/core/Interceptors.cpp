// SPDX-License-Identifier: MIT
#include "core/Interceptors.h"

#include "core/Service.h"

#include <QList>
#include <QMutex>
#include <QString>

namespace Nubra {

namespace {
QMutex g_mutex;
QList<Service*>& interceptors()
{
    static QList<Service*> list;
    return list;
}
} // namespace

void installInterceptor(Service* service)
{
    QMutexLocker lock(&g_mutex);
    interceptors().prepend(service);
}

void removeInterceptor(Service* service)
{
    QMutexLocker lock(&g_mutex);
    interceptors().removeAll(service);
}

Service* interceptorFor(const QString& name)
{
    QMutexLocker lock(&g_mutex);
    for (Service* s : interceptors())
        if (s->handles(name))
            return s;
    return nullptr;
}

} // namespace Nubra
