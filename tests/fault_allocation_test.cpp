// SPDX-License-Identifier: LGPL-2.1-or-later
// Memory that is exhausted, at every allocation there is: what a receiver goes through is run again
// and again, the n-th allocation failing, or all from the n-th on. Whatever that leads to, nothing
// is lost, nobody is stuck, and the same comes right as soon as there is memory again. Then what
// the start of the library asks of the system: a thread, locks, a semaphore.
#include <cerrno>
#include <gtest/gtest.h>

#include <cstdio>
#include <string_view>

#include "support/effort.h"
#include "support/fault_scenarios.h"

namespace {

using namespace test;

// ---- What else can fail: the n-th call from now on; 0: none.

constinit std::atomic<const char *> failing{nullptr};
constinit std::atomic<unsigned> calls_left{0};

bool strikes(const char *function)
{
    const char *const chosen = failing.load();
    return chosen != nullptr && std::string_view{chosen} == function && calls_left.load() != 0 &&
           calls_left.fetch_sub(1) == 1;
}

void fail_call(const char *function, unsigned n)
{
    failing = function;
    calls_left = n;
}

} // namespace

extern "C" {

void *__real_malloc(std::size_t size);
void *__wrap_malloc(std::size_t size)
{
    return strikes("malloc") ? nullptr : __real_malloc(size);
}

void *__real_calloc(std::size_t count, std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size)
{
    return strikes("calloc") ? nullptr : __real_calloc(count, size);
}

int __real_pthread_attr_init(pthread_attr_t *attr);
int __wrap_pthread_attr_init(pthread_attr_t *attr)
{
    return strikes("pthread_attr_init") ? ENOMEM : __real_pthread_attr_init(attr);
}

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                          void *param);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*body)(void *),
                          void *param)
{
    return strikes("pthread_create") ? EAGAIN : __real_pthread_create(thread, attr, body, param);
}

int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr);
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr)
{
    return strikes("pthread_mutex_init") ? ENOMEM : __real_pthread_mutex_init(mutex, attr);
}

int __real_sem_init(sem_t *sem, int shared, unsigned value);
int __wrap_sem_init(sem_t *sem, int shared, unsigned value)
{
    if (!strikes("sem_init"))
        return __real_sem_init(sem, shared, value);
    errno = ENOSPC;
    return -1;
}

int __real_sem_wait(sem_t *sem);
int __wrap_sem_wait(sem_t *sem)
{
    if (!strikes("sem_wait"))
        return __real_sem_wait(sem);
    errno = EINTR; // a signal, the only failure of a semaphore that is one
    return -1;
}

} // extern "C"

namespace {

// ---- Exhausted memory

constexpr scenario scenarios[] = {
    {"a channel starts", nothing, channel_starts, 5},
    {"a channel starts while another runs", tuned_with_all, channel_starts, 5},
    {"a whole multiplex", nothing, whole_multiplex, 5 + programs},
    {"another multiplex", tuned_with_all, next_multiplex, 5 + 2},
    {"no program is tuned", nothing, without_a_program, 5 + programs},
    {"the stream changes in place", tuned_with_all, stream_changes_in_place, 2},
    {"everything stops", tuned_with_all, everything_stops},
    {"filters are requested anew", tuned_with_all, filters_are_requested_anew, 5 + programs},
    {"PAT", tuned, first_pat, programs},
    {"PAT, repeated", tuned_with_pat, repeated_pat, 5 + programs},
    {"PAT, next version", tuned_with_pat, next_pat, 6},
    {"PATs of two versions", tuned_with_pat, pats_of_two_versions, 5 + 2},
    {"CAT", tuned, first_cat},
    {"CAT, next version", tuned_with_all, next_cat},
    {"PMTs", nothing, first_pmts, 5 + programs},
    {"PMTs, next version", tuned_with_all, next_pmts, 5 + programs},
    {"NITs", tuned, first_nits},
    {"NIT, next version", tuned_with_all, next_nits},
    {"SDT", tuned, first_sdts},
    {"SDTs of two versions", tuned, sdts_of_two_versions},
    {"SDTs of others", tuned, sdts_of_others},
    {"BATs", tuned, first_bats},
    {"TDT and TOT", tuned, time_of_day},
    {"present/following", tuned, first_present_following},
    {"present/following, repeated", tuned_with_present_following, repeated_present_following},
    {"present/following, next version", tuned_with_present_following, next_present_following},
    {"present/following of others", tuned, present_following_of_others},
    {"schedule", tuned, schedule_of_the_tuned},
    {"long schedule", tuned, long_schedule},
    {"events are erased", tuned_with_present_following, events_anew},
    {"requests of all kinds", tuned, requests_of_all_kinds},
    {"questions about changed lists", tuned_with_present_following, questions_about_changed_lists},
    {"questions about tables", tuned_with_all, questions_about_tables},
    {"scan", nothing, scan, 4 + programs},
    {"scan that is cancelled", nothing, scan_that_is_cancelled, 4 + programs},
    {"scan of a network", nothing, scan_of_a_network, 1},
    {"data carousels", tuned, data_carousels},
    {"latched program", tuned, latched_program, 5 + programs},
    {"batch of sections", tuned, batch_of_sections},
    {"list of a client", nothing, list_of_a_client},
    {"tables of a client", nothing, tables_of_a_client},
    {"stores made anew", nothing, stores_made_anew, 5 + programs},
};
static_assert(std::size(scenarios) >= 30);

// What the library says when memory is exhausted.
constexpr const char *texts_of_exhaustion[] = {
    "no mem yet\n",
    "Init tables list error\n",
    "fatal error: cannot malloc memory!!!\n",
    "fatal error: cant malloc memory!!!\n",
    "can't add the section into table\n",
    "Malloc section node failed!\n",
    "Malloc section failed, sect_len = ", // and how many
    "can't allocate the memory for the table\n",
    "can't allocate the memory for the eit section\n",
    "can't allocate for the eit section during eit update case\n",
    "Insert one section failed! tbl_id:", // and which
};

bool says_exhausted(const fake::log_line &line)
{
    return std::ranges::any_of(texts_of_exhaustion,
                               [&](const char *text) { return line.text.starts_with(text); });
}

bool was_said()
{
    return std::ranges::any_of(fake::log_lines(), says_exhausted);
}

struct injected {
    std::size_t faults = 0;
    std::size_t recovered = 0;
    unsigned told_nobody = 0; // and the outcome was wrong
};

enum class how { once, from_then_on };

// Whether the allocation that was to fail once has failed: else the next one would.
bool has_struck()
{
    void *probe = g_slice_alloc(32);
    g_slice_free1(32, probe);
    return probe != nullptr;
}

void run_with_fault(const scenario &what, std::size_t blocks_at_first, unsigned n, how fails,
                    injected &all)
{
    SCOPED_TRACE(std::string{what.name} + ", allocation " + std::to_string(n) +
                 (fails == how::once ? " fails" : " and all behind it fail"));
    what.before();
    fake::clear_log();
    (fails == how::once ? fake::fail_allocation : fake::fail_allocations_from)(n);
    was_refused = false;
    turns_at_most = impatient;
    const bool right = what.act();
    turns_at_most = patient;
    const bool struck = fails == how::from_then_on || has_struck();
    fake::fail_allocation(0);
    EXPECT_TRUE(struck) << "the run differs from the one in which nothing fails";
    ++all.faults;
    EXPECT_EQ(broken_promise(), "");
    if (!right && fails == how::once && !was_said() && !was_refused)
        ++all.told_nobody;
    if (what.act())
        ++all.recovered;
    else
        ADD_FAILURE() << "it does not come right any more";
    come_to_rest();
    EXPECT_EQ(broken_rest(blocks_at_first), "");
}

// How many allocations the scenario makes when none fails.
std::size_t allocations_of(const scenario &what, std::size_t blocks_at_first)
{
    what.before();
    const std::size_t before = fake::allocations();
    EXPECT_TRUE(what.act()) << what.name;
    const std::size_t count = fake::allocations() - before;
    EXPECT_TRUE(what.act()) << what.name << ", done again";
    come_to_rest();
    EXPECT_EQ(broken_rest(blocks_at_first), "") << what.name;
    return count;
}

void expect_no_need_of_memory(const scenario &what, std::size_t blocks_at_first)
{
    what.before();
    fake::fail_allocations_from(1);
    EXPECT_TRUE(what.act()) << what.name;
    fake::fail_allocations_from(0);
    come_to_rest();
    EXPECT_EQ(broken_rest(blocks_at_first), "") << what.name;
}

TEST(ExhaustedMemory, LosesNothingAndComesRightWhereverItStrikes)
{
    open_library();
    come_to_rest();
    const std::size_t blocks_at_first = live_blocks();
    injected total;
    constexpr std::size_t step = ORVA_TEST_DIVISOR; // another part of each scenario where not all
    std::size_t number = 0;
    for (const scenario &what : scenarios) {
        const std::size_t count = allocations_of(what, blocks_at_first);
        injected of_this;
        if (count == 0)
            expect_no_need_of_memory(what, blocks_at_first);
        const std::size_t first =
            count == 0 ? 1 : 1 + number++ % std::min<std::size_t>(count, step);
        for (std::size_t n = first; n <= count; n += step)
            for (const how fails : {how::once, how::from_then_on})
                run_with_fault(what, blocks_at_first, static_cast<unsigned>(n), fails, of_this);
        EXPECT_LE(of_this.told_nobody, what.own_requests) << what.name;
        std::printf("%-40s %4zu allocations, %4zu faults, %2u of them told nobody\n", what.name,
                    count, of_this.faults, of_this.told_nobody);
        total.faults += of_this.faults;
        total.recovered += of_this.recovered;
    }
    std::printf("%zu faults of memory in %zu scenarios, recovered from %zu\n", total.faults,
                std::size(scenarios), total.recovered);
    RecordProperty("faults", static_cast<int>(total.faults));
    EXPECT_EQ(total.recovered, total.faults);
    EXPECT_GE(total.faults, part_of(2000));
}

// ---- What is said and answered at each place

struct place {
    const char *name;
    void (*before)();
    unsigned allocation;
    std::uint32_t (*call)();
    std::uint32_t answer;
    std::uint32_t level; // 0: nothing is said
    const char *text;
};

const octets &sdt_of_one()
{
    static const octets section = make(sdt{.ts = 1, .services = {{.id = 1}}});
    return section;
}

std::uint32_t create_table()
{
    Orva_MutexP(&Ts_Ctl_Mutex);
    const SiTable *made = Orva_Si_CreateTable(0x11, 0x42, sdt_of_one().data());
    Orva_MutexV(&Ts_Ctl_Mutex);
    return made == nullptr ? 0 : 1;
}

std::uint32_t collect()
{
    octets section = sdt_of_one();
    SiSection record{0x11, 0, static_cast<std::uint16_t>(section.size()), section.data()};
    return Si_Model_CollectTables(&record);
}

std::uint32_t list_events(std::uint8_t version)
{
    octets section = event_section(0x4E, 1, 0, 1, version);
    SiSection record{0x12, 0, static_cast<std::uint16_t>(section.size()), section.data()};
    return Si_Model_HandleEitTables(&record);
}

std::uint32_t first_event()
{
    return list_events(0);
}
std::uint32_t changed_event()
{
    return list_events(1);
}
void with_event()
{
    ASSERT_EQ(first_event(), ORVA_SI_OK);
}

std::uint32_t section_arrives()
{
    fake::driver().broadcast(0x11, sdt_of_one());
    return 0;
}

void with_pat_list()
{
    tuned_with_pat();
    Si_SectFlt_StopPmt();
}

std::uint32_t start_pmts()
{
    SiPmtPidList list{};
    list.pmtpid_array[0] = {1, 0x100};
    list.pmtpid_array[1] = {2, 0x101};
    list.count = 2;
    list.cur_prog_num = 1;
    return Si_SectFlt_StartPmt(&list);
}

void with_tables_stopped()
{
    tuned();
    Si_SectFlt_StopPat();
    Si_SectFlt_StopNit();
}

void with_events_enabled()
{
    tuned();
    Si_CtlHelper_SetActPfEitEnableFlag(1);
    Si_CtlHelper_SetActSchEitEnableFlag(1);
    Si_CtlHelper_SetOtherPfEitEnableFlag(1);
    Si_CtlHelper_SetOtherSchEitEnableFlag(1);
}

constexpr std::uint32_t failure = ORVA_SI_FAILURE;
constexpr std::uint32_t fatal = ORVA_DEBUG_FATAL;
constexpr std::uint32_t error = ORVA_DEBUG_ERROR;
constexpr std::uint32_t trace = ORVA_DEBUG_TRACE;

const place places[] = {
    {"table", nothing, 1, create_table, 0, trace, "no mem yet\n"},
    {"list of its sections", nothing, 2, create_table, 0, trace, "no mem yet\n"},
    {"link of a table", nothing, 3, create_table, 0, trace, "can't insert ptbl into tables_list\n"},
    {"table of a section", nothing, 1, collect, ORVA_SI_NO_TABLE, error, "no mem yet\n"},
    {"its list", nothing, 2, collect, ORVA_SI_NO_TABLE, error, "no mem yet\n"},
    {"its link", nothing, 3, collect, ORVA_SI_NO_TABLE, error, "no mem yet\n"},
    {"section", nothing, 4, collect, failure, fatal, "fatal error: cannot malloc memory!!!\n"},
    {"bytes of a section", nothing, 5, collect, failure, fatal,
     "fatal error: cant malloc memory!!!\n"},
    {"link of a section", nothing, 6, collect, failure, fatal,
     "can't add the section into table\n"},
    {"section of a table", nothing, 4, collect, failure, error,
     "can't insert psect = 0x42, ext_id: 0x1 to table list.\n"},
    {"service", nothing, 1, first_event, 0, error, "can't allocate the memory for the table\n"},
    {"list of a service", nothing, 2, first_event, 0, error, "no mem yet\n"},
    {"event section", nothing, 4, first_event, 0, error,
     "can't allocate the memory for the eit section\n"},
    {"bytes of an event section", nothing, 5, first_event, 0, error,
     "can't allocate the memory for the eit section\n"},
    {"link of an event section", nothing, 6, first_event, 0, error,
     "Insert one section failed! tbl_id:0x4e, sect_no:0\n"},
    {"bytes of a changed event section", with_event, 1, changed_event, 0, error,
     "can't allocate for the eit section during eit update case\n"},
    {"node", tuned, 1, section_arrives, 0, fatal, "Malloc section node failed!\n"},
    {"copy", tuned, 2, section_arrives, 0, fatal, "Malloc section failed, sect_len = 20!\n"},
    {"request of the PAT", with_tables_stopped, 1, Si_SectFlt_StartPat, failure, 0, ""},
    {"request of the NIT", with_tables_stopped, 1, [] { return Si_SectFlt_StartNit(0, 1); },
     failure, 0, ""},
    {"request of a PMT", with_pat_list, 2, start_pmts, failure, 0, ""},
    {"request of data", tuned, 1, [] { return Orva_Si_StartDsmFilter(0x600); }, failure, 0, ""},
    {"request of present/following", with_events_enabled, 2,
     [] { return Si_SectFlt_StartActPfEit(1, 1, three_services.data(), 3); }, failure, 0, ""},
    {"request of a schedule", with_events_enabled, 2,
     [] { return Si_SectFlt_StartActSchEit(1, 1, 1, three_services.data(), 3); }, failure, 0, ""},
    {"request of others' events", with_events_enabled, 1,
     [] { return Si_SectFlt_StartOtherPfEit(nullptr, 0); }, failure, 0, ""},
    {"request of others' schedules", with_events_enabled, 1,
     [] { return Si_SectFlt_StartOtherSchEit(nullptr, 0); }, failure, 0, ""},
};

TEST(ExhaustedMemory, IsToldAndAnsweredAtEachPlace)
{
    open_library();
    come_to_rest();
    const std::size_t blocks_at_first = live_blocks();
    for (const place &where : places) {
        SCOPED_TRACE(where.name);
        where.before();
        fake::clear_log();
        fake::set_log_level(ORVA_DEBUG_TRACE);
        fake::fail_allocation(where.allocation);
        EXPECT_EQ(where.call(), where.answer);
        fake::fail_allocation(0);
        fake::set_log_level(ORVA_DEBUG_ERROR);
        settle();
        if (where.level != 0) {
            EXPECT_TRUE(fake::logged(where.level, where.text)) << fake::log_text();
        }
        come_to_rest();
        EXPECT_EQ(broken_rest(blocks_at_first), "");
    }
}

// ---- The memory pool, which asks the heap

// Whether a pool of 1024 bytes and the heap behind it gave all that was wanted.
bool use_memory_pool()
{
    bool all = orva_mempool_init(1024) == 1;
    std::array<void *, 6> blocks{};
    for (void *&block : blocks) // four have room in the pool
        block = orva_mempool_malloc(200);
    for (void *block : blocks) {
        all = all && block != nullptr;
        orva_mempool_free(block);
    }
    orva_mempool_cleanup();
    return all;
}

TEST(ExhaustedMemory, IsToldByTheMemoryPoolAndLeavesItUsable)
{
    ASSERT_TRUE(use_memory_pool());
    for (unsigned n = 1; n <= 2; ++n) { // two blocks come from the heap
        fail_call("malloc", n);
        EXPECT_FALSE(use_memory_pool()) << n;
        EXPECT_TRUE(use_memory_pool()) << n;
    }
    fail_call("calloc", 1);
    EXPECT_EQ(orva_mempool_init(1024), 0u);
    EXPECT_TRUE(use_memory_pool());
}

// ---- The start of the library

struct start_fault {
    const char *function; // null: an allocation
    unsigned n;
    const char *text;
};
void PrintTo(const start_fault &fault, std::ostream *out)
{
    *out << (fault.function != nullptr ? fault.function : "allocation") << " " << fault.n;
}

void inject(const start_fault &fault)
{
    if (fault.function == nullptr)
        fake::fail_allocation(fault.n);
    else
        fail_call(fault.function, fault.n);
}

class StartUp : public testing::TestWithParam<start_fault> {
protected:
    StartUp()
    {
        prepare_platform();
        fake::set_log_level(ORVA_DEBUG_TRACE); // at which the thread says that it is ready
    }
    ~StartUp() override
    {
        come_to_rest();
        constexpr std::size_t lists_of_stores = 2;
        EXPECT_EQ(broken_rest(lists_of_stores), "");
        EXPECT_EQ(Orva_Si_DeInit(), ORVA_SI_OK);
    }

    static std::uint32_t open() { return Orva_Si_Init(fake::driver().table()); }

    static void expect_ready()
    {
        EXPECT_TRUE(in_time([] { return fake::logged("I am ready!\n"); }));
        fake::set_log_level(ORVA_DEBUG_ERROR);
        EXPECT_TRUE(whole_multiplex());
    }

    static bool in_time(bool (*condition)())
    {
        using clock = std::chrono::steady_clock;
        for (const auto begin = clock::now(); clock::now() - begin < std::chrono::seconds{20};
             sched_yield())
            if (condition())
                return true;
        return false;
    }
};

class ThreadNotCreated : public StartUp {};

TEST_P(ThreadNotCreated, FailsTheStartWhichMayBeRepeated)
{
    inject(GetParam());
    EXPECT_EQ(open(), ORVA_SI_FAILURE);
    EXPECT_TRUE(fake::logged(ORVA_DEBUG_ERROR, GetParam().text)) << fake::log_text();
    EXPECT_TRUE(fake::logged(ORVA_DEBUG_ERROR, "Create the control thread error\n"));
    EXPECT_EQ(held_lock(), "");
    EXPECT_EQ(open(), ORVA_SI_OK);
    expect_ready();
}

constexpr start_fault no_thread[]{
    {"pthread_attr_init", 1, "Couldn't initialize pthread attributes"},
    {"sem_init", 1, "can't Init the sem for thread\n"},
    {"pthread_create", 1, "Create the thread fail\n"},
};
INSTANTIATE_TEST_SUITE_P(Each, ThreadNotCreated, testing::ValuesIn(no_thread));

class InterruptedWait : public StartUp {};

TEST_P(InterruptedWait, IsTakenUpAgain)
{
    inject(GetParam());
    EXPECT_EQ(open(), ORVA_SI_OK);
    expect_ready();
}

constexpr start_fault interrupted[]{{"sem_wait", 1, ""}, {"sem_wait", 2, ""}, {"sem_wait", 5, ""}};
INSTANTIATE_TEST_SUITE_P(Each, InterruptedWait, testing::ValuesIn(interrupted));

// The thread ends, and the start has succeeded long since: what a driver delivers is bounded and
// freed, and clients get no answers. A thread with the library's body repairs it.
class StoresNotMade : public StartUp {};

TEST_P(StoresNotMade, LeavesALibraryThatDoesNothingUntilAThreadMakesThem)
{
    inject(GetParam());
    ASSERT_EQ(open(), ORVA_SI_OK);
    ASSERT_TRUE(in_time([] { return fake::logged("Orva_Si_InitSectModel error\n"); }));
    fake::fail_allocation(0);
    EXPECT_TRUE(fake::logged(ORVA_DEBUG_ERROR, GetParam().text)) << fake::log_text();
    EXPECT_TRUE(fake::logged(ORVA_DEBUG_ERROR, "Orva_Si_InitSectModel error\n"));
    EXPECT_EQ(open(), ORVA_SI_OK) << "which does nothing any more";

    EXPECT_TRUE(start());
    for (unsigned turn = 0; turn < 600; ++turn)
        for (const transmission &sent : multiplex())
            fake::driver().broadcast(sent.pid, sent.section);
    EXPECT_LE(Si_SectFlt_GetPendingCount(), si::limit::queued_sections);
    EXPECT_FALSE(questions_about_tables());
    Orva_Si_EraseAllEitRawData();
    EXPECT_EQ(Orva_Si_StopChannel(), ORVA_SI_OK);
    EXPECT_EQ(Si_SectFlt_GetPendingCount(), 0u);
    EXPECT_EQ(broken_promise(), "");

    end_store(); // what was made before the failure
    pthread_t thread{};
    ASSERT_EQ(Orva_CreateThread(&thread, Ts_Monitor_Fn, nullptr), ORVA_SI_OK);
    expect_ready();
}

constexpr start_fault no_stores[]{
    {nullptr, 1, "Init tables list error\n"},
    {nullptr, 2, "Init tables list error\n"},
    {"pthread_mutex_init", 1, "Create the control mutex error\n"},
    {"pthread_mutex_init", 2, "Create the control mutex error\n"},
    {"pthread_mutex_init", 3, "Create the eit mutex error\n"},
};
INSTANTIATE_TEST_SUITE_P(Each, StoresNotMade, testing::ValuesIn(no_stores));

} // namespace
