#include "inventory/card_reading.h"

#include "imports/tarvelo.h"
#include "session/application_folder.h"
#include "session/secret_bytes.h"

#include <cstring>
#include <iterator>

namespace inventory {

namespace {

constexpr int readMode = 3;

// The library is told no sizes; whatever it wrote, the text ends inside its buffer.
void terminate(const KeyLabels& labels)
{
    labels.pra[keyLabelSize - 1] = '\0';
    labels.aut[keyLabelSize - 1] = '\0';
}

}  // namespace

void KeyLabels::clear() const
{
    std::memset(pra, 0, keyLabelSize);
    std::memset(aut, 0, keyLabelSize);
}

int readCard(const CardContents& contents, const QString& reader, const QString& pin)
{
    renewElements(contents.cnsStore, std::size(contents.cnsStore));
    renewElements(contents.praStore, std::size(contents.praStore));
    renewElements(contents.autStore, std::size(contents.autStore));
    contents.labels.clear();
    std::memset(contents.cnsExpiry, 0, std::size(contents.cnsExpiry));

    QByteArray readerName = reader.toUtf8();
    const QByteArray folder = session::applicationFolder().toUtf8();
    const int result = rinnovo_Card_readCerts(
        readerName.data(), session::secretUtf8(pin).data(), readMode, contents.cnsStore,
        contents.praStore, contents.autStore, &contents.pendingCns, &contents.pendingPra,
        &contents.pendingAut, contents.labels.pra, contents.labels.aut, contents.cnsExpiry,
        folder.constData());
    terminate(contents.labels);
    contents.cnsExpiry[std::size(contents.cnsExpiry) - 1] = '\0';
    return result;
}

int findFreeLabels(const KeyLabels& labels, const QString& reader, const QString& pin)
{
    labels.clear();
    QByteArray readerName = reader.toUtf8();
    const int result = rinnovo_Card_findFreeCKAID(
        readerName.data(), session::secretUtf8(pin).data(), labels.pra, labels.aut);
    terminate(labels);
    return result;
}

}  // namespace inventory
