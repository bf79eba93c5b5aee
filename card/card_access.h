#ifndef TARVELOQT_CARD_CARD_ACCESS_H
#define TARVELOQT_CARD_CARD_ACCESS_H

#include <QByteArray>
#include <QString>

#include <optional>

// The one place from which this folder calls the card-access library.
namespace card {

// The names of the connected readers, each followed by "|"; nothing when no list can be had.
std::optional<QString> readerNames();

// The variables that tell what kind of card it is; only ever set to true.
struct CardFamily {
    bool& isCns;
    bool& isFerrolux;
};
void noteFamily(const CardFamily& family);

// What is needed to reach a card: the reader's name, the path of the ATR table and the folder of
// the host's executable, in UTF-8.
struct CardAddress {
    QByteArray reader;
    QByteArray atrTable;
    QByteArray applicationFolder;
};
CardAddress addressOf(const QString& reader, const QString& atrTable);

// Each answers as the library's function for it does. The library may write into the texts that it
// is handed: it gets copies, so that the next call finds what this one did.
int openSession(const CardAddress& address);
void closeSession();
int login(const QString& pin);
int findModule(const CardAddress& address, char (&module)[64]);
int activationState();
int readIdentity(char (&slotDescription)[65], char (&manufacturerId)[33], char (&model)[17],
                 char (&serialNumber)[17]);
int lastErrorNumber();

}  // namespace card

#endif
