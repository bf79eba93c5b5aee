// The card libraries' C functions with the buffers that the renewal library hands them.

#ifndef TARVELOQT_TESTS_CARDLIBS_CARD_CALLS_H
#define TARVELOQT_TESTS_CARDLIBS_CARD_CALLS_H

#include <string>
#include <vector>

namespace cardlibs_test {

struct LastError {
    int result = 0;
    int number = 0;
    std::string text;
};

LastError lastError();

struct ReadResult {
    int result = 0;
    // Split at "#", one for each element after the first.
    std::vector<std::vector<std::string>> cns;
    std::vector<std::vector<std::string>> pra;
    std::vector<std::vector<std::string>> aut;
    // Element 0 of the stores.
    std::string cnsCount;
    std::string praCount;
    std::string autCount;
    int pendingCns = 0;
    int pendingPra = 0;
    int pendingAut = 0;
    std::string praLabel;
    std::string autLabel;
    std::string cnsExpiry;
};

ReadResult readCerts(const std::string& reader, const std::string& pin);

struct LabelResult {
    int result = 0;
    std::string pra;
    std::string aut;
};

LabelResult findFreeLabels(const std::string& reader, const std::string& pin);

struct RequestResult {
    int result = 0;
    std::string pem;
};

enum class Function { aut, pra };

RequestResult createRequest(Function function, const std::string& label, const std::string& pin,
                            const std::string& ckaId, const std::string& subject);

int saveCertificate(Function function, const std::string& pin, const std::string& ckaId,
                    const std::string& label, const std::string& certificate);

}  // namespace cardlibs_test

#endif
