#include "tests/support/library_fixture.h"
#include "tests/support/typist.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>

using namespace support;

namespace {

const std::string prompt = "Selezionare lettore:\n";

std::string promptFor(const std::vector<std::string>& readers)
{
    std::string text = prompt;
    for (std::size_t i = readers.size(); i > 0; --i)
        text += std::to_string(i - 1) + ") " + readers[i - 1] + "\n";
    return text;
}

std::string repeated(const std::string& text, int times)
{
    std::string result;
    for (int i = 0; i < times; ++i)
        result += text;
    return result;
}

class SetReader : public LibraryTest {
protected:
    // The readers are listed as this text; what the user then types is the answer.
    bool choose(const std::string& readers, const std::string& typed)
    {
        setScript({call("mvGetReaderName").writing({readers})});
        answer(typed);
        StandardOutput output;
        const bool result = set_reader(&context, QString());
        shown = output.text();
        EXPECT_EQ(calls(), (std::vector<std::string>{"mvGetReaderName(1024)"}));
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
        return result;
    }

    PlainRecord settings() { return plain(context[renew_context::settingsRow]); }

    std::string shown;
};

TEST_F(SetReader, nameGiven_isStoredAsItIs)
{
    startSession();
    setting(renew_context::pin, QStringLiteral("12345678"));
    for (const char* name : {"No such reader", " ", "A|B", "Lettore \xc3\xa0 \xe2\x82\xac"}) {
        SCOPED_TRACE(name);
        const QString reader = QString::fromUtf8(name);
        EXPECT_TRUE(set_reader(&context, reader));
        EXPECT_EQ(settings(), (PlainRecord{{"p11_library_path", applicationFolder()},
                                           {"Pin", "12345678"},
                                           {"Reader", name}}));
    }
    EXPECT_EQ(log(), "");
    EXPECT_EQ(calls(), std::vector<std::string>{});
}

TEST_F(SetReader, nameGivenWithoutSettings_settingsRowIsMade)
{
    EXPECT_TRUE(set_reader(&context, QStringLiteral("Lettore")));
    EXPECT_EQ(plain(context), (PlainContext{{"SettingsApplicazione", {{"Reader", "Lettore"}}}}));
}

TEST_F(SetReader, noList_contextUnchanged)
{
    startSession(QStringLiteral("Old"), QStringLiteral("1"));
    const PlainContext before = plain(context);
    for (const int result : {-1, -99}) {
        setScript({call("mvGetReaderName").returning(result).writing({"A|B|"})});
        EXPECT_FALSE(set_reader(&context, QString()));
        EXPECT_EQ(plain(context), before);
    }
    EXPECT_EQ(logOnDisk(), "[*]: Nessun lettore trovato...\n[*]: Nessun lettore trovato...\n");
}

TEST_F(SetReader, noListAndNoSettings_contextStaysEmpty)
{
    setScript({call("mvGetReaderName").returning(-1)});
    EXPECT_FALSE(set_reader(&context, QString()));
    EXPECT_EQ(plain(context), PlainContext{});
}

TEST_F(SetReader, oneReader_isTakenWithoutAQuestion)
{
    startSession();
    setting(renew_context::pin, QStringLiteral("12345678"));
    EXPECT_TRUE(choose("Lettore USB 00 00|", "7\n"));
    EXPECT_EQ(shown, "");
    EXPECT_EQ(input->rest(), "7\n");
    EXPECT_EQ(logOnDisk(), "[*]: Lettore in uso: Lettore USB 00 00\n");
    EXPECT_EQ(settings(), (PlainRecord{{"p11_library_path", applicationFolder()},
                                       {"Pin", "12345678"},
                                       {"Reader", "Lettore USB 00 00"}}));
}

TEST_F(SetReader, positiveResult_isSuccess)
{
    setScript({call("mvGetReaderName").returning(1).writing({"A|"})});
    EXPECT_TRUE(set_reader(&context, QString()));
    EXPECT_EQ(settings(), (PlainRecord{{"Reader", "A"}}));
}

TEST_F(SetReader, oneReaderWithoutSeparatorAfterIt_twoPartsTakeTheFirst)
{
    startSession();
    EXPECT_TRUE(choose("A|B", ""));
    EXPECT_EQ(shown, "");
    EXPECT_EQ(settings()["Reader"], "A");
}

TEST_F(SetReader, readerNotAscii_isLoggedAsLocalText)
{
    // The list's bytes are Latin-1, the local encoding is UTF-8.
    startSession();
    EXPECT_TRUE(choose("Lettore \xe0|", ""));
    EXPECT_EQ(log(), "[*]: Lettore in uso: Lettore \xc3\xa0\n");
    const QString name = QString::fromLatin1("Lettore \xe0");
    EXPECT_EQ(settings()["Reader"], QString::fromLatin1(name.toLocal8Bit()).toStdString());
}

struct AnswerRow {
    const char* condition;
    const char* typed;
    int prompts;
    const char* reader;
    const char* rest;
};

TEST_F(SetReader, severalReaders_answerChooses)
{
    const AnswerRow table[] = {
        {"first", "0\n", 1, "Alfa", ""},
        {"second", "1\n", 1, "Beta", ""},
        {"last", "2\n", 1, "Gamma", ""},
        {"the empty last part", "3\n", 1, "", ""},
        {"empty line", "\n", 1, "Alfa", ""},
        {"line end of another system", "1\r\n", 1, "Beta", ""},
        {"end of input", "", 1, "Alfa", ""},
        {"line without its end", "2", 1, "Gamma", ""},
        {"a lone plus", "+\n", 1, "Alfa", ""},
        {"plus and number", "+1\n", 1, "Beta", ""},
        {"leading zero", "02\n", 1, "Gamma", ""},
        {"outside the list, as many digits as the bound", "9\n1\n", 2, "Beta", ""},
        {"just outside the list", "4\n2\n", 2, "Gamma", ""},
        {"more digits than the bound", "10\n1\n", 2, "Beta", ""},
        {"far too large for a number", "99999999999999999999\n1\n", 2, "Beta", ""},
        {"negative", "-1\n1\n", 2, "Beta", ""},
        {"a lone minus", "-\n1\n", 2, "Beta", ""},
        {"letters", "abc\n2\n", 2, "Gamma", ""},
        {"number and letters", "1a\n2\n", 2, "Gamma", ""},
        {"bytes that are not UTF-8", "\xff\xfe\n2\n", 2, "Gamma", ""},
        {"many bad answers", "x\n-5\n10\n9\n2\n", 5, "Gamma", ""},
        {"bad answer, then end of input", "x\n", 2, "Alfa", ""},
        {"outside the list, then end of input", "9\n", 2, "Alfa", ""},
        {"more lines wait", "1\n12345678\n", 1, "Beta", "12345678\n"},
    };
    const std::string question = promptFor({"Alfa", "Beta", "Gamma"});
    startSession();
    setting(renew_context::pin, QStringLiteral("12345678"));
    for (const AnswerRow& row : table) {
        SCOPED_TRACE(row.condition);
        setting(renew_context::reader, QString());
        EXPECT_TRUE(choose("Alfa|Beta|Gamma|", row.typed));
        EXPECT_EQ(shown, repeated(question, row.prompts));
        EXPECT_EQ(settings(), (PlainRecord{{"p11_library_path", applicationFolder()},
                                           {"Pin", "12345678"},
                                           {"Reader", row.reader}}));
        EXPECT_EQ(input->rest(), row.rest);
    }
    EXPECT_EQ(log(), "");
}

TEST_F(SetReader, twoReaders_boundIsTwo)
{
    const AnswerRow table[] = {
        {"the empty last part", "2\n", 1, "", ""},
        {"intermediate, outside the list", "5\n1\n", 2, "Beta", ""},
        {"invalid", "10\n1\n", 2, "Beta", ""},
    };
    for (const AnswerRow& row : table) {
        SCOPED_TRACE(row.condition);
        EXPECT_TRUE(choose("Alfa|Beta|", row.typed));
        EXPECT_EQ(shown, repeated(promptFor({"Alfa", "Beta"}), row.prompts));
        EXPECT_EQ(settings(), (PlainRecord{{"Reader", row.reader}}));
    }
}

TEST_F(SetReader, moreThanTenReaders_twoDigitsChoose)
{
    std::vector<std::string> readers;
    std::string list;
    for (int i = 0; i < 12; ++i) {
        readers.push_back("Lettore " + std::to_string(i));
        list += readers.back() + "|";
    }
    const AnswerRow table[] = {
        {"two digits", "11\n", 1, "Lettore 11", ""},
        {"one digit", "7\n", 1, "Lettore 7", ""},
        {"the empty last part", "12\n", 1, "", ""},
        {"two digits outside the list", "13\n5\n", 2, "Lettore 5", ""},
        {"three digits", "100\n5\n", 2, "Lettore 5", ""},
        {"group separator", "1,1\n5\n", 2, "Lettore 5", ""},
    };
    for (const AnswerRow& row : table) {
        SCOPED_TRACE(row.condition);
        EXPECT_TRUE(choose(list, row.typed));
        EXPECT_EQ(shown, repeated(promptFor(readers), row.prompts));
        EXPECT_EQ(settings(), (PlainRecord{{"Reader", row.reader}}));
    }
}

TEST_F(SetReader, noReaderInTheList_promptIsShownWithoutEntries)
{
    const AnswerRow table[] = {
        {"zero", "0\n", 1, "", ""},
        {"empty line", "\n", 1, "", ""},
        {"end of input", "", 1, "", ""},
        {"outside the list", "5\n0\n", 2, "", ""},
    };
    for (const AnswerRow& row : table) {
        SCOPED_TRACE(row.condition);
        EXPECT_TRUE(choose("", row.typed));
        EXPECT_EQ(shown, repeated(prompt, row.prompts));
        EXPECT_EQ(settings(), (PlainRecord{{"Reader", ""}}));
    }
}

TEST_F(SetReader, emptyNamesBetween_areListed)
{
    EXPECT_TRUE(choose("Alfa||Gamma|", "1\n"));
    EXPECT_EQ(shown, promptFor({"Alfa", "", "Gamma"}));
    EXPECT_EQ(settings()["Reader"], "");
}

TEST_F(SetReader, hostReadFromStandardInputBefore_itsNextLineIsTheAnswer)
{
    setScript({call("mvGetReaderName").writing({"Alfa|Beta|"})});
    answer("for the host\n1\nfor the host again\n");
    char line[64] = {};
    ASSERT_NE(std::fgets(line, sizeof line, stdin), nullptr);
    EXPECT_STREQ(line, "for the host\n");
    const StandardOutput output;
    EXPECT_TRUE(set_reader(&context, QString()));
    EXPECT_EQ(settings()["Reader"], "Beta");
    ASSERT_NE(std::fgets(line, sizeof line, stdin), nullptr);
    EXPECT_STREQ(line, "for the host again\n");
}

TEST_F(SetReader, pinFollowsOnTheSameInput_bothArrive)
{
    setScript({call("mvGetReaderName").writing({"Alfa|Beta|"})});
    answer("1\n12345678\n");
    const StandardOutput output;
    EXPECT_TRUE(set_reader(&context, QString()));
    EXPECT_TRUE(set_pin(&context, QString()));
    EXPECT_EQ(settings(), (PlainRecord{{"Reader", "Beta"}, {"Pin", "12345678"}}));
}

TEST_F(SetReader, hostReadsWithoutWaiting_answerIsWaitedFor)
{
    struct Row {
        const char* condition;
        const char* waiting;
        const char* later;
        const char* reader;
    };
    const Row table[] = {
        {"whole line later", "", "1\n", "Beta"},
        {"rest of the line later", "0", "2\n", "Gamma"},
        {"whole line there", "1\n", "", "Beta"},
        {"bad answer there, good one later", "x\n", "2\n", "Gamma"},
        {"end of input later", "", "", "Alfa"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(row.condition);
        setScript({call("mvGetReaderName").writing({"Alfa|Beta|Gamma|"})});
        Typist typist(row.waiting, "0) Alfa\n", row.later);
        const int flags = fcntl(STDIN_FILENO, F_GETFL);
        ASSERT_EQ(fcntl(STDIN_FILENO, F_SETFL, flags | O_NONBLOCK), 0);
        EXPECT_TRUE(set_reader(&context, QString()));
        EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFL), flags | O_NONBLOCK);
        EXPECT_EQ(settings()["Reader"], row.reader);
        typist.shown();
        char rest = 0;
        EXPECT_EQ(read(STDIN_FILENO, &rest, 1), 0) << "left over: " << rest;
        EXPECT_EQ(stepsLeftOver(), std::vector<std::string>{});
    }
}

TEST_F(SetReader, standardInputClosed_countsAsAnEmptyLine)
{
    setScript({call("mvGetReaderName").writing({"Alfa|Beta|"})});
    answer("");
    close(STDIN_FILENO);
    const StandardOutput output;
    EXPECT_TRUE(set_reader(&context, QString()));
    EXPECT_EQ(settings()["Reader"], "Alfa");
}

}  // namespace
