// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QUrl>

namespace Nubra {

// One file waiting in the cloud-disk upload queue.
struct UploadItem {
    QString path;        // local file, absolute
    QString name;        // file name on the server
    qint64 size = 0;     // bytes, taken when the file was queued
    QUrl baseUrl;        // server chosen by the queuing request's region
    QString uploadToken; // from "sdkDynamicEncodeToken"; names the target space
    qint64 spaceId = -1; // the space the caller expects; -1: the token's space
};

} // namespace Nubra
