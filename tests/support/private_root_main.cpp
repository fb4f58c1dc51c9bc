// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "private_root.h"

/** Runs a command in a private root: "private-root [-k DIR]... COMMAND...", where each DIR is passed through. Exits
 * with 125 if there is none to be had. */
int main(int argc, char** argv) {
    constexpr int kNoPrivateRoot = 125;
    constexpr int kNotFound = 127;
    std::vector<std::string> kept;
    int next = 1;
    for (; next + 1 < argc && std::strcmp(argv[next], "-k") == 0; next += 2) {
        kept.emplace_back(argv[next + 1]);
    }
    if (next >= argc) {
        std::cerr << "usage: private-root [-k DIR]... COMMAND...\n";
        return kNoPrivateRoot;
    }
    std::string why;
    if (!ardv::test::EnterPrivateRoot(kept, why)) {
        std::cerr << "private-root: " << why << '\n';
        return kNoPrivateRoot;
    }
    execvp(argv[next], argv + next);
    std::cerr << "private-root: " << argv[next] << ": " << std::strerror(errno) << '\n';
    return kNotFound;
}
