#ifndef TARVELOQT_SESSION_SECRET_BYTES_H
#define TARVELOQT_SESSION_SECRET_BYTES_H

#include <QString>

#include <string.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace session {

// Overwrites memory before it is given back, also when a container grows out of it.
template <typename T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() = default;
    template <typename U>
    WipingAllocator(const WipingAllocator<U>& /*other*/)
    {
    }

    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* memory, std::size_t count)
    {
        explicit_bzero(memory, count * sizeof(T));
        std::allocator<T>().deallocate(memory, count);
    }

    friend bool operator==(const WipingAllocator& /*a*/, const WipingAllocator& /*b*/)
    {
        return true;
    }
    friend bool operator!=(const WipingAllocator& /*a*/, const WipingAllocator& /*b*/)
    {
        return false;
    }
};

// Bytes of a PIN.
using SecretBytes = std::vector<char, WipingAllocator<char>>;

// The text in UTF-8, NUL-terminated.
SecretBytes secretUtf8(const QString& text);

}  // namespace session

#endif
