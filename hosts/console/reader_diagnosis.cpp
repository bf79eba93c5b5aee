#include "hosts/console/reader_diagnosis.h"

#include "hosts/console/library_streams.h"

#include <card_diagnosis.h>
#include <card_v_func.h>
#include <dlfcn.h>

#include <algorithm>
#include <memory>
#include <utility>

namespace console {

namespace {

template <typename Function>
Function lookUp(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

struct Functions {
    mvDiagnoseReadersFunction readers = lookUp<mvDiagnoseReadersFunction>("mvDiagnoseReaders");
    mvDiagnoseAtrFunction atr = lookUp<mvDiagnoseAtrFunction>("mvDiagnoseAtr");
    mvDiagnosisFreeFunction release = lookUp<mvDiagnosisFreeFunction>("mvDiagnosisFree");
    mvDiagnosisCountFunction count = lookUp<mvDiagnosisCountFunction>("mvDiagnosisCount");
    mvDiagnosisTextFunction text = lookUp<mvDiagnosisTextFunction>("mvDiagnosisText");
    mvDiagnosisNumberFunction number = lookUp<mvDiagnosisNumberFunction>("mvDiagnosisNumber");

    bool areThere() const
    {
        return readers != nullptr && atr != nullptr && release != nullptr && count != nullptr &&
               text != nullptr && number != nullptr;
    }
};

class Handle {
public:
    Handle(const Functions& functions, mvDiagnosis* diagnosis)
        : m_functions(functions)
        , m_diagnosis(diagnosis, functions.release)
    {
    }

    bool isMade() const { return m_diagnosis != nullptr; }

    int count(int group) const { return std::max(0, m_functions.count(m_diagnosis.get(), group)); }

    QString text(int index, int field) const
    {
        return QString::fromUtf8(m_functions.text(m_diagnosis.get(), index, field));
    }

    template <typename Value = long>
    std::optional<Value> number(int index, int field) const
    {
        const long value = m_functions.number(m_diagnosis.get(), index, field);
        return value == MV_NOT_KNOWN ? std::nullopt : std::make_optional(static_cast<Value>(value));
    }

    std::optional<bool> yesOrNo(int index, int field) const
    {
        const std::optional<long> value = number(index, field);
        return value ? std::make_optional(*value != 0) : std::nullopt;
    }

    // A number that this program has no name for is not known.
    template <typename Value, std::size_t size>
    std::optional<Value> oneOf(const std::pair<long, Value> (&values)[size], int index,
                               int field) const
    {
        const std::optional<long> told = number(index, field);
        for (const auto& [value, name] : values) {
            if (told == value) {
                return name;
            }
        }
        return std::nullopt;
    }

private:
    const Functions& m_functions;
    std::unique_ptr<mvDiagnosis, mvDiagnosisFreeFunction> m_diagnosis;
};

constexpr std::pair<long, ServiceState> services[] = {
    {MV_SERVICE_RUNNING, ServiceState::running},
    {MV_SERVICE_STOPPED, ServiceState::stopped},
    {MV_SERVICE_REFUSING, ServiceState::refusing},
    {MV_SERVICE_FAILING, ServiceState::failing},
};
constexpr std::pair<long, ReaderKind> kinds[] = {
    {MV_KIND_PCSC, ReaderKind::pcsc},
    {MV_KIND_SOFTWARE, ReaderKind::software},
};
constexpr std::pair<long, CardState> cards[] = {
    {MV_CARD_ABSENT, CardState::absent},
    {MV_CARD_PRESENT, CardState::present},
    {MV_CARD_MUTE, CardState::mute},
    {MV_CARD_EXCLUSIVE, CardState::exclusive},
};
constexpr std::pair<long, MatchReason> matches[] = {
    {MV_MATCH_NONE, MatchReason::none},
    {MV_MATCH_ATR, MatchReason::atr},
    {MV_MATCH_MASKED_ATR, MatchReason::maskedAtr},
    {MV_MATCH_TOKEN, MatchReason::token},
    {MV_MATCH_DEFAULT, MatchReason::otherCards},
};
constexpr std::pair<long, PinTries> tries[] = {
    {MV_TRIES_NOT_LOW, PinTries::notLow},
    {MV_TRIES_LOW, PinTries::low},
    {MV_TRIES_LAST, PinTries::last},
    {MV_TRIES_LOCKED, PinTries::locked},
};

EntryDiagnosis entryAt(const Handle& told, int index)
{
    EntryDiagnosis entry;
    entry.match = told.oneOf(matches, index, MV_READER_MATCH);
    entry.title = told.text(index, MV_READER_ENTRY);
    entry.line = told.number<int>(index, MV_READER_ENTRY_LINE);
    entry.modelName = told.text(index, MV_READER_MODEL_NAME);
    entry.module = told.text(index, MV_READER_MODULE);
    entry.moduleFile = told.text(index, MV_READER_MODULE_FILE);
    entry.isCns = told.yesOrNo(index, MV_READER_CNS);
    entry.isFerrolux = told.yesOrNo(index, MV_READER_FERROLUX);
    return entry;
}

TokenDiagnosis tokenAt(const Handle& told, int index)
{
    TokenDiagnosis token;
    token.label = told.text(index, MV_TOKEN_LABEL);
    token.manufacturer = told.text(index, MV_TOKEN_MANUFACTURER);
    token.model = told.text(index, MV_TOKEN_MODEL);
    token.serialNumber = told.text(index, MV_TOKEN_SERIAL);
    token.flags = told.number<unsigned long>(index, MV_TOKEN_FLAGS);
    token.isActivated = told.yesOrNo(index, MV_TOKEN_ACTIVATED);
    token.pinTries = told.oneOf(tries, index, MV_TOKEN_PIN_TRIES);
    token.pinTriesLeft = told.number<int>(index, MV_TOKEN_PIN_TRIES_LEFT);
    return token;
}

std::optional<ToldError> errorAt(const Handle& told, int index, int number, int text)
{
    const long value = told.number(index, number).value_or(0);
    return value == 0 ? std::nullopt : std::make_optional(ToldError{value, told.text(index, text)});
}

ReaderDiagnosis readerAt(const Handle& told, int index)
{
    ReaderDiagnosis reader;
    reader.name = told.text(index, MV_READER_NAME);
    reader.kind = told.oneOf(kinds, index, MV_READER_KIND);
    reader.card = told.oneOf(cards, index, MV_READER_CARD);
    reader.atr = told.text(index, MV_READER_ATR);
    reader.entry = entryAt(told, index);
    reader.isModuleLoaded = told.yesOrNo(index, MV_READER_MODULE_LOADED);
    reader.slotCount = told.number<int>(index, MV_READER_SLOTS);
    reader.slot = told.number(index, MV_READER_SLOT);
    reader.token = tokenAt(told, index);
    reader.error = errorAt(told, index, MV_READER_ERROR, MV_READER_ERROR_TEXT);
    return reader;
}

Diagnosis valuesOf(const Handle& told)
{
    Diagnosis diagnosis;
    diagnosis.isTold = true;
    diagnosis.service = told.oneOf(services, 0, MV_SERVICE);
    diagnosis.tablePath = told.text(0, MV_TABLE_PATH);
    for (int i = 0; i < told.count(MV_COMPLAINTS); ++i) {
        diagnosis.complaints.append(told.text(i, MV_COMPLAINT));
    }
    for (int i = 0; i < told.count(MV_OBSTACLES); ++i) {
        const auto error = errorAt(told, i, MV_OBSTACLE_ERROR, MV_OBSTACLE_TEXT);
        diagnosis.obstacles.push_back(
            {error.value_or(ToldError{}), told.text(i, MV_OBSTACLE_MODULE)});
    }
    for (int i = 0; i < told.count(MV_READERS); ++i) {
        diagnosis.readers.push_back(readerAt(told, i));
    }
    return diagnosis;
}

// That the diagnosis itself failed is an obstacle like others.
Diagnosis failure()
{
    QByteArray text;
    long number = 0;
    getError(text, number);
    Diagnosis diagnosis;
    diagnosis.isTold = true;
    diagnosis.obstacles.push_back({{number, QString::fromUtf8(text)}, {}});
    return diagnosis;
}

// Empty without a session of the renewal library: the card libraries' own choice then.
QByteArray atrTable()
{
    return ATRini.toUtf8();
}

}  // namespace

const ReaderDiagnosis* Diagnosis::find(const QString& name) const
{
    const auto found =
        std::find_if(readers.begin(), readers.end(),
                     [&name](const ReaderDiagnosis& reader) { return reader.name == name; });
    return found != readers.end() ? &*found : nullptr;
}

Diagnosis diagnoseReaders()
{
    const Functions functions;
    if (!functions.areThere()) {
        return {};
    }
    const LibraryStreams streams(LibraryOutput::dropped, LibraryInput::empty);
    const Handle told(functions, functions.readers(atrTable().constData()));
    return told.isMade() ? valuesOf(told) : failure();
}

std::optional<Diagnosis> diagnoseAtr(const QString& atr)
{
    const Functions functions;
    if (!functions.areThere()) {
        return Diagnosis();
    }
    const LibraryStreams streams(LibraryOutput::dropped, LibraryInput::empty);
    const Handle told(functions, functions.atr(atr.toUtf8().constData(), atrTable().constData()));
    return told.isMade() ? std::make_optional(valuesOf(told)) : std::nullopt;
}

}  // namespace console
