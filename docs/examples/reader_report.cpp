// Tells of every reader what the card libraries in place know about it, or that they do not tell.
// Usage: reader_report ATR-TABLE
#include <card_diagnosis.h>
#include <dlfcn.h>

#include <cstdio>

// The functions of whichever libmin_Molvane the program was started with.
template <typename Function>
static Function lookUp(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

int main(int argc, char* argv[])
{
    const auto diagnose = lookUp<mvDiagnoseReadersFunction>("mvDiagnoseReaders");
    const auto count = lookUp<mvDiagnosisCountFunction>("mvDiagnosisCount");
    const auto text = lookUp<mvDiagnosisTextFunction>("mvDiagnosisText");
    const auto number = lookUp<mvDiagnosisNumberFunction>("mvDiagnosisNumber");
    const auto release = lookUp<mvDiagnosisFreeFunction>("mvDiagnosisFree");
    if (!diagnose || !count || !text || !number || !release) {
        std::puts("readers: not known");
        return 0;
    }
    mvDiagnosis* diagnosis = diagnose(argc > 1 ? argv[1] : nullptr);
    if (!diagnosis)
        return 1;
    const auto shown = [&](int index, int field) {
        const char* value = text(diagnosis, index, field);
        return value ? value : "not known";
    };
    for (int i = 0; i < count(diagnosis, MV_OBSTACLES); ++i)
        std::printf("obstacle: %s\n", shown(i, MV_OBSTACLE_TEXT));
    for (int i = 0; i < count(diagnosis, MV_READERS); ++i) {
        std::printf("reader: %s\n", shown(i, MV_READER_NAME));
        std::printf("  ATR: %s\n", shown(i, MV_READER_ATR));
        std::printf("  card: %s\n", shown(i, MV_READER_MODEL_NAME));
        std::printf("  module: %s\n", shown(i, MV_READER_MODULE_FILE));
        if (number(diagnosis, i, MV_TOKEN_PIN_TRIES) == MV_TRIES_LAST)
            std::puts("  one more wrong PIN locks the card");
        if (number(diagnosis, i, MV_READER_ERROR) != 0)
            std::printf("  not usable: %s\n", shown(i, MV_READER_ERROR_TEXT));
    }
    release(diagnosis);
    return 0;
}
