// SPDX-License-Identifier: MIT
#include "http/CurlTransfer.h"

#include "http/CurlErrorMap.h"
#include "http/CurlMultiDriver.h"

#include <QMetaMethod>

#include <algorithm>
#include <cstring>
#include <unordered_map>

namespace Nubra {

CurlTransfer::CurlTransfer(CurlMultiDriver* driver, QObject* parent)
    : QObject(parent)
    , m_driver(driver)
{
    if (driver) {
        m_easy = driver->takeEasyHandle();
    } else {
        m_easy = curl_easy_init();
        applyStandingOptions(m_easy, nullptr);
    }
    // This transfer's own: they go with curl_easy_reset() when the handle
    // returns to the pool, so a later callback can never reach this object.
    curl_easy_setopt(m_easy, CURLOPT_PRIVATE, this);
    curl_easy_setopt(m_easy, CURLOPT_ERRORBUFFER, m_errorBuffer);
    curl_easy_setopt(m_easy, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(m_easy, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(m_easy, CURLOPT_XFERINFODATA, this);
}

void CurlTransfer::applyStandingOptions(CURL* easy, CurlMultiDriver* driver)
{
    // Pooled handles are reset and come back here, rather than having each
    // request's options undone one by one: a list of options to undo must
    // mirror every setter, and the one it misses leaks a body, a proxy or a
    // CA file into the next request (an undone handle even kept the last
    // request's URL as its effective URL, against which the next redirect
    // was checked). Measured with bench_blocking, interleaved with the
    // undo list: about 5k instructions more per API call for the reset and
    // these options, no difference in calls per second beyond the
    // benchmark's noise (docs/http-client.md).
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_TCP_NODELAY, 1L);
    curl_easy_setopt(easy, CURLOPT_TCP_KEEPALIVE, 1L);
    // Only http and https, for the first request and for redirects: curl
    // would otherwise speak file, ftp, gopher and a dozen more to whatever a
    // URL from the cloud or a Location names. Redirects are bounded, checked
    // before they are followed (checkHeaderLine), and never carry credentials
    // to another host.
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 5L);
    curl_easy_setopt(easy, CURLOPT_UNRESTRICTED_AUTH, 0L);
    // curl's defaults, stated: the peer's chain and name are always checked
    // (a configured CA file only changes which roots are trusted).
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, 10000L);
    // No Accept-Encoding (curl's default, so not set): for the small JSON
    // answers of the API, compressing costs the server more than it saves
    // (measured against nubra-devcloud: brotli halves its rate, gzip takes a
    // third), files are compressed already, and the byte ranges of an
    // encoded body would not be ranges of the file a download resumes.
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "nubra/1.0");
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CurlTransfer::writeCallback);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &CurlTransfer::headerCallback);
    // curl calls the progress function many times per transfer; it is
    // switched on only when someone listens to progress (connectNotify) or
    // a stall limit needs it.
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &CurlTransfer::progressCallback);
    if (driver) {
        // Connections are opened and closed through the driver, so that
        // their sockets can stay watched between requests (see
        // CurlMultiDriver::unwatchSocket()).
        curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &CurlMultiDriver::openSocketCallback);
        curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, driver);
        curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &CurlMultiDriver::closeSocketCallback);
        curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, driver);
    }
}

void CurlTransfer::connectNotify(const QMetaMethod& signal)
{
    static const QMetaMethod progressSignal = QMetaMethod::fromSignal(&CurlTransfer::progress);
    if (signal == progressSignal) {
        m_progressWanted = true;
        curl_easy_setopt(m_easy, CURLOPT_NOPROGRESS, 0L);
    }
}

CurlTransfer::~CurlTransfer()
{
    cancel();
    // The handle forgets its options (and so the header list) before the
    // list is freed.
    if (m_driver)
        m_driver->returnEasyHandle(m_easy);
    else
        curl_easy_cleanup(m_easy);
    if (curl_slist* last = lastOwnHeader())
        last->next = nullptr;
    curl_slist_free_all(m_headers);
}

void CurlTransfer::setUrl(const QUrl& url) { setEncodedUrl(url.toEncoded()); }

void CurlTransfer::setEncodedUrl(const QByteArray& url)
{
    m_url = url;
    curl_easy_setopt(m_easy, CURLOPT_CURLU, nullptr); // it would win over CURLOPT_URL
    curl_easy_setopt(m_easy, CURLOPT_URL, m_url.constData());
}

namespace {

// Parsed URLs of the configured endpoints, per thread, for the life of the
// thread (a transfer may outlive the configuration that named its URL).
class ParsedUrls {
public:
    ~ParsedUrls()
    {
        for (auto& entry : m_urls)
            curl_url_cleanup(entry.second);
    }
    CURLU* get(const QByteArray& url)
    {
        const auto found = m_urls.find(url);
        if (found != m_urls.end())
            return found->second;
        constexpr size_t kMaxUrls = 512; // far more endpoints than any configuration has
        if (m_urls.size() >= kMaxUrls)
            return nullptr;
        CURLU* parsed = curl_url();
        if (curl_url_set(parsed, CURLUPART_URL, url.constData(), 0) != CURLUE_OK) {
            curl_url_cleanup(parsed);
            return nullptr;
        }
        m_urls.emplace(url, parsed);
        return parsed;
    }

private:
    std::unordered_map<QByteArray, CURLU*> m_urls;
};

} // namespace

void CurlTransfer::setEndpointUrl(const QByteArray& url)
{
    // curl parses the URL of every transfer anew; for the few fixed
    // endpoints of a configuration it can start from a parsed copy.
    static thread_local ParsedUrls parsed;
    m_url = url;
    if (CURLU* handle = parsed.get(url))
        curl_easy_setopt(m_easy, CURLOPT_CURLU, handle);
    else
        curl_easy_setopt(m_easy, CURLOPT_URL, m_url.constData());
}

void CurlTransfer::setMethod(const QByteArray& method)
{
    m_method = method;
    if (method == "GET") {
        curl_easy_setopt(m_easy, CURLOPT_HTTPGET, 1L);
    } else if (method == "POST") {
        curl_easy_setopt(m_easy, CURLOPT_POST, 1L);
    } else if (method == "PUT") {
        curl_easy_setopt(m_easy, CURLOPT_UPLOAD, 1L);
        // An upload reads its body through the read callback, which
        // defaults to reading stdin: serve an in-memory body from there.
        if (!m_source && !m_body.isNull())
            readBodyFromMemory();
    } else {
        curl_easy_setopt(m_easy, CURLOPT_CUSTOMREQUEST, method.constData());
    }
}

void CurlTransfer::addHeader(const QByteArray& name, const QByteArray& value)
{
    // "Name;" is curl's way to send a header with an empty value.
    const QByteArray line = value.isEmpty() ? name + ';' : name + ": " + value;
    m_headers = curl_slist_append(m_headers, line.constData());
}

void CurlTransfer::setSharedHeaders(curl_slist* list) { m_sharedHeaders = list; }

curl_slist* CurlTransfer::lastOwnHeader() const
{
    curl_slist* last = m_headers;
    while (last && last->next && last->next != m_sharedHeaders)
        last = last->next;
    return last;
}

void CurlTransfer::applyHeaders()
{
    // The shared list is linked behind our own nodes only while curl may
    // read it: curl_slist_append() would otherwise append to it, and
    // curl_slist_free_all() free it.
    if (curl_slist* last = lastOwnHeader())
        last->next = m_sharedHeaders;
    curl_easy_setopt(m_easy, CURLOPT_HTTPHEADER, m_headers ? m_headers : m_sharedHeaders);
}

void CurlTransfer::setBody(const QByteArray& body)
{
    m_body = body;
    if (m_body.isNull())
        m_body = QByteArray(""); // empty, but marked as given
    if (m_method == "PUT") {
        readBodyFromMemory();
        return;
    }
    curl_easy_setopt(m_easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(m_body.size()));
    curl_easy_setopt(m_easy, CURLOPT_POSTFIELDS, m_body.constData());
}

void CurlTransfer::readBodyFromMemory()
{
    m_bodyOffset = 0;
    setBodySource(
        [this](char* buffer, size_t size) {
            const size_t left = size_t(m_body.size()) - m_bodyOffset;
            const size_t count = std::min(size, left);
            std::memcpy(buffer, m_body.constData() + m_bodyOffset, count);
            m_bodyOffset += count;
            return count;
        },
        m_body.size());
}

void CurlTransfer::setBodySource(BodySource source, qint64 size)
{
    m_source = std::move(source);
    curl_easy_setopt(m_easy, CURLOPT_READFUNCTION, &CurlTransfer::readCallback);
    curl_easy_setopt(m_easy, CURLOPT_READDATA, this);
    curl_easy_setopt(m_easy, CURLOPT_POSTFIELDSIZE_LARGE, curl_off_t(size));
    curl_easy_setopt(m_easy, CURLOPT_INFILESIZE_LARGE, curl_off_t(size));
    curl_easy_setopt(m_easy, CURLOPT_UPLOAD_BUFFERSIZE, 512L * 1024L);
}

void CurlTransfer::setBodySink(BodySink sink) { m_sink = std::move(sink); }

void CurlTransfer::setTimeoutMs(int ms) { curl_easy_setopt(m_easy, CURLOPT_TIMEOUT_MS, long(ms > 0 ? ms : 0)); }

void CurlTransfer::setStallLimit(int seconds, qint64 minBytesPerSecond)
{
    const long limit = seconds > 0 ? long(qMax<qint64>(1, minBytesPerSecond)) : 0L;
    m_stall.configure(qint64(qMax(0, seconds)) * 1000, limit);
    // curl's own check stays on as a second line: with it set, curl wakes
    // the transfer every second even when no byte arrives, which is what
    // lets the progress function (and so m_stall) see a silent peer.
    curl_easy_setopt(m_easy, CURLOPT_LOW_SPEED_LIMIT, limit);
    curl_easy_setopt(m_easy, CURLOPT_LOW_SPEED_TIME, long(seconds > 0 ? seconds : 0));
    if (seconds > 0)
        curl_easy_setopt(m_easy, CURLOPT_NOPROGRESS, 0L);
}

void CurlTransfer::setMaxAnswerBytes(qint64 bytes)
{
    curl_easy_setopt(m_easy, CURLOPT_MAXFILESIZE_LARGE, curl_off_t(bytes > 0 ? bytes : 0));
}

void CurlTransfer::setResumeFrom(qint64 offset)
{
    curl_easy_setopt(m_easy, CURLOPT_RESUME_FROM_LARGE, curl_off_t(offset));
}

void CurlTransfer::setCaFile(const QString& path)
{
    if (path.isEmpty())
        return;
    m_caFile = path.toLocal8Bit();
    curl_easy_setopt(m_easy, CURLOPT_CAINFO, m_caFile.constData());
}

void CurlTransfer::setProxy(const QString& proxy)
{
    // Without a configured proxy curl follows the environment
    // (http_proxy, https_proxy, no_proxy), which is the system's setting.
    if (proxy.isEmpty())
        return;
    m_proxy = proxy.toUtf8();
    curl_easy_setopt(m_easy, CURLOPT_PROXY, m_proxy.constData());
}

void CurlTransfer::setDirect()
{
    // An empty proxy string is curl's "no proxy"; an empty exception list
    // keeps it from reading no_proxy as well.
    curl_easy_setopt(m_easy, CURLOPT_PROXY, "");
    curl_easy_setopt(m_easy, CURLOPT_NOPROXY, "");
}

void CurlTransfer::setMaxReceiveSpeed(qint64 bytesPerSecond)
{
    curl_easy_setopt(m_easy, CURLOPT_MAX_RECV_SPEED_LARGE, curl_off_t(bytesPerSecond));
}

void CurlTransfer::setReceiveBufferSize(long bytes) { curl_easy_setopt(m_easy, CURLOPT_BUFFERSIZE, bytes); }

bool CurlTransfer::start()
{
    if (m_running || !m_driver)
        return false;
    m_refusal = {Error::NoError, QString()};
    m_headStatus = 0;
    m_stall.reset();
    m_clock.start();
    m_progressClock.start();
    applyHeaders();
    m_running = m_driver->add(this);
    return m_running;
}

void CurlTransfer::cancel()
{
    if (!m_running)
        return;
    m_running = false;
    if (m_driver)
        m_driver->remove(this);
}

long CurlTransfer::httpStatus() const
{
    long code = 0;
    curl_easy_getinfo(m_easy, CURLINFO_RESPONSE_CODE, &code);
    return code;
}

qint64 CurlTransfer::contentLength() const
{
    curl_off_t length = -1;
    curl_easy_getinfo(m_easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    return qint64(length);
}

QByteArray CurlTransfer::responseHeader(const QByteArray& name) const
{
    // Parsed on demand: most transfers never ask. The last one wins.
    const QByteArray wanted = name.toLower();
    const QList<QByteArray> lines = m_responseHeaders.split('\n');
    for (auto it = lines.crbegin(); it != lines.crend(); ++it) {
        const int colon = it->indexOf(':');
        if (colon > 0 && it->left(colon).trimmed().toLower() == wanted)
            return it->mid(colon + 1).trimmed();
    }
    return {};
}

void CurlTransfer::complete(CURLcode result)
{
    m_running = false;
    if (result == CURLE_PEER_FAILED_VERIFICATION || result == CURLE_SSL_CACERT_BADFILE) {
        long verify = 0;
        curl_easy_getinfo(m_easy, CURLINFO_SSL_VERIFYRESULT, &verify);
        m_sslErrors = sslErrorsFor(result, verify, curlErrorText());
    }
    if (m_progressWanted) {
        // A receiver of the final progress may delete the transfer.
        const QPointer<CurlTransfer> self(this);
        emitProgress(true);
        if (!self)
            return;
    }
    if (m_completionHandler) {
        // A copy: the handler may delete this transfer (its owner's reply
        // can be deleted by whoever hears it finish).
        const CompletionHandler handler = m_completionHandler;
        handler(int(result));
    } else
        emit completed(int(result));
}

CurlTransfer::Failure CurlTransfer::failure(int curlCode) const
{
    if (m_refusal.code != Error::NoError)
        return m_refusal;
    const Error::ErrorCode code = errorForCurl(CURLcode(curlCode));
    const QString text = curlErrorText();
    return {code, text.isEmpty() ? Error::describe(code) : text};
}

void CurlTransfer::setCompletionHandler(CompletionHandler handler) { m_completionHandler = std::move(handler); }

size_t CurlTransfer::writeCallback(char* data, size_t size, size_t count, void* self)
{
    auto* transfer = static_cast<CurlTransfer*>(self);
    const size_t bytes = size * count;
    if (transfer->m_sink && !transfer->m_sink(data, bytes))
        return 0; // makes curl fail with CURLE_WRITE_ERROR
    return bytes;
}

size_t CurlTransfer::readCallback(char* buffer, size_t size, size_t count, void* self)
{
    auto* transfer = static_cast<CurlTransfer*>(self);
    if (!transfer->m_source)
        return 0;
    return transfer->m_source(buffer, size * count);
}

size_t CurlTransfer::headerCallback(char* data, size_t size, size_t count, void* self)
{
    auto* transfer = static_cast<CurlTransfer*>(self);
    const size_t bytes = size * count;
    if (bytes >= 5 && std::memcmp(data, "HTTP/", 5) == 0) {
        transfer->m_responseHeaders.clear(); // a new response (redirect, 100-continue)
        // "HTTP/1.1 302 Found": the code follows the first space.
        const QByteArray line(data, int(bytes));
        transfer->m_headStatus = line.mid(line.indexOf(' ') + 1, 3).toLong();
    } else if (bytes > 2) {
        transfer->m_responseHeaders.append(data, int(bytes));
        if (!transfer->checkHeaderLine(data, bytes))
            return 0; // curl fails with CURLE_WRITE_ERROR; failure() says why
    }
    return bytes;
}

bool CurlTransfer::checkHeaderLine(const char* data, size_t size)
{
    // curl follows the Location of a 3xx answer once the answer is read;
    // this runs before, while the header line goes by.
    if (m_headStatus < 300 || m_headStatus > 399 || size < 9 || qstrnicmp(data, "location:", 9) != 0)
        return true;
    char* current = nullptr;
    curl_easy_getinfo(m_easy, CURLINFO_EFFECTIVE_URL, &current);
    const RedirectRefusal refusal = checkRedirect(m_redirectPolicy, m_url, current ? QByteArray(current) : m_url,
                                                  QByteArray(data + 9, int(size - 9)));
    if (refusal.code == Error::NoError)
        return true;
    m_refusal = {refusal.code, refusal.message};
    return false;
}

int CurlTransfer::progressCallback(void* self, curl_off_t dlTotal, curl_off_t dlNow, curl_off_t ulTotal,
                                   curl_off_t ulNow)
{
    auto* transfer = static_cast<CurlTransfer*>(self);
    if (transfer->m_stall.isEnabled() && transfer->m_stall.update(transfer->m_clock.elapsed(), dlNow + ulNow)) {
        transfer->m_refusal = {Error::TimedOut,
                               QStringLiteral("transfer too slow: less than %1 bytes/s for %2 s")
                                   .arg(transfer->m_stall.minBytesPerSecond())
                                   .arg(transfer->m_stall.windowMs() / 1000.0)};
        return 1; // CURLE_ABORTED_BY_CALLBACK
    }
    transfer->m_received = dlNow;
    transfer->m_receiveTotal = dlTotal;
    transfer->m_sent = ulNow;
    transfer->m_sendTotal = ulTotal;
    // Never emit from inside curl: a receiver could cancel or delete the
    // transfer, which libcurl forbids from its callbacks. Emit on the next
    // loop turn instead, at most one pending emission at a time.
    if (transfer->m_progressWanted && !transfer->m_progressPending && transfer->m_progressClock.elapsed() >= 50) {
        transfer->m_progressPending = true;
        QMetaObject::invokeMethod(
            transfer,
            [transfer] {
                transfer->m_progressPending = false;
                transfer->emitProgress(false);
            },
            Qt::QueuedConnection);
    }
    return 0;
}

void CurlTransfer::emitProgress(bool force)
{
    const qint64 now[4] = {m_received, m_receiveTotal, m_sent, m_sendTotal};
    if (std::equal(std::begin(now), std::end(now), std::begin(m_reported)))
        return;
    if (!force && m_progressClock.elapsed() < 50)
        return;
    std::copy(std::begin(now), std::end(now), std::begin(m_reported));
    m_progressClock.restart();
    emit progress(m_received, m_receiveTotal, m_sent, m_sendTotal);
}

} // namespace Nubra
