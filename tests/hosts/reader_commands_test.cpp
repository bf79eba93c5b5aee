// readers, status and explain-atr, as a whole program on a software card.

#include "hosts/console/exit_code.h"
#include "installed_program.h"
#include "json_schema.h"

#include <QJsonArray>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using console::ExitCode;
using hosts::InstalledProgram;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr int code(ExitCode exitCode)
{
    return static_cast<int>(exitCode);
}

std::string text(const QJsonValue& value)
{
    return value.toString().toStdString();
}

// In characters: none of these screens holds wide ones.
int longestLine(const std::string& screen)
{
    int longest = 0;
    for (const QString& line : QString::fromStdString(screen).split('\n')) {
        longest = std::max(longest, line.size());
    }
    return longest;
}

class ReaderCommands : public testing::Test {
protected:
    // In the table file and with one entry each: a card by its ATR, through a mask, and the rest.
    void writeCardTable(bool hasDefault) const
    {
        const std::string module = "module = " + InstalledProgram::proxyFile() + "\n";
        m_program.writeTable("[card Prova]\nname = Carta uno\ncns = yes\n" + module +
                             "atr = 3B 02 14 50\n"
                             "[card Maschera]\n" +
                             module + "atr = 3B0214FF\natr_mask = FFFFFF00\n" +
                             (hasDefault ? "[default]\n" + module : std::string()));
    }

    InstalledProgram m_program;
};

}  // namespace

TEST_F(ReaderCommands, readers_softwareCard_isTold)
{
    const auto before = m_program.cardFiles();
    const QJsonObject answer = m_program.answer({"readers"});
    EXPECT_EQ(hosts::schemaComplaint("readers.schema.json", hosts::jsonText(answer)), "");
    EXPECT_EQ(answer["isDescribed"], true);
    EXPECT_EQ(answer["pcscService"], "stopped");
    EXPECT_THAT(text(answer["atrTable"]), HasSubstr("ATR-renew.ini"));
    ASSERT_EQ(answer["readers"].toArray().size(), 1);
    const QJsonValue reader = answer["readers"][0];
    EXPECT_EQ(reader["kind"], "software");
    EXPECT_EQ(reader["card"], "present");
    EXPECT_TRUE(reader["atr"].isNull());
    EXPECT_EQ(reader["entry"]["match"], "token");
    EXPECT_EQ(reader["entry"]["title"], "Proxy");
    EXPECT_EQ(reader["entry"]["line"], 1);
    EXPECT_EQ(reader["entry"]["modelName"], "Carta di prova");
    EXPECT_EQ(text(reader["entry"]["moduleFile"]), InstalledProgram::proxyFile());
    EXPECT_EQ(reader["isModuleLoaded"], true);
    EXPECT_EQ(reader["slotCount"], 1);
    EXPECT_EQ(reader["token"]["manufacturer"], "SoftHSM project");
    EXPECT_EQ(reader["token"]["isActivated"], true);
    EXPECT_EQ(reader["token"]["pinTries"], "not-low");
    EXPECT_TRUE(reader["token"]["pinTriesLeft"].isNull());
    EXPECT_TRUE(reader["token"]["flags"].toArray().contains("token-initialized"));
    EXPECT_TRUE(reader["error"].isNull());
    EXPECT_EQ(m_program.calls("C_Login"), 0U);
    EXPECT_EQ(m_program.calls("C_OpenSession"), 0U);
    EXPECT_GT(m_program.calls("C_GetTokenInfo"), 0U);
    EXPECT_EQ(m_program.cardFiles(), before);
}

TEST_F(ReaderCommands, readersAndStatus_bothLanguages_fitTheScreen)
{
    // Paths are longer than a line and stay whole.
    m_program.writeTable("[software Proxy]\nmodule = softhsm2\nmanufacturer = SoftHSM project\n"
                         "model = SoftHSM v2\n");
    for (const char* command : {"readers", "status"}) {
        SCOPED_TRACE(command);
        const std::string italian = m_program.screen({command}, "it");
        const std::string english = m_program.screen({command}, "en");
        for (const char* line : {"\n  Stato     La carta è utilizzabile.\n",
                                 "\n  Voce      riga 1, stesso produttore e modello\n",
                                 "\n  PIN       La carta non segnala PIN sbagliati.\n"}) {
            EXPECT_THAT(italian, HasSubstr(line));
        }
        for (const char* line : {"\n  State     The card can be used.\n",
                                 "\n  Entry     line 1, same manufacturer and model\n",
                                 "\n  PIN       The card reports no wrong PIN.\n"}) {
            EXPECT_THAT(english, HasSubstr(line));
        }
        EXPECT_LT(longestLine(italian), 80) << italian;
        EXPECT_LT(longestLine(english), 80) << english;
    }
}

TEST_F(ReaderCommands, readers_noReader_isNoFailure)
{
    m_program.set("SOFTHSM2_CONF", m_program.file("nowhere.conf"));
    const QJsonObject answer = m_program.answer({"readers"});
    EXPECT_EQ(hosts::schemaComplaint("readers.schema.json", hosts::jsonText(answer)), "");
    EXPECT_THAT(answer["readers"].toArray(), IsEmpty());
    ASSERT_FALSE(answer["obstacles"].toArray().isEmpty());
    EXPECT_THAT(m_program.screen({"readers"}, "en"), HasSubstr("No reader was found."));
    EXPECT_THAT(m_program.screen({"readers"}, "it"), HasSubstr("Nessun lettore trovato."));
}

TEST_F(ReaderCommands, readers_tableWithMistakes_eachIsToldWithItsLine)
{
    m_program.writeTable(InstalledProgram::proxyEntry() + "[card Rotta]\nmodule = x\natr = 3\n");
    const QJsonObject answer = m_program.answer({"readers"});
    ASSERT_EQ(answer["tableMistakes"].toArray().size(), 1);
    EXPECT_THAT(text(answer["tableMistakes"][0]), HasSubstr("ATR-renew.ini:"));
    EXPECT_EQ(answer["readers"].toArray().size(), 1);
}

TEST_F(ReaderCommands, readers_tokenLabelWithControlCharacters_cannotSteerTheTerminal)
{
    ASSERT_EQ(m_program.card()
                  .shell("softhsm2-util --init-token --free --label \"$(printf 'A\\033[2JB')\" "
                         "--pin 11111111 --so-pin 22222222")
                  .exitCode,
              0);
    const std::string screen = m_program.screen({"readers"}, "en");
    EXPECT_THAT(screen, HasSubstr("A?[2JB"));
    EXPECT_THAT(screen, Not(HasSubstr("\033")));
}

TEST_F(ReaderCommands, status_triesLeft_areTold)
{
    const struct {
        const char* flag;
        const char* tries;
        int left;
        const char* sentence;
    } rows[] = {
        {hosts::pinCountLow, "low", -1, "few tries are left"},
        {hosts::pinFinalTry, "last", 1, "One try is left"},
        {hosts::pinLocked, "locked", 0, "The PIN is blocked."},
    };
    std::vector<std::string> documents;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.tries);
        m_program.set("PKCS11_PROXY_SET_FLAGS", row.flag);
        const QJsonObject answer = m_program.answer({"status"});
        documents.push_back(hosts::jsonText(answer));
        EXPECT_EQ(answer["reader"]["token"]["pinTries"], row.tries);
        EXPECT_EQ(answer["reader"]["token"]["pinTriesLeft"].toInt(-1), row.left);
        EXPECT_THAT(m_program.screen({"status"}, "en"), HasSubstr(row.sentence));
    }
    EXPECT_THAT(hosts::schemaComplaints("status.schema.json", documents), ElementsAre("", "", ""));
    EXPECT_EQ(m_program.calls("C_Login"), 0U);
}

TEST_F(ReaderCommands, status_afterARequest_theRenewalIsListed)
{
    const auto made = m_program.run(
        {"request", "--certificate", "1", "--pin-file", m_program.file("card/pin"), "--yes"});
    ASSERT_EQ(made.exitCode, 0) << made.output << made.errors;
    const auto withKey = m_program.cardFiles();

    const QJsonObject answer = m_program.answer({"status"});
    EXPECT_EQ(hosts::schemaComplaint("status.schema.json", hosts::jsonText(answer)), "");
    ASSERT_EQ(answer["renewals"].toArray().size(), 1);
    const QJsonValue renewal = answer["renewals"][0];
    EXPECT_EQ(renewal["kind"], "authentication");
    EXPECT_EQ(renewal["state"], "requested");
    EXPECT_EQ(text(renewal["id"]).size(), 64U);
    EXPECT_NE(text(renewal["holder"]), "");
    EXPECT_NE(text(renewal["changedAt"]), "");
    EXPECT_THAT(m_program.screen({"status"}, "en"),
                HasSubstr(text(renewal["id"]).substr(0, 12) + "  authentication"));
    EXPECT_EQ(m_program.cardFiles(), withKey);

    // The card is away.
    m_program.set("SOFTHSM2_CONF", m_program.file("nowhere.conf"));
    const QJsonObject without = m_program.answer({"status"});
    EXPECT_TRUE(without["reader"].isNull());
    EXPECT_EQ(without["renewals"].toArray().size(), 1);
    EXPECT_THAT(m_program.screen({"status"}, "it"), HasSubstr("richiesta fatta"));
}

TEST_F(ReaderCommands, status_namedReaderNotThere_noReaderAndTheRenewalsAllTheSame)
{
    const QJsonObject answer =
        m_program.answer({"status", "--reader", "Altro"}, code(ExitCode::noReader));
    EXPECT_EQ(hosts::schemaComplaint("status.schema.json", hosts::jsonText(answer)), "");
    EXPECT_TRUE(answer["reader"].isNull());
    EXPECT_TRUE(answer["renewals"].isArray());
    EXPECT_THAT(text(answer["exit"]["detail"]), HasSubstr("Altro"));
}

TEST_F(ReaderCommands, status_unreadableRecord_isToldAndHidesNothing)
{
    ASSERT_EQ(m_program.card().shell("mkdir -m 700 -p ~/.brisko/renewals").exitCode, 0);
    m_program.card().write("home/.brisko/renewals/" + std::string(64, 'a') + ".json", "{}");
    const QJsonObject answer = m_program.answer({"status"});
    ASSERT_EQ(answer["renewalComplaints"].toArray().size(), 1);
    EXPECT_THAT(text(answer["renewalComplaints"][0]), HasSubstr("aaaa.json"));
    EXPECT_TRUE(answer["reader"].isObject());
}

TEST_F(ReaderCommands, explainAtr_eachWayToAnEntry_isExplained)
{
    writeCardTable(true);
    const struct {
        const char* atr;
        const char* match;
        const char* title;
        int line;
        const char* sentence;
    } rows[] = {
        {"3b:02:14:50", "atr", "Prova", 1, "equal ATR"},
        {"3B 02 14 51", "masked-atr", "Maschera", 6, "where its mask asks"},
        {"3B00", "default", "", 10, "entry for all other cards"},
    };
    std::vector<std::string> documents;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.atr);
        const QJsonObject answer = m_program.answer({"explain-atr", row.atr});
        documents.push_back(hosts::jsonText(answer));
        EXPECT_EQ(answer["entry"]["match"], row.match);
        EXPECT_EQ(answer["entry"]["title"], row.title);
        EXPECT_EQ(answer["entry"]["line"], row.line);
        EXPECT_THAT(m_program.screen({"explain-atr", row.atr}, "en"), HasSubstr(row.sentence));
    }
    const QJsonValue entry = m_program.answer({"explain-atr", "3B021450"})["entry"];
    EXPECT_EQ(entry["isCns"], true);
    EXPECT_THAT(hosts::schemaComplaints("explain-atr.schema.json", documents),
                ElementsAre("", "", ""));
}

TEST_F(ReaderCommands, explainAtr_withoutAnswer_endsWithItsOwnCode)
{
    writeCardTable(false);
    std::vector<std::string> documents;
    const auto ends = [&](const char* atr, ExitCode exitCode) {
        SCOPED_TRACE(atr);
        documents.push_back(
            hosts::jsonText(m_program.answer({"explain-atr", atr}, code(exitCode))));
        EXPECT_NE(m_program.screen({"explain-atr", atr}, "it", code(exitCode)),
                  m_program.screen({"explain-atr", atr}, "en", code(exitCode)));
    };
    ends("3B00", ExitCode::unknownAtr);
    ends("3B0", ExitCode::usage);
    ends("card", ExitCode::usage);
    m_program.removeTable();
    ends("3B00", ExitCode::fileFailed);
    EXPECT_THAT(hosts::schemaComplaints("explain-atr.schema.json", documents),
                ElementsAre("", "", "", ""));
}

TEST_F(ReaderCommands, otherCardLibraries_sayWhatTheRenewalLibraryTells)
{
    m_program.useOtherCardLibraries();
    const QJsonObject readers = m_program.answer({"readers"});
    EXPECT_EQ(hosts::schemaComplaint("readers.schema.json", hosts::jsonText(readers)), "");
    EXPECT_EQ(readers["isDescribed"], false);
    EXPECT_TRUE(readers["pcscService"].isNull());
    ASSERT_EQ(readers["readers"].toArray().size(), 1);
    EXPECT_EQ(readers["readers"][0]["name"], "Lettore altrui");

    const QJsonObject status = m_program.answer({"status"});
    EXPECT_EQ(hosts::schemaComplaint("status.schema.json", hosts::jsonText(status)), "");
    EXPECT_EQ(status["reader"]["token"]["model"], "Altro modello");
    EXPECT_EQ(status["reader"]["entry"]["module"], "altrui.so");
    EXPECT_TRUE(status["reader"]["token"]["pinTries"].isNull());
    EXPECT_TRUE(status["reader"]["entry"]["match"].isNull());
    EXPECT_THAT(m_program.screen({"status"}, "en"),
                HasSubstr("How many tries are left for the PIN is not known."));

    const QJsonObject entry = m_program.answer({"explain-atr", "3B00"});
    EXPECT_EQ(hosts::schemaComplaint("explain-atr.schema.json", hosts::jsonText(entry)), "");
    EXPECT_TRUE(entry["entry"]["match"].isNull());
    EXPECT_THAT(m_program.screen({"explain-atr", "3B00"}, "en"), HasSubstr("do not describe"));
}
