#include "hosts/console/terminal.h"

#include <unistd.h>

#include <cerrno>

namespace console {

namespace {

constexpr int longestAnswer = 4096;

StreamUse& currentUse()
{
    static StreamUse use;
    return use;
}

// NO_COLOR: https://no-color.org.
bool showsTones(int descriptor)
{
    const QByteArray terminal = qgetenv("TERM");
    return ::isatty(descriptor) == 1 && qEnvironmentVariableIsEmpty("NO_COLOR") &&
           !terminal.isEmpty() && terminal != "dumb";
}

void writeAll(int descriptor, const QByteArray& bytes)
{
    const char* next = bytes.constData();
    auto left = static_cast<size_t>(bytes.size());
    while (left > 0) {
        const ssize_t written = ::write(descriptor, next, left);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            // A reader that went away must not stop a renewal half-way.
            return;
        }
        next += written;
        left -= static_cast<size_t>(written);
    }
}

}  // namespace

void setStreamUse(const StreamUse& use)
{
    currentUse() = use;
}

const StreamUse& streamUse()
{
    return currentUse();
}

void say(const QString& text)
{
    if (!streamUse().isJson) {
        writeAll(STDOUT_FILENO, text.toLocal8Bit() + '\n');
    }
}

void ask(const QString& question)
{
    writeAll(streamUse().isJson ? STDERR_FILENO : STDOUT_FILENO, question.toLocal8Bit());
}

void put(const QByteArray& bytes)
{
    writeAll(STDOUT_FILENO, bytes);
}

void complain(const QString& text)
{
    writeAll(STDERR_FILENO, text.toLocal8Bit() + '\n');
}

QString toned(Tone tone, const QString& text, int descriptor)
{
    if (!showsTones(descriptor)) {
        return text;
    }
    const char* parameters = "1";
    switch (tone) {
    case Tone::heading:
        break;
    case Tone::good:
        parameters = "1;32";
        break;
    case Tone::warning:
        parameters = "33";
        break;
    case Tone::problem:
        parameters = "1;31";
        break;
    }
    return QStringLiteral("\x1b[%1m%2\x1b[0m").arg(QLatin1String(parameters), text);
}

std::optional<QString> readAnswer()
{
    QByteArray line;
    bool anything = false;
    for (;;) {
        char byte = 0;
        const ssize_t got = ::read(STDIN_FILENO, &byte, 1);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        anything = true;
        if (byte == '\n') {
            break;
        }
        if (line.size() < longestAnswer) {
            line.append(byte);
        }
    }
    if (!anything) {
        return std::nullopt;
    }
    const QString answer = QString::fromLocal8Bit(line);
    if (!isTerminal()) {
        // As a terminal would have shown it.
        ask(answer + QLatin1Char('\n'));
    }
    return answer;
}

bool isTerminal()
{
    return ::isatty(STDIN_FILENO) == 1;
}

bool mayAsk()
{
    return streamUse().asksAlways || isTerminal();
}

}  // namespace console
