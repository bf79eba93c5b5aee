// From the name of a PKCS#11 module to its file.

#ifndef TARVELOQT_CARDLIBS_TOKEN_MODULE_FILE_H
#define TARVELOQT_CARDLIBS_TOKEN_MODULE_FILE_H

#include <string>

namespace cardlibs::token {

// A name with a "/" is a file already. Otherwise the "module:" line of p11-kit's registration
// (<name>.module, in the user's, the system's or the packages' folder, in this order; see
// pkcs11.conf(5)) tells the file; a name that is not registered is taken as a file name. p11-kit
// looks for a file without a folder in its own module folder.
std::string moduleFile(const std::string& name);

}  // namespace cardlibs::token

#endif
