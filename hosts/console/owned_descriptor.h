// A file descriptor with one owner, which closes it.

#ifndef TARVELOQT_HOSTS_CONSOLE_OWNED_DESCRIPTOR_H
#define TARVELOQT_HOSTS_CONSOLE_OWNED_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace console {

class OwnedDescriptor {
public:
    OwnedDescriptor() = default;
    // Takes the descriptor over; a negative one, as open(2) gives it on failure, stands for none.
    explicit OwnedDescriptor(int descriptor)
        : m_descriptor(descriptor)
    {
    }
    ~OwnedDescriptor() { close(); }
    OwnedDescriptor(const OwnedDescriptor&) = delete;
    OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
    OwnedDescriptor(OwnedDescriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1))
    {
    }
    OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept
    {
        if (this != &other) {
            close();
            m_descriptor = std::exchange(other.m_descriptor, -1);
        }
        return *this;
    }

    bool isOpen() const { return m_descriptor >= 0; }
    int get() const { return m_descriptor; }
    // The caller closes it from now on.
    int release() { return std::exchange(m_descriptor, -1); }

private:
    void close()
    {
        if (m_descriptor >= 0) {
            // What matters was synced before; an error here changes nothing any more.
            static_cast<void>(::close(m_descriptor));
            m_descriptor = -1;
        }
    }

    int m_descriptor = -1;
};

}  // namespace console

#endif
