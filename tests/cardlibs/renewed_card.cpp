#include "tests/cardlibs/renewed_card.h"

#include "cardlibs/x509/certificate.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace cardlibs_test {

using ::testing::IsEmpty;

using cardlibs::x509::Certificate;

void RenewedCard::makeCardOfOthers()
{
    makeCard({});
    onCard([&](cardlibs::token::Session& session) {
        addForeignObjects(session, folder().authority());
    });
    m_foreign = objectFiles(folder().tokens());
    ASSERT_EQ(m_foreign.size(), foreignObjects);
}

Due RenewedCard::addDue(const softcard::CertifiedKeyOrder& order, const std::string& kind)
{
    Due due;
    due.kind = kind;
    due.keyType = order.keyType;
    const ObjectFiles before = objectFiles(folder().tokens());
    due.certificate = addCertificate(order);
    due.files = without(objectFiles(folder().tokens()), before);
    return due;
}

Due RenewedCard::addDue(const std::string& kind, softcard::KeyType keyType, int number)
{
    return addDue(softcard::orderFor(softcard::findKind(kind), number, keyType, 30 + number), kind);
}

void RenewedCard::requestFor(Due& due)
{
    due.descriptor = descriptorOf(read(), due.certificate);
    const RequestResult made = RenewalFixture::requestFor(due.kind, due.descriptor);
    ASSERT_EQ(made.result, 0) << lastError().text;
    due.request = made.pem;
    due.issued = issue(made.pem);
}

int RenewedCard::install(const Due& due, bool named)
{
    return save(functionFor(due.kind), named ? due.descriptor.at(ckaIdField) : "", due.issued);
}

void RenewedCard::remove(const Due& due)
{
    onCard([&](cardlibs::token::Session& session) {
        cardlibs::token::Template sought;
        sought.bytes(CKA_ID, *cardlibs::parseHexadecimal(due.descriptor.at(ckaIdField)));
        const auto found = session.find(sought);
        ASSERT_EQ(found.size(), 3u);
        for (const CK_OBJECT_HANDLE handle : found)
            session.destroy(handle);
    });
}

void RenewedCard::expectRenewed(const Due& due, const char* way)
{
    const cardlibs::Bytes issued = certificateBytes(due.issued);
    const TokenLook token = lookAtToken(cardPin);
    EXPECT_TRUE(token.works(issued));
    EXPECT_FALSE(token.holds(due.certificate));
    const ObjectFiles now = objectFiles(folder().tokens());
    EXPECT_EQ(without(due.files, now).size(), due.files.size());

    const std::string serial = Certificate::parse(issued).value().serialNumber();
    const ReadResult stores = read();
    const auto& store = storeOf(stores, due.kind);
    const auto renewed = std::find_if(store.begin(), store.end(), [&](const auto& descriptor) {
        return descriptor.at(serialField) == serial;
    });
    ASSERT_NE(renewed, store.end());
    EXPECT_EQ(renewed->at(subjectField), due.descriptor.at(subjectField));
    EXPECT_GT(renewed->at(notAfterField), due.descriptor.at(notAfterField));
    const auto names = objectNames();
    EXPECT_EQ(std::count_if(names.begin(), names.end(),
                            [&](const std::string& name) {
                                return name.find(" " + renewed->at(ckaIdField)) !=
                                       std::string::npos;
                            }),
              3);
    if (!HasFailure())
        countRenewal(due.kind, due.keyType, way);
}

void RenewedCard::expectForeignObjectsUntouched()
{
    EXPECT_THAT(changedFiles(m_foreign, objectFiles(folder().tokens())), IsEmpty());
}

bool RenewedCard::isUsable(const Due& due)
{
    const TokenLook token = lookAtToken(cardPin);
    return token.works(due.certificate) || token.works(certificateBytes(due.issued));
}

const std::vector<std::vector<std::string>>& RenewedCard::storeOf(const ReadResult& stores,
                                                                  const std::string& kind)
{
    if (isCnsKind(kind))
        return stores.cns;
    return functionFor(kind) == Function::pra ? stores.pra : stores.aut;
}

int RenewedCard::pendingOf(const ReadResult& stores, const std::string& kind)
{
    if (isCnsKind(kind))
        return stores.pendingCns;
    return functionFor(kind) == Function::pra ? stores.pendingPra : stores.pendingAut;
}

std::string rowName(std::string kind, softcard::KeyType keyType)
{
    kind.erase(std::remove(kind.begin(), kind.end(), '-'), kind.end());
    return kind + "_" + keyTypeName(keyType) + (keyType == softcard::KeyType::p384 ? "384" : "");
}

}  // namespace cardlibs_test
