// A host that asks for diagnoses of software tokens, where no PC/SC service is to be found.

#ifndef TARVELOQT_TESTS_CARDLIBS_DIAGNOSIS_FIXTURE_H
#define TARVELOQT_TESTS_CARDLIBS_DIAGNOSIS_FIXTURE_H

#include "imports/molvane.h"
#include "tests/cardlibs/proxy_fixture.h"
#include "tests/cardlibs/told_diagnosis.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace cardlibs_test {

struct FieldRow {
    int field;
    Told told;
};

inline void expectFields(const ToldDiagnosis& diagnosis, const std::vector<FieldRow>& rows)
{
    for (const FieldRow& row : rows)
        EXPECT_EQ(diagnosis.reader(row.field), row.told) << "field " << row.field;
}

class DiagnosisFixture : public ProxyFixture {
protected:
    ~DiagnosisFixture() override { mvFinalize(); }

    int open(const std::string& name)
    {
        std::string readerName = name;
        std::string nothing;
        return mvInitializeFromATRLite(readerName.data(), nothing.data(), nothing.data());
    }

    void addToken(const std::string& label)
    {
        const std::string command = "softhsm2-util --init-token --free --label " + label +
                                    " --pin 1234 --so-pin 12345678 >/dev/null 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0);
        startProxy();
    }
};

}  // namespace cardlibs_test

#endif
