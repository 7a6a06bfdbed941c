// Writes the dispatch table's rows as a document, while the project is built:
//
//     quil_function_list json FILE        the bundle's function list, Contents/Resources/Functions.json
//     quil_function_list markdown FILE    the reference for people, docs/functions.md
//
// A file that says so already is left alone, so that nothing is made anew for it.

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "frame/dispatch_table.h"

namespace {

std::string jsonList() {
    auto list = nlohmann::ordered_json::array();
    for (const quil::Row* row : quil::DispatchTable()) {
        nlohmann::ordered_json item = {{"name", row->name},
                                       {"module", row->module},
                                       {"summary", row->summary},
                                       {"parameter", row->parameter},
                                       {"result", row->result},
                                       {"errors", row->errors},
                                       {"exampleParameter", row->exampleParameter},
                                       {"exampleResult", nullptr}};
        if (row->exampleResult != nullptr) {
            item["exampleResult"] = row->exampleResult;
        }
        list.push_back(std::move(item));
    }
    return list.dump(1) + '\n';
}

// A text of several lines as one cell: the lines become lines of the same paragraph.
std::string paragraph(std::string_view text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') {
            result += "  \n";
        } else if (c == '<' || c == '*' || c == '_' || c == '|') {
            result += std::string("\\") + c;
        } else {
            result += c;
        }
    }
    return result;
}

// Lines of code; carriage returns, the plug-in's line ends, are shown as line ends.
std::string codeBlock(std::string_view text) {
    std::string lines(text);
    std::replace(lines.begin(), lines.end(), '\r', '\n');
    while (!lines.empty() && lines.back() == '\n') {
        lines.pop_back();
    }
    return "```text\n" + lines + "\n```\n";
}

struct Module {
    const char* name;
    const char* title;
};

constexpr Module kModules[] = {{"GLN1", "GLN1: messages, scripts, files and paths"},
                               {"VSTA", "VSTA: hazard screening calculator, record sets and record helpers"},
                               {"MENU", "MENU: menus and double-clicks"},
                               {"HBT", "HBT: map-layer ID lists"}};

std::string markdown() {
    std::string text =
        "# Script functions\n\nAll are called as `QUIL_External(name; parameter)`, on the command line as `quil call "
        "NAME "
        "PARAMETER`.\nNames are matched exactly. `quil help NAME` shows the same in a terminal.\n\n<!-- Made from the "
        "dispatch table by the build target update-docs; edit the table's rows instead. -->\n";
    for (const Module& module : kModules) {
        std::vector<const quil::Row*> rows;
        std::copy_if(quil::DispatchTable().begin(), quil::DispatchTable().end(), std::back_inserter(rows),
                     [&module](const quil::Row* row) { return std::string_view(row->module) == module.name; });
        if (rows.empty()) {
            continue;
        }
        text += std::string("\n## ") + module.title + "\n";
        for (const quil::Row* row : rows) {
            text += std::string("\n### ") + row->name + "\n\n" + paragraph(row->summary) + "\n\n**Parameter:** " +
                    paragraph(row->parameter) + "\n\n**Result:** " + paragraph(row->result) + "\n\n**Errors:** " +
                    paragraph(row->errors) + "\n\n**Example:** ";
            const std::string_view parameter = row->exampleParameter;
            text += parameter.empty() ? "an empty parameter" : "the parameter\n\n" + codeBlock(parameter) + "\n";
            if (row->exampleResult == nullptr) {
                text += parameter.empty() ? "; the result differs from call to call.\n"
                                          : "The result differs from call to call.\n";
            } else if (*row->exampleResult == '\0') {
                text += parameter.empty() ? " gives an empty result.\n" : "gives an empty result.\n";
            } else {
                text += (parameter.empty() ? " gives\n\n" : "gives\n\n") + codeBlock(row->exampleResult);
            }
        }
    }
    return text;
}

bool writeFile(const char* path, const std::string& text) {
    std::ifstream before(path, std::ios::binary);
    if (before && std::string(std::istreambuf_iterator<char>(before), std::istreambuf_iterator<char>()) == text) {
        return true;
    }
    std::ofstream stream(path, std::ios::binary);
    return stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush().good();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view form = argc == 3 ? argv[1] : "";
    if (form != "json" && form != "markdown") {
        std::fputs("usage: quil_function_list json|markdown FILE\n", stderr);
        return 2;
    }
    try {
        if (!writeFile(argv[2], form == "json" ? jsonList() : markdown())) {
            std::fprintf(stderr, "quil_function_list: cannot write \"%s\"\n", argv[2]);
            return 1;
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quil_function_list: %s\n", error.what());  // a row that is not UTF-8
        return 1;
    }
}
