#include "hosts/console/library_view.h"

#include "hosts/console/card_session.h"
#include "hosts/console/library_streams.h"
#include "hosts/console/screens.h"

#include <card_v_func.h>

#include <cstring>

namespace console {

namespace keys = renew_context;

namespace {

template <std::size_t size>
QString cardText(const char (&text)[size])
{
    return QString::fromUtf8(text, static_cast<int>(strnlen(text, size))).trimmed();
}

// The library's check of the card in the session's reader.
ReaderDiagnosis checkedReader(CardSession& session)
{
    ReaderDiagnosis reader;
    reader.name = session.setting(keys::reader);
    const int result = verify_sc_and_reader(session.context());
    reader.entry.module = cardText(lib);
    reader.token.manufacturer = cardText(szManufacturerID);
    reader.token.model = cardText(szModel);
    reader.token.serialNumber = cardText(szSerialNumber);
    if (result != card_verification::accepted) {
        reader.error = ToldError{0, cardCheckSentence(result)};
    } else {
        reader.entry.isCns = isCNS;
        reader.entry.isFerrolux = isFerrolux;
        reader.token.isActivated = true;
    }
    return reader;
}

}  // namespace

QString configuredReader()
{
    const LibraryStreams streams(LibraryOutput::dropped, LibraryInput::empty);
    const CardSession session;
    return session.setting(keys::reader);
}

Diagnosis lookAtReaders(const QString& wantedReader)
{
    Diagnosis diagnosis = diagnoseReaders();
    if (diagnosis.isTold) {
        return diagnosis;
    }
    const LibraryStreams streams(LibraryOutput::dropped, LibraryInput::empty);
    CardSession session;
    const bool isListed = set_reader(session.context(), wantedReader);
    if (isListed && !session.setting(keys::reader).isEmpty()) {
        diagnosis.readers.push_back(checkedReader(session));
    }
    return diagnosis;
}

}  // namespace console
