// murmurly-program: the tray program, the transcribe command and the options the `murmurly`
// command hands on; everything lives in murmurly_app, see CommandLine.
#include "app/CommandLine.h"

int main(int argc, char** argv) {
    return murmurly::CommandLine::run(argc, argv);
}
