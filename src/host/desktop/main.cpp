// quil-desk: quil with windows. "quil desk" becomes this program.
#include "host/desk_command.h"
#include "host/desktop/start.h"

namespace host {
int run(int argc, char** argv);
}

int main(int argc, char** argv) {
    host::installDesktop(&host::desktop::run);
    return host::run(argc, argv);
}
