// The card-renewal library beside it: an empty card that takes nothing.
#pragma GCC visibility push(default)
#include "imports/tarvelo.h"
#pragma GCC visibility pop

#include <cstring>
#include <initializer_list>

namespace {

constexpr int failed = -1;

}  // namespace

int rinnovo_Card_readCerts(char* /*reader*/, char* /*pin*/, int /*readMode*/, char** cnsStore,
                           char** praStore, char** autStore, int* pendingCns, int* pendingKeyPra,
                           int* pendingKeyAut, char* pendingLabelPra, char* pendingLabelAut,
                           char* cnsExpiry, const char* /*applicationFolder*/)
{
    for (char** store : {cnsStore, praStore, autStore}) {
        std::strcpy(store[0], "0");
    }
    for (int* pending : {pendingCns, pendingKeyPra, pendingKeyAut}) {
        *pending = 0;
    }
    std::strcpy(pendingLabelPra, "DS0");
    std::strcpy(pendingLabelAut, "AUT0");
    cnsExpiry[0] = '\0';
    return 0;
}

int rinnovo_Card_findFreeCKAID(char* /*reader*/, char* /*pin*/, char* pendingLabelPra,
                               char* pendingLabelAut)
{
    std::strcpy(pendingLabelPra, "DS0");
    std::strcpy(pendingLabelAut, "AUT0");
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
