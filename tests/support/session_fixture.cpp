#include "session_fixture.h"

#include "transcript.h"

#include <QDateTime>

#include <cstdlib>

namespace support {

void SessionTest::startAt(int year, int month, int day, int hour, int minute, int second)
{
    setLocalTime(QDateTime(QDate(year, month, day), QTime(hour, minute, second)));
}

void SessionTest::moveHome(const std::string& folder)
{
    home = folder;
    setenv("HOME", home.c_str(), 1);
}

std::string SessionTest::wholeLog()
{
    outLogFile.flush();
    return maskStamps(fileContents(logPath()));
}

std::string SessionTest::banner(const std::string& startDate) const
{
    return "[*]: Inizializazione del tool\n" + std::string(74, '-') +
           " \n"
           "Procedura di Rinnovo Certificati. Avvio in data: " +
           startDate +
           "\n\n"
           "[*]: Nome Libreria di Rinnovo: TarveloQT\n\n"
           "[*]: Versione Libreria di Rinnovo: 1.0.4\n\n"
           "[*]: brisko-r.conf Folder: " +
           home +
           "/.brisko/brisko-r.conf\n"
           "[*]: ATR-renew.ini Folder: " +
           atrTable() + "\n\n";
}

}  // namespace support
