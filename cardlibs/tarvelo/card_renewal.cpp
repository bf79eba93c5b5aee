#include "cardlibs/tarvelo/card_renewal.h"

#include "cardlibs/readers/reader_directory.h"
#include "cardlibs/renewing/request_making.h"
#include "cardlibs/state/shared_state.h"
#include "cardlibs/x509/issued.h"

#include <ctime>
#include <memory>

namespace cardlibs::tarvelo {
namespace {

using contents::CardContents;
using contents::Kind;
using state::CardError;
using token::Access;
namespace fault = state::fault;

struct OpenCard {
    readers::CardPlace place;
    std::unique_ptr<token::Session> session;
};

OpenCard openCard(const std::string& reader, Access access, const char* pin)
{
    const readers::AtrTable table = readers::readAtrTable(state::currentTablePath());
    OpenCard card;
    card.place = readers::findCard(table, reader);
    const token::TokenInfo& told = card.place.info;
    told.checkBeforeLogin(pin);
    if (access == Access::readWrite && told.has(CKF_WRITE_PROTECTED))
        throw CardError(CKR_TOKEN_WRITE_PROTECTED);
    card.session = std::make_unique<token::Session>(*card.place.module, card.place.slot, access);
    card.session->login(pin);
    return card;
}

// At most one card's: that of the last reading or request.
std::optional<LabelMemory>& labelMemory()
{
    static std::optional<LabelMemory> memory;
    return memory;
}

const NewKeyLabels& remember(const OpenCard& card, const std::string& reader,
                             const CardContents& contents,
                             const std::optional<contents::KeyLabel>& newPair = std::nullopt)
{
    LabelMemory& memory = labelMemory().emplace(memoryOf(contents, newPair));
    memory.reader = reader;
    memory.tokenSerialNumber = card.place.info.serialNumber;
    return memory.labels;
}

const std::string& renewalReader()
{
    const std::string& reader = state::sharedState().renewalReader;
    if (reader.empty())
        throw CardError(fault::noReaderChosen);
    return reader;
}

Bytes identifier(const std::string& text)
{
    const std::optional<Bytes> bytes = parseHexadecimal(text);
    if (!bytes)
        throw CardError(fault::invalidArgument, "CKA_ID");
    return *bytes;
}

}  // namespace

Inventory readCard(const std::string& reader, const char* pin)
{
    const OpenCard card = openCard(reader, Access::readOnly, pin);
    const CardContents contents(contents::readObjects(*card.session));
    Inventory inventory;
    inventory.stores = contents::storesOf(contents, std::time(nullptr));
    inventory.labels = remember(card, reader, contents);
    inventory.hasPendingCns = contents.hasPending(Kind::cns);
    inventory.hasPendingSignature = contents.hasPending(Kind::signature);
    inventory.hasPendingAuthentication = contents.hasPending(Kind::authentication);
    return inventory;
}

NewKeyLabels findLabels(const std::string& reader, const char* pin)
{
    state::sharedState().renewalReader = reader;
    const OpenCard card = openCard(reader, Access::readOnly, pin);
    const std::optional<LabelMemory>& memory = labelMemory();
    if (memory && memory->reader == reader &&
        memory->tokenSerialNumber == card.place.info.serialNumber &&
        stillHolds(*memory, *card.session))
        return memory->labels;
    return remember(card, reader, CardContents(contents::readObjects(*card.session)));
}

std::string requestCertificate(const std::string& label, const char* pin,
                               const std::string& certificateId, const std::string& subjectText)
{
    const std::optional<contents::KeyLabel> parsed = contents::parseKeyLabel(label);
    if (!parsed)
        throw CardError(fault::invalidArgument, label);
    const renewing::RequestOrder order{*parsed, identifier(certificateId), subjectText};
    const OpenCard card = openCard(renewalReader(), Access::readWrite, pin);
    const CardContents contents(contents::readObjects(*card.session));
    renewing::MadeRequest made =
        renewing::makeRequest(*card.session, card.place, contents, order, pin);
    remember(card, renewalReader(), contents, made.newPair);
    return std::move(made.pem);
}

void installCertificate(renewing::Saver saver, const char* pin, const std::string& replacedId,
                        const char* issued)
{
    renewing::InstallationOrder order;
    order.saver = saver;
    order.replacedId = identifier(replacedId);
    order.issued = x509::parseIssued(x509::issuedBytes(issued));
    if (order.issued.empty())
        throw CardError(fault::issuedUnreadable);
    labelMemory().reset();
    const OpenCard card = openCard(renewalReader(), Access::readWrite, pin);
    renewing::install(*card.session, card.place, order, pin, std::time(nullptr));
}

}  // namespace cardlibs::tarvelo
