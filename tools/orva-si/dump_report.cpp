// SPDX-License-Identifier: LGPL-2.1-or-later
#include "dump_report.h"

#include <algorithm>
#include <span>

#include "multiplex.h"
#include "orva_si_bytes.h"
#include "report_words.h"

namespace tool {
namespace {

// The header of a section (ISO/IEC 13818-1, 2.4.4.11).
struct section_header {
    unsigned version_number;
    bool current_next_indicator;
    unsigned section_number;
    unsigned last_section_number;
};

section_header header_of(const std::vector<std::uint8_t> &section)
{
    return {si::version_of(section[5]), (section[5] & 1) != 0, section[6], section[7]};
}

constexpr std::size_t in_row = 16;

// "    0010  00 01 02 03 04 05 06 07  08 09 0a  |...........|", as hexdump -C has it.
std::string row_text(std::size_t offset, std::span<const std::uint8_t> row)
{
    const auto at = static_cast<std::uint16_t>(offset);
    const std::uint8_t address[] = {static_cast<std::uint8_t>(at >> 8),
                                    static_cast<std::uint8_t>(at)};
    std::string digits;
    std::string letters;
    for (std::size_t i = 0; i < row.size(); ++i) {
        digits += (i % 8 == 0 ? "  " : " ") + hexadecimal(row.subspan(i, 1));
        letters += row[i] >= 0x20 && row[i] < 0x7F ? static_cast<char>(row[i]) : '.';
    }
    constexpr std::size_t digits_of_full_row = 3 * in_row + 2;
    digits.resize(digits_of_full_row, ' ');
    return "    " + hexadecimal(address) + digits + "  |" + letters + "|\n";
}

std::string section_text(const std::vector<std::uint8_t> &section)
{
    const section_header header = header_of(section);
    std::string text = "  section " + std::to_string(header.section_number) + "/" +
                       std::to_string(header.last_section_number) + "  version " +
                       std::to_string(header.version_number) +
                       (header.current_next_indicator ? "  " : "  next  ") +
                       std::to_string(section.size()) + " bytes\n";
    const std::span<const std::uint8_t> all{section};
    for (std::size_t at = 0; at < all.size(); at += in_row)
        text += row_text(at, all.subspan(at, std::min(in_row, all.size() - at)));
    return text;
}

} // namespace

std::string dump_text_table(const stored_table &of)
{
    std::string text = table_name(of.table_id) + std::string{"  PID "} + hex(of.pid, 4) +
                       "  table_id " + hex(of.table_id, 2);
    for (const auto &[name, number] : of.ids)
        text.append("  ").append(name).append(1, ' ').append(std::to_string(number));
    text += of.complete ? "\n" : "  incomplete\n";
    for (const std::vector<std::uint8_t> &section : of.sections)
        text += section_text(section);
    return text;
}

void write_dump_json_table(json_writer &to, const stored_table &of)
{
    to.object([&] {
        to.member("table", std::string_view{table_name(of.table_id)});
        to.member("PID", std::uint32_t{of.pid});
        to.member("table_id", std::uint32_t{of.table_id});
        for (const auto &[name, number] : of.ids)
            to.member(name, std::uint32_t{number});
        to.member("complete", of.complete);
        to.array("sections", of.sections, [&](const std::vector<std::uint8_t> &section) {
            const section_header header = header_of(section);
            to.object([&] {
                to.member("version_number", std::uint32_t{header.version_number});
                to.member("current_next_indicator", header.current_next_indicator);
                to.member("section_number", std::uint32_t{header.section_number});
                to.member("last_section_number", std::uint32_t{header.last_section_number});
                to.member("section_raw", std::string_view{hexadecimal(section)});
            });
        });
    });
}

} // namespace tool
