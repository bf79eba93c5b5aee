// The card-renewal library beside it: an empty card that takes nothing.
#pragma GCC visibility push(default)
#include "imports/tarvelo.h"
#pragma GCC visibility pop

#include <cstring>
#include <initializer_list>

namespace {

constexpr int failed = -1;

// The callers' buffers have room for it.
void put(char* buffer, const char* text)
{
    std::memcpy(buffer, text, std::strlen(text) + 1);
}

}  // namespace

int rinnovo_Card_readCerts(char* /*reader*/, char* /*pin*/, int /*readMode*/, char** cnsStore,
                           char** praStore, char** autStore, int* pendingCns, int* pendingKeyPra,
                           int* pendingKeyAut, char* pendingLabelPra, char* pendingLabelAut,
                           char* cnsExpiry, const char* /*applicationFolder*/)
{
    for (char** store : {cnsStore, praStore, autStore}) {
        put(store[0], "0");
    }
    for (int* pending : {pendingCns, pendingKeyPra, pendingKeyAut}) {
        *pending = 0;
    }
    put(pendingLabelPra, "DS0");
    put(pendingLabelAut, "AUT0");
    cnsExpiry[0] = '\0';
    return 0;
}

int rinnovo_Card_findFreeCKAID(char* /*reader*/, char* /*pin*/, char* pendingLabelPra,
                               char* pendingLabelAut)
{
    put(pendingLabelPra, "DS0");
    put(pendingLabelAut, "AUT0");
    return 0;
}

int rinnovo_Card_createCertRequestAUT(char* /*p10*/, char* /*keyLabel*/, char* /*pin*/,
                                      char* /*certificateCkaId*/, char* /*subjectDN*/,
                                      bool /*flag*/)
{
    return failed;
}

int rinnovo_Card_createCertRequestPRA(char* /*p10*/, char* /*keyLabel*/, char* /*pin*/,
                                      char* /*certificateCkaId*/, char* /*subjectDN*/,
                                      bool /*flag*/)
{
    return failed;
}

int rinnovo_Card_saveCertAUT(char* /*pin*/, char* /*certificateCkaId*/, char* /*keyLabel*/,
                             char* /*certificate*/, bool /*flag*/)
{
    return failed;
}

int rinnovo_Card_saveCertPRA(char* /*pin*/, char* /*certificateCkaId*/, char* /*keyLabel*/,
                             char* /*certificate*/, bool /*flag*/)
{
    return failed;
}
