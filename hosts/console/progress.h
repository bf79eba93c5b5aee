// A sign of life while the card works: making a key takes seconds.

#ifndef TARVELOQT_HOSTS_CONSOLE_PROGRESS_H
#define TARVELOQT_HOSTS_CONSOLE_PROGRESS_H

#include <condition_variable>
#include <mutex>
#include <thread>

namespace console {

// While it lives, and when standard error is a terminal, a line at its bottom tells the seconds
// that have passed; afterwards the line is gone. Nothing is shown for what takes less than a
// second, nor on anything but a terminal.
class Progress {
public:
    Progress();
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    Progress(Progress&&) = delete;
    Progress& operator=(Progress&&) = delete;

private:
    void show();

    // Its own descriptor: standard error may lead elsewhere while the library works.
    int m_terminal = -1;
    bool m_isOver = false;
    std::mutex m_mutex;
    std::condition_variable m_over;
    std::thread m_thread;
};

}  // namespace console

#endif
