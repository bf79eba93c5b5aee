#include "tests/cardlibs/run_counts.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace cardlibs_test {
namespace {

void writeLine(const std::string& line)
{
    const char* file = std::getenv("TARVELOQT_RUN_COUNTS");
    if (file == nullptr)
        return;
    // Tests run side by side; what is appended in one write stays whole.
    const int descriptor = open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR);
    const bool isWritten = descriptor >= 0 && write(descriptor, line.data(), line.size()) ==
                                                  static_cast<ssize_t>(line.size());
    if (descriptor >= 0)
        close(descriptor);
    if (!isWritten)
        throw std::runtime_error(std::string("cannot count in ") + file);
}

}  // namespace

const char* keyTypeName(softcard::KeyType keyType)
{
    const bool isEc = keyType == softcard::KeyType::p256 || keyType == softcard::KeyType::p384;
    return isEc ? "EC" : "RSA";
}

void countRenewal(const std::string& kind, softcard::KeyType keyType, const std::string& way)
{
    writeLine("renewal " + kind + " " + keyTypeName(keyType) + " " + way + " 1\n");
}

void countDisturbedCalls(const std::string& operation, const std::string& disturbance,
                         std::size_t calls)
{
    writeLine("call " + operation + " " + disturbance + " - " + std::to_string(calls) + "\n");
}

}  // namespace cardlibs_test
