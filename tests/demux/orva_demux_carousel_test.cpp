// SPDX-License-Identifier: LGPL-2.1-or-later
#include <gmock/gmock.h>

#include <vector>

#include "demux/pending.h"
#include "orva_demux_carousel.h"
#include "support/sections.h"

using namespace si::demux;
using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class Carousel : public testing::Test {
protected:
    std::uint64_t put(std::uint16_t pid, const octets &section) { return keep(kept, pid, section); }

    // What is served on a PID: table after table, section after section.
    std::vector<octets> served(std::uint16_t pid)
    {
        kept.by_pid.clear();
        close_carousel(kept);
        std::vector<octets> all;
        for (const sub_table *table : tables_of(kept, pid))
            for (const kept_section &section : table->served().sections)
                all.emplace_back(section.all().begin(), section.all().end());
        return all;
    }

    static octets sdt_of(std::uint16_t ts, std::uint8_t version, std::uint8_t number,
                         std::uint8_t last, std::uint8_t table_id = 0x46, std::uint16_t onid = 1)
    {
        return make(sdt{.table_id = table_id,
                        .ts = ts,
                        .original_network = onid,
                        .version = version,
                        .section_number = number,
                        .last_section_number = last});
    }
    static octets schedule(std::uint8_t number, std::uint8_t segment_last, std::uint8_t last,
                           std::uint8_t version = 1)
    {
        return make(eit{.table_id = 0x50,
                        .service = 7,
                        .version = version,
                        .section_number = number,
                        .last_section_number = last,
                        .segment_last_section_number = segment_last});
    }

    carousel kept{1u << 20};
};

TEST_F(Carousel, KeepsEverySubTable)
{
    const std::vector<octets> sections{sdt_of(1, 0, 0, 0), sdt_of(2, 0, 0, 0),
                                       sdt_of(1, 0, 0, 0, 0x46, 2), make(bat{.bouquet = 1})};
    for (const octets &section : sections)
        put(0x11, section);
    EXPECT_EQ(served(0x11), sections);
    EXPECT_THAT(served(0x12), IsEmpty());
}

TEST_F(Carousel, ServesSectionsByNumber)
{
    put(0x11, sdt_of(1, 0, 2, 2));
    put(0x11, sdt_of(1, 0, 0, 2));
    put(0x11, sdt_of(1, 0, 1, 2));
    EXPECT_THAT(served(0x11),
                ElementsAre(sdt_of(1, 0, 0, 2), sdt_of(1, 0, 1, 2), sdt_of(1, 0, 2, 2)));
}

TEST_F(Carousel, LastCompleteVersionIsServed)
{
    put(0x11, sdt_of(1, 3, 0, 1));
    put(0x11, sdt_of(1, 3, 1, 1));
    put(0x11, sdt_of(1, 4, 0, 1));
    EXPECT_THAT(served(0x11), ElementsAre(sdt_of(1, 3, 0, 1), sdt_of(1, 3, 1, 1)));
    put(0x11, sdt_of(1, 4, 1, 1));
    EXPECT_THAT(served(0x11), ElementsAre(sdt_of(1, 4, 0, 1), sdt_of(1, 4, 1, 1)));
}

TEST_F(Carousel, CompleteVersionMayReturn)
{
    put(0x11, sdt_of(1, 3, 0, 0));
    put(0x11, sdt_of(1, 4, 0, 0));
    put(0x11, sdt_of(1, 3, 0, 0));
    EXPECT_THAT(served(0x11), ElementsAre(sdt_of(1, 3, 0, 0)));
}

TEST_F(Carousel, LastSeenVersionIsServedWhenNoneWasComplete)
{
    put(0x11, sdt_of(1, 3, 0, 1));
    put(0x11, sdt_of(1, 4, 1, 1));
    EXPECT_THAT(served(0x11), ElementsAre(sdt_of(1, 4, 1, 1)));
}

TEST_F(Carousel, AnotherLastSectionNumberIsAnotherVersion)
{
    put(0x11, sdt_of(1, 3, 0, 1));
    put(0x11, sdt_of(1, 3, 1, 2));
    EXPECT_THAT(served(0x11), ElementsAre(sdt_of(1, 3, 1, 2)));
}

TEST_F(Carousel, NextTablesAreApartFromCurrentOnes)
{
    put(0, make(pat{.version = 1}));
    put(0, make(pat{.version = 2, .current_next = false}));
    EXPECT_THAT(served(0), ElementsAre(make(pat{.version = 1}),
                                       make(pat{.version = 2, .current_next = false})));
}

TEST_F(Carousel, OnePatOneNitActualAndOneSdtActual)
{
    put(0x00, make(pat{.ts = 1}));
    put(0x00, make(pat{.ts = 2}));
    put(0x10, make(nit{.network = 1}));
    put(0x10, make(nit{.network = 2}));
    put(0x11, sdt_of(1, 0, 0, 0, 0x42));
    put(0x11, sdt_of(2, 0, 0, 0, 0x42));
    EXPECT_THAT(served(0x00), ElementsAre(make(pat{.ts = 2})));
    EXPECT_THAT(served(0x10), ElementsAre(make(nit{.network = 2})));
    EXPECT_THAT(served(0x11), ElementsAre(sdt_of(2, 0, 0, 0, 0x42)));
    put(0x10, make(nit{.table_id = 0x41, .network = 1}));
    put(0x10, make(nit{.table_id = 0x41, .network = 2}));
    EXPECT_EQ(served(0x10).size(), 3u);
}

TEST_F(Carousel, SingleTableChangesWhenTheOtherIsComplete)
{
    put(0x11, sdt_of(1, 0, 0, 0, 0x42));
    put(0x11, sdt_of(2, 0, 0, 1, 0x42));
    EXPECT_THAT(served(0x11), ElementsAre(sdt_of(1, 0, 0, 0, 0x42)));
    put(0x11, sdt_of(2, 0, 1, 1, 0x42));
    EXPECT_THAT(served(0x11), ElementsAre(sdt_of(2, 0, 0, 1, 0x42), sdt_of(2, 0, 1, 1, 0x42)));
}

TEST_F(Carousel, EitIsToldApartByServiceStreamAndNetwork)
{
    put(0x12, make(eit{.service = 1, .ts = 1, .original_network = 1}));
    put(0x12, make(eit{.service = 2, .ts = 1, .original_network = 1}));
    put(0x12, make(eit{.service = 1, .ts = 2, .original_network = 1}));
    put(0x12, make(eit{.service = 1, .ts = 1, .original_network = 2}));
    put(0x12, make(eit{.table_id = 0x4F, .service = 1, .ts = 1, .original_network = 1}));
    EXPECT_EQ(served(0x12).size(), 5u);
}

TEST_F(Carousel, ScheduleIsCompleteWithTheGapsBehindItsSegments)
{
    // Segments of 2, 1 and 1 sections; an incomplete version 2 shows whether version 1 was taken
    // for complete.
    const auto complete = [&](std::initializer_list<octets> sections) {
        kept.tables.clear();
        for (const octets &section : sections)
            put(0x12, section);
        put(0x12, schedule(0, 1, 16, 2));
        return served(0x12).front() == *sections.begin();
    };
    EXPECT_TRUE(complete(
        {schedule(0, 1, 16), schedule(1, 1, 16), schedule(8, 8, 16), schedule(16, 16, 16)}));
    EXPECT_FALSE(complete({schedule(0, 1, 16), schedule(8, 8, 16), schedule(16, 16, 16)}));
    EXPECT_FALSE(complete({schedule(0, 1, 16), schedule(1, 1, 16), schedule(16, 16, 16)}));
    EXPECT_FALSE(complete({schedule(0, 1, 16), schedule(1, 1, 16), schedule(8, 8, 16)}));
}

TEST_F(Carousel, ScheduleWithAWrongSegmentEndIsNotComplete)
{
    put(0x12, schedule(8, 3, 8)); // a segment cannot end before it begins
    put(0x12, schedule(0, 0, 8));
    put(0x12, schedule(0, 0, 0, 2));
    EXPECT_THAT(served(0x12), ElementsAre(schedule(0, 0, 0, 2)));
}

TEST_F(Carousel, ShortSectionsAreReplaced)
{
    put(0x14, make(tdt{.utc_bcd = 1}));
    put(0x14, make(tot{.utc_bcd = 1}));
    put(0x14, make(tdt{.utc_bcd = 2}));
    EXPECT_THAT(served(0x14), ElementsAre(make(tdt{.utc_bcd = 2}), make(tot{.utc_bcd = 1})));
}

TEST_F(Carousel, ContentKeepsItsNumberWhileItIsUnchanged)
{
    const std::uint64_t first = put(0, make(pat{.programs = {{1, 0x100}}}));
    EXPECT_NE(first, 0u);
    EXPECT_EQ(put(0, make(pat{.programs = {{1, 0x100}}})), first);
    const std::uint64_t second = put(0, make(pat{.programs = {{1, 0x101}}}));
    EXPECT_NE(second, first);
    EXPECT_EQ(served(0).size(), 1u);
    EXPECT_NE(put(0, make(pat{.programs = {{1, 0x100}}})), first);
}

TEST_F(Carousel, SectionBehindTheLastIsNotKept)
{
    EXPECT_EQ(put(0x11, sdt_of(1, 0, 3, 2)), 0u);
    EXPECT_THAT(served(0x11), IsEmpty());
}

TEST_F(Carousel, MemoryStaysWithinTheLimit)
{
    kept.limit = 100'000;
    put(0, make(pat{}));
    put(0x10, make(nit{}));
    for (unsigned i = 0; i < 10'000; ++i) {
        put(0x12, make(eit{.table_id = 0x60, .service = static_cast<std::uint16_t>(i)}));
        ASSERT_LE(kept.used, kept.limit);
    }
    EXPECT_GT(kept.evicted, 9'000u);
    EXPECT_EQ(served(0).size(), 1u) << "the tables of the multiplex are given up last";
    EXPECT_EQ(served(0x10).size(), 1u);
    const std::vector<octets> left = served(0x12);
    ASSERT_FALSE(left.empty());
    EXPECT_EQ(left.back(), make(eit{.table_id = 0x60, .service = 9'999}))
        << "what was seen last is kept";
}

TEST_F(Carousel, MemoryOfFormerVersionsIsGivenBack)
{
    for (unsigned i = 0; i < 1000; ++i) {
        put(0x11, sdt_of(1, static_cast<std::uint8_t>(i % 32), 0, 1));
        put(0x11, sdt_of(1, static_cast<std::uint8_t>(i % 32), 1, 1));
    }
    EXPECT_LT(kept.used, 2'000u);
    kept.limit = 1;
    put(0, make(pat{}));
    EXPECT_EQ(kept.evicted, 1u);
    EXPECT_LT(kept.used, 1'000u);
}

} // namespace
