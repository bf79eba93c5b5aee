#include "tools/softcard/card_folder.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace softcard {
namespace {

namespace fs = std::filesystem;

void writeFile(const fs::path& file, const std::string& text)
{
    std::ofstream stream(file);
    stream << text;
    stream.close();
    if (!stream)
        throw std::runtime_error("cannot write " + file.string());
}

}  // namespace

CardFolder::CardFolder(const fs::path& path)
    : m_path(fs::absolute(path).lexically_normal())
{
}

bool CardFolder::holdsCard() const
{
    return fs::exists(finishedMark());
}

bool CardFolder::holdsRemains() const
{
    for (const fs::path& part :
         {configuration(), tokens(), pin(), securityOfficerPin(), authority(), finishedMark()})
        if (fs::exists(part))
            return true;
    return false;
}

void CardFolder::markFinished() const
{
    writeFile(finishedMark(), "");
}

void CardFolder::prepare() const
{
    fs::create_directories(m_path);
    fs::create_directories(tokens());
    fs::permissions(tokens(), fs::perms::owner_all);
    writeFile(configuration(), "directories.tokendir = " + tokens().string() +
                                   "\nobjectstore.backend = file\nlog.level = ERROR\n");
    useConfiguration();
}

void CardFolder::useConfiguration() const
{
    if (setenv("SOFTHSM2_CONF", configuration().c_str(), 1) != 0)
        throw std::runtime_error("cannot set SOFTHSM2_CONF");
}

void CardFolder::clear() const
{
    fs::remove(finishedMark());
    fs::remove_all(tokens());
    fs::remove_all(authority());
    for (const fs::path& file : {configuration(), pin(), securityOfficerPin()})
        fs::remove(file);
}

}  // namespace softcard
