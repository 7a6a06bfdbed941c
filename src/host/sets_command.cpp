// `quil sets`: the plug-in's sets of record IDs as a filter.

#include <unistd.h>

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cctype>
#include <deque>
#include <memory>

#include "host/commands.h"
#include "host/id_list.h"
#include "host/private_session.h"

namespace host {

namespace {

constexpr std::size_t kLongestID = 23;
constexpr std::size_t kItemBytes = 28;
constexpr std::size_t kMostIDs = 0xFFFFFFFFU / kItemBytes;  // a set is one block of less than 4 GiB
constexpr std::size_t kIDsAtOnce = 8192;      // read back in one call: few calls, and texts that stay in the cache
constexpr std::size_t kLongWork = 3'000'000;  // IDs whose sort takes people's time

void usage(const std::string& message) {
    throw CLI::ValidationError("sets", message);
}

// What is combined: which file goes into which set, and the operators between them.
struct Combination {
    std::vector<std::size_t> files;
    std::string operators;
};

// "A AND B OR C" with the files' letters or numbers, or the operators alone.
Combination parseCombination(const std::string& expression, const std::vector<std::string>& files) {
    const std::size_t fileCount = files.size();
    std::vector<std::string> words(1);
    for (const char c : expression) {
        if (std::isspace(static_cast<unsigned char>(c)) == 0) {
            words.back() += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        } else if (!words.back().empty()) {
            words.emplace_back();
        }
    }
    if (words.back().empty()) {
        words.pop_back();
    }
    Combination result;
    std::size_t operators = 0;
    bool nameIsDue = true;
    if (words.empty()) {
        usage("the expression is empty; write for example \"A AND B\"");
    }
    const bool named = words[0] != "AND" && words[0] != "OR";
    for (const std::string& word : words) {
        const bool isOperator = word == "AND" || word == "OR";
        if (named && isOperator == nameIsDue) {
            usage(isOperator ? "\"" + word + "\" stands where a file's letter is due in \"" + expression + "\""
                             : "\"" + word + "\" stands where AND or OR is due in \"" + expression + "\"");
        }
        if (!named && !isOperator) {
            usage("\"" + word + "\" stands in \"" + expression + "\", which begins with an operator and so can have " +
                  "AND and OR alone");
        }
        nameIsDue = !nameIsDue;
        if (isOperator) {
            result.operators += word + " ";
            ++operators;
            continue;
        }
        const char letter = word[0];
        const std::size_t file = letter >= 'A' ? static_cast<std::size_t>(letter - 'A')
                                               : static_cast<std::size_t>(static_cast<unsigned char>(letter)) - '1';
        if (word.size() != 1 || file >= fileCount) {
            usage("\"" + word +
                  "\" is no file: the files are A to D (or 1 to 4) in the order in which they are named, " +
                  std::to_string(fileCount) + " of them here");
        }
        result.files.push_back(file);
    }
    if (!named) {
        for (std::size_t i = 0; i <= operators; ++i) {
            result.files.push_back(i);
        }
    }
    if (named && nameIsDue) {
        usage("\"" + expression + "\" ends where a file's letter is due");
    }
    if (!named && result.files.size() != fileCount) {
        usage("\"" + expression + "\" stands between " + std::to_string(result.files.size()) + " files, not " +
              std::to_string(fileCount));
    }
    for (std::size_t i = 0; i < fileCount; ++i) {
        const auto times = std::count(result.files.begin(), result.files.end(), i);
        if (times != 1) {
            const std::string file = std::string(1, static_cast<char>('A' + i)) + " (" + files[i] + ")";
            usage(file + (times == 0 ? " is not in the expression \"" : " is more than once in the expression \"") +
                  expression + "\"; each file stands in it once");
        }
    }
    return result;
}

// IDLists do not move.
using IDLists = std::deque<IDList>;

void collect(PrivateSession& session, const std::vector<const IDList*>& lists) {
    std::size_t count = 0;
    for (const IDList* list : lists) {
        count += list->count();
    }
    if (count > kMostIDs) {
        throw HostError(lists.front()->name() + ": a set holds at most " + std::to_string(kMostIDs) + " IDs, not " +
                        std::to_string(count) + "; split the list");
    }
    if (session.call("VSTA_InitFoundSet", std::to_string(count)) == "Error") {
        throw HostError("out of memory: " + std::to_string(count) + " IDs take " +
                        std::to_string((count * kItemBytes >> 20) + 1) + " MiB");
    }
    ProgressLine progress("collecting IDs");
    std::size_t done = 0;
    for (const IDList* list : lists) {
        list->forEach([&](std::string_view id, std::size_t) {
            session.tell("VSTA_SetNextFoundID", id);
            progress.show(++done, count);
        });
    }
}

// The plug-in's work is one call that cannot tell how far it is.
void work(PrivateSession& session, const char* function, const std::string& parameter, std::size_t count) {
    ProgressLine progress("sorting IDs");
    if (count > kLongWork) {
        progress.showAtOnce();
    }
    session.callChecked(function, parameter);
}

void printFoundSet(PrivateSession& session) {
    const std::size_t count = std::stoul(session.callChecked("VSTA_GetNumFoundIDs", ""));
    ProgressLine progress("writing IDs", true);
    std::size_t written = 0;
    while (written < count) {
        const std::size_t end = std::min(written + kIDsAtOnce, count);
        std::string block =
            session.callChecked("VSTA_GetFoundID", std::to_string(written + 1) + "|" + std::to_string(end));
        for (char& c : block) {
            c = c == '\r' ? '\n' : c;
        }
        block += '\n';
        writeOutput(block);
        written = end;
        progress.showNow(written, count);
    }
}

void checkStandardInput(const std::vector<std::string>& files) {
    if (std::count(files.begin(), files.end(), "-") > 1) {
        usage("standard input (-) can be read only once");
    }
}

void dedupe(std::vector<std::string> files, const Context& context) {
    checkStandardInput(files);
    if (files.empty()) {
        files = {"-"};
    }
    IDLists lists;
    std::vector<const IDList*> all;
    std::size_t count = 0;
    for (const std::string& file : files) {
        all.push_back(&lists.emplace_back(file, kLongestID));
        count += all.back()->count();
    }
    PrivateSession session(context, false);
    collect(session, all);
    work(session, "VSTA_RemoveDuplicateFoundIDs", "", count);
    printFoundSet(session);
}

void combine(const std::string& expression, const std::vector<std::string>& files, const Context& context) {
    checkStandardInput(files);
    const Combination combination = parseCombination(expression, files);
    IDLists lists;
    std::size_t count = 0;
    for (const std::string& file : files) {
        count += lists.emplace_back(file, kLongestID).count();
    }
    PrivateSession session(context, false);
    for (std::size_t i = 0; i < combination.files.size(); ++i) {
        collect(session, {&lists[combination.files[i]]});
        session.callChecked("VSTA_TransferFoundSetToBooleanSet", std::to_string(i + 1));
    }
    work(session, "VSTA_MakeFoundSetFromBooleanSets", combination.operators, count);
    if (combination.operators.empty()) {  // one set alone comes back as it was collected
        work(session, "VSTA_RemoveDuplicateFoundIDs", "", count);
    }
    printFoundSet(session);
}

constexpr char kFooter[] =
    "IDs stand one a line (LF, CR LF or CR) and have at most 23 bytes; empty lines are left out, and - is standard\n"
    "input. The result is in the order of the input, each ID once, where it came first. IDs that differ only in\n"
    "their 23rd byte count as the same.";

}  // namespace

void addSetsCommand(CLI::App& app, Context& context) {
    CLI::App* command = app.add_subcommand("sets", "Combine lists of record IDs: duplicates out, AND, OR");
    command->require_subcommand(1);
    command->footer(kFooter);
    const auto files = std::make_shared<std::vector<std::string>>();
    const auto expression = std::make_shared<std::string>();

    CLI::App* one = command->add_subcommand("dedupe", "Each ID once, at its first place");
    one->add_option("FILE", *files, "Lists of IDs, read one behind the other; without any, standard input")
        ->type_name("");
    one->footer(kFooter);
    one->callback([files, &context] { dedupe(*files, context); });

    for (const auto& [name, help] : {std::pair{"and", "The IDs of A that are in B too, in A's order"},
                                     std::pair{"or", "The IDs of A, then those that B adds"}}) {
        CLI::App* two = command->add_subcommand(name, help);
        two->add_option("FILES", *files, "The two lists, A and B")->required()->expected(2)->type_name("A B");
        two->footer(kFooter);
        two->callback([files, &context, name = std::string(name)] { combine(name, *files, context); });
    }

    CLI::App* several = command->add_subcommand("combine", "Combine up to four lists");
    several
        ->add_option(
            "EXPRESSION", *expression,
            "For example \"A AND B OR C\": A is the first file, B the second and so on (or 1 to 4); \"AND OR\"\n"
            "alone takes the files in their order")
        ->required()
        ->type_name("");
    several->add_option("FILE", *files, "One to four lists, each of which stands in the expression once")
        ->required()
        ->expected(1, 4)
        ->type_name("");
    several->footer(
        std::string("Two operators work from left to right; with three the pairs come first: (A op B) op (C op D).\n") +
        kFooter);
    several->callback([files, expression, &context] { combine(*expression, *files, context); });
}

}  // namespace host
