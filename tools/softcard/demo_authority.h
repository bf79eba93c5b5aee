// The demonstration certification authority: a key and a certificate in a folder.

#ifndef TARVELOQT_TOOLS_SOFTCARD_DEMO_AUTHORITY_H
#define TARVELOQT_TOOLS_SOFTCARD_DEMO_AUTHORITY_H

#include "cardlibs/bytes.h"
#include "cardlibs/x509/pointers.h"

#include <ctime>
#include <filesystem>
#include <string>

namespace softcard {

struct Validity {
    std::time_t notBefore = 0;
    std::time_t notAfter = 0;
};

// Extensions beside those that every certificate of the authority has; texts as in
// x509v3_config(5), empty for none.
struct Profile {
    std::string keyUsage;
    std::string extendedKeyUsage;
    std::string policy;
    // Explicit text of the policy's user notice, UTF-8; empty for none.
    std::string explicitText = {};
};

class DemoAuthority {
public:
    // Opens the authority in the folder. Throws std::runtime_error when there is none.
    static DemoAuthority open(const std::filesystem::path& folder);
    // Makes one: key.pem (readable by its owner alone) and certificate.pem.
    static DemoAuthority make(const std::filesystem::path& folder);

    static std::filesystem::path certificateFile(const std::filesystem::path& folder)
    {
        return folder / "certificate.pem";
    }

    // DER of a certificate for the key; the subject keeps its encoding.
    cardlibs::Bytes certify(const X509_NAME* subject, EVP_PKEY* key, const Validity& validity,
                            const Profile& profile) const;

    // For a PKCS#10 request in PEM, whose signature is checked: its subject, its key, its key usage
    // and extended key usage. policy: dotted identifier or empty. Gives PEM. Throws
    // std::runtime_error that tells what is wrong with the request.
    std::string issue(const std::string& requestPem, const Validity& validity,
                      const std::string& policy) const;

private:
    DemoAuthority(cardlibs::x509::KeyPointer key, cardlibs::x509::X509Pointer certificate);

    cardlibs::x509::X509Pointer draft(const X509_NAME* subject, EVP_PKEY* key,
                                      const Validity& validity) const;
    void addExtension(X509* certificate, int type, const std::string& value) const;
    void addPolicy(X509* certificate, const Profile& profile) const;
    void sign(X509* certificate) const;

    cardlibs::x509::KeyPointer m_key;
    cardlibs::x509::X509Pointer m_certificate;
};

}  // namespace softcard

#endif
