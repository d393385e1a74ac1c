// SPDX-License-Identifier: LGPL-2.1-or-later
// Every getter answers the same whether it looks only at what may answer or, with the trace on,
// walks all that is stored; and what it writes is its answer, byte for byte.
#include <glib.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fakes/platform.h"
#include "orva_si.h"
#include "support/effort.h"
#include "support/getter_table.h"
#include "support/store.h"

namespace {

using test::answered;
using test::getter;
using test::gives;
using test::octets;

// ---- A question and all that comes back

struct answer {
    std::uint32_t result;
    std::uint32_t count;
    octets memory;

    bool operator==(const answer &) const = default;
};

// The caller's memory holds that byte everywhere.
answer ask(const getter &of, std::uint32_t capacity, std::uint8_t fill)
{
    const bool counts = of.kind == gives::list || of.kind == gives::bytes;
    constexpr std::size_t some = 16; // where nothing is to be written
    answer told{.result = 0,
                .count = capacity,
                .memory = octets(some + of.element * (counts ? capacity : 1), fill)};
    told.result = of.ask(told.memory.data(), &told.count);
    return told;
}

std::uint32_t plenty(const getter &of)
{
    return of.kind == gives::bytes ? 4096 : 32;
}

template <class Visit>
void each_getter(Visit visit)
{
    for (const answered &row : test::getter_table())
        for (const getter &of : row.getters)
            visit(of);
}

// ---- No foreign bytes

// Leaves a byte all over the stack that a call is about to use.
[[gnu::noinline]] void soil_stack(std::uint8_t with)
{
    std::array<std::uint8_t, 32768> used;
    std::memset(used.data(), with, used.size());
    volatile const std::uint8_t *kept = used.data();
    EXPECT_EQ(kept[used.size() / 2], with);
}

// Which bytes of a record belong to a member, told by the members in their order.
template <class Record, class... Member>
std::vector<bool> bytes_of_members(const Record &record, const Member &...member)
{
    std::vector<bool> owned(sizeof record);
    const auto *start = reinterpret_cast<const std::uint8_t *>(&record);
    const auto own = [&](const auto &one) {
        const auto at = reinterpret_cast<const std::uint8_t *>(&one) - start;
        std::fill_n(owned.begin() + at, sizeof one, true);
    };
    (own(member), ...);
    return owned;
}

#define MEMBERS_OF(record, ...)                                                                    \
    [] {                                                                                           \
        const record it{};                                                                         \
        const auto &[__VA_ARGS__] = it;                                                            \
        return bytes_of_members(it, __VA_ARGS__);                                                  \
    }()

// Of the records that have padding, by the getter that fills them.
const std::map<std::string_view, std::vector<bool>> &padded_records()
{
    static const std::map<std::string_view, std::vector<bool>> records = [] {
        const auto region = MEMBERS_OF(SiTargetRegion, a, b, c, d, e);
        const auto satellite = MEMBERS_OF(SiSatelliteDelivery, a, b, c, d, e, f, g, h, i, j);
        const auto cable = MEMBERS_OF(SiCableDelivery, a, b, c, d, e, f);
        const auto linkage = MEMBERS_OF(SiLinkage, a, b, c, d);
        return std::map<std::string_view, std::vector<bool>>{
            {"Orva_Si_GetServAvailList", MEMBERS_OF(SiServAvail, a, b)},
            {"Orva_Si_GetServiceList", MEMBERS_OF(SiServiceListEntry, a, b)},
            {"Orva_Si_GetServiceListInBouquet", MEMBERS_OF(SiBouquetService, a, b, c, d)},
            {"Orva_Si_GetSdtTargetRegionInfo", region},
            {"Orva_Si_GetGlobalTargetRegionInfo", region},
            {"Orva_Si_GetTsTargetRegionInfo", region},
            {"Orva_Si_GetSatelliteDeliveryList", satellite},
            {"Orva_Si_GetSatelliteDeliveryDescriptor", satellite},
            {"Orva_Si_GetCableDeliveryList", cable},
            {"Orva_Si_GetCableDeliveryDescriptor", cable},
            {"Orva_Si_GetTerrDeliveryList",
             MEMBERS_OF(SiTerrDelivery, a, b, c, d, e, f, g, h, i, j, k, l, m)},
            {"Orva_Si_GetLinkageDesc", linkage},
            {"Orva_Si_GetServLinkageDesc", linkage},
            {"Orva_Si_GetNitLinkageDesc", linkage},
            {"Orva_Si_GetAudioIso639Desc", MEMBERS_OF(SiIso639Desc, a, b, c)},
            {"Orva_Si_GetTeleTextDesc", MEMBERS_OF(SiTeletextDesc, a, b, c, d, e)},
            {"Orva_Si_GetOneServBscEvtInfos", MEMBERS_OF(SiBasicEvent, a, b, c, d)},
        };
    }();
    return records;
}

class NoForeignByte : public testing::TestWithParam<answered> {
protected:
    NoForeignByte()
    {
        fake::set_log_level(0);
        Orva_Si_InstallISO639toIDFunc(test::number_of_code);
        test::put(GetParam(), GetParam().section());
    }
    ~NoForeignByte() override { test::clear_stores(); }
    NoForeignByte(const NoForeignByte &) = delete;
    NoForeignByte &operator=(const NoForeignByte &) = delete;
};

// Whatever lay on the stack: a byte is the answer's, or stays the caller's.
TEST_P(NoForeignByte, IsWritten)
{
    for (const getter &of : GetParam().getters) {
        soil_stack(0xC3);
        const answer one = ask(of, plenty(of), 0xA5);
        soil_stack(0x3C);
        const answer other = ask(of, plenty(of), 0x5A);
        ASSERT_EQ(one.result, other.result) << of.name;
        for (std::size_t at = 0; at < one.memory.size(); ++at)
            if (one.memory[at] != 0xA5 || other.memory[at] != 0x5A) {
                ASSERT_EQ(one.memory[at], other.memory[at]) << of.name << ", byte " << at;
            }
    }
}

TEST_P(NoForeignByte, IsWrittenBetweenTheMembersOfARecord)
{
    for (const getter &of : GetParam().getters) {
        const auto found = padded_records().find(of.name);
        if (found == padded_records().end())
            continue;
        ASSERT_EQ(found->second.size(), of.element) << of.name;
        for (const std::uint8_t fill : std::array<std::uint8_t, 2>{0xA5, 0x5A}) {
            const answer told = ask(of, plenty(of), fill);
            for (std::size_t at = 0; at < told.memory.size(); ++at)
                if (!found->second[at % of.element]) {
                    ASSERT_EQ(told.memory[at], fill) << of.name << ", byte " << at;
                }
        }
    }
}

TEST(PaddedRecords, AreAllOfQuestionsThatAreAsked)
{
    std::set<std::string_view> asked;
    each_getter([&](const getter &of) { asked.insert(of.name); });
    for (const auto &[name, members] : padded_records()) {
        EXPECT_TRUE(asked.contains(name)) << name;
        EXPECT_NE(std::ranges::find(members, false), members.end()) << name << " has no padding";
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, NoForeignByte, testing::ValuesIn(test::getter_table()),
                         [](const auto &row) { return std::string{row.param.name}; });

// ---- Stores made by chance

class ChanceStores : public testing::TestWithParam<unsigned> {
protected:
    ChanceStores()
    {
        test::init_store();
        Orva_Si_InstallISO639toIDFunc(test::number_of_code);
        for (const answered &row : test::getter_table()) {
            std::vector<octets> loop = row.before;
            loop.push_back(row.descriptor);
            if (!row.descriptor.empty())
                loops[row.section().front()].push_back(loop);
        }
    }
    ~ChanceStores() override { empty(); }
    ChanceStores(const ChanceStores &) = delete;
    ChanceStores &operator=(const ChanceStores &) = delete;

    unsigned below(unsigned end) { return static_cast<unsigned>(random() % end); }
    bool one_in(unsigned count) { return below(count) == 0; }
    std::uint8_t any_byte() { return static_cast<std::uint8_t>(below(256)); }
    // Getters ask for 1.
    std::uint16_t any_id() { return static_cast<std::uint16_t>(1 + below(3)); }

    // Descriptors that some getter asks about in a table of that kind.
    std::vector<octets> any_loop(std::uint8_t table_id)
    {
        std::vector<octets> all;
        for (unsigned left = below(3); left != 0; --left) {
            const auto &of_kind = loops.at(table_id);
            const auto &one = of_kind[below(static_cast<unsigned>(of_kind.size()))];
            all.insert(all.end(), one.begin(), one.end());
        }
        return all;
    }

    template <class Entry>
    std::vector<Entry> several(Entry (ChanceStores::*any)(std::uint8_t), std::uint8_t table_id)
    {
        std::vector<Entry> all;
        for (unsigned left = below(4); left != 0; --left)
            all.push_back((this->*any)(table_id));
        return all;
    }
    test::sdt_service any_service(std::uint8_t kind)
    {
        return {.id = any_id(), .descriptors = any_loop(kind)};
    }
    test::transport any_transport(std::uint8_t kind)
    {
        return {.ts = any_id(), .original_network = any_id(), .descriptors = any_loop(kind)};
    }
    test::pmt_stream any_stream(std::uint8_t kind)
    {
        const std::uint8_t type = one_in(2) ? 0x1B : 0x06;
        const auto pid = static_cast<std::uint16_t>(0x100 + below(9));
        return {.type = type, .pid = pid, .descriptors = any_loop(kind)};
    }
    test::eit_event any_event(std::uint8_t kind)
    {
        const auto mjd = static_cast<std::uint16_t>(0xEB00 + below(3));
        return {.id = any_id(), .mjd = mjd, .descriptors = any_loop(kind)};
    }

    octets any_table()
    {
        using self = ChanceStores;
        switch (below(5)) {
        case 0:
            return make(test::sdt{.table_id = one_in(2) ? std::uint8_t{0x42} : std::uint8_t{0x46},
                                  .ts = any_id(),
                                  .original_network = any_id(),
                                  .services = several(&self::any_service, 0x42)});
        case 1:
            return make(test::nit{.table_id = one_in(2) ? std::uint8_t{0x40} : std::uint8_t{0x41},
                                  .network = any_id(),
                                  .descriptors = any_loop(0x40),
                                  .transports = several(&self::any_transport, 0x40)});
        case 2:
            return make(test::bat{.bouquet = any_id(),
                                  .descriptors = any_loop(0x4A),
                                  .transports = several(&self::any_transport, 0x4A)});
        case 3:
            return make(test::pmt{.program = any_id(),
                                  .descriptors = any_loop(0x02),
                                  .streams = several(&self::any_stream, 0x02)});
        default:
            return make(test::pat{.ts = any_id(), .programs = {{.number = any_id()}}});
        }
    }
    octets any_events()
    {
        constexpr std::array<std::uint8_t, 6> table_ids{0x4E, 0x4F, 0x50, 0x51, 0x5F, 0x60};
        return make(test::eit{.table_id = table_ids[below(table_ids.size())],
                              .original_network = any_id(),
                              .events = several(&ChanceStores::any_event, 0x50)});
    }

    // As sent, or with wrong bytes under a right CRC_32, or under a wrong one.
    octets received(octets section)
    {
        const auto size = static_cast<unsigned>(section.size());
        if (one_in(4)) // section_number, last_section_number
            section = test::with_byte(section, 6 + below(2), static_cast<std::uint8_t>(below(2)));
        if (one_in(4))
            section = test::with_byte(section, 8 + below(size - 12), any_byte());
        if (one_in(6))
            section =
                test::with_byte(section, 8 + below(size - 12), static_cast<std::uint8_t>(below(4)));
        if (one_in(5))
            section = test::damage(section);
        if (one_in(10))
            section[8 + below(size - 8)] ^= any_byte();
        if (one_in(20))
            section = test::set_length(section, below(size - 2));
        return section;
    }

    void put_table(const octets &section)
    {
        std::uint16_t pid = test::usual_pid(section.front());
        if (one_in(8))
            pid = static_cast<std::uint16_t>(0x10 + below(4));
        if (!one_in(4)) {
            test::store(section, pid);
            return;
        }
        Orva_MutexP(&Ts_Ctl_Mutex); // one more table of its key
        test::insert(Orva_Si_CreateTable(pid, section.front(), section.data()), section);
        Orva_MutexV(&Ts_Ctl_Mutex);
    }
    void put_events(const octets &section)
    {
        const std::uint8_t table_id = section.front();
        const auto folded = static_cast<std::uint8_t>(table_id < 0x60 ? table_id : table_id - 0x10);
        const std::unique_ptr<std::uint8_t[]> alone{new std::uint8_t[section.size()]};
        std::ranges::copy(section, alone.get());
        Orva_Si_ListEitImpl(1, 1, static_cast<std::uint16_t>(1 + below(2)),
                            table_id == 0x4F ? 0x4E : folded, static_cast<std::uint8_t>(below(4)),
                            static_cast<std::uint16_t>(section.size()), alone.get());
    }

    // What a client may do to a list of the store, with its lock.
    void edit(si_list *list)
    {
        if (list == nullptr || list->nb_elt == 0)
            return;
        const auto at = static_cast<std::int32_t>(below(static_cast<unsigned>(list->nb_elt)));
        const auto to = static_cast<std::int32_t>(below(static_cast<unsigned>(list->nb_elt)));
        void *element = si_list_get(list, at);
        switch (below(4)) {
        case 0: // moves an element
            si_list_remove(list, at);
            si_list_add(list, element, to);
            break;
        case 1: // links one a second time
            si_list_add(list, element, to);
            break;
        case 2:
            si_list_add(list, nullptr, to);
            break;
        default: { // takes the first link out by hand, and puts its element back at the end
            si_list_node *first = list->node;
            element = first->element;
            kept_out.push_back(first);
            list->node = first->next;
            --list->nb_elt;
            si_list_add(list, element, -1);
            break;
        }
        }
    }
    void edit_something()
    {
        edit(Orva_Si_GetTableList());
        si_list *services = Orva_Si_GetDvbEitList();
        edit(services);
        if (const auto *service = static_cast<SiEitService *>(si_list_get(services, 0)))
            edit(service->sections);
        const auto *table = static_cast<SiTable *>(si_list_get(Orva_Si_GetTableList(), 0));
        if (table != nullptr)
            edit(table->psect_list);
    }

    void fill()
    {
        for (unsigned left = 5 + below(25); left != 0; --left) {
            put_table(received(any_table()));
            put_events(received(any_events()));
            if (one_in(10))
                edit_something();
        }
    }

    // Each element once, so that it is freed once.
    static void unlink_repeated(si_list *list)
    {
        std::set<void *> met;
        for (std::int32_t at = 0; si_list_eol(list, at) == 0;)
            if (met.insert(si_list_get(list, at)).second)
                ++at;
            else
                si_list_remove(list, at);
    }
    template <class Record>
    static void unlink_repeated_below(si_list *list, si_list *Record::*below)
    {
        unlink_repeated(list);
        for (std::int32_t at = 0; si_list_eol(list, at) == 0; ++at)
            if (auto *record = static_cast<Record *>(si_list_get(list, at)))
                unlink_repeated(record->*below);
    }
    void empty()
    {
        unlink_repeated_below(Orva_Si_GetTableList(), &SiTable::psect_list);
        unlink_repeated_below(Orva_Si_GetDvbEitList(), &SiEitService::sections);
        test::clear_stores();
        for (si_list_node *link : kept_out)
            g_slice_free1(sizeof *link, link);
        kept_out.clear();
    }

    std::mt19937 random{GetParam()};
    std::map<std::uint8_t, std::vector<std::vector<octets>>> loops;
    std::vector<si_list_node *> kept_out; // links, as the list makes them
};

using lines = std::vector<std::pair<std::string, std::string>>; // function, text

lines logged_up_to(std::uint32_t level)
{
    lines all;
    for (const fake::log_line &line : fake::log_lines())
        if (line.level <= level)
            all.emplace_back(line.function, line.text);
    return all;
}

answer ask_at(std::uint32_t level, const getter &of, std::uint32_t capacity)
{
    fake::set_log_level(level);
    fake::clear_log();
    return ask(of, capacity, 0xA5);
}

TEST_P(ChanceStores, AnswerAlikeWithTheTraceAndWithout)
{
    std::size_t answers = 0;
    for (unsigned round = 0; round < 12; ++round) {
        fake::set_log_level(0);
        fill();
        each_getter([&](const getter &of) {
            for (const std::uint32_t capacity : std::set<std::uint32_t>{0, 1, 2, plenty(of)}) {
                SCOPED_TRACE(std::string{of.name} + " with room for " + std::to_string(capacity));
                const answer walked = ask_at(ORVA_DEBUG_TRACE, of, capacity);
                const lines errors = logged_up_to(ORVA_DEBUG_ERROR);
                ASSERT_EQ(ask_at(ORVA_DEBUG_FATAL, of, capacity), walked);
                ASSERT_EQ(ask_at(ORVA_DEBUG_ERROR, of, capacity), walked);
                ASSERT_EQ(logged_up_to(ORVA_DEBUG_ERROR), errors);
                answers += walked.result == ORVA_SI_OK && walked.count != 0 ? 1 : 0;
            }
        });
        ASSERT_FALSE(HasFatalFailure()) << "round " << round;
        empty();
    }
    EXPECT_GT(answers, 12 * 50U); // the stores were worth asking
}

INSTANTIATE_TEST_SUITE_P(Seeds, ChanceStores, testing::Range(1U, 1U + test::part_of(12)));

} // namespace
