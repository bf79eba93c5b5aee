// One session of the renewal library, from init_renew_system to free_renew_system.

#ifndef TARVELOQT_HOSTS_CONSOLE_CARD_SESSION_H
#define TARVELOQT_HOSTS_CONSOLE_CARD_SESSION_H

#include "hosts/console/library_streams.h"

#include <QString>

#include <card_v_func.h>

namespace console {

// The streams as the library's operations find them in this run: what it prints stays out of a
// JSON document, and nobody is asked who cannot answer.
LibraryOutput libraryOutput();
LibraryInput libraryInput();

class CardSession {
public:
    // Starts the session.
    CardSession();
    // Overwrites the PIN and ends the session, whatever happened in between.
    ~CardSession();
    CardSession(const CardSession&) = delete;
    CardSession& operator=(const CardSession&) = delete;
    CardSession(CardSession&&) = delete;
    CardSession& operator=(CardSession&&) = delete;

    RenewContext* context() { return &m_context; }
    QString setting(const QString& key) const;

    // Takes the certificate and recovery rows out, so that the next inventory starts from nothing:
    // the library leaves rows that it does not write again.
    void dropInventory();

    // The context for the installation of a recovered certificate: the settings and this recovery
    // row alone, so that the library's search can find no other.
    RenewContext recoveryContext(const QString& row) const;

private:
    RenewContext m_context;
};

}  // namespace console

#endif
