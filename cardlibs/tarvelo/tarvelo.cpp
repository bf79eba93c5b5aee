// The exported functions alone have default visibility; their declarations carry no attribute.
#pragma GCC visibility push(default)
#include "imports/tarvelo.h"
#pragma GCC visibility pop

#include "cardlibs/state/shared_state.h"
#include "cardlibs/tarvelo/card_renewal.h"

#include <cstring>

namespace {

namespace contents = cardlibs::contents;
namespace fault = cardlibs::state::fault;
namespace renewing = cardlibs::renewing;
namespace state = cardlibs::state;
namespace tarvelo = cardlibs::tarvelo;

using state::CardError;
using state::guarded;

constexpr int failed = -1;
constexpr int readWithOmissions = -500;
constexpr int cardNotSupported = 100;

std::string textOrEmpty(const char* text)
{
    return text == nullptr ? std::string() : std::string(text);
}

void require(const void* argument, const char* name)
{
    if (argument == nullptr)
        throw CardError(fault::invalidArgument, name);
}

void copyText(const std::string& text, char* buffer)
{
    std::memcpy(buffer, text.c_str(), text.size() + 1);
}

// The buffers of a store: one for the count, one for each descriptor that it has room for.
void requireStore(char** store, std::size_t elements, const char* name)
{
    require(store, name);
    for (std::size_t i = 0; i < elements; ++i)
        require(store[i], name);
}

void copyStore(const contents::Store& from, char** store)
{
    copyText(std::to_string(from.descriptors.size()), store[0]);
    for (std::size_t i = 0; i < from.descriptors.size(); ++i)
        copyText(from.descriptors[i], store[i + 1]);
}

// Nothing that the holder could do with this reader and PIN would make the card usable.
bool tellsUnsupportedCard(unsigned long number)
{
    return number == fault::unknownCard || number == fault::moduleNotLoaded;
}

int request(renewing::Saver saver, char* p10, const char* keyLabel, const char* pin,
            const char* certificateCkaId, const char* subjectDN)
{
    return guarded(failed, [&] {
        require(p10, "p10");
        require(pin, "pin");
        const std::string label = textOrEmpty(keyLabel);
        const auto parsed = contents::parseKeyLabel(label);
        const bool isSignature = parsed && parsed->kind == contents::Kind::signature;
        if (isSignature != (saver == renewing::Saver::signature))
            throw CardError(fault::invalidArgument, "label " + label);
        copyText(tarvelo::requestCertificate(label, pin, textOrEmpty(certificateCkaId),
                                             textOrEmpty(subjectDN)),
                 p10);
        return 0;
    });
}

int save(renewing::Saver saver, const char* pin, const char* certificateCkaId,
         const char* certificate)
{
    return guarded(failed, [&] {
        require(pin, "pin");
        require(certificate, "certificate");
        tarvelo::installCertificate(saver, pin, textOrEmpty(certificateCkaId), certificate);
        return 0;
    });
}

}  // namespace

int rinnovo_Card_readCerts(char* reader, char* pin, int /*readMode*/, char** cnsStore,
                           char** praStore, char** autStore, int* pendingCns, int* pendingKeyPra,
                           int* pendingKeyAut, char* pendingLabelPra, char* pendingLabelAut,
                           char* cnsExpiry, const char* applicationFolder)
{
    const int result = guarded(failed, [&] {
        require(pin, "pin");
        requireStore(cnsStore, 2, "cnsStore");
        requireStore(praStore, 5, "praStore");
        requireStore(autStore, 5, "autStore");
        for (const int* flag : {pendingCns, pendingKeyPra, pendingKeyAut})
            require(flag, "pending flag");
        for (const char* buffer : {pendingLabelPra, pendingLabelAut, cnsExpiry})
            require(buffer, "label or expiry buffer");
        if (applicationFolder != nullptr && *applicationFolder != '\0')
            state::sharedState().applicationFolder = applicationFolder;
        const tarvelo::Inventory inventory = tarvelo::readCard(textOrEmpty(reader), pin);
        copyStore(inventory.stores.cns, cnsStore);
        copyStore(inventory.stores.signature, praStore);
        copyStore(inventory.stores.authentication, autStore);
        *pendingCns = inventory.hasPendingCns ? 1 : 0;
        *pendingKeyPra = inventory.hasPendingSignature ? 1 : 0;
        *pendingKeyAut = inventory.hasPendingAuthentication ? 1 : 0;
        copyText(inventory.labels.signature, pendingLabelPra);
        copyText(inventory.labels.authentication, pendingLabelAut);
        copyText(inventory.stores.cnsExpiry, cnsExpiry);
        if (inventory.stores.leftOut.empty())
            return 0;
        state::recordError(
            CardError::withNames(fault::certificatesLeftOut, inventory.stores.leftOut));
        return readWithOmissions;
    });
    const auto& last = state::sharedState().lastError;
    return result == failed && last && tellsUnsupportedCard(last->number) ? cardNotSupported
                                                                          : result;
}

int rinnovo_Card_findFreeCKAID(char* reader, char* pin, char* pendingLabelPra,
                               char* pendingLabelAut)
{
    return guarded(failed, [&] {
        require(pin, "pin");
        require(pendingLabelPra, "pendingLabelPra");
        require(pendingLabelAut, "pendingLabelAut");
        const tarvelo::NewKeyLabels labels = tarvelo::findLabels(textOrEmpty(reader), pin);
        copyText(labels.signature, pendingLabelPra);
        copyText(labels.authentication, pendingLabelAut);
        return 0;
    });
}

int rinnovo_Card_createCertRequestAUT(char* p10, char* keyLabel, char* pin, char* certificateCkaId,
                                      char* subjectDN, bool /*flag*/)
{
    return request(renewing::Saver::authenticationAndCns, p10, keyLabel, pin, certificateCkaId,
                   subjectDN);
}

int rinnovo_Card_createCertRequestPRA(char* p10, char* keyLabel, char* pin, char* certificateCkaId,
                                      char* subjectDN, bool /*flag*/)
{
    return request(renewing::Saver::signature, p10, keyLabel, pin, certificateCkaId, subjectDN);
}

// The key is found by the certificate's public key, which a label cannot contradict.
int rinnovo_Card_saveCertAUT(char* pin, char* certificateCkaId, char* /*keyLabel*/,
                             char* certificate, bool /*flag*/)
{
    return save(renewing::Saver::authenticationAndCns, pin, certificateCkaId, certificate);
}

int rinnovo_Card_saveCertPRA(char* pin, char* certificateCkaId, char* /*keyLabel*/,
                             char* certificate, bool /*flag*/)
{
    return save(renewing::Saver::signature, pin, certificateCkaId, certificate);
}
