// The murmurly program: everything lives in murmurly_app; see CommandLine.
#include "app/CommandLine.h"

int main(int argc, char** argv) {
    return murmurly::CommandLine::run(argc, argv);
}
