// A diagnosis as a host sees it, for tests.

#ifndef TARVELOQT_TESTS_CARDLIBS_TOLD_DIAGNOSIS_H
#define TARVELOQT_TESTS_CARDLIBS_TOLD_DIAGNOSIS_H

#include "card_diagnosis.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

namespace cardlibs_test {

// A text, a number, or neither: what a field of a diagnosis can hold.
struct Told {
    Told() = default;
    Told(const char* value)
        : text(value)
    {
    }
    Told(std::string value)
        : text(std::move(value))
    {
    }
    // An integer or one of the header's constants.
    template <typename Value, typename = decltype(static_cast<long>(std::declval<Value>()))>
    Told(Value value)
        : number(static_cast<long>(value))
    {
    }

    std::optional<std::string> text;
    std::optional<long> number;

    friend bool operator==(const Told& one, const Told& other)
    {
        return one.text == other.text && one.number == other.number;
    }
    friend std::ostream& operator<<(std::ostream& out, const Told& told)
    {
        if (told.text)
            return out << '"' << *told.text << '"';
        if (told.number)
            return out << *told.number;
        return out << "not known";
    }
};

inline const Told notKnown;

class ToldDiagnosis {
public:
    explicit ToldDiagnosis(mvDiagnosis* handle)
        : m_handle(handle)
    {
    }

    bool isMade() const { return m_handle != nullptr; }
    int count(int group) const { return mvDiagnosisCount(m_handle.get(), group); }

    Told field(int index, int number) const
    {
        Told told;
        if (const char* text = mvDiagnosisText(m_handle.get(), index, number))
            told.text = text;
        const long value = mvDiagnosisNumber(m_handle.get(), index, number);
        if (value != MV_NOT_KNOWN)
            told.number = value;
        return told;
    }
    Told reader(int number) const { return field(0, number); }

private:
    struct Free {
        void operator()(mvDiagnosis* diagnosis) const { mvDiagnosisFree(diagnosis); }
    };
    std::unique_ptr<mvDiagnosis, Free> m_handle;
};

inline ToldDiagnosis diagnoseReaders(const std::string& table)
{
    return ToldDiagnosis(mvDiagnoseReaders(table.c_str()));
}

}  // namespace cardlibs_test

#endif
