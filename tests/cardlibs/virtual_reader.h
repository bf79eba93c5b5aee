// A PC/SC service with virtual readers, and cards to put into them.

#ifndef TARVELOQT_TESTS_CARDLIBS_VIRTUAL_READER_H
#define TARVELOQT_TESTS_CARDLIBS_VIRTUAL_READER_H

#include "cardlibs/bytes.h"

#include <sys/types.h>

#include <string>
#include <thread>

namespace cardlibs_test {

// Debian's pcscd with the readers of vsmartcard-vpcd. One at a time on a machine: objects wait for
// each other, across processes too.
class PcscDaemon {
public:
    PcscDaemon();
    ~PcscDaemon();
    PcscDaemon(const PcscDaemon&) = delete;
    PcscDaemon& operator=(const PcscDaemon&) = delete;

    // Empty when the daemon can run here, else why not.
    static std::string obstacle();

    // Starts it and waits for its readers; false when they do not come.
    bool start();
    void stop();
    // As a daemon that hangs, and one that goes on.
    void freeze();
    void thaw();
    // Whether users besides root may use its socket.
    void permitSocket(bool isPermitted);

private:
    int m_lock = -1;
    pid_t m_daemon = -1;
};

// In the first (0) or second (1) virtual reader as long as the object lives. It answers nothing but
// its ATR.
class VirtualCard {
public:
    VirtualCard(int reader, cardlibs::Bytes atr);
    ~VirtualCard();
    VirtualCard(const VirtualCard&) = delete;
    VirtualCard& operator=(const VirtualCard&) = delete;

    bool isInserted() const { return m_socket >= 0; }

private:
    void serve();
    bool receive(cardlibs::Bytes& message);
    bool send(const cardlibs::Bytes& message);

    cardlibs::Bytes m_atr;
    int m_socket = -1;
    std::thread m_thread;
};

inline constexpr char firstReader[] = "Virtual PCD 00 00";
inline constexpr char secondReader[] = "Virtual PCD 00 01";

}  // namespace cardlibs_test

#endif
