#include "hosts/console/progress.h"

#include "hosts/console/language.h"

#include <QByteArray>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <system_error>

namespace console {

namespace {

// The line is rewritten in place and wiped at the end (ECMA-48: EL).
constexpr char backToStart[] = "\r";
constexpr char wiped[] = "\r\x1b[K";

void show(int terminal, const QByteArray& bytes)
{
    // A terminal that went away has nobody to look at it.
    [[maybe_unused]] const ssize_t written =
        ::write(terminal, bytes.constData(), static_cast<size_t>(bytes.size()));
}

}  // namespace

Progress::Progress()
{
    if (::isatty(STDERR_FILENO) != 1) {
        return;
    }
    m_terminal = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (m_terminal < 0) {
        return;
    }
    try {
        m_thread = std::thread([this] { show(); });
    } catch (const std::system_error&) {
        // Without a thread the card works in silence.
        ::close(m_terminal);
        m_terminal = -1;
    }
}

Progress::~Progress()
{
    if (m_terminal < 0) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_isOver = true;
    }
    m_over.notify_one();
    m_thread.join();
    ::close(m_terminal);
}

void Progress::show()
{
    const Text text("La carta lavora da %1 s ...", "The card has been working for %1 s ...");
    bool isShown = false;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (int seconds = 1;
         !m_over.wait_for(lock, std::chrono::seconds(1), [this] { return m_isOver; }); ++seconds) {
        console::show(m_terminal, backToStart + text.arg(QString::number(seconds)).toLocal8Bit());
        isShown = true;
    }
    if (isShown) {
        console::show(m_terminal, wiped);
    }
}

}  // namespace console
