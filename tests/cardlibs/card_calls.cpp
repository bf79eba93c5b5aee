#include "tests/cardlibs/card_calls.h"

#include "imports/molvane.h"
#include "imports/tarvelo.h"

#include <array>
#include <memory>

namespace cardlibs_test {
namespace {

// Arguments are char*, and a copy shows that nothing is written there.
std::vector<char> writableCopy(const std::string& text)
{
    std::vector<char> copy(text.begin(), text.end());
    copy.push_back('\0');
    return copy;
}

std::vector<std::string> split(const std::string& descriptor)
{
    std::vector<std::string> fields = {""};
    for (const char c : descriptor) {
        if (c == '#')
            fields.emplace_back();
        else
            fields.back() += c;
    }
    return fields;
}

class StoreBuffers {
public:
    explicit StoreBuffers(std::size_t elements)
        : m_buffers(elements, std::vector<char>(4096))
    {
        for (std::vector<char>& buffer : m_buffers)
            m_pointers.push_back(buffer.data());
    }

    char** pointers() { return m_pointers.data(); }
    std::string count() const { return m_buffers[0].data(); }
    std::vector<std::vector<std::string>> descriptors() const
    {
        std::vector<std::vector<std::string>> found;
        for (std::size_t i = 1; i < m_buffers.size() && m_buffers[i][0] != '\0'; ++i)
            found.push_back(split(m_buffers[i].data()));
        return found;
    }

private:
    std::vector<std::vector<char>> m_buffers;
    std::vector<char*> m_pointers;
};

}  // namespace

LastError lastError()
{
    LastError error;
    std::array<char, 255> text = {};
    error.result = mvLastError(text.data(), static_cast<int>(text.size()));
    error.number = mvLastErrno();
    error.text = text.data();
    return error;
}

ReadResult readCerts(const std::string& reader, const std::string& pin)
{
    ReadResult read;
    StoreBuffers cns(2);
    StoreBuffers pra(5);
    StoreBuffers aut(5);
    std::array<char, 32> praLabel = {};
    std::array<char, 32> autLabel = {};
    std::array<char, 9> expiry = {};
    read.result = rinnovo_Card_readCerts(writableCopy(reader).data(), writableCopy(pin).data(), 3,
                                         cns.pointers(), pra.pointers(), aut.pointers(),
                                         &read.pendingCns, &read.pendingPra, &read.pendingAut,
                                         praLabel.data(), autLabel.data(), expiry.data(), "");
    read.cns = cns.descriptors();
    read.pra = pra.descriptors();
    read.aut = aut.descriptors();
    read.cnsCount = cns.count();
    read.praCount = pra.count();
    read.autCount = aut.count();
    read.praLabel = praLabel.data();
    read.autLabel = autLabel.data();
    read.cnsExpiry = expiry.data();
    return read;
}

LabelResult findFreeLabels(const std::string& reader, const std::string& pin)
{
    LabelResult labels;
    std::array<char, 32> pra = {};
    std::array<char, 32> aut = {};
    labels.result = rinnovo_Card_findFreeCKAID(writableCopy(reader).data(),
                                               writableCopy(pin).data(), pra.data(), aut.data());
    labels.pra = pra.data();
    labels.aut = aut.data();
    return labels;
}

RequestResult createRequest(Function function, const std::string& label, const std::string& pin,
                            const std::string& ckaId, const std::string& subject)
{
    std::vector<char> p10(16384);
    RequestResult request;
    const auto create = function == Function::pra ? rinnovo_Card_createCertRequestPRA
                                                  : rinnovo_Card_createCertRequestAUT;
    request.result = create(p10.data(), writableCopy(label).data(), writableCopy(pin).data(),
                            writableCopy(ckaId).data(), writableCopy(subject).data(), false);
    request.pem = p10.data();
    return request;
}

int saveCertificate(Function function, const std::string& pin, const std::string& ckaId,
                    const std::string& label, const std::string& certificate)
{
    const auto save =
        function == Function::pra ? rinnovo_Card_saveCertPRA : rinnovo_Card_saveCertAUT;
    return save(writableCopy(pin).data(), writableCopy(ckaId).data(), writableCopy(label).data(),
                writableCopy(certificate).data(), false);
}

}  // namespace cardlibs_test
