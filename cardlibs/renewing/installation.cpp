#include "cardlibs/renewing/installation.h"

#include "cardlibs/renewing/issued_checks.h"
#include "cardlibs/renewing/key_signer.h"
#include "cardlibs/renewing/removal.h"
#include "cardlibs/state/card_error.h"

namespace cardlibs::renewing {
namespace {

using contents::CardContents;
using contents::CertificateObject;
using contents::KeyObject;
using state::CardError;
namespace fault = state::fault;

CK_OBJECT_HANDLE writeCertificate(token::Session& session, const x509::Certificate& certificate,
                                  const KeyObject& key)
{
    token::Template object;
    object.number(CKA_CLASS, CKO_CERTIFICATE)
        .number(CKA_CERTIFICATE_TYPE, CKC_X_509)
        .flag(CKA_TOKEN, true)
        .flag(CKA_PRIVATE, false)
        .text(CKA_LABEL, key.label)
        .bytes(CKA_ID, key.id)
        .bytes(CKA_SUBJECT, certificate.subject())
        .bytes(CKA_ISSUER, certificate.issuer())
        .bytes(CKA_SERIAL_NUMBER, certificate.serialNumberDer())
        .bytes(CKA_VALUE, certificate.der());
    return session.create(object);
}

void checkWritten(token::Session& session, CK_OBJECT_HANDLE handle,
                  const x509::Certificate& certificate)
{
    const token::Attributes written = session.read(handle, {CKA_VALUE});
    const auto stored = x509::Certificate::parseStored(written.bytes(CKA_VALUE));
    if (!stored || stored->der() != certificate.der())
        throw CardError(fault::writtenDiffers);
}

// A certificate that cannot be relied on must not stand in for the one it replaces.
void takeBack(token::Session& session, CK_OBJECT_HANDLE handle)
{
    try {
        session.destroy(handle);
    } catch (const CardError&) {
        // The failure that led here is the one to report; the next installation finds the object.
        return;
    }
}

// A certificate that an interrupted installation wrote is on trial still, as long as the one that
// it replaces has its key.
void proveStored(token::Session& session, const CardContents& contents, const Target& target,
                 const CertificateObject& replaced, const KeyProof& prove)
{
    try {
        prove(*target.privateKey);
    } catch (const CardError& error) {
        if (error.number() == fault::keyDoesNotSign &&
            contents.certifiedPair(replaced.certificate) != nullptr)
            for (const CertificateObject& copy : contents.objects().certificates)
                if (copy.certificate.digest() == target.issued->digest())
                    takeBack(session, copy.handle);
        throw;
    }
}

}  // namespace

void install(token::Session& session, const readers::CardPlace& place,
             const InstallationOrder& order, const char* pin, std::time_t now)
{
    const CardContents contents(contents::readObjects(session));
    const Target target = chooseTarget(contents, order);
    const CertificateObject* replaced = replacedBy(contents, target, order);
    const bool isStored = target.pending == nullptr;
    if (isStored && replaced == nullptr)
        return;
    if (!isStored)
        checkIssued(*target.issued, target, replaced, place, order, now);
    const std::vector<CK_MECHANISM_TYPE> mechanisms = place.module->mechanisms(place.slot);
    const auto prove = [&](const KeyObject& key) {
        KeySigner(session, {key.handle, *key.publicKey, key.wantsPinEachTime}, mechanisms, pin)
            .prove();
    };
    if (isStored) {
        proveStored(session, contents, target, *replaced, prove);
    } else {
        const CK_OBJECT_HANDLE written =
            writeCertificate(session, *target.issued, *target.privateKey);
        try {
            checkWritten(session, written, *target.issued);
            prove(*target.privateKey);
        } catch (const CardError&) {
            takeBack(session, written);
            throw;
        }
    }
    if (replaced != nullptr)
        removeReplaced(session, contents, *replaced, target.kind, prove);
}

}  // namespace cardlibs::renewing
