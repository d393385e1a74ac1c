// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/files.h"

#include <nlohmann/json.hpp>

#include <fstream>

namespace test {

std::vector<std::uint8_t> read_file(const std::filesystem::path &path)
{
    std::error_code none;
    const auto size = std::filesystem::file_size(path, none);
    if (none)
        return {};
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    std::ifstream in{path, std::ios::binary};
    in.read(reinterpret_cast<char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(in.gcount()));
    return bytes;
}

nlohmann::json read_json(const std::filesystem::path &path)
{
    return nlohmann::json::parse(read_file(path));
}

} // namespace test
