// The renewal records on disk: one file per pending key in the folder `renewals` beside the
// library's log, readable by its owner alone and written atomically.
//
// All failures throw Stop with ExitCode::fileFailed, the path and the reason.

#ifndef TARVELOQT_HOSTS_CONSOLE_RECORD_STORE_H
#define TARVELOQT_HOSTS_CONSOLE_RECORD_STORE_H

#include "hosts/console/exit_code.h"
#include "hosts/console/renewal_record.h"

#include <QString>

#include <optional>
#include <vector>

namespace console {

struct RecordListing {
    // The oldest first.
    std::vector<RenewalRecord> records;
    // One for each file that looks like a record and cannot be read.
    std::vector<Stop> complaints;
};

class RecordStore {
public:
    // The user's folder that the library keeps its log in: ~/.brisko.
    static QString userFolder();

    explicit RecordStore(QString userFolder);

    // Makes the folders. Called before the card is changed, so that what would stop save() is known
    // in time.
    void prepare() const;

    RecordListing list() const;

    // The record of a key, by keyDigest; nothing when there is none.
    std::optional<RenewalRecord> find(const QString& publicKeyDigest) const;

    // Replaces the record of the same key. Fields of later programs are kept when the record is one
    // that find() or list() gave.
    void save(const RenewalRecord& record) const;

    // The renewal is finished. It is no error that there is no record.
    void remove(const QString& publicKeyDigest) const;

private:
    QString m_userFolder;
};

}  // namespace console

#endif
