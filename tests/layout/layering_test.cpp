// Holds every #include of the project to the layers: a folder includes itself and what lies below.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct LayerRule {
    std::string folder;
    std::vector<std::string> mayInclude;      // beginnings of project includes
    std::vector<std::string> systemMayNotBe;  // beginnings of system includes
};

// The most exact folder of a file decides. Installed headers are included by their bare name.
const std::vector<LayerRule>& layerRules()
{
    static const std::vector<std::string> cards{"openssl/", "p11-kit/", "PCSC/", "winscard"};
    static const std::vector<LayerRule> rules{
        {"include", {"renew_context.h"}, cards},
        {"imports", {}, {"Q", "openssl/", "p11-kit/"}},
        {"session", {"session/", "imports/", "renew_context.h"}, cards},
        {"card", {"card/", "session/", "imports/", "renew_context.h"}, cards},
        {"inventory", {"inventory/", "card/", "session/", "imports/", "renew_context.h"}, cards},
        {"eligibility",
         {"eligibility/", "inventory/", "card/", "session/", "renew_context.h"},
         cards},
        {"renewal",
         {"renewal/", "eligibility/", "inventory/", "card/", "session/", "imports/",
          "renew_context.h"},
         cards},
        // bytes.h, below them all.
        {"cardlibs", {"cardlibs/bytes.h"}, {"Q"}},
        {"cardlibs/state", {"cardlibs/state/"}, {"Q"}},
        {"cardlibs/token", {"cardlibs/token/", "cardlibs/state/", "cardlibs/bytes.h"}, {"Q"}},
        {"cardlibs/x509", {"cardlibs/x509/", "cardlibs/bytes.h"}, {"Q", "p11-kit/"}},
        {"cardlibs/readers",
         {"cardlibs/readers/", "cardlibs/token/", "cardlibs/state/", "cardlibs/bytes.h"},
         {"Q", "openssl/"}},
        {"cardlibs/contents",
         {"cardlibs/contents/", "cardlibs/x509/", "cardlibs/token/", "cardlibs/state/"},
         {"Q"}},
        {"cardlibs/renewing",
         {"cardlibs/renewing/", "cardlibs/contents/", "cardlibs/readers/", "cardlibs/x509/",
          "cardlibs/token/", "cardlibs/state/"},
         {"Q"}},
        {"cardlibs/molvane",
         {"cardlibs/molvane/", "cardlibs/readers/", "cardlibs/token/", "cardlibs/state/",
          "imports/", "card_diagnosis.h"},
         {"Q"}},
        {"cardlibs/tarvelo",
         {"cardlibs/tarvelo/", "cardlibs/renewing/", "cardlibs/contents/", "cardlibs/readers/",
          "cardlibs/x509/", "cardlibs/token/", "cardlibs/state/", "imports/"},
         {"Q"}},
        {"hosts", {"hosts/", "card_v_func.h", "renew_context.h", "card_diagnosis.h"}, {"p11-kit/"}},
        {"hosts/enrolment", {"hosts/enrolment/", "hosts/texts/"}, {"p11-kit/"}},
        {"tools", {"tools/", "cardlibs/"}, {"Q"}},
    };
    return rules;
}

// Files that may include more than their folder.
const std::map<std::string, std::vector<std::string>>& exceptions()
{
    static const std::map<std::string, std::vector<std::string>> files{
        // Where the process-wide variables meet the folders.
        {"card_v_func.cpp",
         {"card_v_func.h", "renewal/", "eligibility/", "inventory/", "card/", "session/"}},
        // The members of the exported class.
        {"session/exception.cpp", {"card_v_func.h"}},
    };
    return files;
}

bool startsWithAny(const std::string& text, const std::vector<std::string>& beginnings)
{
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&](const std::string& b) { return text.rfind(b, 0) == 0; });
}

const LayerRule* ruleFor(const std::string& file)
{
    const LayerRule* best = nullptr;
    for (const LayerRule& rule : layerRules()) {
        if (file.rfind(rule.folder + "/", 0) == 0 &&
            (best == nullptr || rule.folder.size() > best->folder.size())) {
            best = &rule;
        }
    }
    return best;
}

struct Include {
    std::string name;
    bool system;
};

std::vector<Include> includesOf(const std::string& content)
{
    static const std::regex pattern(R"(^\s*#\s*include\s*([<"])([^>"]+)[>"])");
    std::vector<Include> includes;
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_search(line, match, pattern)) {
            includes.push_back({match[2], match[1] == "<"});
        }
    }
    return includes;
}

// What is wrong with the includes of one file; file: path from the project's root.
std::vector<std::string> violationsOf(const std::string& file, const std::string& content)
{
    const LayerRule* rule = ruleFor(file);
    const auto exception = exceptions().find(file);
    std::vector<std::string> violations;
    if (rule == nullptr && exception == exceptions().end()) {
        violations.push_back(file + ": no layer is known for this folder");
        return violations;
    }
    for (const Include& include : includesOf(content)) {
        const bool excepted =
            exception != exceptions().end() && startsWithAny(include.name, exception->second);
        const bool allowed =
            include.system ? rule == nullptr || !startsWithAny(include.name, rule->systemMayNotBe)
                           : rule != nullptr && startsWithAny(include.name, rule->mayInclude);
        if (!excepted && !allowed) {
            violations.push_back(file + " includes " + include.name);
        }
    }
    return violations;
}

// C++ files of the product by their path from the root, with their content. Tests, benchmarks and
// examples may look at everything.
std::map<std::string, std::string> productFiles()
{
    const fs::path root = TARVELOQT_SOURCE_DIR;
    std::map<std::string, std::string> files;
    const auto add = [&](const fs::path& path) {
        if (path.extension() == ".h" || path.extension() == ".cpp") {
            std::ostringstream content;
            content << std::ifstream(path).rdbuf();
            files[fs::relative(path, root).generic_string()] = content.str();
        }
    };
    for (const auto& entry : fs::directory_iterator(root)) {
        if (entry.is_regular_file()) {
            add(entry.path());
        }
    }
    for (const char* folder : {"include", "imports", "session", "card", "inventory", "eligibility",
                               "renewal", "cardlibs", "hosts", "tools"}) {
        for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
            if (entry.is_regular_file()) {
                add(entry.path());
            }
        }
    }
    return files;
}

TEST(Layering, everyFileOfTheProject_includesOnlyItsLayerAndThoseBelow)
{
    const auto files = productFiles();
    ASSERT_GT(files.size(), 60U) << "the project's files were not found";
    for (const auto& [file, content] : files) {
        for (const std::string& violation : violationsOf(file, content)) {
            ADD_FAILURE() << violation;
        }
    }
}

TEST(Layering, oneFileOfEachFolder_callsTheCardLibraries)
{
    std::map<std::string, std::set<std::string>> callers;
    for (const auto& [file, content] : productFiles()) {
        for (const Include& include : includesOf(content)) {
            const bool exporter = file.rfind("cardlibs/", 0) == 0;
            if (include.name.rfind("imports/", 0) == 0 && !exporter) {
                callers[file.substr(0, file.find('/'))].insert(file);
            }
        }
    }
    const std::map<std::string, std::set<std::string>> seams{
        {"session", {"session/last_error.cpp"}},
        {"card", {"card/card_access.cpp"}},
        {"inventory", {"inventory/card_reading.cpp"}},
        {"renewal", {"renewal/card_writing.cpp"}},
    };
    EXPECT_EQ(callers, seams);
}

struct Sample {
    const char* file;
    const char* content;
    std::vector<std::string> violations;
};

TEST(Layering, includeAgainstTheLayers_isReported)
{
    const std::vector<Sample> samples{
        {"session/log.cpp", "#include \"session/log.h\"\n#include <QString>\n", {}},
        {"session/log.cpp",
         "#include \"inventory/inventory.h\"\n",
         {"session/log.cpp includes inventory/inventory.h"}},
        {"inventory/lookups.cpp",
         "  #  include \"eligibility/kind_rule.h\"\n",
         {"inventory/lookups.cpp includes eligibility/kind_rule.h"}},
        {"eligibility/kind_rule.cpp",
         "#include \"imports/molvane.h\"\n#include <openssl/x509.h>\n",
         {"eligibility/kind_rule.cpp includes imports/molvane.h",
          "eligibility/kind_rule.cpp includes openssl/x509.h"}},
        {"renewal/request.cpp",
         "#include \"card_v_func.h\"\n",
         {"renewal/request.cpp includes card_v_func.h"}},
        {"cardlibs/x509/name.cpp",
         "#include <QString>\n#include \"session/log.h\"\n#include \"imports/tarvelo.h\"\n",
         {"cardlibs/x509/name.cpp includes QString",
          "cardlibs/x509/name.cpp includes session/log.h",
          "cardlibs/x509/name.cpp includes imports/tarvelo.h"}},
        {"cardlibs/token/module.cpp",
         "#include \"cardlibs/contents/kind.h\"\n",
         {"cardlibs/token/module.cpp includes cardlibs/contents/kind.h"}},
        {"hosts/console/main.cpp",
         "#include \"card_v_func.h\"\n#include \"session/log.h\"\n#include \"cardlibs/bytes.h\"\n",
         {"hosts/console/main.cpp includes session/log.h",
          "hosts/console/main.cpp includes cardlibs/bytes.h"}},
        {"newfolder/thing.cpp", "", {"newfolder/thing.cpp: no layer is known for this folder"}},
    };
    for (const Sample& sample : samples) {
        EXPECT_EQ(violationsOf(sample.file, sample.content), sample.violations) << sample.content;
    }
}

}  // namespace
