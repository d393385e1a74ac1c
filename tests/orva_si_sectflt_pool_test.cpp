// SPDX-License-Identifier: LGPL-2.1-or-later
// The handler table, the pool of 31 filters and what a record tells the driver.
#include "support/filters.h"

using namespace test;

namespace {

constexpr std::size_t pool_size = 31;

// The pool before anything was requested.
class FilterPool : public testing::Test {
protected:
    ~FilterPool() override { Si_SectFlt_DeInitPidFlts(); }
    static pid_filter &record(std::size_t index) { return si::pool_records()[index]; }
    fake::recording_driver &driver = fake::driver();
};

// ---- The handler table

struct wrapper {
    const char *name;
    void (*take_out)(SiDmxSectHandler &);
    std::uint32_t (*call)();
};
const wrapper wrappers[] = {
    {"Si_SectFlt_DemuxInit", [](SiDmxSectHandler &t) { t.DemuxInit = nullptr; },
     [] { return Si_SectFlt_DemuxInit(0); }},
    {"Si_SectFlt_FreeSecData", [](SiDmxSectHandler &t) { t.FreeSecData = nullptr; },
     [] { return Si_SectFlt_FreeSecData(0, 1, 2); }},
    {"Si_SectFlt_RemoveSecFilter", [](SiDmxSectHandler &t) { t.RemoveSecFilter = nullptr; },
     [] { return Si_SectFlt_RemoveSecFilter(0, 1); }},
    {"Si_SectFlt_EnableSecFilter", [](SiDmxSectHandler &t) { t.EnableSecFilter = nullptr; },
     [] { return Si_SectFlt_EnableSecFilter(0, 1); }},
    {"Si_SectFlt_DisableSecFilter", [](SiDmxSectHandler &t) { t.DisableSecFilter = nullptr; },
     [] { return Si_SectFlt_DisableSecFilter(0, 1); }},
    {"Si_SectFlt_AddSecFilter", [](SiDmxSectHandler &t) { t.AddSecFilter = nullptr; },
     [] {
         std::uint32_t id = 0;
         return Si_SectFlt_AddSecFilter(0, &id, SiDmxFilterParam{});
     }},
    {"Si_SectFlt_UpdateSecFilter", [](SiDmxSectHandler &t) { t.UpdateSecFilter = nullptr; },
     [] { return Si_SectFlt_UpdateSecFilter(0, 1, SiDmxFilterParam{}); }},
};

bool logged_by(const std::string &function, std::uint32_t level, const std::string &text)
{
    return std::ranges::any_of(fake::log_lines(), [&](const fake::log_line &line) {
        return line.function == function && line.level == level && line.text == text &&
               line.file == "Src/orva_si_sectflt";
    });
}

TEST(HandlerTable, MissingTableAnswersTwoUnderTheNameOfEachWrapper)
{
    for (const wrapper &of : wrappers) {
        fake::clear_log();
        EXPECT_EQ(of.call(), 2U) << of.name;
        EXPECT_TRUE(logged_by(of.name, 2, "NULL pointer!\n")) << of.name;
    }
}

TEST(HandlerTable, MissingSlotAnswersTwoAndCallsNothing)
{
    for (const wrapper &of : wrappers) {
        SiDmxSectHandler table = *fake::driver().table();
        of.take_out(table);
        EXPECT_EQ(Si_SectFlt_SetDmxSectHandler(&table), 0U);
        fake::clear_log();
        EXPECT_EQ(of.call(), 2U) << of.name;
        EXPECT_TRUE(logged_by(of.name, 2, "NULL pointer!\n")) << of.name;
    }
    EXPECT_TRUE(fake::driver().calls().empty());
    Si_SectFlt_SetDmxSectHandler(nullptr);
}

struct seen_call {
    std::uint32_t demux;
    std::uint32_t filter_id;
    SiWord handle;
    SiDmxFilterParam param;
} seen;

TEST(HandlerTable, WrappersPassTheirArgumentsAndTheResultOn)
{
    static SiDmxSectHandler table{};
    table.DemuxInit = [](std::uint32_t demux) {
        seen.demux = demux;
        return 10U;
    };
    table.FreeSecData = [](std::uint32_t demux, std::uint32_t id, SiWord handle) {
        seen = {demux, id, handle, {}};
        return 11U;
    };
    table.RemoveSecFilter = [](std::uint32_t demux, std::uint32_t id) {
        seen = {demux, id, 0, {}};
        return 12U;
    };
    table.EnableSecFilter = [](std::uint32_t demux, std::uint32_t id) {
        seen = {demux, id, 0, {}};
        return 13U;
    };
    table.DisableSecFilter = [](std::uint32_t demux, std::uint32_t id) {
        seen = {demux, id, 0, {}};
        return 14U;
    };
    table.AddSecFilter = [](std::uint32_t demux, std::uint32_t *id, SiDmxFilterParam param) {
        *id = 99;
        seen = {demux, 0, 0, param};
        return 15U;
    };
    table.UpdateSecFilter = [](std::uint32_t demux, std::uint32_t id, SiDmxFilterParam param) {
        seen = {demux, id, 0, param};
        return 16U;
    };
    Si_SectFlt_SetDmxSectHandler(&table);

    EXPECT_EQ(Si_SectFlt_DemuxInit(7), 10U);
    EXPECT_EQ(seen.demux, 7U);
    const SiWord handle = ~SiWord{0}; // as wide as an address
    EXPECT_EQ(Si_SectFlt_FreeSecData(1, 2, handle), 11U);
    EXPECT_EQ(seen.filter_id, 2U);
    EXPECT_EQ(seen.handle, handle);
    EXPECT_EQ(Si_SectFlt_RemoveSecFilter(1, 3), 12U);
    EXPECT_EQ(seen.filter_id, 3U);
    EXPECT_EQ(Si_SectFlt_EnableSecFilter(1, 4), 13U);
    EXPECT_EQ(seen.filter_id, 4U);
    EXPECT_EQ(Si_SectFlt_DisableSecFilter(1, 5), 14U);
    EXPECT_EQ(seen.filter_id, 5U);
    SiDmxFilterParam param{};
    param.pid = 0x123;
    std::uint32_t id = 0;
    EXPECT_EQ(Si_SectFlt_AddSecFilter(1, &id, param), 15U);
    EXPECT_EQ(id, 99U);
    EXPECT_EQ(seen.param.pid, 0x123);
    EXPECT_EQ(Si_SectFlt_UpdateSecFilter(1, 6, param), 16U);
    EXPECT_EQ(seen.filter_id, 6U);
    EXPECT_EQ(seen.param.pid, 0x123);
    EXPECT_EQ(Orva_Si_FreeDmxFilter(8, 9), 12U);
    EXPECT_EQ(seen.demux, 8U);
    EXPECT_EQ(seen.filter_id, 9U);
    Si_SectFlt_SetDmxSectHandler(nullptr);
}

// ---- Start-up

TEST_F(FilterPool, RequestsAllFiltersAtStart)
{
    EXPECT_EQ(Si_SectFlt_InitPidFlts(driver.table()), ORVA_SI_OK);
    EXPECT_EQ(driver.times_called(fake::demux_init), 1U);
    EXPECT_EQ(driver.times_called(fake::add_filter), pool_size);
    for (const fake::driver_call &call : driver.calls())
        EXPECT_EQ(call.demux, 0U);
    for (std::size_t i = 0; i < pool_size; ++i)
        EXPECT_EQ(record(i).filter_id, driver.filter_id(i));
    EXPECT_TRUE(fake::logged(4, "dmx req section filter = 64\n"));
    EXPECT_TRUE(fake::logged(4, "dmx req section filter = 94\n"));
    EXPECT_TRUE(fake::logged(3, "request total 31 filters for use.\n"));
}

TEST_F(FilterPool, RequestCarriesAnEmptyBlockWithTheOptionByte)
{
    Si_SectFlt_InitPidFlts(driver.table());
    SiDmxFilterParam expected;
    std::memset(&expected, 0, sizeof expected);
    expected.option = 1;
    const SiDmxFilterParam requested = driver.filter(driver.filter_id(30)).requested;
    EXPECT_EQ(std::memcmp(&requested, &expected, sizeof expected), 0);
}

TEST_F(FilterPool, DriverThatGrantsFewerFiltersFailsTheStartAndKeepsThem)
{
    driver.grants = 3;
    EXPECT_EQ(Si_SectFlt_InitPidFlts(driver.table()), 0x77U);
    EXPECT_TRUE(fake::logged(2, "i = 3 Req filter have error=119\n")) << fake::log_text();
    EXPECT_TRUE(fake::logged(3, "request total 3 filters for use.\n"));
    EXPECT_EQ(driver.times_called(fake::add_filter), 4U);
    EXPECT_EQ(record(2).filter_id, driver.filter_id(2));
    EXPECT_EQ(record(3).filter_id, SI_NO_FILTER);
    EXPECT_EQ(driver.times_called(fake::remove_filter), 0U);
}

TEST_F(FilterPool, RecordWithoutAFilterIsRefusedLater)
{
    driver.grants = 1;
    Si_SectFlt_InitPidFlts(driver.table());
    Si_SectFlt_InitCatFilter(&record(1));
    EXPECT_EQ(Si_SectFlt_StartFilter(&record(1), 1), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Invalid filter!\n"));
    EXPECT_EQ(record(1).enabled, 0);
    EXPECT_EQ(driver.times_called(fake::update_filter), 0U);
}

TEST_F(FilterPool, FailingDemuxInitialisationFailsTheStart)
{
    driver.answers[fake::demux_init] = 9;
    EXPECT_EQ(Si_SectFlt_InitPidFlts(driver.table()), 1U);
    EXPECT_TRUE(fake::logged(2, "Init Dmx Section filters register map error\n"));
    EXPECT_FALSE(fake::logged("NULL pointer!\n"));
    EXPECT_EQ(driver.times_called(fake::add_filter), 0U);
}

TEST_F(FilterPool, MissingDemuxInitialisationFailsTheStart)
{
    driver.table()->DemuxInit = nullptr;
    EXPECT_EQ(Si_SectFlt_InitPidFlts(driver.table()), 1U);
    EXPECT_TRUE(logged_by("Si_SectFlt_DemuxInit", 2, "NULL pointer!\n"));
    EXPECT_TRUE(fake::logged(2, "Init Dmx Section filters register map error\n"));
}

TEST_F(FilterPool, MissingTableFailsTheStart)
{
    EXPECT_EQ(Si_SectFlt_InitPidFlts(nullptr), 1U);
    EXPECT_TRUE(logged_by("Si_SectFlt_DemuxInit", 2, "NULL pointer!\n"));
    EXPECT_TRUE(fake::logged(2, "Init Dmx Section filters register map error\n"));
}

TEST_F(FilterPool, MissingRequestSlotAnswersTwo)
{
    driver.table()->AddSecFilter = nullptr;
    EXPECT_EQ(Si_SectFlt_InitPidFlts(driver.table()), 2U);
    EXPECT_TRUE(logged_by("Si_SectFlt_AddSecFilter", 2, "NULL pointer!\n"));
    EXPECT_TRUE(fake::logged(2, "i = 0 Req filter have error=2\n"));
    EXPECT_TRUE(fake::logged(3, "request total 0 filters for use.\n"));
}

TEST_F(FilterPool, StartAfterAFailedOneRequestsAllFiltersAgain)
{
    driver.grants = 3;
    Si_SectFlt_InitPidFlts(driver.table());
    driver.grants = 1000;
    EXPECT_EQ(Si_SectFlt_InitPidFlts(driver.table()), ORVA_SI_OK);
    EXPECT_EQ(driver.filter_count(), 3 + pool_size);
    EXPECT_EQ(record(0).filter_id, driver.filter_id(3));
}

TEST_F(FilterPool, OnlyTheLowHalfOfAFilterIdIsKept)
{
    driver.first_id = 0x50040;
    Si_SectFlt_InitPidFlts(driver.table());
    EXPECT_EQ(record(0).filter_id, 0x40);
}

// ---- Release

TEST_F(FilterPool, ReleaseGivesEveryFilterBack)
{
    Si_SectFlt_InitPidFlts(driver.table());
    Si_SectFlt_InitPatFilter(&record(0));
    Si_SectFlt_StartFilter(&record(0), 1);
    EXPECT_EQ(Si_SectFlt_DeInitPidFlts(), ORVA_SI_OK);
    EXPECT_EQ(driver.times_called(fake::remove_filter), pool_size);
    EXPECT_TRUE(fake::logged(4, "Remove demux section filter 64 successfully\n"));
    for (std::size_t i = 0; i < pool_size; ++i) {
        const pid_filter &of = record(i);
        EXPECT_EQ(of.filter_id, SI_NO_FILTER);
        EXPECT_EQ(of.used + of.enabled + of.pid + of.match_table_id + of.mask_table_id, 0);
        EXPECT_EQ(of.item, nullptr);
    }
}

TEST_F(FilterPool, ReleaseThatFailsIsReportedAndClearsAllTheSame)
{
    Si_SectFlt_InitPidFlts(driver.table());
    driver.answers[fake::remove_filter] = 5;
    EXPECT_EQ(Si_SectFlt_DeInitPidFlts(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Remove filter 64 error\n"));
    EXPECT_FALSE(fake::logged("Remove demux section filter 64 successfully\n"));
    EXPECT_EQ(driver.times_called(fake::remove_filter), pool_size);
    EXPECT_EQ(record(0).filter_id, SI_NO_FILTER);
}

TEST_F(FilterPool, ReleasePassesOverRecordsWithoutAFilter)
{
    driver.grants = 2;
    Si_SectFlt_InitPidFlts(driver.table());
    EXPECT_EQ(Si_SectFlt_DeInitPidFlts(), ORVA_SI_OK);
    EXPECT_EQ(driver.times_called(fake::remove_filter), 2U);
}

// ---- Defaults of each kind of table

struct defaults {
    const char *function;
    std::uint32_t (*init)(pid_filter *);
    const char *argument;
    std::uint16_t pid;
    std::uint8_t match;
    std::uint8_t mask;
    std::uint32_t syntax_mode;
    const char *text;
};
const defaults all_defaults[] = {
    {"Si_SectFlt_InitPatFilter", Si_SectFlt_InitPatFilter, "pat_filter!=((void *)0)", 0x0000, 0x00,
     0xFF, 1, "PAT filter id: 69\n"},
    {"Si_SectFlt_InitCatFilter", Si_SectFlt_InitCatFilter, "cat_filter!=((void *)0)", 0x0001, 0x01,
     0xFF, 1, "CAT filter id: 69\n"},
    {"Si_SectFlt_InitPmtFilter", Si_SectFlt_InitPmtFilter, "pmt_filter!=((void *)0)", 0x2000, 0x02,
     0xFF, 1, "Current PMT filter id: 69\n"},
    {"Si_SectFlt_InitNitFilter", Si_SectFlt_InitNitFilter, "nit_filter!=((void *)0)", 0x0010, 0x40,
     0xFE, 1, "NIT filter id: 69\n"},
    {"Si_SectFlt_InitSdtBatFilter", Si_SectFlt_InitSdtBatFilter, "sdtbat_filter!=((void *)0)",
     0x0011, 0x42, 0xF3, 1, "SDT/BAT filter id: 69\n"},
    {"Si_SectFlt_InitTdtTotFilter", Si_SectFlt_InitTdtTotFilter, "tdttot_filter!=((void *)0)",
     0x0014, 0x70, 0xFC, 0, "TDT/TOT filter id: 69\n"},
    {"Si_SectFlt_InitEitFilter", Si_SectFlt_InitEitFilter, "eit_filter!=((void *)0)", 0x0012, 0xFF,
     0x00, 1, "EIT filter id: 69\n"},
    {"Si_SectFlt_InitDsmFilter", Si_SectFlt_InitDsmFilter, "dsm_filter!=((void *)0)", 0x2000, 0x3B,
     0xF8, 2, "DSMCC filter id: 69\n"},
};

TEST_F(FilterPool, DefaultsOfEveryTable)
{
    for (const defaults &of : all_defaults) {
        pid_filter dirty;
        std::memset(&dirty, 0x5A, sizeof dirty);
        dirty.filter_id = 69;
        EXPECT_EQ(of.init(&dirty), ORVA_SI_OK) << of.function;
        EXPECT_EQ(dirty.pid, of.pid) << of.function;
        EXPECT_EQ(dirty.match_table_id, of.match) << of.function;
        EXPECT_EQ(dirty.mask_table_id, of.mask) << of.function;
        EXPECT_EQ(dirty.syntax_mode, of.syntax_mode) << of.function;
        EXPECT_EQ(dirty.table_id, of.match) << of.function;
        EXPECT_EQ(dirty.used, 0);
        EXPECT_EQ(dirty.enabled, 0);
        EXPECT_EQ(dirty.item, nullptr);
        EXPECT_EQ(dirty.ticks, 0);
        EXPECT_EQ(dirty.option, 1);
        EXPECT_EQ(dirty.current_next, 1);
        EXPECT_EQ(dirty.version, 0xFF);
        EXPECT_EQ(dirty.service_id, 0xFFFF);
        EXPECT_EQ(dirty.section_number, 0xFFFF);
        EXPECT_EQ(dirty.table_id_ext, 0xFFFF);
        EXPECT_EQ(dirty.header_a, 0xFFFF);
        EXPECT_EQ(dirty.header_b, 0xFFFF);
        EXPECT_EQ(dirty.filter_id, 69);
        EXPECT_TRUE(logged_by(of.function, 4, of.text)) << of.function;
    }
}

TEST_F(FilterPool, NullRecordPrintsTheAssertionOfEachInit)
{
    for (const defaults &of : all_defaults) {
        std::uint32_t result = 0;
        const std::string text = printed([&] { result = of.init(nullptr); });
        EXPECT_EQ(result, 2U);
        EXPECT_THAT(text, is_assertion(of.function, of.argument));
    }
}

// ---- The parameter block

class ParameterBlock : public FilterPool {
protected:
    ParameterBlock()
    {
        Si_SectFlt_InitPidFlts(driver.table());
        fake::clear_log();
        Si_SectFlt_InitPatFilter(&of);
        of.filter_id = static_cast<std::uint16_t>(driver.filter_id(0));
    }
    SiDmxFilterParam load(std::uint32_t list_length = 1)
    {
        EXPECT_EQ(Si_SectFlt_StartFilter(&of, list_length), ORVA_SI_OK);
        return driver.filter(of.filter_id).loaded;
    }
    pid_filter of{};
};

TEST_F(ParameterBlock, StartLoadsTheRecordAndMarksItEnabled)
{
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.pid, 0);
    EXPECT_EQ(param.start_flag, 1);
    EXPECT_EQ(param.reserved, 0U);
    EXPECT_EQ(param.option, 1);
    EXPECT_EQ(param.padding[0] + param.padding[1], 0);
    EXPECT_EQ(of.enabled, 1);
    EXPECT_TRUE(fake::logged(4, "Start section filter 64 successfully!\n"));
    EXPECT_EQ(driver.calls().back().demux, 0U);
}

TEST_F(ParameterBlock, WithoutAVersionEveryVersionPasses)
{
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.match[5], 0x3F);
    EXPECT_EQ(param.mask[5], 0x01);
    EXPECT_EQ(param.negate[5], 0);
    EXPECT_EQ(param.match[1], 0x80);
    EXPECT_EQ(param.mask[1], 0x80);
    EXPECT_EQ(param.filter_depth, 6);
}

TEST_F(ParameterBlock, VersionSevenIsPassedOver)
{
    of.version = 7;
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.match[5], 0x0F);
    EXPECT_EQ(param.mask[5], 0x01);
    EXPECT_EQ(param.negate[5], 0x3E);
}

TEST_F(ParameterBlock, ExtensionIsMatchedInBytesThreeAndFour)
{
    of.table_id_ext = 0x1234;
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.match[3], 0x12);
    EXPECT_EQ(param.match[4], 0x34);
    EXPECT_EQ(param.mask[3], 0xFF);
    EXPECT_EQ(param.mask[4], 0xFF);
    EXPECT_EQ(param.filter_depth, 6);
}

TEST_F(ParameterBlock, WithoutAnExtensionItsBytesAreFree)
{
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.mask[3] | param.mask[4], 0);
}

TEST_F(ParameterBlock, SectionNumberIsMatchedByItsLowByte)
{
    of.section_number = 0x0105;
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.match[6], 0x05);
    EXPECT_EQ(param.mask[6], 0xFF);
    EXPECT_EQ(param.filter_depth, 7);
}

TEST_F(ParameterBlock, HeaderWordsAreMatchedInBytesEightToEleven)
{
    of.header_a = 0x0102;
    SiDmxFilterParam param = load();
    EXPECT_EQ(param.match[8], 0x01);
    EXPECT_EQ(param.match[9], 0x02);
    EXPECT_EQ(param.mask[8] & param.mask[9], 0xFF);
    EXPECT_EQ(param.filter_depth, 10);
    of.header_b = 0x0304;
    param = load();
    EXPECT_EQ(param.match[10], 0x03);
    EXPECT_EQ(param.match[11], 0x04);
    EXPECT_EQ(param.mask[10] & param.mask[11], 0xFF);
    EXPECT_EQ(param.filter_depth, 12);
}

TEST_F(ParameterBlock, DepthIsDecidedByTheLastFieldSet)
{
    of.section_number = 1;
    of.header_b = 1;
    EXPECT_EQ(load().filter_depth, 12);
    EXPECT_EQ(load().mask[8], 0);
}

TEST_F(ParameterBlock, TimeTablesMatchTwoBytesOfShortSections)
{
    Si_SectFlt_InitTdtTotFilter(&of);
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.filter_depth, 2);
    EXPECT_EQ(param.match[0], 0x70);
    EXPECT_EQ(param.mask[0], 0xFC);
    EXPECT_EQ(param.match[1], 0);
    EXPECT_EQ(param.mask[1], 0x80);
    EXPECT_EQ(param.mask[5], 0);
}

TEST_F(ParameterBlock, DsmccMatchesTheTableIdOnly)
{
    Si_SectFlt_InitDsmFilter(&of);
    of.pid = 0x321;
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.filter_depth, 1);
    EXPECT_EQ(param.match[0], 0x3B);
    EXPECT_EQ(param.mask[0], 0xF8);
    EXPECT_EQ(param.mask[1], 0);
    EXPECT_TRUE(fake::logged(4, "Do not care the syntax indicator. PID: 0x321, table_id: 0x3b\n"));
}

TEST_F(ParameterBlock, UnknownSyntaxModeIsSentWithoutDepth)
{
    of.syntax_mode = 3;
    of.pid = 0x55;
    const SiDmxFilterParam param = load();
    EXPECT_EQ(param.filter_depth, 0);
    EXPECT_TRUE(
        fake::logged(2, "Error: We have not set the syntax indicator. PID: 0x55, table_id: 0\n"))
        << fake::log_text();
}

TEST_F(ParameterBlock, ListLengthOneIsSingleDelivery)
{
    const SiDmxFilterParam param = load(1);
    EXPECT_EQ(param.list_mode, 0U);
    EXPECT_EQ(param.list_length, 1U);
    EXPECT_EQ(param.section_callback, Si_SectFlt_PidFltCallback);
    EXPECT_EQ(param.section_list_callback, nullptr);
}

TEST_F(ParameterBlock, ListLengthsFromTwoOnAreListDelivery)
{
    for (const std::uint32_t length : {2U, 200U}) {
        const SiDmxFilterParam param = load(length);
        EXPECT_EQ(param.list_mode, 1U);
        EXPECT_EQ(param.list_length, length);
        EXPECT_EQ(param.section_callback, nullptr);
        EXPECT_EQ(param.section_list_callback, Si_SectFlt_PidFltSecListCallback);
    }
}

TEST_F(ParameterBlock, ListLengthIsCappedAtTwoHundred)
{
    const SiDmxFilterParam param = load(500);
    EXPECT_EQ(param.list_mode, 1U);
    EXPECT_EQ(param.list_length, 200U);
}

TEST_F(ParameterBlock, ListLengthZeroIsSentWithoutACallback)
{
    const SiDmxFilterParam param = load(0);
    EXPECT_TRUE(fake::logged(1, "Invalid list length: 0!\n"));
    EXPECT_EQ(param.section_callback, nullptr);
    EXPECT_EQ(param.section_list_callback, nullptr);
    EXPECT_EQ(param.list_mode, 0U);
    EXPECT_EQ(param.start_flag, 1);
}

TEST_F(ParameterBlock, SettingStepLeavesTheStartFlagClear)
{
    SiDmxFilterParam param;
    std::memset(&param, 0xEE, sizeof param);
    EXPECT_EQ(Si_SectFlt_SetSecFilterSetting(&of, 1, &param), ORVA_SI_OK);
    EXPECT_EQ(param.start_flag, 0);
    EXPECT_EQ(param.negate[0], 0);
    EXPECT_EQ(param.match[19], 0);
}

TEST_F(ParameterBlock, NullArgumentsPrintAssertions)
{
    SiDmxFilterParam param{};
    std::uint32_t result = 0;
    EXPECT_THAT(printed([&] { result = Si_SectFlt_SetSecFilterSetting(nullptr, 1, &param); }),
                is_assertion("Si_SectFlt_SetSecFilterSetting", "pid_filter!=((void *)0)"));
    EXPECT_EQ(result, 2U);
    EXPECT_THAT(printed([&] { result = Si_SectFlt_SetSecFilterSetting(&of, 1, nullptr); }),
                is_assertion("Si_SectFlt_SetSecFilterSetting", "param!=((void *)0)"));
    EXPECT_EQ(result, 2U);
    EXPECT_THAT(printed([&] { result = Si_SectFlt_StartFilter(nullptr, 1); }),
                is_assertion("Si_SectFlt_StartFilter", "pid_filter!=((void *)0)"));
    EXPECT_EQ(result, 2U);
}

TEST_F(ParameterBlock, RefusedLoadLeavesTheRecordDisabled)
{
    driver.answers[fake::update_filter] = 42;
    EXPECT_EQ(Si_SectFlt_StartFilter(&of, 1), 42U);
    EXPECT_TRUE(fake::logged(2, "Start filter failed: 42\n"));
    EXPECT_EQ(of.enabled, 0);
}

TEST_F(ParameterBlock, MissingLoadSlotAnswersTwo)
{
    driver.table()->UpdateSecFilter = nullptr;
    EXPECT_EQ(Si_SectFlt_StartFilter(&of, 1), 2U);
    EXPECT_TRUE(logged_by("Si_SectFlt_UpdateSecFilter", 2, "NULL pointer!\n"));
    EXPECT_EQ(of.enabled, 0);
}

TEST_F(ParameterBlock, FilterIdThatMeansNoneIsRefused)
{
    of.filter_id = SI_NO_FILTER;
    EXPECT_EQ(Si_SectFlt_StartFilter(&of, 1), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(2, "Invalid filter!\n"));
}

// ---- Looking records up

class FilterLookup : public FilterPool {
protected:
    FilterLookup()
    {
        for (std::size_t i = 0; i < of.size(); ++i) {
            of[i].pid = 0x12;
            of[i].table_id = 0x50;
            of[i].service_id = static_cast<std::uint16_t>(i);
            list = g_slist_append(list, &of[i]);
        }
        of[3].pid = 0x100;
        of[3].table_id = 0x02;
    }
    ~FilterLookup() override { g_slist_free(list); }
    std::array<pid_filter, 4> of{};
    GSList *list = nullptr;
};

TEST_F(FilterLookup, AllThreeMustMatch)
{
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x12, 0x50, 2), &of[2]);
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x12, 0x51, 2), nullptr);
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x13, 0x50, 2), nullptr);
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x12, 0x50, 9), nullptr);
}

TEST_F(FilterLookup, WildcardsOfTheQueryMatchAll)
{
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x2000, 0x02, 0xFFFF), &of[3]);
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x100, 0xFF, 0xFFFF), &of[3]);
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x12, 0x50, 0xFFFF), &of[0]);
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x2000, 0xFF, 0xFFFF), &of[0]);
}

TEST_F(FilterLookup, MissIsTraced)
{
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(list, 0x12, 0x4E, 0x77), nullptr);
    EXPECT_TRUE(fake::logged(
        5, "Failed to get the filter, pid: 0x12, table_id: 0x4e, service_id: 0x77!\n"));
    EXPECT_EQ(Si_SectFlt_GetFilterFromFilterList(nullptr, 0, 0, 0), nullptr);
}

TEST_F(FilterPool, FreeDynamicFilterIsTheFirstUnusedFromFiveOn)
{
    Si_SectFlt_InitPidFlts(driver.table());
    EXPECT_EQ(Si_SectFlt_GetAvalibleDynamicFilter(), &record(5));
    EXPECT_TRUE(fake::logged(4, "found the free filter at index = 5, filter_id = 69\n"));
    record(5).used = 1;
    EXPECT_EQ(Si_SectFlt_GetAvalibleDynamicFilter(), &record(6));
}

TEST_F(FilterPool, NoFreeDynamicFilterIsNull)
{
    for (std::size_t i = 5; i < pool_size; ++i)
        record(i).used = 1;
    EXPECT_EQ(Si_SectFlt_GetAvalibleDynamicFilter(), nullptr);
    record(30).used = 0;
    EXPECT_EQ(Si_SectFlt_GetAvalibleDynamicFilter(), &record(30));
}

} // namespace
