// What a card-access library adds that knows of the diagnosis and cannot make one.
#pragma GCC visibility push(default)
#include <card_diagnosis.h>
#pragma GCC visibility pop

mvDiagnosis* mvDiagnoseReaders(const char* /*atrTable*/)
{
    return nullptr;
}

mvDiagnosis* mvDiagnoseAtr(const char* /*atr*/, const char* /*atrTable*/)
{
    return nullptr;
}

void mvDiagnosisFree(mvDiagnosis* /*diagnosis*/) {}

int mvDiagnosisCount(const mvDiagnosis* /*diagnosis*/, int /*group*/)
{
    return -1;
}

const char* mvDiagnosisText(const mvDiagnosis* /*diagnosis*/, int /*index*/, int /*field*/)
{
    return nullptr;
}

long mvDiagnosisNumber(const mvDiagnosis* /*diagnosis*/, int /*index*/, int /*field*/)
{
    return MV_NOT_KNOWN;
}
