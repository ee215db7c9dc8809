// SPDX-License-Identifier: GPL-3.0-or-later
// Runs the fuzzers' functions over the files of the given folders. Ends with 1 when there were none.
#include "DecodeEverything.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

int main(int argc, char** argv) {
    int files = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string body(std::istreambuf_iterator<char>(file), {});
            std::printf("%s\n", entry.path().filename().c_str());
            std::fflush(stdout); // the name stands before whatever goes wrong
            ledgerfinch::fuzz::decodeAsDocuments(body);
            ledgerfinch::fuzz::decodeAsAttributes(body);
            ++files;
        }
    }
    return files > 0 ? 0 : 1;
}
