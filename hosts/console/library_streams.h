// Standard input and standard output as an operation of the renewal library finds them.
//
// The library asks its questions on the two streams, and what a card's module prints lands there
// too. Around an operation the streams can be exchanged, at the level of file descriptors, so that
// nothing mixes with what this program prints and nobody is asked who cannot answer.

#ifndef TARVELOQT_HOSTS_CONSOLE_LIBRARY_STREAMS_H
#define TARVELOQT_HOSTS_CONSOLE_LIBRARY_STREAMS_H

#include "hosts/console/owned_descriptor.h"

#include <QString>

#include <optional>

namespace console {

enum class LibraryOutput {
    shown,            // standard output stays what it is
    onStandardError,  // dropped when standard error is closed
    dropped,
    kept,  // printed() tells it
};

enum class LibraryInput {
    asItIs,
    empty,  // at its end from the start
};

struct PrintedText {
    // In the encoding of the locale; show it through printable().
    QString text;
    // The library printed more than was kept.
    bool isCut = false;
};

class LibraryStreams {
public:
    // Bytes of the library's output that are kept.
    static constexpr int largestKept = 65536;

    // Writes out what stdio, std::cout and the library's log stream still hold, then exchanges the
    // streams. Throws Stop with ExitCode::internalError, the streams as before, when the system
    // refuses. Guards may be nested; the inner one ends first.
    LibraryStreams(LibraryOutput output, LibraryInput input);
    // restore(); says on standard error what it cannot throw.
    ~LibraryStreams();
    LibraryStreams(const LibraryStreams&) = delete;
    LibraryStreams& operator=(const LibraryStreams&) = delete;
    LibraryStreams(LibraryStreams&&) = delete;
    LibraryStreams& operator=(LibraryStreams&&) = delete;

    // Brings what the library has printed where it belongs and puts the streams back, closed ones
    // closed. Does nothing the second time. Throws Stop with ExitCode::internalError when a stream
    // cannot be put back. Not reached: other stream objects that hold bytes back beyond this.
    void restore();

    // What was printed so far, before or after restore(); empty unless it is kept.
    PrintedText printed() const;

private:
    // One of the standard descriptors, exchanged until restore() or the end.
    class Exchanged {
    public:
        // Throws std::system_error, the descriptor as before.
        Exchanged(int standard, int replacement);
        ~Exchanged();
        Exchanged(const Exchanged&) = delete;
        Exchanged& operator=(const Exchanged&) = delete;
        Exchanged(Exchanged&&) = delete;
        Exchanged& operator=(Exchanged&&) = delete;
        // 0, or the error number of the attempt.
        int restore();

    private:
        int m_standard;
        // None when the descriptor was closed.
        OwnedDescriptor m_original;
        bool m_isExchanged = true;
    };

    OwnedDescriptor m_kept;
    std::optional<Exchanged> m_output;
    std::optional<Exchanged> m_input;
};

}  // namespace console

#endif
