// What the two scripted card libraries answer, and what they were asked.
//
// A test hands over the steps of a conversation in order. Every call of a card-library function
// takes the next step; a call beyond the script, or of another function than the step names, fails
// the test and answers with an error. Nothing restarts by itself. A step left over is reported by
// stepsLeftOver.
//
// Calls are recorded as text, `function("text", 3, false)`, with every text copied at the moment of
// the call.

#ifndef TARVELOQT_TESTS_SUPPORT_CARD_SCRIPT_H
#define TARVELOQT_TESTS_SUPPORT_CARD_SCRIPT_H

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace support {

// What rinnovo_Card_readCerts finds: bytes of each element from number 0, flags, labels, expiry.
// What is left out is not written. Bytes are written without a NUL, into zeroed buffers.
struct CardContents {
    std::vector<std::string> cnsStore;
    std::vector<std::string> praStore;
    std::vector<std::string> autStore;
    int pendingCns = 0;
    int pendingKeyPra = 0;
    int pendingKeyAut = 0;
    std::string labelPra;
    std::string labelAut;
    std::string cnsExpiry;
};

// One expected call. The outputs are the bytes written to the function's text buffers, in the order
// of its parameters and without a NUL; the observer runs first, while the caller waits.
class Step {
public:
    explicit Step(std::string function);

    Step returning(int result) const;
    Step writing(std::vector<std::string> outputs) const;
    Step reading(CardContents contents) const;
    Step observing(std::function<void()> observer) const;
    // The function then spoils every text that it is handed and could write into.
    Step spoiling() const;

    const std::string& function() const { return m_function; }
    int result() const { return m_result; }
    const std::string& output(std::size_t index) const;
    const std::optional<CardContents>& contents() const { return m_contents; }
    void observe() const;
    // For the fakes: does what spoiling() asked for.
    void spoil(const std::vector<char*>& texts) const;

private:
    std::string m_function;
    int m_result = 0;
    std::vector<std::string> m_outputs;
    std::optional<CardContents> m_contents;
    std::function<void()> m_observer;
    bool m_spoils = false;
};

Step call(const std::string& function);

// Replaces the script and forgets the recorded calls.
void setScript(std::vector<Step> steps);

// Adds steps at the end.
void extendScript(const std::vector<Step>& steps);

// The functions of the steps that no call has taken yet.
std::vector<std::string> stepsLeftOver();

// The calls since setScript, as text.
std::vector<std::string> calls();

// Whether the texts handed in are kept; without it a call is recorded by its function's name alone.
// setScript switches it on.
void keepTexts(bool keep);

// How an argument is shown. A null text is shown as null.
std::string shown(const char* text);
std::string shown(const std::string& text);
std::string shown(long number);
std::string shown(int number);
std::string shown(bool flag);

// The text of a call whose arguments are shown already.
std::string callText(const std::string& function, const std::vector<std::string>& arguments);

// The text of a call with these arguments.
template <typename... Arguments>
std::string called(const std::string& function, const Arguments&... arguments)
{
    return callText(function, {shown(arguments)...});
}

// For the fakes: records the call and gives its step.
Step takeStep(const std::string& function, const std::vector<std::string>& arguments);

// For the fakes: the texts of a call, only when they are kept.
bool areTextsKept();

// For the fakes: fails the test unless the buffer consists of zero bytes.
void expectZeroed(const char* buffer, std::size_t size, const std::string& name);

// For the fakes: writes bytes into a zeroed buffer. More bytes than the buffer holds fail the test.
void write(char* buffer, std::size_t size, const std::string& bytes);

}  // namespace support

#endif
