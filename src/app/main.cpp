// The murmurly command: remote control at once, everything else by the program itself; see Launcher.
#include "app/Launcher.h"

int main(int argc, char** argv) {
    return murmurly::Launcher::run(argc, argv);
}
