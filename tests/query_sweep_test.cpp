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
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "dvbtables/orva_si_codec.h"
#include "fakes/platform.h"
#include "orva_si/query_text.h"
#include "support/getter_table.h"

using test::answered;
using test::getter;
using test::gives;
using test::octets;

namespace {

// ---- The caller's memory

constexpr std::uint8_t unwritten = 0xA5;

// Ends where its heap block ends, also when it is empty.
class exact_memory {
public:
    explicit exact_memory(std::size_t size) : bytes{size}, block{new std::uint8_t[in_front + size]}
    {
        std::memset(start(), unwritten, size);
    }
    std::uint8_t *start() const { return block.get() + in_front; }
    std::size_t size() const { return bytes; }
    bool is_unwritten_from(std::size_t at) const
    {
        if (at >= bytes)
            return true;
        const std::uint8_t *rest = start() + at; // each byte is like the one before
        return *rest == unwritten && std::memcmp(rest, rest + 1, bytes - at - 1) == 0;
    }
    bool begins_like(const exact_memory &other, std::size_t size) const
    {
        return std::memcmp(start(), other.start(), size) == 0;
    }

private:
    static constexpr std::size_t in_front = 16; // keeps the alignment
    std::size_t bytes;
    std::unique_ptr<std::uint8_t[]> block;
};

// More than any section of the sweep can fill.
std::uint32_t plenty(const getter &of)
{
    if (of.kind == gives::bytes)
        return 4096;
    return of.element > 256 ? 16 : 64;
}

struct told {
    std::uint32_t result;
    std::uint32_t count; // as the getter left it
    exact_memory memory;
};

told ask(const getter &of, std::uint32_t capacity)
{
    const bool counts = of.kind == gives::list || of.kind == gives::bytes;
    exact_memory memory{of.element * (counts ? capacity : 1)};
    const std::unique_ptr<std::uint32_t> count{new std::uint32_t{capacity}};
    const std::uint32_t result = of.ask(memory.start(), count.get());
    return {result, *count, std::move(memory)};
}

// ---- What is promised. Each answers what was broken, or nothing.

using complaint = const char *;
constexpr complaint none = nullptr;

bool is_success(const getter &of, std::uint32_t result)
{
    return result == ORVA_SI_OK || (of.kind == gives::list && result == ORVA_SI_FAILURE);
}

complaint judge_value(const getter &of, const told &answer)
{
    if (answer.result != ORVA_SI_OK && !of.ways.always_written &&
        !answer.memory.is_unwritten_from(0))
        return "wrote a value that it does not answer for";
    return none;
}

complaint judge_bytes(const told &answer, std::uint32_t capacity)
{
    if (answer.count > capacity)
        return "the length is above the capacity";
    if (answer.result != ORVA_SI_OK && answer.count != capacity)
        return "changed the length without success";
    if (!answer.memory.is_unwritten_from(answer.result == ORVA_SI_OK ? answer.count : 0))
        return "wrote behind the bytes";
    return none;
}

complaint judge_list(const getter &of, const told &answer, std::uint32_t capacity)
{
    // A capacity that is refused as an argument stays as it was.
    if (answer.count > capacity)
        return "the count is above the capacity";
    if (answer.result == ORVA_SI_ARRAY_FULL && answer.count != capacity)
        return "full below the capacity";
    if (answer.result != ORVA_SI_ARRAY_FULL && !is_success(of, answer.result) && answer.count != 0)
        return "counted elements that it does not answer for";
    if (!answer.memory.is_unwritten_from((answer.count + (of.ways.writes_ahead ? 1 : 0)) *
                                         of.element))
        return "wrote behind the last element";
    return none;
}

complaint judge(const getter &of, const told &answer, std::uint32_t capacity)
{
    if (std::ranges::find(of.codes, answer.result) == of.codes.end())
        return "answered a code that is not its own";
    switch (of.kind) {
    case gives::value:
        return judge_value(of, answer);
    case gives::bytes:
        return judge_bytes(answer, capacity);
    case gives::list:
        return judge_list(of, answer, capacity);
    case gives::nothing:
        break;
    }
    return none;
}

// Against the answer with room for all: just enough room makes no difference, less of it cuts the
// list and says so, and bytes come whole or not at all.
complaint compare(const getter &of, const told &whole, const told &answer, std::uint32_t capacity)
{
    const std::uint32_t all = is_success(of, whole.result) ? whole.count : 0;
    if (capacity == 0 && of.kind == gives::list && answer.result == of.ways.without_room)
        return none;
    if (capacity >= all) {
        const bool may_be_full = of.ways.writes_ahead && answer.result == ORVA_SI_ARRAY_FULL;
        if (answer.result != whole.result && !may_be_full)
            return "the result depends on room that is not needed";
    } else if (answer.result != ORVA_SI_ARRAY_FULL) {
        return "did not say that there was too little room";
    }
    const std::uint32_t filled =
        of.kind == gives::bytes && answer.result != ORVA_SI_OK ? 0 : std::min(all, capacity);
    if (of.kind == gives::list && answer.count != filled)
        return "the count is not that of what there was room for";
    if (!answer.memory.begins_like(whole.memory, filled * of.element))
        return "the first elements depend on the room";
    return none;
}

complaint first_broken_promise(const getter &of)
{
    const told whole = ask(of, plenty(of));
    if (const complaint broken = judge(of, whole, plenty(of)); broken != none)
        return broken;
    if (of.kind != gives::list && of.kind != gives::bytes)
        return none;
    const std::uint32_t all = is_success(of, whole.result) ? whole.count : 0;
    std::set<std::uint32_t> capacities{0, 1, all};
    if (all != 0)
        capacities.insert(all - 1);
    for (const std::uint32_t capacity : capacities) {
        const told answer = ask(of, capacity);
        if (const complaint broken = judge(of, answer, capacity); broken != none)
            return broken;
        if (const complaint broken = compare(of, whole, answer, capacity); broken != none)
            return broken;
    }
    return none;
}

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
    ~QuerySweep() override { test::clear_stores(); }
    QuerySweep(const QuerySweep &) = delete;
    QuerySweep &operator=(const QuerySweep &) = delete;

    const answered &row = GetParam();

    // All getters of the row keep their promises about a section.
    void expect_promises_kept(const octets &section) const
    {
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

// Where time is short, at every few values from 0 to 255.
#ifndef ORVA_SWEEP_STEP
#define ORVA_SWEEP_STEP 1
#endif

TEST_P(QuerySweep, EveryByteAtEveryValue)
{
    fake::set_log_level(0);
    const octets section = row.section();
    const std::size_t end_of_body = section.size() - 4;
    for (std::size_t at = 0; at < end_of_body; ++at)
        for (unsigned value = 0; value <= 0xFF; value += ORVA_SWEEP_STEP) {
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
                                       "Orva_Si_GetPmtPid"};
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
