// SPDX-License-Identifier: LGPL-2.1-or-later
// The event store when much is in it: limits, and a comparison with a plain model.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/effort.h"
#include "support/event_store.h"
#include "support/plain_event_store.h"

namespace {

using namespace test;
using testing::IsEmpty;
using testing::SizeIs;

// ---- Limits under a hostile multiplex

class Limits : public EventStore {
protected:
    static constexpr int services_in_all = 8192;
    static constexpr int services_of_any_kind = services_in_all - services_in_all / 8;
    static constexpr std::size_t bytes_in_all = std::size_t{128} << 20;
    static constexpr std::size_t bytes_of_any_kind = bytes_in_all - bytes_in_all / 8;
    static constexpr std::size_t slack = bytes_in_all / 16; // what records may count

    Limits() { fake::set_log_level(0); }

    static octets largest(std::uint8_t table_id)
    {
        octets section(4096, 0x55);
        section[0] = table_id;
        return set_length(section, section.size() - 3);
    }
    static void one_service(int number, std::uint8_t table_id)
    {
        const auto service = static_cast<std::uint16_t>(number);
        deliver(make(eit{.table_id = table_id, .service = service}));
    }
    // Services from that number on until one is refused; answers how many there were.
    static int flood_with_services(std::uint8_t table_id, int from = 0)
    {
        const auto known = [] { return Orva_Si_GetDvbEitList()->nb_elt; };
        const int before = known();
        octets section = make(eit{.table_id = table_id});
        for (int last = -1; known() != last;) {
            last = known();
            deliver(section, 1, 1, static_cast<std::uint16_t>(from++), folded(table_id), 0);
        }
        return known() - before;
    }
    static std::size_t count_sections()
    {
        std::size_t count = 0;
        for (const SiEitService *service : services())
            count += static_cast<std::size_t>(service->sections->nb_elt);
        return count;
    }
    // Sections of the largest size, 256 in each service, until one is refused; answers their bytes.
    static std::size_t flood_with_bytes(std::uint8_t table_id, std::uint16_t stream)
    {
        const octets section = largest(table_id);
        std::size_t bytes = 0;
        for (std::uint16_t service = 0; service < 1000; ++service)
            for (unsigned number = 0; number < 256; ++number) {
                Orva_Si_ListEitImpl(1, stream, service, folded(table_id),
                                    static_cast<std::uint8_t>(number), 4096, section.data());
                if (services().back()->sections->nb_elt != static_cast<int>(number) + 1)
                    return bytes;
                bytes += section.size();
            }
        return bytes;
    }
};

TEST_F(Limits, ServicesLeaveAnEighthToThePresentAndFollowingOfTheTunedStream)
{
    EXPECT_EQ(flood_with_services(0x60), services_of_any_kind);
    for (const std::uint8_t table_id : std::to_array<std::uint8_t>({0x4F, 0x50, 0x5F, 0x6F}))
        EXPECT_EQ(flood_with_services(table_id, 10000), 0) << int{table_id};
    EXPECT_EQ(flood_with_services(0x4E, 10000), services_in_all / 8);
}

TEST_F(Limits, ARefusedServiceIsLikeOneWithoutMemory)
{
    flood_with_services(0x60);
    forget();
    fake::set_log_level(5);
    one_service(10000, 0x60);
    EXPECT_TRUE(fake::logged(2, no_service)) << fake::log_text();
    EXPECT_THAT(notices, IsEmpty());
    EXPECT_THAT(filter_calls, IsEmpty());
}

TEST_F(Limits, AKnownServiceIsServedBeyondTheLimit)
{
    flood_with_services(0x60);
    forget();
    deliver(make(eit{.table_id = 0x50, .service = 0, .section_number = 9}));
    EXPECT_THAT(records(0), SizeIs(2));
    EXPECT_THAT(notices, SizeIs(1));
}

TEST_F(Limits, RefusedAndErasedServicesTakeNoRoom)
{
    for (unsigned i = 0; i < 10000; ++i) {
        fake::fail_allocation(1 + i % 3);
        one_service(1, 0x60);
    }
    fake::fail_allocation(0);
    ASSERT_THAT(services(), IsEmpty());
    EXPECT_EQ(flood_with_services(0x60), services_of_any_kind);
    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(flood_with_services(0x60), services_of_any_kind);
}

TEST_F(Limits, SectionsLeaveAnEighthOfTheBytesToo)
{
    const std::size_t stored = flood_with_bytes(0x60, 1);
    EXPECT_LE(stored, bytes_of_any_kind);
    EXPECT_GE(stored, bytes_of_any_kind - slack);
    EXPECT_EQ(flood_with_bytes(0x4F, 2), 0U);
    EXPECT_EQ(flood_with_bytes(0x50, 3), 0U);
    const std::size_t reserve = flood_with_bytes(0x4E, 4);
    EXPECT_LE(stored + reserve, bytes_in_all);
    EXPECT_GE(stored + reserve, bytes_in_all - slack);
}

TEST_F(Limits, ARefusedSectionIsLikeOneWithoutMemory)
{
    flood_with_bytes(0x60, 1);
    const std::size_t before = count_sections();
    forget();
    fake::set_log_level(5);
    deliver(largest(0x50), 1, 1, 0, 0x51, 0);
    EXPECT_EQ(count_sections(), before);
    EXPECT_TRUE(fake::logged(2, no_section)) << fake::log_text();
    EXPECT_THAT(notices, SizeIs(1));
    EXPECT_THAT(filter_calls, IsEmpty());
}

TEST_F(Limits, AnUpdateOfTheSameSizeFitsAFullStore)
{
    flood_with_bytes(0x60, 1);
    forget();
    octets section = largest(0x60);
    section.back() ^= 1;
    deliver(section, 1, 1, 0, 0x50, 0);
    EXPECT_EQ(bytes_of(records(0)[0]), section);
    EXPECT_THAT(notices, SizeIs(1));
}

TEST_F(Limits, AnUpdateThatDoesNotFitLeavesNoSection)
{
    for (std::uint8_t number = 0; number < 10; ++number)
        deliver({0x60, 0x70, 0x04, 1, 2, 3, 4}, 1, 9, 9, 0x50, number);
    flood_with_bytes(0x60, 1);
    forget();
    fake::set_log_level(5);
    deliver(largest(0x60), 1, 9, 9, 0x50, 0);
    EXPECT_EQ(records(0)[0]->section, nullptr);
    EXPECT_TRUE(fake::logged(2, no_update)) << fake::log_text();
    EXPECT_THAT(notices, IsEmpty());
}

TEST_F(Limits, EveryWayOutGivesTheBytesBack)
{
    const std::size_t room = flood_with_bytes(0x60, 1);
    Orva_Si_EraseAllEitRawData();
    const octets section = largest(0x60);
    deliver(pf(0, 0, 1, 0x60), 9, 9, 9, 0x50, 1);
    for (unsigned i = 0; i < 100000; ++i) { // three times what fits, kept by none
        fake::fail_allocation(1 + i % 3);
        deliver(section, 9, 9, 9, 0x50, 0);
    }
    fake::fail_allocation(0);
    ASSERT_THAT(records(), SizeIs(1));
    octets other = section;
    for (unsigned i = 0; i < 20000; ++i) { // updates, some of which fail
        other.back() = static_cast<std::uint8_t>(i);
        fake::fail_allocation(i % 3 == 0 ? 1 : 0);
        deliver(other, 9, 9, 9, 0x50, 2);
    }
    fake::fail_allocation(0);
    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(flood_with_bytes(0x60, 1), room);
}

// ---- Against a plain model

class AgainstAModel : public EventStore, public testing::WithParamInterface<unsigned> {
protected:
    unsigned below(unsigned limit) { return static_cast<unsigned>(random() % limit); }

    octets any_section()
    {
        static constexpr std::array<std::uint8_t, 7> ids{0x4E, 0x4E, 0x4F, 0x50, 0x50, 0x53, 0x60};
        static constexpr std::array<std::uint8_t, 4> lasts{0x17, 0x0A, 0x03, 0x12};
        const std::uint8_t id = ids[below(ids.size())];
        const auto service = static_cast<std::uint16_t>(below(3));
        std::uint8_t &version = versions[{id, service}];
        if (below(150) == 0)
            version = static_cast<std::uint8_t>((version + 1) % 32);
        const std::uint8_t last = id < 0x50 ? std::uint8_t{1} : lasts[version % lasts.size()];
        const unsigned numbers = id < 0x50 ? 2U + (below(20) == 0) : last + 1U;
        return make(
            eit{.table_id = id,
                .service = static_cast<std::uint16_t>(service / 2),
                .ts = static_cast<std::uint16_t>(service % 2),
                .original_network = 5,
                .version = version,
                .section_number = static_cast<std::uint8_t>(below(numbers)),
                .last_section_number = last,
                .last_table_id = id < 0x50 ? id : static_cast<int>((id & 0xF0) + 3 + below(3)),
                .events = std::vector<eit_event>(below(10) == 0 ? 2 : 1)});
    }
    static void expect_same(const plain_store &model)
    {
        ASSERT_EQ(services().size(), model.all.size());
        for (std::size_t i = 0; i < model.all.size(); ++i) {
            const auto &[ids, list] = model.all[i];
            EXPECT_EQ((key{services()[i]->original_network_id, services()[i]->transport_stream_id,
                           services()[i]->service_id}),
                      ids);
            const auto stored = records(i);
            ASSERT_EQ(stored.size(), list.size());
            for (std::size_t k = 0; k < list.size(); ++k) {
                EXPECT_EQ(stored[k]->table_id, list[k].table_id);
                EXPECT_EQ(stored[k]->section_number, list[k].number);
                EXPECT_EQ(stored[k]->section == nullptr, list[k].section.empty());
                if (stored[k]->section != nullptr) {
                    EXPECT_EQ(bytes_of(stored[k]), list[k].section);
                }
            }
        }
    }

    std::mt19937 random{GetParam()};
    std::map<std::pair<unsigned, unsigned>, std::uint8_t> versions;
};

TEST_P(AgainstAModel, TheStoreHoldsTellsAndReArmsAlike)
{
    fake::set_log_level(0);
    plain_store model;
    std::size_t completions = 0;
    for (unsigned step = 0; step < 3000; ++step) {
        const octets section = any_section();
        const bool all_known = model.all.size() == 3;
        const unsigned failing = all_known && below(8) == 0 ? 1 + below(3) : 0;
        if (all_known && below(1500) == 0) {
            Orva_Si_EraseAllEitRawData();
            model.all.clear();
            continue;
        }
        forget();
        model.told_of.clear();
        model.calls.clear();
        deliver_without_memory(section, failing);
        model.take(section, failing);
        ASSERT_EQ(notices, model.told_of) << "step " << step;
        ASSERT_EQ(filter_calls, model.calls) << "step " << step;
        for (const std::string &call : filter_calls)
            completions += call.starts_with("complete") ? 1 : 0;
        if (step % 10 == 0) {
            ASSERT_NO_FATAL_FAILURE(expect_same(model)) << "step " << step;
        }
    }
    EXPECT_GT(completions, 100U); // the walk is worth something
}

INSTANTIATE_TEST_SUITE_P(Seeds, AgainstAModel, testing::Range(1U, 1U + part_of(8)));

} // namespace
