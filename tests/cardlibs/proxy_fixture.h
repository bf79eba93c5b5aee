// A software card behind the PKCS#11 proxy. The test's own view of the card does not pass through
// it.

#ifndef TARVELOQT_TESTS_CARDLIBS_PROXY_FIXTURE_H
#define TARVELOQT_TESTS_CARDLIBS_PROXY_FIXTURE_H

#include "tests/cardlibs/pkcs11_proxy.h"
#include "tests/cardlibs/renewal_steps.h"

#include <filesystem>

namespace cardlibs_test {

class ProxyFixture : public RenewalFixture {
protected:
    ProxyFixture();
    ~ProxyFixture() override;

    ProxyControl& proxy() { return *m_control; }

    // Keeps the card as it is now, and brings that back.
    void keepCard();
    void restoreCard();

    // The card's module looks at the card afresh, as after it was put into the reader.
    static void startProxy();

    // Table entry for cards behind the proxy, for tests that add to it.
    static std::string tableEntry();

private:
    std::filesystem::path kept() const { return folder().root() / "kept"; }

    ProxyControl* m_control;
};

}  // namespace cardlibs_test

#endif
