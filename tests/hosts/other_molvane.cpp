// A card-access library of another make: one reader with a card, no diagnosis.
#pragma GCC visibility push(default)
#include "imports/molvane.h"
#pragma GCC visibility pop

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool isToldTo(const char* answer)
{
    const char* told = std::getenv("OTHER_CARD");
    return told != nullptr && std::strcmp(told, answer) == 0;
}

constexpr int failed = -1;

// The callers' buffers have room for it.
void put(char* buffer, const char* text)
{
    std::memcpy(buffer, text, std::strlen(text) + 1);
}

}  // namespace

int mvGetReaderName(char* names, long* length)
{
    if (isToldTo("no-reader")) {
        return failed;
    }
    static const char name[] = "Lettore altrui|";
    std::memcpy(names, name, sizeof name);
    *length = sizeof name;
    return 0;
}

int mvInitializeFromATRLite(char* /*reader*/, char* /*atrTable*/, char* /*applicationFolder*/)
{
    return 0;
}

int mvIsCNSINCARD()
{
    return 0;
}

int mvIsFERROLUX()
{
    return 0;
}

int mvLogin(const char* /*pin*/)
{
    // Standard output is not a library's, but some print.
    std::puts("mvLogin");
    return 0;
}

int mvFinalize()
{
    return 0;
}

int mvGetPKCS11FromATRLite(char* /*reader*/, char* module, char* /*atrTable*/)
{
    put(module, "altrui.so");
    return 0;
}

int mvCNSToBeActivatedLite(long /*slot*/)
{
    return 0;
}

int mvCheckSmartCard(char* slotDescription, char* manufacturerID, char* model, char* serialNumber)
{
    if (isToldTo("refused")) {
        return failed;
    }
    put(slotDescription, "Lettore altrui");
    put(manufacturerID, "Altra casa");
    put(model, "Altro modello");
    put(serialNumber, "7900000000000001");
    return 0;
}

int getSlotBriskoLite()
{
    return 0;
}

int mvLastError(char* buffer, int size)
{
    if (size > 0) {
        buffer[0] = '\0';
    }
    return 0;
}

int mvLastErrno()
{
    return 0;
}
