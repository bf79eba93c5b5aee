#include "cardlibs/token/module_file.h"

#include <cstdlib>
#include <fstream>
#include <vector>

namespace cardlibs::token {
namespace {

std::vector<std::string> registrationFolders()
{
    std::vector<std::string> folders;
    if (const char* configuration = std::getenv("XDG_CONFIG_HOME");
        configuration != nullptr && *configuration != '\0')
        folders.push_back(std::string(configuration) + "/pkcs11/modules");
    else if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0')
        folders.push_back(std::string(home) + "/.config/pkcs11/modules");
    folders.emplace_back(P11KIT_SYSTEM_MODULES);
    folders.emplace_back(P11KIT_PACKAGE_MODULES);
    return folders;
}

std::string withoutBlanks(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

std::string registeredFile(const std::string& registration)
{
    std::ifstream file(registration);
    std::string line;
    while (std::getline(file, line)) {
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos && withoutBlanks(line.substr(0, colon)) == "module")
            return withoutBlanks(line.substr(colon + 1));
    }
    return {};
}

}  // namespace

std::string moduleFile(const std::string& name)
{
    if (name.find('/') != std::string::npos)
        return name;
    const std::string registration = "/" + name + ".module";
    for (const std::string& folder : registrationFolders()) {
        std::string file = registeredFile(folder + registration);
        if (!file.empty())
            return file;
    }
    return name;
}

}  // namespace cardlibs::token
