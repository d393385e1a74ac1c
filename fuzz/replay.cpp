// SPDX-License-Identifier: LGPL-2.1-or-later
// Runs one body over files and folders of files, for a debugger: replay_TARGET FILE|FOLDER...
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fakes/platform.h"
#include "fuzz.h"

namespace {

void replay(const std::filesystem::path &path)
{
    std::ifstream file{path, std::ios::binary};
    const fuzz::octets input{std::istreambuf_iterator<char>{file}, {}};
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    fuzz::ORVA_FUZZ_TARGET().run(input);
}

} // namespace

int main(int count, char **arguments)
{
    fake::set_log_level(0);
    for (int i = 1; i < count; ++i) {
        const std::filesystem::path path{arguments[i]};
        if (!std::filesystem::is_directory(path)) {
            replay(path);
            continue;
        }
        for (const auto &each : std::filesystem::directory_iterator{path})
            replay(each.path());
    }
    return 0;
}
