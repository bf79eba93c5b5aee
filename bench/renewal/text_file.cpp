#include "bench/renewal/text_file.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace bench {

std::string readText(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    if (!stream) {
        throw std::runtime_error("cannot read " + file.string());
    }
    return text;
}

void writeText(const std::filesystem::path& file, const std::string& text)
{
    std::ofstream stream(file, std::ios::binary);
    stream << text;
    stream.close();
    if (!stream) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

}  // namespace bench
