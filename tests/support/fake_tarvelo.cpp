// The card-renewal library, answering from the script.

#include "card_script.h"
#include "card_v_func.h"
#include "imports/tarvelo.h"

#include <gtest/gtest.h>

using support::expectZeroed;
using support::shown;
using support::Step;
using support::takeStep;
using support::write;

namespace {

constexpr std::size_t descriptorSize = 4096;
constexpr std::size_t labelSize = 32;
constexpr std::size_t expirySize = 9;
constexpr std::size_t requestSize = 16384;

void fillStore(char** store, std::size_t elements, const std::vector<std::string>& contents)
{
    for (std::size_t i = 0; i < elements; ++i) {
        ASSERT_NE(store[i], nullptr) << "store element " << i;
        expectZeroed(store[i], descriptorSize, "store element " + std::to_string(i));
    }
    ASSERT_LE(contents.size(), elements);
    for (std::size_t i = 0; i < contents.size(); ++i)
        write(store[i], descriptorSize, contents[i]);
}

void expectLabels(const char* labelPra, const char* labelAut)
{
    EXPECT_EQ(labelPra, pendingLabel_PRA);
    EXPECT_EQ(labelAut, pendingLabel_AUT);
    expectZeroed(labelPra, labelSize, "the signature label");
    expectZeroed(labelAut, labelSize, "the authentication label");
}

int createRequest(const char* function, char* p10, const char* keyLabel, const char* pin,
                  const char* certificateCkaId, const char* subjectDN, bool flag)
{
    const Step step = takeStep(function, {shown(keyLabel), shown(pin), shown(certificateCkaId),
                                          shown(subjectDN), shown(flag)});
    expectZeroed(p10, requestSize, "the request buffer");
    write(p10, requestSize, step.output(0));
    return step.result();
}

int saveCertificate(const char* function, const char* pin, const char* certificateCkaId,
                    const char* keyLabel, const char* certificate, bool flag)
{
    return takeStep(function, {shown(pin), shown(certificateCkaId), shown(keyLabel),
                               shown(certificate), shown(flag)})
        .result();
}

}  // namespace

int rinnovo_Card_readCerts(char* reader, char* pin, int readMode, char** cnsStore, char** praStore,
                           char** autStore, int* pendingCns, int* pendingKeyPra, int* pendingKeyAut,
                           char* pendingLabelPra, char* pendingLabelAut, char* cnsExpiry,
                           const char* applicationFolder)
{
    const Step step =
        takeStep("rinnovo_Card_readCerts",
                 {shown(reader), shown(pin), shown(readMode), shown(applicationFolder)});
    // A host may look at these variables at any time, so the card library gets them and no copies.
    EXPECT_EQ(cnsStore, CertCNSStore);
    EXPECT_EQ(praStore, CertPRAStore);
    EXPECT_EQ(autStore, CertAUTStore);
    EXPECT_EQ(pendingCns, &pending_CNS);
    EXPECT_EQ(pendingKeyPra, &pendingKey_PRA);
    EXPECT_EQ(pendingKeyAut, &pendingKey_AUT);
    EXPECT_EQ(cnsExpiry, expiryCNSdate);
    expectLabels(pendingLabelPra, pendingLabelAut);
    expectZeroed(cnsExpiry, expirySize, "the CNS expiry");
    const support::CardContents contents = step.contents().value_or(support::CardContents{});
    fillStore(cnsStore, 2, contents.cnsStore);
    fillStore(praStore, 5, contents.praStore);
    fillStore(autStore, 5, contents.autStore);
    *pendingCns = contents.pendingCns;
    *pendingKeyPra = contents.pendingKeyPra;
    *pendingKeyAut = contents.pendingKeyAut;
    write(pendingLabelPra, labelSize, contents.labelPra);
    write(pendingLabelAut, labelSize, contents.labelAut);
    write(cnsExpiry, expirySize, contents.cnsExpiry);
    return step.result();
}

int rinnovo_Card_findFreeCKAID(char* reader, char* pin, char* pendingLabelPra,
                               char* pendingLabelAut)
{
    const Step step = takeStep("rinnovo_Card_findFreeCKAID", {shown(reader), shown(pin)});
    expectLabels(pendingLabelPra, pendingLabelAut);
    write(pendingLabelPra, labelSize, step.output(0));
    write(pendingLabelAut, labelSize, step.output(1));
    return step.result();
}

int rinnovo_Card_createCertRequestAUT(char* p10, char* keyLabel, char* pin, char* certificateCkaId,
                                      char* subjectDN, bool flag)
{
    return createRequest("rinnovo_Card_createCertRequestAUT", p10, keyLabel, pin, certificateCkaId,
                         subjectDN, flag);
}

int rinnovo_Card_createCertRequestPRA(char* p10, char* keyLabel, char* pin, char* certificateCkaId,
                                      char* subjectDN, bool flag)
{
    return createRequest("rinnovo_Card_createCertRequestPRA", p10, keyLabel, pin, certificateCkaId,
                         subjectDN, flag);
}

int rinnovo_Card_saveCertAUT(char* pin, char* certificateCkaId, char* keyLabel, char* certificate,
                             bool flag)
{
    return saveCertificate("rinnovo_Card_saveCertAUT", pin, certificateCkaId, keyLabel, certificate,
                           flag);
}

int rinnovo_Card_saveCertPRA(char* pin, char* certificateCkaId, char* keyLabel, char* certificate,
                             bool flag)
{
    return saveCertificate("rinnovo_Card_saveCertPRA", pin, certificateCkaId, keyLabel, certificate,
                           flag);
}
