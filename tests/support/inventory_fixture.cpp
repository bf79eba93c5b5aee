#include "inventory_fixture.h"

namespace support {

void InventoryTest::SetUp()
{
    LibraryTest::SetUp();
    startSession(QStringLiteral("Lettore"), QStringLiteral("12345678"));
}

std::string InventoryTest::foreign(const std::string& serial)
{
    Descriptor descriptor;
    descriptor.issuer = "2.5.4.3=Another CA";
    descriptor.serial = serial;
    return authenticationText(descriptor);
}

void InventoryTest::setOutcomeFromBefore()
{
    ErrorOccurred = 7;
    ErrorCode = 8;
    ErrorMessage = QStringLiteral("from before");
}

std::string InventoryTest::begun()
{
    return "[*]: e' in corso la verifica dei certificati presenti nella Smart Card.\n"
           "L'operazione richiede alcuni secondi. Attendere...\n";
}

std::string InventoryTest::readLines(int result, const CardContents& contents)
{
    return begun() +
           "[*]: Inizio Funzione: rinnovo_Card_readCerts-- \n"
           "[*]: Fine Funzione: rinnovo_Card_readCerts-- \n"
           "[*]: ReturnCode = " +
           std::to_string(result) +
           "\n\n"
           "[*]: Situazione oggetti nella SmartCard:\n"
           "[*]: pending_CNS: " +
           std::to_string(contents.pendingCns) +
           "\n"
           "[*]: pendingKey_PRA: " +
           std::to_string(contents.pendingKeyPra) +
           "\n"
           "[*]: pendingKey_AUT: " +
           std::to_string(contents.pendingKeyAut) +
           "\n"
           "[*]: NUOVO CKAID PRA: " +
           contents.labelPra + "\n[*]: NUOVO CKAID AUT: " + contents.labelAut + "\n\n";
}

std::string InventoryTest::freeLabelLines(const std::string& labelPra, const std::string& labelAut,
                                          int result)
{
    return "[*]: --Ricalcolo dei FREE CKAID:\n"
           "[*]: Reader = Lettore\n"
           "[*]: Funzione rinnovo_Card_findFreeCKAID: INIZIO\n"
           "[*]: --NUOVO CKAID PRA--: " +
           labelPra + "\n[*]: --NUOVO CKAID AUT--: " + labelAut +
           "\n\n"
           "[*]: Funzione rinnovo_Card_findFreeCKAID: FINE - ReturnCode= " +
           std::to_string(result) + "\n";
}

std::string InventoryTest::countLines(int cns, int pra, int aut, int tableRows)
{
    return "[*]: Certificati Letti:\n[*]: CNS: " + std::to_string(cns) +
           "\n[*]: PRA: " + std::to_string(pra) + "\n[*]: AUT: " + std::to_string(aut) +
           "\n[*]: Totale Certificati letti dalla SC: " + std::to_string(cns + pra + aut) +
           "\n\n[*]: Numero di righe nella Tabella Certificati: " + std::to_string(tableRows) +
           "\n\n";
}

}  // namespace support
