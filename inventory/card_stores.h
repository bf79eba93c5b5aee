#ifndef TARVELOQT_INVENTORY_CARD_STORES_H
#define TARVELOQT_INVENTORY_CARD_STORES_H

#include <QString>

#include <cstddef>

namespace inventory {

// Bytes of a store's element.
constexpr std::size_t storeElementSize = 4096;
// Bytes of a key label, with its NUL.
constexpr std::size_t keyLabelSize = 32;

// The text of a label or of a store's element, which may lack its NUL, decoded as UTF-8; empty for
// a null element. size: the bytes that may be read.
QString boundedText(const char* text, std::size_t size);

// Gives each of the store's elements a new zero-filled buffer. Buffers are never released: a host
// may still hold those of an earlier inventory.
void renewElements(char** store, std::size_t elements);

// The number of certificates that element 0 of a store states: its leading digits, 0 when there are
// none, the largest int when they stand for more.
int statedCount(const char* element);

}  // namespace inventory

#endif
