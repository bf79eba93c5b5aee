#include "hosts/enrolment/http_exchange.h"

#include "hosts/enrolment/configured_file.h"
#include "hosts/enrolment/enrolment_error.h"
#include "hosts/enrolment/transfer_failure.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <curl/curl.h>
#include <malloc.h>
#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t largestBody = 1048576;
constexpr std::size_t largestHeaders = 65536;
constexpr std::chrono::seconds longestRetryAfter = std::chrono::hours(24 * 30);

// libcurl keeps copies of passwords, plain and encoded, and releases them as they are. So its
// memory is wiped as it is released.
void wipeAndRelease(void* memory)
{
    if (memory != nullptr) {
        OPENSSL_cleanse(memory, ::malloc_usable_size(memory));
        std::free(memory);
    }
}

void* wipeAndResize(void* memory, std::size_t size)
{
    if (memory == nullptr) {
        return std::malloc(size);
    }
    void* larger = std::malloc(size);
    if (larger != nullptr) {
        std::memcpy(larger, memory, std::min(size, ::malloc_usable_size(memory)));
        wipeAndRelease(memory);
    }
    return larger;
}

void startLibcurl()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (curl_global_init_mem(CURL_GLOBAL_DEFAULT, &std::malloc, &wipeAndRelease, &wipeAndResize,
                                 &::strdup, &std::calloc) != CURLE_OK) {
            throw EnrolmentError(Cause::unreachable, Text("La biblioteca di rete non si avvia.",
                                                          "The network library does not start."));
        }
    });
}

struct Release {
    void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

// What has come of an answer so far. The callbacks end the transfer by taking fewer bytes than
// they were given.
struct Incoming {
    QByteArray body;
    std::size_t headerBytes = 0;
    // libcurl takes a connection that ends among the headers for the end of them.
    bool hasAllHeaders = false;
    bool isTooLarge = false;
};

std::size_t takeBody(char* bytes, std::size_t one, std::size_t count, void* incoming)
{
    auto& into = *static_cast<Incoming*>(incoming);
    const std::size_t size = one * count;
    if (static_cast<std::size_t>(into.body.size()) + size > largestBody) {
        into.isTooLarge = true;
        return 0;
    }
    into.body.append(bytes, static_cast<int>(size));
    return size;
}

std::size_t takeHeader(char* bytes, std::size_t one, std::size_t count, void* incoming)
{
    auto& into = *static_cast<Incoming*>(incoming);
    const auto line = QByteArray::fromRawData(bytes, static_cast<int>(one * count));
    into.hasAllHeaders = line == "\r\n" || line == "\n";
    into.headerBytes += one * count;
    into.isTooLarge = into.headerBytes > largestHeaders;
    return into.isTooLarge ? 0 : one * count;
}

// The files of the settings, read once, before anything is sent.
struct Credentials {
    explicit Credentials(const HttpSettings& settings)
    {
        if (!settings.anchorsFile.isEmpty()) {
            anchors = contentOf(settings.anchorsFile);
        }
        if (!settings.user.isEmpty()) {
            password = passwordIn(settings.passwordFile);
        }
        if (!settings.clientCertificateFile.isEmpty()) {
            certificate = contentOf(settings.clientCertificateFile);
            key = secretIn(settings.clientKeyFile);
        }
        if (!settings.clientKeyPasswordFile.isEmpty()) {
            keyPassword = passwordIn(settings.clientKeyPasswordFile);
        }
    }

    QByteArray anchors;
    QByteArray certificate;
    Secret password;
    Secret key;
    Secret keyPassword;
};

// One attempt: a libcurl handle with every option that matters set.
class Transfer {
public:
    Transfer(const HttpRequest& request, const HttpSettings& settings,
             const Credentials& credentials, milliseconds time)
        : m_handle(curl_easy_init())
    {
        if (m_handle == nullptr) {
            throw std::bad_alloc();
        }
        set(CURLOPT_ERRORBUFFER, m_complaint.data());
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_URL, request.url.toEncoded().constData());
        set(CURLOPT_PROTOCOLS_STR, "http,https");
        set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        set(CURLOPT_FOLLOWLOCATION, 0L);
        set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(settings.connectTime.count()));
        set(CURLOPT_TIMEOUT_MS, static_cast<long>(time.count()));
        set(CURLOPT_MAXFILESIZE, static_cast<long>(largestBody));
        set(CURLOPT_WRITEFUNCTION, &takeBody);
        set(CURLOPT_WRITEDATA, &m_incoming);
        set(CURLOPT_HEADERFUNCTION, &takeHeader);
        set(CURLOPT_HEADERDATA, &m_incoming);
        trust(credentials);
        identify(settings, credentials);
        goThrough(settings.proxy);
        if (request.method == HttpRequest::Method::post) {
            fill(request);
        }
    }

    CURLcode run()
    {
        const CURLcode code = curl_easy_perform(m_handle.get());
        return code == CURLE_OK && !m_incoming.hasAllHeaders ? CURLE_PARTIAL_FILE : code;
    }

    // Of this machine's request, nothing; then the server cannot have acted on it.
    bool sentNothing() const { return number(CURLINFO_REQUEST_SIZE) == 0; }
    bool receivedSomething() const { return m_incoming.headerBytes > 0; }
    bool isTooLarge() const { return m_incoming.isTooLarge; }
    long verification() const { return number(CURLINFO_SSL_VERIFYRESULT); }
    QString complaint() const { return QString::fromLocal8Bit(m_complaint.data()); }
    int status() const { return static_cast<int>(number(CURLINFO_RESPONSE_CODE)); }

    QString redirect() const
    {
        const char* url = nullptr;
        curl_easy_getinfo(m_handle.get(), CURLINFO_REDIRECT_URL, &url);
        return QString::fromUtf8(url);
    }

    HttpAnswer answer()
    {
        HttpAnswer result;
        result.status = status();
        const char* type = nullptr;
        curl_easy_getinfo(m_handle.get(), CURLINFO_CONTENT_TYPE, &type);
        result.contentType = QByteArray(type).split(';').first().trimmed().toLower();
        result.body = m_incoming.body;
        curl_off_t seconds = 0;
        curl_easy_getinfo(m_handle.get(), CURLINFO_RETRY_AFTER, &seconds);
        if (seconds > 0) {
            result.retryAfter = std::min(std::chrono::seconds(seconds), longestRetryAfter);
        }
        return result;
    }

private:
    template <typename Value>
    void set(CURLoption option, Value value)
    {
        const CURLcode code = curl_easy_setopt(m_handle.get(), option, value);
        if (code == CURLE_OUT_OF_MEMORY) {
            throw std::bad_alloc();
        }
        // A library built without an option that protects must not go on without it.
        if (code != CURLE_OK) {
            throw EnrolmentError(Cause::misconfigured,
                                 Text("La biblioteca di rete non accetta un'impostazione: %1.",
                                      "The network library does not take a setting: %1.")
                                     .arg(QString::fromLatin1(curl_easy_strerror(code))));
        }
    }

    // The bytes must outlive the transfer.
    void setBlob(CURLoption option, const char* bytes, std::size_t size)
    {
        curl_blob blob{};
        blob.data = const_cast<char*>(bytes);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
        blob.len = size;
        blob.flags = CURL_BLOB_NOCOPY;
        set(option, &blob);
    }

    long number(CURLINFO info) const
    {
        long value = 0;
        curl_easy_getinfo(m_handle.get(), info, &value);
        return value;
    }

    void trust(const Credentials& credentials)
    {
        set(CURLOPT_SSL_VERIFYPEER, 1L);
        set(CURLOPT_SSL_VERIFYHOST, 2L);
        set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
        if (!credentials.anchors.isEmpty()) {
            setBlob(CURLOPT_CAINFO_BLOB, credentials.anchors.constData(),
                    static_cast<std::size_t>(credentials.anchors.size()));
            // Else the system's folder of anchors would count as well.
            set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
        }
    }

    void identify(const HttpSettings& settings, const Credentials& credentials)
    {
        if (!settings.user.isEmpty()) {
            set(CURLOPT_HTTPAUTH,
                static_cast<long>(settings.login == HttpLogin::digest ? CURLAUTH_DIGEST
                                                                      : CURLAUTH_BASIC));
            set(CURLOPT_USERNAME, settings.user.toUtf8().constData());
            set(CURLOPT_PASSWORD, credentials.password.data());
        }
        if (!credentials.certificate.isEmpty()) {
            setBlob(CURLOPT_SSLCERT_BLOB, credentials.certificate.constData(),
                    static_cast<std::size_t>(credentials.certificate.size()));
            setBlob(CURLOPT_SSLKEY_BLOB, credentials.key.data(), credentials.key.size());
            // Also when it is empty: else OpenSSL asks for it on the terminal.
            set(CURLOPT_KEYPASSWD, credentials.keyPassword.data());
        }
    }

    void goThrough(const HostProxy& proxy)
    {
        if (!proxy.address.isEmpty()) {
            set(CURLOPT_PROXY, proxy.address.toUtf8().constData());
        }
        if (proxy.password != nullptr) {
            set(CURLOPT_PROXYAUTH, static_cast<long>(CURLAUTH_BASIC | CURLAUTH_DIGEST));
            set(CURLOPT_PROXYUSERNAME, proxy.user.toUtf8().constData());
            set(CURLOPT_PROXYPASSWORD, proxy.password->data());
        }
    }

    void fill(const HttpRequest& request)
    {
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE, static_cast<long>(request.body.size()));
        set(CURLOPT_POSTFIELDS, request.body.constData());
        addHeader("Content-Type: " + request.contentType);
        if (!request.contentTransferEncoding.isEmpty()) {
            addHeader("Content-Transfer-Encoding: " + request.contentTransferEncoding);
        }
        // Requests are small; waiting for permission to send them only costs time.
        addHeader("Expect:");
        // There is no second request on this connection. A server that expects one takes its end
        // for that of a transaction that goes on elsewhere.
        addHeader("Connection: close");
        set(CURLOPT_HTTPHEADER, m_headers.get());
    }

    void addHeader(const QByteArray& line)
    {
        curl_slist* longer = curl_slist_append(m_headers.get(), line.constData());
        if (longer == nullptr) {
            throw std::bad_alloc();
        }
        static_cast<void>(m_headers.release());
        m_headers.reset(longer);
    }

    std::unique_ptr<curl_slist, Release> m_headers;
    std::array<char, CURL_ERROR_SIZE> m_complaint{};
    Incoming m_incoming;
    // Last, so that it goes first: it refers to the others.
    std::unique_ptr<CURL, Release> m_handle;
};

bool mayRepeat(CURLcode code, HttpRequest::Method method, const Transfer& transfer)
{
    switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_CONNECT:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_PARTIAL_FILE:
        return method == HttpRequest::Method::get || transfer.sentNothing();
    default:
        return false;
    }
}

void requireProtectedLogin(const HttpRequest& request, const HttpSettings& settings)
{
    const bool hasLogin = !settings.user.isEmpty() || !settings.clientCertificateFile.isEmpty();
    if (hasLogin && request.url.scheme() != QLatin1String("https")) {
        throw EnrolmentError(
            Cause::misconfigured,
            Text("Un accesso con password o certificato vuole un indirizzo https://.",
                 "A login by password or certificate needs an https:// address."));
    }
}

[[noreturn]] void failRedirected(const QUrl& asked, const QString& target)
{
    throw EnrolmentError(
        Cause::badAnswer,
        Text("Il server %1 rimanda altrove (%2); i rimandi non vengono seguiti.",
             "The server %1 redirects elsewhere (%2); redirects are not followed.")
            .arg(asked.host(), printable(target.left(200))),
        Text("Se l'autorità conferma il nuovo indirizzo, metterlo nella configurazione.",
             "If the authority confirms the new address, put it into the configuration."));
}

}  // namespace

HttpAnswer exchange(const HttpRequest& request, const HttpSettings& settings)
{
    startLibcurl();
    requireProtectedLogin(request, settings);
    const Credentials credentials(settings);
    const Clock::time_point end = Clock::now() + settings.totalTime;
    for (bool isLast = false;; isLast = true) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
        // Zero would mean "no limit".
        Transfer transfer(request, settings, credentials, std::max(left, milliseconds(1)));
        const CURLcode code = transfer.run();
        if (code == CURLE_OK && transfer.status() / 100 == 3) {
            failRedirected(request.url, transfer.redirect());
        }
        if (code == CURLE_OK) {
            return transfer.answer();
        }
        const bool hasTime = Clock::now() + settings.pauseBeforeRepeat < end;
        if (isLast || !hasTime || !mayRepeat(code, request.method, transfer)) {
            failTransfer({code, request.url, transfer.receivedSomething(), transfer.sentNothing(),
                          transfer.isTooLarge(), transfer.verification(), transfer.complaint()});
        }
        std::this_thread::sleep_for(settings.pauseBeforeRepeat);
    }
}

}  // namespace enrolment
