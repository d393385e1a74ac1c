// SPDX-License-Identifier: LGPL-2.1-or-later
// One body under libFuzzer: the build names it in ORVA_FUZZ_TARGET. With --seeds FOLDER in place of
// the engine's arguments, its seeds are written there.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fakes/platform.h"
#include "mutate.h"

namespace {

bool write_seeds(const std::filesystem::path &folder)
{
    std::filesystem::create_directories(folder);
    std::size_t number = 0;
    for (const fuzz::octets &seed : fuzz::ORVA_FUZZ_TARGET().seeds()) {
        std::ofstream file{folder / ("seed-" + std::to_string(number++)), std::ios::binary};
        file.write(reinterpret_cast<const char *>(seed.data()), std::ssize(seed));
        if (!file)
            return false;
    }
    return true;
}

} // namespace

extern "C" {

std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t capacity);

// GLib's slices would hide what the address sanitizer is to see; it looks once, before main.
int LLVMFuzzerInitialize(int *count, char ***arguments)
{
    if (std::getenv("G_SLICE") == nullptr) {
        setenv("G_SLICE", "always-malloc", 1);
        execv("/proc/self/exe", *arguments);
        std::abort();
    }
    fake::set_log_level(0);
    if (*count == 3 && std::string{(*arguments)[1]} == "--seeds")
        std::exit(write_seeds((*arguments)[2]) ? 0 : 1);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    fuzz::ORVA_FUZZ_TARGET().run({data, size});
    return 0;
}

std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size, std::size_t capacity,
                                    unsigned seed)
{
    return fuzz::mutate(fuzz::ORVA_FUZZ_TARGET().of, {data, capacity}, size, seed,
                        LLVMFuzzerMutate);
}

} // extern "C"
