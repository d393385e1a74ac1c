// SPDX-License-Identifier: LGPL-2.1-or-later
// Files of recorded streams and of what is known about them, read with the optimiser's help: they
// are large.
#ifndef TESTS_SUPPORT_FILES_H
#define TESTS_SUPPORT_FILES_H

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <filesystem>
#include <vector>

namespace test {

// Empty where there is no such file.
std::vector<std::uint8_t> read_file(const std::filesystem::path &path);

// Throws what the JSON library throws where there is none, or something else in it.
nlohmann::json read_json(const std::filesystem::path &path);

} // namespace test

#endif
