// Writes the manual pages, the completions and the pages of docs/ that are made of tarvelo-renew's
// tables into a folder.

#include "hosts/console/reference/completions.h"
#include "hosts/console/reference/exit_code_page.h"
#include "hosts/console/reference/finding_page.h"
#include "hosts/console/reference/manual_page.h"

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace {

using namespace console;

void write(const std::filesystem::path& file, const std::string& text)
{
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary);
    stream << text;
    if (!stream.flush()) {
        throw std::runtime_error("cannot write " + file.string());
    }
}

}  // namespace

int main(int argc, char* argv[])
{
    if (argc != 2) {
        std::cerr << "usage: console_reference FOLDER\n";
        return 2;
    }
    try {
        const std::filesystem::path folder = argv[1];
        write(folder / "man1" / "tarvelo-renew.1", reference::manualPage(Language::english));
        write(folder / "it" / "man1" / "tarvelo-renew.1", reference::manualPage(Language::italian));
        write(folder / "bash" / "tarvelo-renew", reference::bashCompletion());
        write(folder / "zsh" / "_tarvelo-renew", reference::zshCompletion());
        write(folder / "fish" / "tarvelo-renew.fish", reference::fishCompletion());
        write(folder / "exit-codes.md", reference::exitCodePage());
        write(folder / "doctor.md", reference::findingPage());
    } catch (const std::exception& error) {
        std::cerr << "console_reference: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
