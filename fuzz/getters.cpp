// SPDX-License-Identifier: LGPL-2.1-or-later
#include "getters.h"

#include <bitset>

#include <array>
#include <memory>
#include <string>

#include "fakes/platform.h"
#include "frames.h"
#include "orva_si.h"
#include "orva_si_bytes.h"
#include "outline.h"
#include "seeds.h"
#include "support/client.h"
#include "support/promises.h"
#include "support/store.h"

namespace fuzz {

namespace {

constexpr std::uint16_t time_pid = 0x14;
constexpr std::uint32_t frequency = 474000;

// The questions about one kind of table: every getter once.
enum family : std::size_t { of_pat, of_pmt, of_nit, of_sdt, of_bat, of_eit, of_time, families };

family family_of(std::uint8_t table_id)
{
    if (table_id >= 0x4E && table_id <= 0x6F)
        return of_eit;
    switch (table_id) {
    case 0x00:
        return of_pat;
    case 0x02:
        return of_pmt;
    case 0x40:
    case 0x41:
        return of_nit;
    case 0x42:
    case 0x46:
        return of_sdt;
    case 0x4A:
        return of_bat;
    case 0x70:
    case 0x73:
        return of_time;
    default:
        return families;
    }
}

using questions = std::vector<const test::getter *>;

std::array<questions, families> by_family()
{
    std::array<questions, families> all;
    for (const test::answered &row : test::getter_table())
        for (const test::getter &each : row.getters) {
            questions &same = all.at(family_of(row.section().front()));
            const auto known = [&](const test::getter *other) { return other->name == each.name; };
            if (std::ranges::none_of(same, known))
                same.push_back(&each);
        }
    return all;
}

const questions &about(family table)
{
    static const std::array<questions, families> all = by_family();
    return all.at(table);
}

void check(const test::getter &of, test::complaint broken)
{
    if (broken != test::none)
        fail(of.name, broken);
}

// The second question has little room; which, goes round.
unsigned turn = 0;

test::complaint first_quickly_broken(const test::getter &of)
{
    const std::uint32_t much = test::plenty(of);
    const test::told whole = test::ask(of, much);
    if (const test::complaint broken = test::judge(of, whole, much); broken != test::none)
        return broken;
    if (of.kind != test::gives::list && of.kind != test::gives::bytes)
        return test::none;
    const std::uint32_t all = test::amount(of, whole);
    const std::array<std::uint32_t, 4> little{0, 1, all, all == 0 ? 2 : all - 1};
    const std::uint32_t capacity = little[turn++ % little.size()];
    const test::told answer = test::ask(of, capacity);
    if (const test::complaint broken = test::judge(of, answer, capacity); broken != test::none)
        return broken;
    return test::compare(of, whole, answer, capacity);
}

void ask_all(family table, room given)
{
    for (const test::getter *each : about(table))
        check(*each, given == room::thorough ? test::first_broken_promise(*each)
                                             : first_quickly_broken(*each));
}

// ---- Sections that are all damaged answer nothing

// These go by what is stored, damaged or not: the CRC_32 field itself, and what the dispatcher
// made of the section when it came.
bool needs_no_crc(std::string_view name)
{
    return name.ends_with("CRC");
}

bool answers(const test::getter &of)
{
    if (of.kind == test::gives::nothing)
        return false;
    const test::told answer = test::ask(of, test::plenty(of));
    if (of.kind == test::gives::list || answer.result != ORVA_SI_OK)
        return answer.count != 0 && of.kind == test::gives::list;
    return !of.ways.always_written;
}

void expect_no_answer(family table)
{
    for (const test::getter *each : about(table))
        if (!needs_no_crc(each->name) && answers(*each))
            fail(each->name, "answers from a section whose CRC_32 does not fit");
}

// ---- The input

// Whether a CRC_32 fits where section_length puts it; there may be bytes behind.
bool holds_intact(bytes section)
{
    if (section.size() < si::section_header_bytes)
        return false;
    const std::size_t size = si::section_size(section.data());
    return size <= section.size() && is_intact(section.first(size));
}

// Channel 0 is the PID of the table; the others are where some table does not belong.
std::uint16_t pid_of_channel(std::uint8_t channel, bytes section)
{
    constexpr std::array<std::uint16_t, 9> pids{0x00, 0x01,  0x10,  0x11,  0x12,
                                                0x14, 0x100, 0x200, 0x1FFF};
    if (channel == 0 && !section.empty())
        return pid_of(section[0]);
    return pids[channel % pids.size()];
}

void run(bytes input)
{
    // What costs much is done for some inputs: which, they say themselves.
    turn = static_cast<unsigned>(input.size());
    fake::set_log_level(input.size() % 61 == 60 ? 5 : 0);
    const room given = input.size() % 8 == 7 ? room::thorough : room::quick;
    begin_anew();
    std::bitset<families> met;
    bool all_damaged = true;
    every_frame(input, [&](std::uint8_t channel, bytes section) {
        deliver(pid_of_channel(channel, section), section);
        all_damaged = all_damaged && !holds_intact(section);
        if (!section.empty() && family_of(section[0]) != families)
            met.set(family_of(section[0]));
    });
    for (std::size_t each = 0; each < families; ++each) {
        if (!met[each])
            continue;
        ask_all(static_cast<family>(each), given);
        if (all_damaged)
            expect_no_answer(static_cast<family>(each));
    }
    fake::clear_log();
}

std::vector<octets> seeds()
{
    std::vector<octets> all = seed_frames(0);
    // Whole multiplexes: tables together, and more than one section of each.
    std::vector<frame> together;
    for (const octets &section : seed_sections()) {
        together.push_back({0, section});
        if (together.size() == 8) {
            all.push_back(packed(together));
            together.clear();
        }
    }
    return all;
}

} // namespace

std::uint16_t pid_of(std::uint8_t table_id)
{
    return family_of(table_id) == of_time ? time_pid : test::usual_pid(table_id);
}

void begin_anew()
{
    static const bool prepared = [] {
        Orva_Si_InstallISO639toIDFunc(test::number_of_code);
        test::tune(frequency);
        return true;
    }();
    static_cast<void>(prepared);
    test::clear_stores();
    Si_Model_ResetPmtPidList();
}

void deliver(std::uint16_t pid, bytes section)
{
    const std::unique_ptr<std::uint8_t[]> alone{new std::uint8_t[section.size()]};
    std::ranges::copy(section, alone.get());
    SiSection record{};
    record.pid = pid;
    record.sect_len = static_cast<std::uint16_t>(section.size());
    record.section = alone.get();
    Si_Model_ProcessModel(&record);
}

void ask_about(std::uint8_t table_id, room given)
{
    if (const family table = family_of(table_id); table != families)
        ask_all(table, given);
}

target getters()
{
    return {"getters", shape::frames, run, seeds};
}

} // namespace fuzz
