#include "cardlibs/tarvelo/label_memory.h"

namespace cardlibs::tarvelo {
namespace {

using contents::CardContents;
using contents::KeyLabel;
using contents::Kind;

// A private and a public key, which bear the same label.
constexpr std::size_t objectsOfPair = 2;

std::string nextLabel(const CardContents& contents, Kind kind,
                      const std::optional<KeyLabel>& newPair)
{
    std::string label = contents.nextLabel(kind);
    if (!newPair || newPair->kind != kind)
        return label;
    const std::optional<KeyLabel> parsed = contents::parseKeyLabel(label);
    const bool olderPairIsLower =
        contents.hasPending(kind) && parsed && parsed->number < newPair->number;
    return olderPairIsLower ? label : newPair->text();
}

std::size_t bearersOf(const CardContents& contents, const std::string& label,
                      const std::optional<KeyLabel>& newPair)
{
    return contents.objects().labels.count(label) +
           (newPair && newPair->text() == label ? objectsOfPair : 0);
}

std::size_t bearersOf(token::Session& session, const std::string& label)
{
    token::Template sought;
    sought.text(CKA_LABEL, label);
    return session.find(sought).size();
}

}  // namespace

LabelMemory memoryOf(const CardContents& contents, const std::optional<KeyLabel>& newPair)
{
    LabelMemory memory;
    memory.labels = {nextLabel(contents, Kind::signature, newPair),
                     nextLabel(contents, Kind::authentication, newPair)};
    memory.objects = contents.objects().labels.size() + (newPair ? objectsOfPair : 0);
    memory.signatureBearers = bearersOf(contents, memory.labels.signature, newPair);
    memory.authenticationBearers = bearersOf(contents, memory.labels.authentication, newPair);
    return memory;
}

bool stillHolds(const LabelMemory& memory, token::Session& session)
{
    token::Template anything;
    return session.find(anything).size() == memory.objects &&
           bearersOf(session, memory.labels.signature) == memory.signatureBearers &&
           bearersOf(session, memory.labels.authentication) == memory.authenticationBearers;
}

}  // namespace cardlibs::tarvelo
