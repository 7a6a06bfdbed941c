// `quil map-list`: which objects of a map stand for these records, as the LST2 lines that the mapping application
// takes.

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <memory>

#include "host/atomic_file.h"
#include "host/commands.h"
#include "host/private_session.h"

namespace host {

namespace {

constexpr std::size_t kLongestID = 31;
constexpr char kObjects[] = "objects.txt";
constexpr char kList[] = "Work:LST2.txt";

struct MapListOptions {
    std::string file;
    std::string ids = "-";
    std::string map = "Map";
    std::vector<std::string> layers;
    bool raw = false;
};

// A file in the session's own folder.
void putFile(const std::string& path, std::string_view content) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    const bool written = file != nullptr && std::fwrite(content.data(), 1, content.size(), file) == content.size();
    if (file == nullptr || std::fclose(file) != 0 || !written) {
        throw HostError(path + ": cannot be written; name another place for it in the environment variable TMPDIR");
    }
}

void usage(const char* option, const std::string& message) {
    throw CLI::ValidationError(option, message);
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

void listObjects(const MapListOptions& options, const Context& context) {
    if (options.file == "-" && options.ids == "-") {
        usage("FILE", "standard input cannot be both the map's objects and the record IDs; name a file with --ids");
    }
    const IDList ids = readIDs(options.ids, kLongestID);
    PrivateSession session(context, true);
    putFile(session.folder() + "/" + kObjects, readInput(options.file));
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
                throw HostError(ids.name + ":" + std::to_string(line) + ": \"" + std::string(id) +
                                "\" is no record ID: one letter, the group in 1 to 3 digits and the record in 6, such "
                                "as B12000345");
            }
            progress.show(++done, ids.count);
        });
    }
    std::string text = session.callChecked("HBT_ShowOnMapGetLST2", std::string("Work:") + kObjects);
    if (text == kList) {  // too long for an answer
        text = readInput(session.folder() + "/LST2.txt");
    }
    if (!options.raw) {
        std::erase(text, '\r');
    }
    writeOutput(text);
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
    command->add_option("--layers", options->layers, "Name layers, for example 3=OTTERS,7=KELP")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->type_name("N=NAME,...");
    command->add_option("--map", options->map, "Name of the map, in every line; else \"Map\"")->type_name("NAME");
    command->add_flag("--raw", options->raw, "Lines end with CR LF, as the mapping application takes them");
    command->footer(
        "A line is the object's ID, its layer's name and the map's name, with tabs between. Lines stand in the order\n"
        "of records, layers and objects. The file itself stays as it is and nothing is written beside it.");
    command->callback([options, &context] { listObjects(*options, context); });
}

}  // namespace host
