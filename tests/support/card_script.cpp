#include "card_script.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace support {

namespace {

// Any value that no function of the card libraries gives a meaning to.
constexpr int answerBeyondScript = -32000;

struct Script {
    std::vector<Step> steps;
    std::size_t next = 0;
    std::vector<std::string> calls;
    bool keepTexts = true;
};

Script& script()
{
    static Script theScript;
    return theScript;
}

}  // namespace

Step::Step(std::string function)
    : m_function(std::move(function))
{
}

Step Step::returning(int result) const
{
    Step step = *this;
    step.m_result = result;
    return step;
}

Step Step::writing(std::vector<std::string> outputs) const
{
    Step step = *this;
    step.m_outputs = std::move(outputs);
    return step;
}

Step Step::reading(CardContents contents) const
{
    Step step = *this;
    step.m_contents = std::move(contents);
    return step;
}

Step Step::observing(std::function<void()> observer) const
{
    Step step = *this;
    step.m_observer = std::move(observer);
    return step;
}

Step Step::spoiling() const
{
    Step step = *this;
    step.m_spoils = true;
    return step;
}

const std::string& Step::output(std::size_t index) const
{
    static const std::string nothing;
    return index < m_outputs.size() ? m_outputs[index] : nothing;
}

void Step::observe() const
{
    if (m_observer)
        m_observer();
}

void Step::spoil(const std::vector<char*>& texts) const
{
    for (char* text : texts) {
        if (m_spoils)
            std::fill_n(text, std::strlen(text), '?');
    }
}

Step call(const std::string& function)
{
    return Step(function);
}

void setScript(std::vector<Step> steps)
{
    script() = Script{std::move(steps), 0, {}, true};
}

void extendScript(const std::vector<Step>& steps)
{
    script().steps.insert(script().steps.end(), steps.begin(), steps.end());
}

std::vector<std::string> stepsLeftOver()
{
    std::vector<std::string> functions;
    for (std::size_t i = script().next; i < script().steps.size(); ++i)
        functions.push_back(script().steps[i].function());
    return functions;
}

std::vector<std::string> calls()
{
    return script().calls;
}

void keepTexts(bool keep)
{
    script().keepTexts = keep;
}

bool areTextsKept()
{
    return script().keepTexts;
}

std::string shown(const char* text)
{
    if (!areTextsKept())
        return {};
    return text == nullptr ? "null" : shown(std::string(text));
}

std::string shown(const std::string& text)
{
    return '"' + text + '"';
}

std::string shown(long number)
{
    return std::to_string(number);
}

std::string shown(int number)
{
    return std::to_string(number);
}

std::string shown(bool flag)
{
    return flag ? "true" : "false";
}

std::string callText(const std::string& function, const std::vector<std::string>& arguments)
{
    std::string text = function + '(';
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        text += i == 0 ? "" : ", ";
        text += arguments[i];
    }
    return text + ')';
}

Step takeStep(const std::string& function, const std::vector<std::string>& arguments)
{
    Script& current = script();
    const std::string line = current.keepTexts ? callText(function, arguments) : function;
    current.calls.push_back(line);

    const std::size_t number = current.next;
    if (number >= current.steps.size()) {
        ADD_FAILURE() << "call beyond the script: " << line;
        return Step(function).returning(answerBeyondScript);
    }
    Step step = current.steps[number];
    if (step.function() != function) {
        ADD_FAILURE() << "step " << number << " expects " << step.function() << ", called was "
                      << line;
        return Step(function).returning(answerBeyondScript);
    }
    ++current.next;
    step.observe();
    return step;
}

void expectZeroed(const char* buffer, std::size_t size, const std::string& name)
{
    EXPECT_TRUE(std::all_of(buffer, buffer + size, [](char byte) { return byte == '\0'; }))
        << name << " is not zeroed over its " << size << " bytes";
}

void write(char* buffer, std::size_t size, const std::string& bytes)
{
    if (bytes.size() > size) {
        ADD_FAILURE() << bytes.size() << " bytes scripted for a buffer of " << size;
        return;
    }
    std::copy(bytes.begin(), bytes.end(), buffer);
}

}  // namespace support
