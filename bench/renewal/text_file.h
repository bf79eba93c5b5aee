#ifndef TARVELOQT_BENCH_RENEWAL_TEXT_FILE_H
#define TARVELOQT_BENCH_RENEWAL_TEXT_FILE_H

#include <filesystem>
#include <string>

namespace bench {

// Whole files. Both throw std::runtime_error.
std::string readText(const std::filesystem::path& file);
void writeText(const std::filesystem::path& file, const std::string& text);

}  // namespace bench

#endif
