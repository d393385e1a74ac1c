// SPDX-License-Identifier: LGPL-2.1-or-later
// Nothing but the log depends on the log: whatever is asked for or delivered, the answers with its
// threshold at 0 are those with everything written, and then not a line is.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "fakes/platform.h"
#include "orva_si.h"
#include "support/client.h"
#include "support/getter_table.h"
#include "support/promises.h"
#include "support/random_broadcast.h"
#include "support/store.h"

using namespace test;

namespace {

constexpr std::uint32_t quiet = 0;

// What an action answers with the log at a level; whether it wrote is left to the caller.
template <class Action>
auto at_level(std::uint32_t level, Action action)
{
    fake::clear_log();
    fake::set_log_level(level);
    auto answer = action();
    fake::set_log_level(ORVA_DEBUG_VERBOSE);
    return answer;
}

std::size_t lines_written()
{
    return fake::log_lines().size();
}

// ---- Questions

class LogLevel : public testing::TestWithParam<answered> {
protected:
    LogLevel() { Orva_Si_InstallISO639toIDFunc(number_of_code); }
    ~LogLevel() override { clear_stores(); }
    LogLevel(const LogLevel &) = delete;
    LogLevel &operator=(const LogLevel &) = delete;
};

TEST_P(LogLevel, AnswersDoNotDependOnIt)
{
    put(GetParam(), GetParam().section());
    for (const getter &of : GetParam().getters) {
        SCOPED_TRACE(of.name);
        const auto question = [&] { return ask(of, plenty(of)); };
        const told loud = at_level(ORVA_DEBUG_VERBOSE, question);
        EXPECT_GT(lines_written(), 0u);
        const told hushed = at_level(quiet, question);
        EXPECT_EQ(lines_written(), 0u);
        EXPECT_EQ(hushed.result, loud.result);
        EXPECT_EQ(hushed.count, loud.count);
        EXPECT_TRUE(hushed.memory.begins_like(loud.memory, loud.memory.size()));
    }
}

// Each pointer null in turn, then both. Answers the results.
std::vector<std::uint32_t> asked_without_memory(const getter &of)
{
    std::vector<std::uint64_t> memory((of.element + 7) / 8);
    std::uint32_t count = 1;
    std::vector<std::uint32_t> results{of.ask(nullptr, nullptr)};
    if (of.kind == gives::list || of.kind == gives::bytes) {
        results.push_back(of.ask(memory.data(), nullptr));
        results.push_back(of.ask(nullptr, &count));
    }
    return results;
}

TEST_P(LogLevel, NullIsRefusedAtAnyLevel)
{
    put(GetParam(), GetParam().section());
    for (const getter &of : GetParam().getters) {
        if (of.kind == gives::nothing)
            continue;
        SCOPED_TRACE(of.name);
        const auto question = [&] { return asked_without_memory(of); };
        const auto loud = at_level(ORVA_DEBUG_VERBOSE, question);
        EXPECT_EQ(std::ranges::count(loud, ORVA_SI_OK), 0);
        const auto hushed = at_level(quiet, question);
        EXPECT_EQ(lines_written(), 0u);
        EXPECT_EQ(hushed, loud);
    }
}

INSTANTIATE_TEST_SUITE_P(Questions, LogLevel, testing::ValuesIn(getter_table()),
                         [](const auto &of) { return std::string{of.param.name}; });

// ---- The road of a section

struct refused {
    const char *call;
    std::function<std::uint32_t()> make;
};

std::vector<refused> refused_calls()
{
    static SiSection nothing{};
    static SiSection elsewhere{};
    static octets bytes = make(eit{});
    static si_list *list = nullptr;
    static SiTable table{};
    if (list == nullptr)
        si_list_init(&list);
    table.psect_list = list;
    elsewhere = {};
    elsewhere.section = bytes.data();
    elsewhere.sect_len = static_cast<std::uint16_t>(bytes.size());
    const auto found = [](const void *record) -> std::uint32_t { return record != nullptr; };
    static SiTable bare{};
    return {
        {"ProcessModel, null", [] { return Si_Model_ProcessModel(nullptr); }},
        {"ProcessModel, no section", [] { return Si_Model_ProcessModel(&nothing); }},
        {"HandleEitTables, null", [] { return Si_Model_HandleEitTables(nullptr); }},
        {"HandleEitTables, no section", [] { return Si_Model_HandleEitTables(&nothing); }},
        {"HandleEitTables, another PID", [] { return Si_Model_HandleEitTables(&elsewhere); }},
        {"CollectTables, null", [] { return Si_Model_CollectTables(nullptr); }},
        {"CollectTables, no section", [] { return Si_Model_CollectTables(&nothing); }},
        {"FindSection, null", [=] { return found(Si_Model_FindSection(nullptr, &elsewhere)); }},
        {"FindSection, no list", [=] { return found(Si_Model_FindSection(&bare, &elsewhere)); }},
        {"InsertSection, null", [] { return Orva_Si_InsertSection(nullptr, &elsewhere); }},
        {"InsertSection, no record", [] { return Orva_Si_InsertSection(&table, nullptr); }},
        {"InsertSection, no section", [] { return Orva_Si_InsertSection(&table, &nothing); }},
        {"InsertSection, no list", [] { return Orva_Si_InsertSection(&bare, &elsewhere); }},
        {"CheckTableCompleted, null",
         [] { return Orva_Si_CheckTableCompleted(nullptr, &elsewhere); }},
        {"CheckTableCompleted, no record",
         [] { return Orva_Si_CheckTableCompleted(&table, nullptr); }},
        {"CheckTableCompleted, no section",
         [] { return Orva_Si_CheckTableCompleted(&table, &nothing); }},
        {"RemoveSectInTable, null", [] { return Orva_Si_RemoveSectInTable(nullptr, &elsewhere); }},
        {"RemoveSectInTable, no record", [] { return Orva_Si_RemoveSectInTable(&table, nullptr); }},
        {"RemoveSectInTable, no list", [] { return Orva_Si_RemoveSectInTable(&bare, &elsewhere); }},
        {"RemoveSectInTable, not in it",
         [] { return Orva_Si_RemoveSectInTable(&table, &elsewhere); }},
        {"RemoveTableSections, null", [] { return Orva_Si_RemoveTableSections(nullptr); }},
        {"IsCrcEqual, first", [] { return Orva_Si_IsCrcEqual(nullptr, bytes.data()); }},
        {"IsCrcEqual, second", [] { return Orva_Si_IsCrcEqual(bytes.data(), nullptr); }},
        {"IsSegSectCompleted", [] { return Orva_Si_IsSegSectCompleted(nullptr, 0, nullptr); }},
        {"GetPATCRC", [] { return Orva_Si_GetPATCRC(nullptr); }},
        {"GetNITCRC", [] { return Orva_Si_GetNITCRC(1, nullptr); }},
        {"GetSDTCRC", [] { return Orva_Si_GetSDTCRC(1, nullptr); }},
        {"GetBATCRC", [] { return Orva_Si_GetBATCRC(1, nullptr); }},
        {"ProcessString", [] { return Orva_Si_ProcessString(nullptr, bytes.data(), 1); }},
        {"ProcessString, nothing",
         [] {
             SiDvbString text{};
             return Orva_Si_ProcessString(&text, bytes.data(), 0);
         }},
        {"GetPmtPid", [] { return Orva_Si_GetPmtPid(0); }},
        {"DoAllPmtReady", [] { return Orva_Si_DoAllPmtReady(); }},
        {"GetPatProgList",
         [] {
             std::int32_t count = 1;
             return Orva_Si_GetPatProgList(nullptr, &count);
         }},
        {"GetPatProgList, no count",
         [] {
             std::uint16_t program = 0;
             return Orva_Si_GetPatProgList(&program, nullptr);
         }},
    };
}

TEST(LogLevelOfTheStore, RefusalsDoNotDependOnIt)
{
    init_store();
    for (const refused &of : refused_calls()) {
        SCOPED_TRACE(of.call);
        const std::uint32_t loud = at_level(ORVA_DEBUG_VERBOSE, of.make);
        const std::uint32_t hushed = at_level(quiet, of.make);
        EXPECT_EQ(lines_written(), 0u);
        EXPECT_EQ(hushed, loud);
    }
}

// What the dispatcher answers to a broadcast, damaged sections among it, and what is stored then.
std::vector<std::uint32_t> deliver_broadcast()
{
    constexpr unsigned many = 2000;
    dice d{7};
    std::vector<std::uint32_t> results;
    tune(d.id(3), 1);
    for (unsigned left = many; left != 0; --left) {
        transmission sent = random_table(d);
        if (d.one_in(10))
            sent.section = spoiled(d, std::move(sent.section));
        SiSection record{};
        record.pid = sent.pid;
        record.sect_len = static_cast<std::uint16_t>(sent.section.size());
        record.section = sent.section.data();
        results.push_back(Si_Model_ProcessModel(&record));
        if (d.one_in(200))
            tune(d.id(3), d.id(programs));
    }
    results.push_back(static_cast<std::uint32_t>(Orva_Si_GetTableList()->nb_elt));
    results.push_back(static_cast<std::uint32_t>(Orva_Si_GetDvbEitList()->nb_elt));
    clear_stores();
    return results;
}

TEST(LogLevelOfTheStore, WhatIsStoredDoesNotDependOnIt)
{
    Orva_Si_InstallCallback(note_event);
    const auto loud = at_level(ORVA_DEBUG_VERBOSE, deliver_broadcast);
    EXPECT_GT(lines_written(), 0u);
    const std::vector<std::uint32_t> told_loudly = reasons();
    events.clear();
    const auto hushed = at_level(quiet, deliver_broadcast);
    EXPECT_EQ(lines_written(), 0u);
    EXPECT_EQ(hushed, loud);
    EXPECT_EQ(reasons(), told_loudly);
    EXPECT_NE(std::ranges::count(reasons(), SI_REASON_SDT), 0);
}

} // namespace
