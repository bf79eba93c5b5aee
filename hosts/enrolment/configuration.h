// Which authority, which way: from --ca or from a section of the configuration file.
//
// --ca WAY:VALUE describes an authority that needs no more than one value:
//     file:FOLDER  command:COMMAND  est:URL  cmp:URL
// --ca NAME is the section [NAME] of the configuration file, an INI file in UTF-8 whose key "way"
// names the way. docs/enrolment.md lists the keys of each. Secrets are never values: keys whose
// name ends in "-file" name the files that hold them.

#ifndef TARVELOQT_HOSTS_ENROLMENT_CONFIGURATION_H
#define TARVELOQT_HOSTS_ENROLMENT_CONFIGURATION_H

#include "hosts/enrolment/host_proxy.h"

#include <QMap>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

namespace enrolment {

struct Configuration {
    // As the person wrote it: the section's name or WAY:VALUE; for messages.
    QString name;
    QString way;
    // Every key but "way", as written.
    QMap<QString, QString> values;
    // Where relative paths begin; empty: the working folder.
    QString folder;
    // For ways over HTTP that have no key "proxy"; set by the host.
    HostProxy hostProxy = {};
};

// text: what --ca was given. file: path of the configuration file, read only for a NAME. Throws
// EnrolmentError (misconfigured): no such section or file, a line that cannot be read, a key twice.
Configuration configurationFrom(const QString& text, const QString& file);

// The section [default] of the file; nothing when the file is not there or has none. Throws as
// configurationFrom() does for a file that cannot be read.
std::optional<Configuration> defaultConfiguration(const QString& file);

// The value of a key; empty when it is not set.
QString valueOf(const Configuration& configuration, const QString& key);
// The same; throws EnrolmentError (misconfigured) when it is not set.
QString requiredValueOf(const Configuration& configuration, const QString& key);
// An absolute path; empty when the key is not set.
QString pathOf(const Configuration& configuration, const QString& key);
// Whole seconds, 1 to 3600. Throws EnrolmentError (misconfigured).
std::chrono::seconds secondsOf(const Configuration& configuration, const QString& key,
                               std::chrono::seconds otherwise);

// A misspelt key must not weaken anything silently: throws EnrolmentError (misconfigured) for a key
// that is neither in the list nor, where withProfiles, "profile" or "profile.OID".
void requireKnownKeys(const Configuration& configuration, const QStringList& known,
                      bool withProfiles);

// The profile for a policy: the value of "profile.OID"; for an empty policy that of "profile",
// which may be empty. Throws EnrolmentError (policyUnsupported) when the policy has none.
QString profileFor(const Configuration& configuration, const QString& policy);

[[noreturn]] void failMisconfigured(const Configuration& configuration, const QString& sentence);

}  // namespace enrolment

#endif
