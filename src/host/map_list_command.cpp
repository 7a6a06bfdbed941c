// `quil map-list`: which objects of a map stand for these records, as the LST2 lines that the mapping application
// takes.

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>

#include "host/atomic_file.h"
#include "host/commands.h"
#include "host/id_list.h"
#include "host/private_session.h"
#include "host/shown_text.h"
#include "platform/text.h"

namespace host {

namespace {

constexpr std::size_t kLongestID = 31;
constexpr std::size_t kBlock = 1 << 20;      // of what is written, between two looks at the clock
constexpr std::size_t kLongWork = 16 << 20;  // bytes of objects whose search takes people's time
constexpr char kObjects[] = "objects.txt";
constexpr char kList[] = "Work:LST2.txt";

struct MapListOptions {
    std::string file;
    std::string ids = "-";
    std::string map = "Map";
    std::vector<std::string> layers;
    bool raw = false;
};

// Hands a text over in blocks between which the progress is shown.
template <class Write>
bool writeInBlocks(std::string_view text, ProgressLine& progress, Write write) {
    for (std::size_t at = 0; at < text.size(); at += kBlock) {
        if (!write(text.substr(at, kBlock))) {
            return false;
        }
        progress.showNow(at, text.size());
    }
    return true;
}

// A file in the session's own folder.
void putFile(const std::string& path, std::string_view content) {
    ProgressLine progress("copying the objects");
    std::FILE* file = std::fopen(path.c_str(), "wb");
    const bool written = file != nullptr && writeInBlocks(content, progress, [file](std::string_view block) {
                             return std::fwrite(block.data(), 1, block.size(), file) == block.size();
                         });
    if (file == nullptr || std::fclose(file) != 0 || !written) {
        throw HostError(path + ": cannot be written; name another place for it in the environment variable TMPDIR");
    }
}

void usage(const char* option, const std::string& message) {
    throw CLI::ValidationError(option, message);
}

// A name goes into every line, so it may not break one.
void checkName(const char* option, std::string_view name) {
    if (!platform::isUtf8(name)) {
        usage(option, '"' + shown(name) + "\" is not UTF-8; convert it, for example with iconv -f MACINTOSH -t UTF-8");
    }
    if (std::any_of(name.begin(), name.end(),
                    [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; })) {
        usage(option, '"' + shown(name) + "\" holds a tab, a line end or another control character");
    }
}

void nameLayers(PrivateSession& session, const std::vector<std::string>& layers) {
    for (const std::string& layer : layers) {
        std::string parameter = layer;
        const std::size_t equals = parameter.find('=');
        if (equals == std::string::npos) {
            usage("--layers", "\"" + layer + "\" is not of the form NUMBER=NAME");
        }
        parameter[equals] = '|';
        session.call("HBT_SetLayerName", parameter);
        if (!session.alerts().empty()) {
            usage("--layers", "\"" + layer + "\": a layer is 1 to 11, its name has 1 to 31 bytes and no \"|\"");
        }
    }
}

// The LST2 lines. What the work needs is gone when they are there: whoever reads them may go before the last one.
std::string findObjects(const MapListOptions& options, const Context& context) {
    const IDList ids(options.ids, kLongestID);
    PrivateSession session(context, true);
    std::size_t size = 0;
    {
        const std::string objects = readInput(options.file);
        size = objects.size();
        putFile(session.folder() + "/" + kObjects, objects);
    }
    nameLayers(session, options.layers);
    session.call("HBT_ShowOnMapInit", options.map);
    if (!session.alerts().empty()) {
        usage("--map", "\"" + options.map + "\": a map's name has 1 to 41 bytes");
    }
    {
        ProgressLine progress("collecting IDs");
        std::size_t done = 0;
        ids.forEach([&](std::string_view id, std::size_t line) {
            if (session.call("HBT_ShownOnMapAppendID", id) == "Error") {
                session.alerts();
                throw HostError(ids.name() + ":" + std::to_string(line) + ": \"" + std::string(id) +
                                "\" is no record ID: one letter, the group in 1 to 3 digits and the record in 6, such "
                                "as B12000345");
            }
            progress.show(++done, ids.count());
        });
    }
    ProgressLine progress("finding the objects");
    if (size > kLongWork) {
        progress.showAtOnce();
    }
    std::string text = session.callChecked("HBT_ShowOnMapGetLST2", std::string("Work:") + kObjects);
    if (text == kList) {  // too long for an answer
        text = readInput(session.folder() + "/LST2.txt");
    }
    return text;
}

void listObjects(const MapListOptions& options, const Context& context) {
    if (options.file == "-" && options.ids == "-") {
        usage("FILE", "standard input cannot be both the map's objects and the record IDs; name a file with --ids");
    }
    checkName("--map", options.map);
    for (const std::string& layer : options.layers) {
        checkName("--layers", layer);
    }
    std::string text = findObjects(options, context);
    if (!options.raw) {
        std::erase(text, '\r');
    }
    ProgressLine progress("writing the lines", true);
    writeInBlocks(text, progress, [](std::string_view block) {
        writeOutput(block);
        return true;
    });
}

}  // namespace

void addMapListCommand(CLI::App& app, Context& context) {
    CLI::App* command =
        app.add_subcommand("map-list", "List the objects of a map that stand for these records, as LST2 lines");
    const auto options = std::make_shared<MapListOptions>();
    command->add_option("FILE", options->file, "The map's objects, one 16-digit ID a line; - is standard input")
        ->required()
        ->type_name("");
    command->add_option("--ids", options->ids, "Record IDs such as B12000345, one a line; else standard input")
        ->type_name("FILE");
    command
        ->add_option("--layers", options->layers,
                     "Name layers 1 to 11 in 1 to 31 bytes of UTF-8, for example 3=OTTERS,7=KELP")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("N=NAME,...");
    command->add_option("--map", options->map, "Name of the map, in every line: 1 to 41 bytes of UTF-8; else \"Map\"")
        ->type_name("NAME");
    command->add_flag("--raw", options->raw, "Lines end with CR LF, as the mapping application takes them");
    command->footer(
        "A line is the object's ID, its layer's name and the map's name, with tabs between. Lines stand in the order\n"
        "of records, layers and objects; lines of the file that are no object are passed over. The file itself stays\n"
        "as it is and nothing is written beside it: the work is done on a copy in a temporary folder, in $TMPDIR if\n"
        "that is set, else in /tmp.");
    command->callback([options, &context] { listObjects(*options, context); });
}

}  // namespace host
