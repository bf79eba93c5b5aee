#include "card/card_access.h"

#include "imports/molvane.h"
#include "session/application_folder.h"
#include "session/secret_bytes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

namespace card {

namespace {

// The library is told no sizes; whatever it wrote, hosts find a text that ends.
template <std::size_t size>
void terminate(char (&text)[size])
{
    text[size - 1] = '\0';
}

}  // namespace

std::optional<QString> readerNames()
{
    std::array<char, 1024> names{};
    long length = names.size();
    if (mvGetReaderName(names.data(), &length) < 0) {
        return std::nullopt;
    }
    return QString::fromLatin1(names.data(), static_cast<int>(strnlen(names.data(), names.size())));
}

void noteFamily(const CardFamily& family)
{
    if (mvIsCNSINCARD() != 0) {
        family.isCns = true;
    }
    if (mvIsFERROLUX() != 0) {
        family.isFerrolux = true;
    }
}

CardAddress addressOf(const QString& reader, const QString& atrTable)
{
    return {reader.toUtf8(), atrTable.toUtf8(), session::applicationFolder().toUtf8()};
}

int openSession(const CardAddress& address)
{
    CardAddress copy = address;
    return mvInitializeFromATRLite(copy.reader.data(), copy.atrTable.data(),
                                   copy.applicationFolder.data());
}

void closeSession()
{
    // Nothing can be done about a session that does not close, and the next one replaces it.
    static_cast<void>(mvFinalize());
}

int login(const QString& pin)
{
    return mvLogin(session::secretUtf8(pin).data());
}

int findModule(const CardAddress& address, char (&module)[64])
{
    std::array<char, 256> reader{};
    std::copy_n(address.reader.constData(),
                std::min(static_cast<std::size_t>(address.reader.size()), reader.size() - 1),
                reader.data());
    QByteArray atrTable = address.atrTable;
    const int result = mvGetPKCS11FromATRLite(reader.data(), module, atrTable.data());
    terminate(module);
    return result;
}

int activationState()
{
    return mvCNSToBeActivatedLite(getSlotBriskoLite());
}

int readIdentity(char (&slotDescription)[65], char (&manufacturerId)[33], char (&model)[17],
                 char (&serialNumber)[17])
{
    const int result = mvCheckSmartCard(slotDescription, manufacturerId, model, serialNumber);
    terminate(slotDescription);
    terminate(manufacturerId);
    terminate(model);
    terminate(serialNumber);
    return result;
}

int lastErrorNumber()
{
    return mvLastErrno();
}

}  // namespace card
