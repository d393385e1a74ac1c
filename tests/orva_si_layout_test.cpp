// SPDX-License-Identifier: LGPL-2.1-or-later
// Records as drivers and clients read them: by their bytes. The header refuses to compile where a
// member has moved.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "orva_si_layout.h"

namespace {

template <class Record>
std::array<std::uint8_t, sizeof(Record)> bytes_of(const Record &record)
{
    std::array<std::uint8_t, sizeof(Record)> bytes;
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

template <class Value>
Value value_at(const std::uint8_t *bytes, std::size_t place)
{
    Value value;
    std::memcpy(&value, bytes + place, sizeof value);
    return value;
}

// What a driver does that was built apart from the library: it is given a copy of the block.
std::array<std::uint8_t, sizeof(SiDmxFilterParam)> as_driver(SiDmxFilterParam param)
{
    return bytes_of(param);
}

TEST(Layout, DriverFindsTheParameterBlockByItsBytes)
{
    SiDmxFilterParam param{};
    param.pid = 0x1FFE;
    param.start_flag = 1;
    param.list_mode = 1;
    param.list_length = 200;
    param.option = 2;
    param.filter_depth = 12;
    std::memset(param.match, 0x4E, sizeof param.match);
    std::memset(param.mask, 0xF0, sizeof param.mask);
    std::memset(param.negate, 0x3E, sizeof param.negate);
    param.section_callback = Si_SectFlt_PidFltCallback;
    const auto block = as_driver(param);
    EXPECT_EQ(value_at<std::uint16_t>(block.data(), 0), 0x1FFE);
    EXPECT_EQ(block[2], 1);
    EXPECT_EQ(value_at<std::uint32_t>(block.data(), 4), 1U);
    EXPECT_EQ(value_at<std::uint32_t>(block.data(), 8), 200U);
    EXPECT_EQ(block[16], 2);
    EXPECT_EQ(block[17], 12);
    for (std::size_t i = 0; i < 20; ++i) {
        EXPECT_EQ(block[18 + i], 0x4E) << i;
        EXPECT_EQ(block[38 + i], 0xF0) << i;
        EXPECT_EQ(block[58 + i], 0x3E) << i;
    }
    EXPECT_EQ(value_at<SiWord>(block.data(), 80),
              reinterpret_cast<SiWord>(&Si_SectFlt_PidFltCallback));
    EXPECT_EQ(value_at<SiWord>(block.data(), 80 + sizeof(SiWord)), 0U);
}

TEST(Layout, EveryTaskItemBeginsAlike)
{
    const auto begins_alike = [](auto item) {
        item.active = 1;
        item.wanted = 2;
        item.finished = 3;
        const auto head = value_at<task_item>(bytes_of(item).data(), 0);
        return head.active == 1 && head.wanted == 2 && head.finished == 3;
    };
    EXPECT_TRUE(begins_alike(task_item_plain{}));
    EXPECT_TRUE(begins_alike(task_item_nit{}));
    EXPECT_TRUE(begins_alike(task_item_pmt{}));
    EXPECT_TRUE(begins_alike(task_item_dsm{}));
    EXPECT_TRUE(begins_alike(task_item_eit{}));
}

TEST(Layout, WordsCarryAddresses)
{
    SiDmxSection section{};
    section.BufferHandle = reinterpret_cast<SiWord>(&section);
    EXPECT_EQ(reinterpret_cast<SiDmxSection *>(section.BufferHandle), &section);
}

} // namespace
