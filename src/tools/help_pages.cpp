// Writes the manual pages and the shells' completions into a folder.
#include "host/help_pages.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "host/commands.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: quil_help_pages FOLDER\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    host::Context context;
    CLI::App app;
    host::ProgramOptions options;
    host::describeProgram(app, context, options);
    auto pages = host::manualPages(app, QUIL_VERSION_TEXT);
    pages.emplace_back("quil.bash", host::bashCompletion(app));
    pages.emplace_back("_quil", host::zshCompletion(app));
    pages.emplace_back("quil.fish", host::fishCompletion(app));
    std::filesystem::create_directories(folder);
    for (const auto& [name, text] : pages) {
        std::ofstream file(folder / name, std::ios::binary);
        if (!(file << text) || !file.flush()) {
            std::fprintf(stderr, "quil_help_pages: cannot write %s\n", (folder / name).c_str());
            return 1;
        }
    }
    return 0;
}
