// What the card libraries should never answer, and what no answer may do.

#include "tests/support/eligibility_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>

using namespace support;
using testing::AnyOf;

namespace {

class Robustness : public EligibilityTest {
protected:
    std::vector<std::string> rowsOf(const Kind& kind)
    {
        std::vector<std::string> keys;
        for (const auto& entry : plain(context)) {
            if (entry.first.rfind(kind.name + ": ", 0) == 0)
                keys.push_back(entry.first);
        }
        return keys;
    }

    static std::vector<std::string> rowKeys(const Kind& kind, int last)
    {
        std::vector<std::string> keys;
        for (int i = 1; i <= last; ++i)
            keys.push_back(rowKey(kind, i));
        return keys;
    }

    // An inventory of this card, which gives this result.
    void inventory(const CardContents& card, int result = 0)
    {
        setting(renew_context::reader, QStringLiteral("Lettore"));
        setting(renew_context::pin, QStringLiteral("12345678"));
        setScript({call("rinnovo_Card_readCerts").reading(card)});
        EXPECT_EQ(fill_sc_objects(&context), result);
    }
};

TEST_F(Robustness, countBeyondTheStore_recordsForWhatItCanHold)
{
    for (const Kind& kind : allKinds()) {
        for (const int count : {5, 6, 1000, 2147483647}) {
            SCOPED_TRACE(kind.name + ", " + std::to_string(count));
            context.clear();
            checkAll(kind, std::vector<std::string>(kind.capacity, kind.text(renewable(kind))));
            context.clear();
            run(kind, 0, count);
            EXPECT_EQ(rowsOf(kind), rowKeys(kind, static_cast<int>(kind.capacity)));
        }
    }
}

TEST_F(Robustness, inventoryCountBeyondTheStores_recordsForWhatTheyCanHold)
{
    CardContents card;
    card.cnsStore = {"3", authenticationText(renewable(cns()))};
    card.praStore = {"9", signatureText(renewable(pra())), signatureText(renewable(pra())),
                     signatureText(renewable(pra())), signatureText(renewable(pra()))};
    card.autStore = {"100", authenticationText(renewable(aut())),
                     authenticationText(renewable(aut())), authenticationText(renewable(aut())),
                     authenticationText(renewable(aut()))};
    card.labelPra = "DS1";
    inventory(card);
    EXPECT_EQ(rowsOf(cns()), rowKeys(cns(), 1));
    EXPECT_EQ(rowsOf(pra()), rowKeys(pra(), 4));
    EXPECT_EQ(rowsOf(aut()), rowKeys(aut(), 4));
}

TEST_F(Robustness, countTooLargeForANumber_nothingBeyondTheStoreIsRead)
{
    setting(renew_context::reader, QStringLiteral("Lettore"));
    setting(renew_context::pin, QStringLiteral("12345678"));
    for (const char* text : {"2147483647", "99999999999", "999999999999999999999999999999"}) {
        SCOPED_TRACE(text);
        CardContents card;
        card.cnsStore = {text};
        card.praStore = {text};
        card.autStore = {text, authenticationText(renewable(aut()))};
        card.labelPra = "DS1";
        setScript({call("rinnovo_Card_readCerts").reading(card)});
        fill_sc_objects(&context);
        EXPECT_LE(rowsOf(aut()).size(), 4U);
        EXPECT_LE(rowsOf(pra()).size(), 4U);
        EXPECT_LE(rowsOf(cns()).size(), 1U);
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

TEST_F(Robustness, countWithoutEnd_isReadInItsBuffer)
{
    CardContents card;
    card.autStore = {"1" + std::string(4095, ' '), authenticationText(renewable(aut()))};
    card.labelPra = "DS1";
    inventory(card);
    EXPECT_EQ(numCertsAUT, 1);
    EXPECT_EQ(rowsOf(aut()), rowKeys(aut(), 1));
}

TEST_F(Robustness, nullStoreElement_inventsNothing)
{
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        context.clear();
        for (std::size_t i = 0; i <= kind.capacity; ++i)
            kind.store[i] = nullptr;
        run(kind, 0, static_cast<int>(kind.capacity));
        EXPECT_EQ(rowsOf(kind).size(), static_cast<std::size_t>(kind.capacity));
        for (const auto& entry : plain(context)) {
            EXPECT_EQ(entry.second.at("subjectDN"), "");
            EXPECT_EQ(entry.second.count("MODALITA' RINNOVO"), 1U);
        }
    }
}

TEST_F(Robustness, nullStoreElementBetween_neighboursAreRead)
{
    const Descriptor descriptor = renewable(aut());
    checkAll(aut(), std::vector<std::string>(3, authenticationText(descriptor)));
    context.clear();
    CertAUTStore[2] = nullptr;
    run(aut(), 0, 3);
    EXPECT_EQ(record(aut(), 1), renewableRecord(aut(), descriptor, holder));
    EXPECT_EQ(record(aut(), 3), renewableRecord(aut(), descriptor, holder));
}

TEST_F(Robustness, cardLibraryLosesStoreElements_countsAsNone)
{
    setting(renew_context::reader, QStringLiteral("Lettore"));
    setting(renew_context::pin, QStringLiteral("12345678"));
    CardContents card;
    card.praStore = {"1", signatureText(renewable(pra()))};
    card.autStore = {"1", authenticationText(renewable(aut()))};
    setScript({call("rinnovo_Card_readCerts").reading(card),
               call("rinnovo_Card_findFreeCKAID")
                   .observing([] { CertAUTStore[0] = nullptr; })
                   .writing({"DS1", "AUT1"})});
    EXPECT_EQ(fill_sc_objects(&context), 0);
    EXPECT_EQ(numCertsAUT, 0);
    EXPECT_EQ(rowsOf(aut()), std::vector<std::string>{});
    EXPECT_EQ(rowsOf(pra()), rowKeys(pra(), 1));
}

TEST_F(Robustness, descriptorOf4095Bytes_isReadWhole)
{
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        Descriptor descriptor = renewable(kind);
        descriptor.fiscalCode = "";
        const std::size_t length = kind.text(descriptor).size();
        descriptor.fiscalCode = std::string(4095 - length, 'f');
        descriptor.subject.replace(descriptor.subject.find("2.5.4.5"), 7, "2.5.4.7");
        ASSERT_EQ(kind.text(descriptor).size(), 4095U);
        check(kind, descriptor);
        EXPECT_EQ(record(kind, 1), renewableRecord(kind, descriptor, descriptor.fiscalCode));
    }
}

TEST_F(Robustness, descriptorWithoutEnd_isReadInItsBuffer)
{
    Descriptor descriptor = renewable(aut());
    std::string text = authenticationText(descriptor);
    text += std::string(4096 - text.size(), 'f');
    CardContents card;
    card.autStore = {"1", text};
    card.labelPra = "DS1";
    inventory(card);
    EXPECT_EQ(record(aut(), 1)["serialCert"], descriptor.serial);
}

TEST_F(Robustness, descriptorOfSeparatorsAlone_isFieldsWithoutText)
{
    for (const Kind& kind : allKinds()) {
        for (const std::string& text : {std::string(), std::string("#"), std::string(4095, '#')}) {
            SCOPED_TRACE(kind.name + ", " + std::to_string(text.size()));
            context.clear();
            checkAll(kind, {text});
            EXPECT_EQ(rowsOf(kind), rowKeys(kind, 1));
            EXPECT_EQ(record(kind, 1)["MODALITA' RINNOVO"], "Non rinnovabile");
            EXPECT_EQ(record(kind, 1)["RENEW_CERTID"], ":::");
        }
    }
}

TEST_F(Robustness, bytesThatAreNotUtf8_areReplaced)
{
    for (const Kind& kind : allKinds()) {
        SCOPED_TRACE(kind.name);
        Descriptor descriptor = renewable(kind);
        descriptor.ckaId = "\xff\xfe\xe0";
        descriptor.iut = "\xc3";
        check(kind, descriptor);
        Descriptor decoded = descriptor;
        decoded.ckaId = QString::fromUtf8(descriptor.ckaId.c_str()).toStdString();
        decoded.iut = QString::fromUtf8(descriptor.iut.c_str()).toStdString();
        EXPECT_EQ(record(kind, 1), renewableRecord(kind, decoded, holder));
    }
}

TEST_F(Robustness, longestLabels_areCarriedWhole)
{
    CardContents card;
    card.labelPra = "DS" + std::string(29, '3');
    card.labelAut = "AUT" + std::string(28, '4');
    card.pendingKeyPra = 1;
    card.pendingKeyAut = 1;
    inventory(card);
    EXPECT_EQ(record(pra(), 0)["pendingKey"], card.labelPra);
    EXPECT_EQ(record(aut(), 0)["pendingKey"], card.labelAut);
}

TEST_F(Robustness, labelsWithoutEnd_stayInTheirArrays)
{
    const std::string labelPra = "DS" + std::string(30, '3');
    const std::string labelAut = "AUT" + std::string(29, '4');
    CardContents card;
    card.labelPra = labelPra;
    card.labelAut = labelAut;
    card.cnsExpiry = "203001011";
    card.pendingKeyPra = 1;
    card.pendingKeyAut = 1;
    inventory(card);
    EXPECT_THAT(record(pra(), 0)["pendingKey"], AnyOf(labelPra, labelPra.substr(0, 31)));
    EXPECT_THAT(record(aut(), 0)["pendingKey"], AnyOf(labelAut, labelAut.substr(0, 31)));
}

TEST_F(Robustness, freeLabelsWithoutEnd_cardGetsAnEndedText)
{
    setting(renew_context::reader, QStringLiteral("Lettore"));
    setting(renew_context::pin, QStringLiteral("12345678"));
    const std::string labelPra = "DS" + std::string(30, '3');
    const std::string labelAut = "AUT" + std::string(29, '4');
    context[QStringLiteral("PRA: 1")] = {{renew_context::renewalId, QStringLiteral("PRA")}};
    context[QStringLiteral("AUT: 1")] = {{renew_context::renewalId, QStringLiteral("AUT")}};
    std::array<char, requestBufferSize> request{};
    setScript({call("rinnovo_Card_findFreeCKAID").writing({labelPra, labelAut}),
               call("rinnovo_Card_createCertRequestPRA"),
               call("rinnovo_Card_findFreeCKAID").writing({labelPra, labelAut}),
               call("rinnovo_Card_saveCertAUT")});
    EXPECT_EQ(Tarvelo_gen_p10_by_certid(&context, QStringLiteral("PRA"), request.data()), 1);
    char certificate[] = "c";
    EXPECT_EQ(Tarvelo_install_cert(&context, QStringLiteral("AUT"), certificate), 1);
    const auto requested = [](const std::string& label) {
        return called("rinnovo_Card_createCertRequestPRA", label, "12345678", "", "", false);
    };
    const auto saved = [](const std::string& label) {
        return called("rinnovo_Card_saveCertAUT", "12345678", "", label, "c", false);
    };
    EXPECT_THAT(calls()[1], AnyOf(requested(labelPra), requested(labelPra.substr(0, 31))));
    EXPECT_THAT(calls()[3], AnyOf(saved(labelAut), saved(labelAut.substr(0, 31))));
}

TEST_F(Robustness, readerListWithoutEnd_isReadInItsBuffer)
{
    setScript({call("mvGetReaderName").writing({std::string(1024, 'r')})});
    StandardOutput output;
    EXPECT_TRUE(set_reader(&context, QString()));
    EXPECT_EQ(output.text(), "Selezionare lettore:\n");

    setScript({call("mvGetReaderName").writing({std::string(1023, 'r') + "|"})});
    EXPECT_TRUE(set_reader(&context, QString()));
    EXPECT_EQ(plain(context)["SettingsApplicazione"]["Reader"], std::string(1023, 'r'));
}

TEST_F(Robustness, veryLongReaderName_isHandedOverWhole)
{
    const std::string name(5000, 'r');
    setting(renew_context::reader, QString::fromStdString(name));
    setting(renew_context::pin, QStringLiteral("12345678"));
    setScript({call("mvInitializeFromATRLite"), call("mvIsCNSINCARD"), call("mvIsFERROLUX"),
               call("mvLogin"), call("mvFinalize"), call("rinnovo_Card_readCerts").returning(100)});
    EXPECT_TRUE(verify_pin(&context));
    EXPECT_EQ(fill_sc_objects(&context), -88);
    EXPECT_EQ(calls()[5],
              called("rinnovo_Card_readCerts", name, "12345678", 3, applicationFolder()));
}

TEST_F(Robustness, moduleNameWithoutEnd_staysInItsArray)
{
    setting(renew_context::reader, QStringLiteral("Lettore"));
    setScript({call("mvGetPKCS11FromATRLite").writing({std::string(64, 'm')}),
               call("mvIsCNSINCARD"), call("mvIsFERROLUX"), call("mvInitializeFromATRLite"),
               call("getSlotBriskoLite"), call("mvCNSToBeActivatedLite"),
               call("mvCheckSmartCard")
                   .writing({std::string(65, 's'), std::string(33, 'm'), std::string(17, 'o'),
                             std::string(17, '1')}),
               call("mvFinalize")});
    EXPECT_EQ(verify_sc_and_reader(&context), 0);
    EXPECT_GE(strnlen(lib, sizeof lib), 63U);
}

TEST_F(Robustness, serialNumberWithoutEnd_markerNameStaysInItsArray)
{
    write(szSerialNumber, sizeof szSerialNumber, std::string(17, '1'));
    write(pendingLabel_PRA, sizeof pendingLabel_PRA, std::string(32, 'D'));
    checkAll(pra(), {firstFields(signatureText(renewable(pra())), 9)});
    EXPECT_EQ(record(pra(), 1)["pendingKey"], "");
}

TEST_F(Robustness, noSessionStarted_everyOperationAnswers)
{
    free_renew_system(&context);
    resetVariables();
    StandardOutput output;
    char buffer[requestBufferSize] = {};
    RenewRecord record;
    EXPECT_TRUE(set_reader(&context, QStringLiteral("Lettore")));
    EXPECT_TRUE(set_pin(&context, QStringLiteral("1")));
    EXPECT_EQ(fill_sc_objects(&context), -89);
    EXPECT_EQ(Tarvelo_gen_p10_by_certid(&context, QStringLiteral("x"), buffer), 0);
    EXPECT_EQ(Tarvelo_install_cert(&context, QStringLiteral("x"), buffer), 0);
    EXPECT_EQ(addRemainingDaysToNotAfter(record), QString());
    context.clear();
    EXPECT_FALSE(verify_pin(&context));
    EXPECT_EQ(verify_sc_and_reader(&context), -99);
    EXPECT_EQ(output.text(), "");
}

}  // namespace
