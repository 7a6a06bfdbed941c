// The program `quil`: loads the plug-in as a database host does and offers it on the command line.
#include "host/commands.h"

int main(int argc, char** argv) {
    return host::run(argc, argv);
}
