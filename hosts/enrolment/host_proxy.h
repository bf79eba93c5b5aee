// A proxy that the host was told of by its user, for example in a dialog.

#ifndef TARVELOQT_HOSTS_ENROLMENT_HOST_PROXY_H
#define TARVELOQT_HOSTS_ENROLMENT_HOST_PROXY_H

#include "hosts/enrolment/configured_file.h"

#include <QString>

#include <memory>

namespace enrolment {

struct HostProxy {
    // "http://host:port"; empty: none.
    QString address;
    // Empty: no login.
    QString user;
    // Null without a login.
    std::shared_ptr<const Secret> password;
};

// The four texts as the library's variables nameProxy, portProxy, userProxy and pwdProxy have them;
// an empty name is no proxy, whatever the others say. The caller wipes its own password. Throws
// EnrolmentError (misconfigured), never with the password in it.
HostProxy hostProxy(const QString& name, const QString& port, const QString& user,
                    const QString& password);

}  // namespace enrolment

#endif
