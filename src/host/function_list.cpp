// The bundle's function list, read from its Contents/Resources/Functions.json: an array of objects with the fields of
// FunctionHelp, all texts, exampleResult a text or null.

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "host/plugin.h"

namespace host {

std::vector<FunctionHelp> readFunctionList(const std::string& bundleDirectory) {
    const std::string file = bundleDirectory + "/Contents/Resources/Functions.json";
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    if (!stream) {
        throw HostError("cannot read the function list \"" + file + "\": " + std::strerror(errno != 0 ? errno : EIO) +
                        "; name a bundle with --plugin or install it again");
    }
    try {
        std::vector<FunctionHelp> list;
        const auto document = nlohmann::json::parse(text);
        if (!document.is_array()) {
            throw HostError("the function list \"" + file + "\" is no list; install the bundle again");
        }
        for (const auto& item : document) {
            FunctionHelp help{item.at("name"),   item.at("module"), item.at("summary"),          item.at("parameter"),
                              item.at("result"), item.at("errors"), item.at("exampleParameter"), std::nullopt};
            if (const auto& result = item.at("exampleResult"); !result.is_null()) {
                help.exampleResult = result.get<std::string>();
            }
            list.push_back(std::move(help));
        }
        return list;
    } catch (const nlohmann::json::exception& error) {
        throw HostError("the function list \"" + file + "\" is damaged: " + error.what() +
                        "; install the bundle again");
    }
}

}  // namespace host
