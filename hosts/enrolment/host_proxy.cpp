#include "hosts/enrolment/host_proxy.h"

#include "hosts/enrolment/enrolment_error.h"
#include "hosts/texts/language.h"
#include "hosts/texts/printable.h"

#include <QUrl>

#include <openssl/crypto.h>

namespace enrolment {

using texts::printable;
using texts::Text;

namespace {

constexpr int highestPort = 65535;

std::shared_ptr<const Secret> secretOf(const QString& text)
{
    QByteArray utf8 = text.toUtf8();
    std::vector<char> bytes(utf8.begin(), utf8.end());
    OPENSSL_cleanse(utf8.data(), static_cast<std::size_t>(utf8.size()));
    return std::make_shared<const Secret>(std::move(bytes));
}

}  // namespace

HostProxy hostProxy(const QString& name, const QString& port, const QString& user,
                    const QString& password)
{
    if (name.isEmpty()) {
        return {};
    }
    bool isNumber = false;
    const int number = port.toInt(&isNumber);
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(name, QUrl::StrictMode);
    if (url.host().isEmpty() || !isNumber || number < 1 || number > highestPort) {
        throw EnrolmentError(
            Cause::misconfigured,
            Text("Il proxy \"%1\" con la porta \"%2\" non può essere usato.",
                 R"(The proxy "%1" with the port "%2" cannot be used.)")
                .arg(printable(name), printable(port)),
            Text("Indicare il nome o l'indirizzo del proxy e una porta da 1 a 65535.",
                 "Give the proxy's name or address and a port from 1 to 65535."));
    }
    url.setPort(number);
    HostProxy proxy;
    proxy.address = QString::fromLatin1(url.toEncoded());
    if (!user.isEmpty()) {
        proxy.user = user;
        proxy.password = secretOf(password);
    }
    return proxy;
}

}  // namespace enrolment
