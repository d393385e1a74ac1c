// SPDX-License-Identifier: LGPL-2.1-or-later
// Runs of the tool's scan, as its users start it, and multiplexes for them.
#ifndef TESTS_E2E_SCANNING_H
#define TESTS_E2E_SCANNING_H

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "demux/stream.h"
#include "support/process.h"
#include "support/sections.h"

namespace test {

using nlohmann::json;

inline const scratch_folder &files()
{
    static const scratch_folder folder;
    return folder;
}

inline std::vector<std::string> scan_command(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {ORVA_TOOL, "scan"});
    return arguments;
}

inline ended scan(std::vector<std::string> arguments)
{
    return process{scan_command(std::move(arguments))}.wait();
}

inline json scan_json(std::vector<std::string> arguments, int expected_status = 0)
{
    arguments.emplace_back("--json");
    const ended result = scan(std::move(arguments));
    EXPECT_EQ(result.status, expected_status) << result.err;
    return json::parse(result.out, nullptr, false);
}

// The sample multiplex, written by the generator that is built beside the tool.
inline const std::string &sample()
{
    static const std::string path = [] {
        const auto tools = std::filesystem::path{ORVA_TOOL}.parent_path().parent_path();
        const std::string generator = (tools / "sample" / "orva-sample-mux").string();
        std::string out = files().path("sample.ts");
        const ended result = process{{generator, out}}.wait();
        EXPECT_EQ(result.status, 0) << generator << ": " << result.err;
        return out;
    }();
    return path;
}

inline octets bytes_of(const std::string &path)
{
    const std::string all = contents(path);
    return {all.begin(), all.end()};
}

inline std::size_t lines(const std::string &text)
{
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

template <class Select>
std::vector<json> each(const json &list, Select select)
{
    std::vector<json> all;
    for (const json &item : list)
        all.push_back(select(item));
    return all;
}

// A multiplex of one service, complete, behind what is there already.
inline stream small_stream(stream made = {})
{
    made.section(0x00, make(pat{.ts = 7, .programs = {{.number = 100, .pid = 0x100}}}));
    made.section(0x100, make(pmt{.program = 100, .streams = {{.type = 0x02, .pid = 0x101}}}));
    made.section(0x10, make(nit{.network = 3,
                                .descriptors = {network_name("Net")},
                                .transports = {{.ts = 7, .original_network = 1}}}));
    made.section(
        0x11,
        make(sdt{.ts = 7,
                 .services = {{.id = 100, .descriptors = {service_descriptor(1, "P", "News")}}}}));
    return made;
}

// More services than a broadcast has, of one transport stream.
inline stream stream_of_many(std::uint16_t total)
{
    constexpr std::uint16_t in_section = 40;
    const auto last = static_cast<std::uint8_t>((total - 1) / in_section);
    stream made;
    made.section(0x00, make(pat{.ts = 7}));
    made.section(0x10, make(nit{.network = 3, .transports = {{.ts = 7}}}));
    for (std::uint16_t first = 0; first < total; first += in_section) {
        sdt part{.ts = 7,
                 .section_number = static_cast<std::uint8_t>(first / in_section),
                 .last_section_number = last};
        for (std::uint16_t id = first; id < std::min<int>(first + in_section, total); ++id)
            part.services.push_back(
                {.id = id,
                 .eit_schedule = id % 2 != 0,
                 .eit_present_following = id % 3 != 0,
                 .running_status = static_cast<std::uint8_t>(id % 5),
                 .free_ca_mode = id % 7 != 0,
                 .descriptors = {service_descriptor(static_cast<std::uint8_t>(id), "P",
                                                    "S" + std::to_string(id))}});
        made.section(0x11, make(part));
    }
    return made;
}

} // namespace test

#endif
