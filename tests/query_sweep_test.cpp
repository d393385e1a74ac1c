// SPDX-License-Identifier: LGPL-2.1-or-later
// Every getter keeps its promises to the caller whatever is broadcast: asked about a section that
// answers it, cut at every length and with every byte at every value. The memory that it fills is
// alone in its heap block, and in builds with the address sanitizer nothing can be read behind the
// section.
#include <gtest/gtest.h>
#include <iomanip>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "dvbtables/orva_si_codec.h"
#include "fakes/platform.h"
#include "orva_si/query_text.h"
#include "support/effort.h"
#include "support/getter_table.h"
#include "support/promises.h"

using test::answered;
using test::complaint;
using test::getter;
using test::gives;
using test::none;
using test::octets;
using test::told;

namespace {

std::string hex(const octets &bytes)
{
    std::ostringstream text;
    for (const std::uint8_t byte : bytes)
        text << std::hex << std::setfill('0') << std::setw(2) << unsigned{byte} << ' ';
    return text.str();
}

// ---- The sweep. One test for each row: the first fault ends it.

class QuerySweep : public testing::TestWithParam<answered> {
protected:
    QuerySweep() { Orva_Si_InstallISO639toIDFunc(test::number_of_code); }
    ~QuerySweep() override
    {
        RecordProperty("inputs", inputs);
        test::clear_stores();
    }
    QuerySweep(const QuerySweep &) = delete;
    QuerySweep &operator=(const QuerySweep &) = delete;

    const answered &row = GetParam();
    int inputs = 0;

    // All getters of the row keep their promises about a section.
    void expect_promises_kept(const octets &section)
    {
        ++inputs;
        test::put(row, section);
        for (const getter &of : row.getters)
            if (const complaint broken = first_broken_promise(of); broken != none)
                FAIL() << of.name << ' ' << broken << ", asked about\n" << hex(section);
    }
};

#define SWEEP(section)                                                                             \
    do {                                                                                           \
        expect_promises_kept(section);                                                             \
        if (HasFatalFailure())                                                                     \
            return;                                                                                \
    } while (false)

TEST_P(QuerySweep, TheSectionOfTheRowAnswers)
{
    test::put(row, row.section());
    for (const getter &of : row.getters) {
        SCOPED_TRACE(of.name);
        const told answer = ask(of, plenty(of));
        EXPECT_TRUE(is_success(of, answer.result)) << answer.result;
        EXPECT_TRUE(of.element == 0 || !answer.memory.is_unwritten_from(0));
        if (of.kind == gives::list) {
            EXPECT_GE(answer.count, 1u);
        }
    }
    SWEEP(row.section());
}

// With every log line written, so that texts are read as well.
TEST_P(QuerySweep, SectionsCutAtEveryLength)
{
    constexpr std::size_t shortest = 8;
    const octets section = row.section();
    for (std::size_t size = shortest; size <= section.size(); ++size) {
        fake::clear_log();
        SWEEP(test::cut(section, size));
        // The length of before, over bytes that are not there.
        octets lying{section.begin(), section.begin() + static_cast<std::ptrdiff_t>(size)};
        SWEEP(test::filled_up(lying));
        // A length that leaves bytes over.
        octets longer = test::cut(section, size);
        longer.resize(section.size() + 8, 0xFF);
        SWEEP(longer);
    }
}

// Around it all lengths fit, so that its reader is reached.
TEST_P(QuerySweep, DescriptorsCutAtEveryLength)
{
    const octets whole = row.descriptor;
    for (std::size_t size = 2; size <= whole.size(); ++size) {
        fake::clear_log();
        octets part{whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)};
        part[1] = static_cast<std::uint8_t>(size - 2);
        SWEEP(row.section_with(part));
        for (std::size_t at = 2; at < size; ++at)
            for (const unsigned value : {0x00u, 0x01u, 0x3Fu, 0x7Fu, 0x80u, 0xFFu}) {
                octets changed = part;
                changed[at] = static_cast<std::uint8_t>(value);
                SWEEP(row.section_with(changed));
            }
    }
}

TEST_P(QuerySweep, EveryByteAtEveryValue)
{
    fake::set_log_level(0);
    const octets section = row.section();
    const std::size_t end_of_body = section.size() - 4;
    for (std::size_t at = 0; at < end_of_body; ++at)
        for (unsigned value = 0; value <= 0xFF; value += test::sweep_step) {
            octets changed = section;
            changed[at] = static_cast<std::uint8_t>(value);
            SWEEP(test::filled_up(changed));
        }
}

INSTANTIATE_TEST_SUITE_P(Rows, QuerySweep, testing::ValuesIn(test::getter_table()),
                         [](const auto &row) { return std::string{row.param.name}; });

// ---- The table

TEST(GetterTable, HoldsEveryExportedQuery)
{
    // No questions about sections: state, whole stores, arithmetic, and a PID in place of a result.
    const std::set<std::string> others{"Orva_Si_GetCtlFlag",         "Orva_Si_GetTsSemFlag",
                                       "Orva_Si_GetTableList",       "Orva_Si_GetDvbEitList",
                                       "Orva_Si_GetDateTimeFromMJD", "Orva_Si_GetUTCTimeFromMJD",
                                       "Orva_Si_GetPmtPid",          "Orva_Si_GetLimitCounts"};
    std::set<std::string_view> asked;
    for (const answered &row : test::getter_table())
        for (const getter &of : row.getters)
            asked.insert(of.name);

    std::ifstream exports{ORVA_EXPORTS};
    std::size_t queries = 0;
    for (std::string name; std::getline(exports, name);) {
        const bool is_query = name.starts_with("Orva_Si_Get") || name.starts_with("Orva_Si_Have") ||
                              name.starts_with("Orva_Si_EvtGet");
        if (!is_query || others.contains(name))
            continue;
        ++queries;
        EXPECT_TRUE(asked.contains(name)) << name << " is exported, but not in the table";
    }
    EXPECT_GE(queries, 100u) << "the list of exports was not read";
    EXPECT_EQ(queries, asked.size());
}

// ---- The fence behind the copy of a section

#ifdef SI_ADDRESS_SANITIZER

std::uint8_t byte_of_copy(const octets &section, std::size_t at)
{
    si::section_buffer<si::largest_psi_section> buffer;
    si::copy_section(buffer.room, section.data());
    const volatile std::uint8_t *copy = buffer.room.data();
    return copy[at];
}

TEST(FenceDeathTest, NoByteBehindASectionCanBeRead)
{
    for (const answered &row : test::getter_table()) {
        const octets section = row.section();
        EXPECT_EQ(byte_of_copy(section, section.size() - 1), section.back());
    }
    const octets section = test::getter_table().front().section();
    EXPECT_DEATH(byte_of_copy(section, section.size()), "use-after-poison");
    EXPECT_DEATH(byte_of_copy(section, si::largest_psi_section - 1), "use-after-poison");
}

TEST(FenceDeathTest, EndsWithTheBuffer)
{
    const octets section = test::getter_table().front().section();
    for (int round = 0; round < 3; ++round) {
        byte_of_copy(section, 0);
        std::uint8_t in_its_place[2 * si::largest_psi_section];
        std::memset(in_its_place, round, sizeof in_its_place);
        EXPECT_EQ(std::ranges::count(in_its_place, round), std::ssize(in_its_place));
    }
}

#endif

} // namespace
