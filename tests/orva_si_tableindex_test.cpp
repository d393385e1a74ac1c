// SPDX-License-Identifier: LGPL-2.1-or-later
// The side index of the table store answers as a walk over the list would, whatever the library and
// its client did with the list in between.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "fakes/platform.h"
#include "orva_si_alloc.h"
#include "orva_si_model.h"
#include "support/effort.h"
#include "support/model.h"
#include "support/store.h"

namespace {

unsigned walks = 0;
unsigned steps = 0;

} // namespace

extern "C" {

void *__real_si_list_find(si_list *list, const void *key, SiListCmp comparison);
void *__wrap_si_list_find(si_list *list, const void *key, SiListCmp comparison);
void *__real_si_list_get(si_list *list, std::int32_t position);
void *__wrap_si_list_get(si_list *list, std::int32_t position);

void *__wrap_si_list_find(si_list *list, const void *key, SiListCmp comparison)
{
    ++walks;
    return __real_si_list_find(list, key, comparison);
}

void *__wrap_si_list_get(si_list *list, std::int32_t position)
{
    ++steps;
    return __real_si_list_get(list, position);
}

} // extern "C"

namespace {

using namespace test;

constexpr std::uint16_t any = SI_ANY_EXT;

// A list of tables as it must be, and the answers of a walk over it.
class naive_store {
public:
    struct entry {
        SiTable *table;
        SiTableKey fields;
    };

    void add(SiTable *table, std::int32_t position)
    {
        entries.insert(entries.begin() + place(position), {table, fields_of(table)});
    }
    SiTable *take(std::size_t position)
    {
        SiTable *table = entries[position].table;
        entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(position));
        return table;
    }
    SiTable *find(const SiTableKey &key) const
    {
        const auto found = std::ranges::find_if(
            entries, [&](const entry &e) { return e.table != nullptr && matches(key, e.fields); });
        return found == entries.end() ? nullptr : found->table;
    }
    bool stream_changed(std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext) const
    {
        return std::ranges::any_of(entries, [&](const entry &e) {
            const bool looked_at =
                pid == 0 || (e.fields.table_id == table_id && ((pid == 0x10 && table_id == 0x40) ||
                                                               (pid == 0x11 && table_id == 0x42)));
            return e.table != nullptr && e.fields.pid == pid && looked_at && e.fields.ext != ext;
        });
    }

    std::vector<entry> entries;

private:
    static SiTableKey fields_of(const SiTable *table)
    {
        if (table == nullptr)
            return {};
        return {table->pid, table->table_id, table->ext, table->ext1, table->ext2};
    }
    static bool matches(const SiTableKey &key, const SiTableKey &fields)
    {
        return (key.pid == SI_ANY_PID || key.pid == fields.pid) &&
               (key.table_id == SI_ANY_TABLE_ID || key.table_id == fields.table_id) &&
               (key.ext == any || key.ext == fields.ext) &&
               (key.ext1 == any || key.ext1 == fields.ext1) &&
               (key.ext2 == any || key.ext2 == fields.ext2);
    }
    std::ptrdiff_t place(std::int32_t position) const
    {
        const auto size = static_cast<std::int32_t>(entries.size());
        if (position == -1 || position >= size)
            return size;
        return position < 0 ? std::min(size, 1) : position;
    }
};

class FullStore : public testing::Test {
protected:
    FullStore()
    {
        fake::set_log_level(0);
        init_store();
    }
    ~FullStore() override { end_store(); }
    FullStore(const FullStore &) = delete;
    FullStore &operator=(const FullStore &) = delete;

    SiTable *create(std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext)
    {
        const octets section = make(private_table{.table_id = table_id, .extension = ext});
        return Orva_Si_CreateTable(pid, table_id, section.data());
    }
    SiTable *find(std::uint16_t pid, std::uint8_t table_id, std::uint16_t ext)
    {
        return Orva_Si_FindTableById(pid, table_id, ext, any, any);
    }

    std::mt19937 random{11};
};

// Neither a look-up nor the test for another stream walks, however the library itself changes the
// store.
TEST_F(FullStore, ExactKeysAreAnsweredWithoutAWalk)
{
    const auto answers_at_once = [this](std::uint16_t ext, const SiTable *expected) {
        walks = steps = 0;
        EXPECT_EQ(find(0x100, 0x02, ext), expected);
        EXPECT_EQ(find(0x14, 0x72, 0xFFF0), nullptr);
        EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 1), 0U);
        EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 2), 1U);
        EXPECT_EQ(walks, 0U);
        EXPECT_EQ(steps, 0U);
    };
    create(0, 0x00, 1);
    for (std::uint16_t ext = 0; ext < 100; ++ext)
        create(0x14, 0x72, ext);
    SiTable *first = create(0x100, 0x02, 1);
    find(0x100, 0x02, 1); // the first look at a list takes it in
    answers_at_once(1, first);
    SiTable *second = create(0x100, 0x02, 2);
    answers_at_once(2, second);
    PmtPidList.count = 0;
    si::store_pmt_entry(PmtPidList, PmtPidList.count++, {2, 0x100});
    Orva_Si_DelMissedPmtCaches();
    answers_at_once(1, nullptr);
    answers_at_once(2, second);
    Orva_Si_DeleteCaches(0);
    create(0, 0x00, 1);
    first = create(0x100, 0x02, 1);
    answers_at_once(1, first);
}

// A key that two tables have, and what a client did, cost one new look at the whole list at most.
TEST_F(FullStore, IsLookedUpWithoutAWalkAgainAfterTheNextTable)
{
    create(0x100, 0x02, 1);
    create(0x100, 0x02, 1);
    create(0x100, 0x02, 2);
    Orva_Si_RemoveTable(tables()[0]);
    si_list_remove(Orva_Si_GetTableList(), 0);
    SiTable *added = create(0x100, 0x02, 3);
    ASSERT_EQ(find(0x100, 0x02, 3), added);
    walks = 0;
    EXPECT_EQ(find(0x100, 0x02, 1), tables()[0]);
    EXPECT_EQ(find(0x100, 0x02, 2), tables()[1]);
    EXPECT_EQ(find(0x100, 0x02, 3), added);
    EXPECT_EQ(walks, 0U);
}

// So many tables that the index is half full: every removal meets neighbours.
TEST_F(FullStore, EveryTableIsFoundAfterRemovalsAndNoneThatWent)
{
    for (unsigned round = 0; round < 5; ++round) {
        PmtPidList.count = 0;
        std::map<std::uint16_t, SiTable *> pmts;
        while (pmts.size() < 250) {
            const auto program = static_cast<std::uint16_t>(1 + random() % 0xFFF0);
            if (pmts.contains(program))
                continue;
            pmts[program] = create(0x100, 0x02, program);
            if (random() % 2 == 0)
                si::store_pmt_entry(PmtPidList, PmtPidList.count++, {program, 0x100});
        }
        std::map<std::uint16_t, SiTable *> others;
        while (others.size() < 3300) {
            const auto ext = static_cast<std::uint16_t>(random() % 0xFFFF);
            if (!others.contains(ext))
                others[ext] = create(0x14, 0x72, ext);
        }
        ASSERT_EQ(find(0x100, 0x02, pmts.begin()->first), pmts.begin()->second);
        Orva_Si_DelMissedPmtCaches();
        for (const auto &[program, table] : pmts) {
            const bool listed = Orva_Si_IsPmtExistedByPidAndProgNum(program, 0x100) != 0;
            ASSERT_EQ(find(0x100, 0x02, program), listed ? table : nullptr) << program;
        }
        for (const auto &[ext, table] : others)
            ASSERT_EQ(find(0x14, 0x72, ext), table) << ext;
        Orva_Si_DeleteCaches(0);
        ASSERT_EQ(find(0x14, 0x72, others.begin()->first), nullptr);
    }
}

TEST_F(FullStore, MoreTablesThanTheIndexHoldsAreWalked)
{
    std::vector<SiTable> own(9000);
    for (std::size_t i = 0; i < own.size(); ++i) {
        own[i].pid = 0x14;
        own[i].table_id = 0x72;
        own[i].ext = static_cast<std::uint16_t>(i);
        own[i].ext1 = own[i].ext2 = any;
        si_list_add(Orva_Si_GetTableList(), &own[i], -1);
    }
    EXPECT_EQ(find(0x14, 0x72, 8999), &own[8999]);
    EXPECT_EQ(find(0x14, 0x72, 9000), nullptr);
    EXPECT_EQ(Orva_Si_IsStreamChanged(0, 0x00, 1), 0U);
    while (si_list_remove(Orva_Si_GetTableList(), 0) > 0)
        ;
}

// A client takes its own tables out and frees them without a word to the store.
TEST_F(FullStore, NothingIsReadOfTablesThatAClientTookBack)
{
    std::vector<SiTable *> stored;
    for (std::uint16_t i = 0; i < 200; ++i)
        stored.push_back(create(0x100, 0x02, i));
    {
        std::vector<SiTable> own(3500);
        for (std::size_t i = 0; i < own.size(); ++i) {
            own[i].pid = 0x14;
            own[i].table_id = 0x72;
            own[i].ext = static_cast<std::uint16_t>(i);
            si_list_add(Orva_Si_GetTableList(), &own[i], -1);
        }
        ASSERT_EQ(find(0x14, 0x72, 3), &own[3]);
        for (auto last = static_cast<std::int32_t>(199 + own.size()); last > 199; --last)
            si_list_remove(Orva_Si_GetTableList(), last);
    }
    Orva_Si_RemoveTable(stored[50]);
    si_list_remove(Orva_Si_GetTableList(), 50);
    Orva_Si_DeleteAllPmtCaches();
    EXPECT_EQ(Orva_Si_GetTableList()->nb_elt, 0);
}

class TableIndex : public testing::TestWithParam<unsigned> {
protected:
    TableIndex()
    {
        fake::set_log_level(0);
        init_store();
    }
    ~TableIndex() override { end_store(); }
    TableIndex(const TableIndex &) = delete;
    TableIndex &operator=(const TableIndex &) = delete;

    unsigned below(unsigned limit) { return static_cast<unsigned>(random() % limit); }
    template <std::size_t N>
    std::uint16_t one_of(const std::array<std::uint16_t, N> &values)
    {
        return values[below(N)];
    }
    SiTableKey some_key()
    {
        static constexpr std::array<std::uint16_t, 8> pids{0,    1,     0x10,  0x11,
                                                           0x12, 0x100, 0x101, SI_ANY_PID};
        static constexpr std::array<std::uint16_t, 8> ids{0x00, 0x01, 0x02, 0x40,
                                                          0x42, 0x46, 0x4A, SI_ANY_TABLE_ID};
        static constexpr std::array<std::uint16_t, 6> exts{0, 1, 2, 3, 0x8000, any};
        return {one_of(pids), static_cast<std::uint8_t>(one_of(ids)), one_of(exts), one_of(exts),
                one_of(exts)};
    }
    // Anywhere in the list, its end, and the positions that the list bends.
    std::int32_t some_position()
    {
        const auto size = static_cast<unsigned>(naive.entries.size());
        return static_cast<std::int32_t>(below(size + 6)) - 3;
    }

    void create_some()
    {
        const SiTableKey key = some_key();
        const octets section =
            make(eit{.service = key.ext, .ts = key.ext1, .original_network = key.ext2});
        SiTable *table = Orva_Si_CreateTable(key.pid, key.table_id, section.data());
        ASSERT_NE(table, nullptr);
        naive.add(table, -1);
    }
    void client_adds_its_own()
    {
        auto *table = si::allocate_record<SiTable>();
        const SiTableKey key = some_key();
        table->pid = key.pid;
        table->table_id = key.table_id;
        table->ext = key.ext;
        table->ext1 = key.ext1;
        table->ext2 = key.ext2;
        si_list_init(&table->psect_list);
        add(table);
    }
    void add(SiTable *table)
    {
        const std::int32_t position = some_position();
        si_list_add(Orva_Si_GetTableList(), table, position);
        naive.add(table, position);
    }
    static void free_by_hand(SiTable *table)
    {
        si_list_uninit(table->psect_list);
        si::release_record(table);
    }
    void remove_some()
    {
        if (naive.entries.empty())
            return;
        const std::size_t position = below(static_cast<unsigned>(naive.entries.size()));
        const auto link = static_cast<std::int32_t>(position);
        SiTable *table = naive.take(position);
        const unsigned way = below(3);
        if (way == 0) { // as the store does
            Orva_Si_RemoveTable(table);
            si_list_remove(Orva_Si_GetTableList(), link);
        } else if (way == 1 && table != nullptr && table->psect_list->nb_elt == 0) {
            si_list_remove(Orva_Si_GetTableList(), link); // as the owner of an element does
            free_by_hand(table);
        } else {
            si_list_remove(Orva_Si_GetTableList(), link);
            Orva_Si_RemoveTable(table);
        }
    }
    void client_moves_some()
    {
        if (naive.entries.empty())
            return;
        const std::size_t position = below(static_cast<unsigned>(naive.entries.size()));
        SiTable *table = naive.take(position);
        si_list_remove(Orva_Si_GetTableList(), static_cast<std::int32_t>(position));
        if (below(4) == 0)
            ask();
        add(table);
    }
    void delete_pmts()
    {
        scan_with_8_bit_positions(naive.entries, [](const naive_store::entry &e) {
            return e.table != nullptr && e.fields.table_id == 0x02;
        });
        Orva_Si_DeleteAllPmtCaches();
    }
    void delete_all()
    {
        naive.entries.clear();
        Orva_Si_DeleteCaches(0);
    }

    void ask()
    {
        const SiTableKey key = some_key();
        ASSERT_EQ(Orva_Si_FindTableById(key.pid, key.table_id, key.ext, key.ext1, key.ext2),
                  naive.find(key))
            << key.pid << ' ' << int{key.table_id} << ' ' << key.ext;
        // What the dispatcher asks.
        ASSERT_EQ(Orva_Si_FindTableById(key.pid, key.table_id, key.ext, any, any),
                  naive.find({key.pid, key.table_id, key.ext, any, any}));
        ASSERT_EQ(Orva_Si_IsStreamChanged(key.pid, key.table_id, key.ext) == 1,
                  naive.stream_changed(key.pid, key.table_id, key.ext))
            << key.pid << ' ' << int{key.table_id} << ' ' << key.ext;
    }
    void step()
    {
        const unsigned action = below(1000);
        if (action < 400 && naive.entries.size() < 220)
            return create_some();
        if (action < 500 && naive.entries.size() < 220)
            return client_adds_its_own();
        if (action < 520)
            return add(nullptr);
        if (action < 800)
            return remove_some();
        if (action < 980)
            return client_moves_some();
        if (action < 996)
            return delete_pmts();
        delete_all();
    }
    std::vector<SiTable *> expected() const
    {
        std::vector<SiTable *> all;
        for (const naive_store::entry &e : naive.entries)
            all.push_back(e.table);
        return all;
    }

    naive_store naive;
    std::mt19937 random{GetParam()};
};

TEST_P(TableIndex, AnswersAsAWalkWould)
{
    for (unsigned i = 0; i < 20000; ++i) {
        step();
        for (unsigned questions = below(4); questions != 0; --questions)
            ask();
        if (i % 16 == 0) {
            ASSERT_EQ(tables(), expected());
        }
        if (HasFatalFailure())
            FAIL() << "step " << i << " of seed " << GetParam();
    }
    delete_all();
}

INSTANTIATE_TEST_SUITE_P(Seeds, TableIndex, testing::Range(1U, 1U + part_of(6)));

} // namespace
