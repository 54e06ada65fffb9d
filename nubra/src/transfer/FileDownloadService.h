// SPDX-License-Identifier: MIT
#pragma once

#include "core/Service.h"

#include <QString>

namespace Nubra {

// "startDownload": fetches the file at record "urls" (one URL as a string)
// into record "path". "path" names the destination file; when it is an
// existing folder or ends with '/', the file keeps the URL's last path
// segment inside that folder. See docs/downloads.md.
class FileDownloadService : public Service {
public:
    explicit FileDownloadService(const ClientContext& context);

    bool handles(const QString& name) const override;
    Reply* start(const RequestContext& request) override;

    // The destination file for a URL and a "path" as described above; empty
    // when no file name can be made.
    static QString destinationFor(const QUrl& url, const QString& path);

private:
    ClientContext m_context;
};

} // namespace Nubra
