// A context as an inventory leaves it, for the two renewal operations.

#ifndef TARVELOQT_TESTS_SUPPORT_RENEWAL_FIXTURE_H
#define TARVELOQT_TESTS_SUPPORT_RENEWAL_FIXTURE_H

#include "library_fixture.h"

#include <string>

namespace support {

class RenewalTest : public LibraryTest {
protected:
    // A session with reader "Lettore", PIN "12345678" and last error text "from before".
    void SetUp() override;

    // Neither operation may change the context or the inventory's outcome.
    void TearDown() override;

    // Puts a certificate record with this identifier under the row key.
    void addRecord(const QString& rowKey, const QString& certId);
    void addRecoveryRecord(const QString& rowKey);
    void removeRows();

    // Call after a change to the context that the test itself made.
    void rememberContext();

private:
    PlainContext m_before;
};

// The two lines that show the labels, as a masked log has them.
inline std::string labelLines(const std::string& labelPra, const std::string& labelAut)
{
    return "[*]: FREE-CKAID PRA: " + labelPra + "\n[*]: FREE-CKAID AUT: " + labelAut + "\n";
}

}  // namespace support

#endif
