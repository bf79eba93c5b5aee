// Files that a configuration names: trust anchors, certificates, keys, passwords.

#ifndef TARVELOQT_HOSTS_ENROLMENT_CONFIGURED_FILE_H
#define TARVELOQT_HOSTS_ENROLMENT_CONFIGURED_FILE_H

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <vector>

namespace enrolment {

// Bytes that are overwritten before their memory is released.
class Secret {
public:
    Secret() = default;
    // Takes the bytes over; the caller's vector is empty afterwards.
    explicit Secret(std::vector<char>&& bytes);
    Secret(const Secret&) = delete;
    Secret& operator=(const Secret&) = delete;
    Secret(Secret&& other) noexcept;
    Secret& operator=(Secret&& other) noexcept;
    ~Secret();

    // Followed by a NUL; valid as long as the object.
    const char* data() const;
    // Without the NUL.
    std::size_t size() const;
    bool isEmpty() const { return size() == 0; }

private:
    void wipe();

    // With the NUL; empty when there is no secret.
    std::vector<char> m_bytes;
};

// The content of a file of at most 1 MiB. Throws EnrolmentError (misconfigured).
QByteArray contentOf(const QString& path);

// The content of a file that is its owner's alone: an ordinary file, no link, of the present user,
// without any permission for others (0600 or 0400), at most 64 KiB. Throws EnrolmentError
// (misconfigured); the text never holds a part of the content.
Secret secretIn(const QString& path);
// The same without the line end after the last line: a password or a shared secret.
Secret passwordIn(const QString& path);

}  // namespace enrolment

#endif
