// The desk's windows as pictures, on a screen of their own; they stay in the folder scenes/ of the build.
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/process.h"

namespace {

TEST(DeskScenes, EveryWindowIsPaintedAndSaved) {
    if (std::system("command -v xvfb-run dbus-run-session > /dev/null") != 0) {
        GTEST_SKIP() << "the pictures need xvfb-run and dbus-run-session";
    }
    const std::filesystem::path pictures = QUIL_BINARY_DIR "/scenes";
    std::filesystem::remove_all(pictures);
    const support::Outcome outcome = support::run(
        {"dbus-run-session", "--", "xvfb-run", "-a", "-s", "-screen 0 1280x900x24", QUIL_BINARY_DIR "/quil-desk",
         "desk", QUIL_SOURCE_DIR "/examples/inventory", "--scenes", pictures.string()},
        // The keyboard library copies names out of texts without an end.
        {.environment = {{"ASAN_OPTIONS", "strict_string_checks=0"}}});
    EXPECT_EQ(outcome.status, 0) << outcome.output << outcome.errors;
    for (const char* name :
         {"start", "found-set", "alert", "chooser", "progress", "threat-zone", "messages-panel", "dark"}) {
        std::error_code missing;
        EXPECT_GT(std::filesystem::file_size(pictures / (std::string(name) + ".png"), missing), 2000U) << name;
        EXPECT_FALSE(missing) << name;
    }
}

}  // namespace
