#include "descriptor.h"

#include <QDate>
#include <QStringList>

#include <algorithm>

namespace support {

namespace {

std::string commonFields(const Descriptor& descriptor)
{
    std::string text;
    for (const std::string* field :
         {&descriptor.subject, &descriptor.issuer, &descriptor.iut, &descriptor.policy,
          &descriptor.serial, &descriptor.notBefore, &descriptor.notAfter, &descriptor.ckaId})
        text += *field + "#";
    return text;
}

}  // namespace

std::string authenticationText(const Descriptor& descriptor)
{
    return commonFields(descriptor) + descriptor.pending + "#" + descriptor.fiscalCode;
}

std::string signatureText(const Descriptor& descriptor)
{
    return commonFields(descriptor) + descriptor.explicitText + "#" + descriptor.pending + "#" +
           descriptor.fiscalCode;
}

std::string firstFields(const std::string& text, int count)
{
    return QString::fromStdString(text)
        .split(QLatin1Char('#'))
        .mid(0, count)
        .join(QLatin1Char('#'))
        .toStdString();
}

std::string inDays(int days)
{
    return QDate::currentDate()
        .addDays(days)
        .toString(QStringLiteral("yyyyMMdd000000"))
        .toStdString();
}

std::string renewalIdentifier(const std::string& fiscalCode, const std::string& iut,
                              const std::string& pendingKey, const std::string& serial)
{
    std::string keyWithoutColons = pendingKey;
    keyWithoutColons.erase(std::remove(keyWithoutColons.begin(), keyWithoutColons.end(), ':'),
                           keyWithoutColons.end());
    return fiscalCode + ":" + iut + ":" + keyWithoutColons + ":" + serial;
}

PlainRecord certificateRecord(const Descriptor& descriptor, const std::string& fiscalCode)
{
    return {{"subjectDN", descriptor.subject},
            {"issuerDN", descriptor.issuer},
            {"iut", descriptor.iut},
            {"policy", descriptor.policy},
            {"serialCert", descriptor.serial},
            {"notBefore", descriptor.notBefore},
            {"notAfter", descriptor.notAfter},
            {"Ckaidcert", descriptor.ckaId},
            {"pendingKey", descriptor.pending},
            {"fiscalCode", fiscalCode},
            {"RENEW_CERTID",
             renewalIdentifier(fiscalCode, descriptor.iut, descriptor.pending, descriptor.serial)}};
}

}  // namespace support
