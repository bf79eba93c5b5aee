// What the two card libraries remember for a process, once for both.

#ifndef TARVELOQT_CARDLIBS_STATE_SHARED_STATE_H
#define TARVELOQT_CARDLIBS_STATE_SHARED_STATE_H

#include "cardlibs/state/card_error.h"

#include <optional>
#include <string>

namespace cardlibs::state {

struct LastError {
    unsigned long number = 0;
    std::string text;
};

struct SharedState {
    std::optional<LastError> lastError;
    // Reader of the last free-label call, which request and saving use.
    std::string renewalReader;
    // ATR table last handed to a function of the card-access library; empty when none was.
    std::string tablePath;
    // Application folder last handed to rinnovo_Card_readCerts; empty when none was.
    std::string applicationFolder;
};

// The process's own. Not guarded: the libraries are called from one thread.
SharedState& sharedState();

void clearError();
void recordError(const CardError& error);

// The ATR table to read: the path handed over, else "/../p11/ATR-renew.ini" behind the application
// folder handed over, else behind the running executable's folder.
std::string currentTablePath();

// Runs the body of one C function: clears the last error, and turns whatever is thrown into the
// last error and `failure`.
template <typename Result, typename Body>
Result guarded(Result failure, Body&& body) noexcept
{
    try {
        clearError();
        return body();
    } catch (const CardError& error) {
        recordError(error);
    } catch (const std::exception& error) {
        recordError(CardError(fault::internal, error.what()));
    }
    return failure;
}

}  // namespace cardlibs::state

#endif
