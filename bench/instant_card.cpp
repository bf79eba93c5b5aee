// The two card libraries as a card would look that costs nothing: nine certificates, all there is
// room for, and no work behind any function.

#include "bench/instant_card.h"

#include "imports/molvane.h"
#include "imports/tarvelo.h"

#include <cstring>

namespace {

std::string notAfterText = "20991231000000";

std::string descriptor(int number, const std::string& policy, const std::string& beforeFiscalCode)
{
    const std::string digit = std::to_string(number);
    return "2.5.4.6=IT,2.5.4.10=Ordine dei Cartografi di Castelvane,2.5.4.4=Bellarosa,2.5.4.42="
           "Ginevra Maria,2.5.4.5=BLLGVR84C52H501Z,2.5.4.46=2024500110" +
           digit +
           ",2.5.4.3=Bellarosa Ginevra Maria#2.5.4.6=IT,2.5.4.10=Castelvane S.p.A.,2.5.4.11="
           "Certification Authority,2.5.4.3=Castelvane Qualified CA 3#2024500110" +
           digit + "#" + policy + "#0A1B2C3D4E5F607" + digit + "#20231221000000#" + notAfterText +
           "#9F8E7D6C5B4A39281706F5E4D3C2B1A09F8E7D6" + digit + "#" + beforeFiscalCode +
           "BLLGVR84C52H501Z";
}

void put(char* element, const std::string& text)
{
    std::memcpy(element, text.c_str(), text.size() + 1);
}

}  // namespace

void bench::setNotAfter(const std::string& notAfter)
{
    notAfterText = notAfter;
}

int mvGetReaderName(char* names, long* /*length*/)
{
    put(names, "Instant Reader 00|");
    return 0;
}
int mvInitializeFromATRLite(char* /*reader*/, char* /*atrTable*/, char* /*applicationFolder*/)
{
    return 0;
}
int mvIsCNSINCARD()
{
    return 1;
}
int mvIsFERROLUX()
{
    return 0;
}
int mvLogin(const char* /*pin*/)
{
    return 0;
}
int mvFinalize()
{
    return 0;
}
int mvGetPKCS11FromATRLite(char* /*reader*/, char* module, char* /*atrTable*/)
{
    put(module, "libinstant.so");
    return 0;
}
int mvCNSToBeActivatedLite(long /*slot*/)
{
    return 0;
}
int mvCheckSmartCard(char* slotDescription, char* manufacturerID, char* model, char* serialNumber)
{
    put(slotDescription, "Instant Reader 00");
    put(manufacturerID, "Instant");
    put(model, "Instant");
    put(serialNumber, "1499000000000001");
    return 0;
}
int getSlotBriskoLite()
{
    return 0;
}
int mvLastError(char* /*buffer*/, int /*size*/)
{
    return 1;
}
int mvLastErrno()
{
    return 0;
}
int rinnovo_Card_readCerts(char* /*reader*/, char* /*pin*/, int /*readMode*/, char** cnsStore,
                           char** praStore, char** autStore, int* pendingCns, int* pendingKeyPra,
                           int* pendingKeyAut, char* pendingLabelPra, char* pendingLabelAut,
                           char* /*cnsExpiry*/, const char* /*applicationFolder*/)
{
    put(cnsStore[0], "1");
    put(cnsStore[1], descriptor(9, "1.3.76.16.2.1", "#"));
    put(praStore[0], "4");
    put(autStore[0], "4");
    for (int i = 1; i <= 4; ++i) {
        put(praStore[i], descriptor(i, "1.3.76.36.1.1.1", "##"));
        put(autStore[i], descriptor(i + 4, "1.3.76.36.1.1.3", "#"));
    }
    *pendingCns = 0;
    *pendingKeyPra = 0;
    *pendingKeyAut = 0;
    put(pendingLabelPra, "DS4");
    put(pendingLabelAut, "AUT4");
    return 0;
}
int rinnovo_Card_findFreeCKAID(char* /*reader*/, char* /*pin*/, char* pendingLabelPra,
                               char* pendingLabelAut)
{
    put(pendingLabelPra, "DS4");
    put(pendingLabelAut, "AUT4");
    return 0;
}
int rinnovo_Card_createCertRequestAUT(char* /*p10*/, char* /*keyLabel*/, char* /*pin*/,
                                      char* /*certificateCkaId*/, char* /*subjectDN*/,
                                      bool /*flag*/)
{
    return 0;
}
int rinnovo_Card_createCertRequestPRA(char* /*p10*/, char* /*keyLabel*/, char* /*pin*/,
                                      char* /*certificateCkaId*/, char* /*subjectDN*/,
                                      bool /*flag*/)
{
    return 0;
}
int rinnovo_Card_saveCertAUT(char* /*pin*/, char* /*certificateCkaId*/, char* /*keyLabel*/,
                             char* /*certificate*/, bool /*flag*/)
{
    return 0;
}
int rinnovo_Card_saveCertPRA(char* /*pin*/, char* /*certificateCkaId*/, char* /*keyLabel*/,
                             char* /*certificate*/, bool /*flag*/)
{
    return 0;
}
