#ifndef TARVELOQT_INVENTORY_CARD_READING_H
#define TARVELOQT_INVENTORY_CARD_READING_H

#include "inventory/card_stores.h"

#include <QString>

// The one place from which this folder calls the card-renewal library.
namespace inventory {

// The process-wide labels of the keys to use, each at most 31 characters and a NUL.
struct KeyLabels {
    char (&pra)[keyLabelSize];
    char (&aut)[keyLabelSize];

    QString praText() const { return boundedText(pra, keyLabelSize); }
    QString autText() const { return boundedText(aut, keyLabelSize); }
    void clear() const;
};

// The process-wide variables that the reading of a card fills.
struct CardContents {
    char* (&cnsStore)[2];
    char* (&praStore)[5];
    char* (&autStore)[5];
    int& pendingCns;
    int& pendingPra;
    int& pendingAut;
    KeyLabels labels;
    char (&cnsExpiry)[9];
};

// Results of the reading that are not a failure of the card.
constexpr int readCompleted = 0;
constexpr int readCompletedToo = -500;
constexpr int cardNotSupported = 100;

// Gives the stores new buffers, clears labels and expiry, and reads the card. Returns the library's
// result.
int readCard(const CardContents& contents, const QString& reader, const QString& pin);

// Clears the labels and asks the library for those to use. Returns its result, 0 on success.
int findFreeLabels(const KeyLabels& labels, const QString& reader, const QString& pin);

}  // namespace inventory

#endif
