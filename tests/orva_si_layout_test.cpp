// SPDX-License-Identifier: LGPL-2.1-or-later
// Layouts that drivers and clients of both word sizes rely on. The header refuses to compile where
// one of them is off; here the same values are read back from a built test.
#include <gtest/gtest.h>

#include <cstring>

#include "orva_si_layout.h"

namespace {

constexpr bool on_32_bits = sizeof(void *) == 4;

TEST(Layout, ParameterBlockIsTheDriversFormat)
{
    EXPECT_EQ(offsetof(SiDmxFilterParam, pid), 0U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, start_flag), 2U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, list_mode), 4U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, list_length), 8U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, reserved), 12U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, option), 16U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, filter_depth), 17U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, match), 18U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, mask), 38U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, negate), 58U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, padding), 78U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, section_callback), 80U);
    EXPECT_EQ(offsetof(SiDmxFilterParam, section_list_callback), on_32_bits ? 84U : 88U);
    EXPECT_EQ(sizeof(SiDmxFilterParam), on_32_bits ? 88U : 96U);
}

TEST(Layout, SectionDescriptorIsTheDriversFormat)
{
    EXPECT_EQ(offsetof(SiDmxSection, pPrimaraySectionData), 0U);
    EXPECT_EQ(offsetof(SiDmxSection, PrimaraySectionSize), on_32_bits ? 4U : 8U);
    EXPECT_EQ(offsetof(SiDmxSection, pSecondarySectionData), on_32_bits ? 8U : 16U);
    EXPECT_EQ(offsetof(SiDmxSection, SecondarySectionSize), on_32_bits ? 12U : 24U);
    EXPECT_EQ(offsetof(SiDmxSection, BufferHandle), on_32_bits ? 16U : 32U);
    EXPECT_EQ(sizeof(SiDmxSection), on_32_bits ? 20U : 40U);
}

TEST(Layout, TaskItemsHaveTheirSizesOnEveryMachine)
{
    EXPECT_EQ(sizeof(task_item_plain), 16U);
    EXPECT_EQ(sizeof(task_item_nit), 20U);
    EXPECT_EQ(sizeof(task_item_pmt), 20U);
    EXPECT_EQ(sizeof(task_item_eit), 28U);
    EXPECT_EQ(sizeof(task_item_dsm), 16U);
}

TEST(Layout, TaskItemsBeginAlike)
{
    task_item_eit item{};
    item.active = 1;
    item.wanted = 2;
    item.finished = 3;
    task_item head{};
    std::memcpy(&head, &item, sizeof head);
    EXPECT_EQ(head.active, 1);
    EXPECT_EQ(head.wanted, 2U);
    EXPECT_EQ(head.finished, 3U);
}

TEST(Layout, ProgramListIsTheSameOnEveryMachine)
{
    EXPECT_EQ(sizeof(SiPmtPidList), 1028U);
    EXPECT_EQ(offsetof(SiPmtPidList, count), 1020U);
    EXPECT_EQ(offsetof(SiPmtPidList, cur_prog_num), 1024U);
    EXPECT_EQ(offsetof(SiPmtPidList, cur_pmt_pid), 1026U);
}

TEST(Layout, WordsCarryAddresses)
{
    EXPECT_EQ(sizeof(SiWord), sizeof(void *));
}

} // namespace
