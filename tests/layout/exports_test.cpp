// Holds the checked-in export list and the built library together, and the exported names' C++
// types.

#include "card_v_func.h"

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <type_traits>

namespace {

using Names = std::map<std::string, std::string>;  // symbol to what it is

std::string demangled(const std::string& symbol)
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> text(
        abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status), &std::free);
    return status == 0 ? text.get() : symbol;
}

Names listedNames()
{
    std::ostringstream content;
    content << std::ifstream(TARVELOQT_SOURCE_DIR "/card_v_func.map").rdbuf();
    const std::string text = content.str();
    static const std::regex pattern(R"((\w+);\s*/\* (FUNC|OBJECT) ([^*]*(?:\*[^/][^*]*)*) \*/)");
    Names names;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), pattern);
         match != std::sregex_iterator(); ++match) {
        names[(*match)[1]] = (*match)[2].str() + " " + (*match)[3].str();
    }
    return names;
}

Names builtNames()
{
    const std::string command = "LC_ALL=C readelf --dyn-syms --wide '" TARVELOQT_LIBRARY_FILE "'";
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    Names names;
    if (pipe == nullptr) {
        return names;
    }
    std::array<char, 4096> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe.get()) != nullptr) {
        std::istringstream line(buffer.data());
        std::string number;
        std::string value;
        std::string size;
        std::string type;
        std::string binding;
        std::string visibility;
        std::string section;
        std::string symbol;
        line >> number >> value >> size >> type >> binding >> visibility >> section >> symbol;
        if (symbol.empty() || section == "UND" || number == "Num:") {
            continue;
        }
        if (type == "FUNC") {
            names[symbol] = "FUNC " + demangled(symbol);
        } else {
            std::string& entry = names[symbol];
            entry.append(type).append(" ").append(size);
            if (const std::string readable = demangled(symbol); readable != symbol) {
                entry.append(" ").append(readable);
            }
        }
    }
    return names;
}

TEST(Exports, builtLibrary_exportsWhatTheListNamesAndNothingElse)
{
    const Names listed = listedNames();
    ASSERT_EQ(listed.size(), 69U);
    EXPECT_EQ(builtNames(), listed);
}

// The types: a change of one would pass the comparison above when its size stays the same.
// The checker takes two instances of one variable template for the same expression.
// NOLINTBEGIN(misc-redundant-expression)
template <typename Expected, typename Actual>
constexpr bool is = std::is_same_v<Expected, Actual>;

using Record = QHash<QString, QString>;
using Context = QHash<QString, QHash<QString, QString>>;

static_assert(is<Context, RenewContext> && is<Record, RenewRecord>);

static_assert(is<void(Context*), decltype(init_renew_system)>);
static_assert(is<void(Context*), decltype(free_renew_system)>);
static_assert(is<bool(Context*, QString), decltype(set_reader)>);
static_assert(is<bool(Context*, QString), decltype(set_pin)>);
static_assert(is<bool(Context*), decltype(verify_pin)>);
static_assert(is<int(Context*), decltype(verify_sc_and_reader)>);
static_assert(is<int(Context*), decltype(fill_sc_objects)>);
static_assert(is<bool(Context*, int, int, int*), decltype(controllo_pending_AUT)>);
static_assert(is<bool(Context*, int, int, int*), decltype(controllo_pending_PRA)>);
static_assert(is<bool(Context*, int, int, int, int*), decltype(controllo_pending_CNS)>);
static_assert(is<QString(Record&), decltype(addRemainingDaysToNotAfter)>);
static_assert(is<bool(Context*, QString, Record*), decltype(find_certid_in_conf)>);
static_assert(is<bool(Context*, QString, Record*), decltype(find_ckaid_in_conf)>);
static_assert(is<bool(Context*, Record*), decltype(find_pending_cert_dict)>);
static_assert(is<int(Context*, QString, char*), decltype(Tarvelo_gen_p10_by_certid)>);
static_assert(is<int(Context*, QString, char*), decltype(Tarvelo_install_cert)>);
static_assert(is<void(QByteArray&, long&), decltype(getError)>);

static_assert(is<QTextStream, decltype(outLogFile)> && is<QFile, decltype(RENEWLOGFILE)>);
static_assert(is<QString, decltype(BriskoSettingFile)> && is<QString, decltype(ATRini)>);
static_assert(is<QString, decltype(userProxy)> && is<QString, decltype(pwdProxy)>);
static_assert(is<QString, decltype(nameProxy)> && is<QString, decltype(portProxy)>);
static_assert(is<QString, decltype(fiscalCode)> && is<QString, decltype(ErrorMessage)>);
static_assert(is<QByteArray, decltype(signCertificate)> && is<QByteArray, decltype(signCkaid)>);
static_assert(is<QDateTime, decltype(date_time)> && is<QString, decltype(URL_RINNOVO)>);
static_assert(is<QString, decltype(nomeLibreria)> && is<QString, decltype(versioneLibreria)>);
static_assert(is<QString, decltype(dateExpiryCNS)> && is<QString, decltype(scadenzaCertCNS)>);
static_assert(is<int, decltype(numeroRiga)> && is<int, decltype(rows)>);
static_assert(is<char[64], decltype(lib)> && is<char[65], decltype(szSlotDescription)>);
static_assert(is<char[33], decltype(szManufacturerID)> && is<char[17], decltype(szModel)>);
static_assert(is<char[17], decltype(szSerialNumber)> && is<char[9], decltype(expiryCNSdate)>);
static_assert(is<char[32], decltype(pendingLabel_PRA)> && is<char[32], decltype(pendingLabel_AUT)>);
static_assert(is<bool, decltype(isCNS)> && is<bool, decltype(isFerrolux)>);
static_assert(is<char* [2], decltype(CertCNSStore)> && is<char* [5], decltype(CertPRAStore)> &&
              is<char* [5], decltype(CertAUTStore)>);
static_assert(is<int, decltype(numCertCNS)> && is<int, decltype(numCertsPRA)> &&
              is<int, decltype(numCertsAUT)> && is<int, decltype(CertificateNumbers)>);
static_assert(is<int, decltype(pending_CNS)> && is<int, decltype(pendingKey_PRA)> &&
              is<int, decltype(pendingKey_AUT)>);
static_assert(is<int, decltype(ErrorOccurred)> && is<int, decltype(ErrorCode)>);

static_assert(std::has_virtual_destructor_v<Exception> && sizeof(Exception) == 32);
static_assert(sizeof(Exception::Code) == 4 && !std::is_convertible_v<int, Exception::Code>);
static_assert(std::is_constructible_v<Exception, Exception::Code, const QString&>);
static_assert(is<QString (Exception::*)() const, decltype(&Exception::getMessage)>);
static_assert(is<Exception::Code (Exception::*)() const, decltype(&Exception::getCode)>);
// NOLINTEND(misc-redundant-expression)

}  // namespace
