// The program's help in other forms, made from the command line's own description: manual pages and the shells'
// completions.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace host {

// Manual pages by file name, in roff: quil.1, and quil-COMMAND.1 for every command.
std::vector<std::pair<std::string, std::string>> manualPages(const CLI::App& app, const std::string& version);
std::string bashCompletion(const CLI::App& app);
std::string zshCompletion(const CLI::App& app);
std::string fishCompletion(const CLI::App& app);

}  // namespace host
