// SPDX-License-Identifier: LGPL-2.1-or-later
// A simulation of the EIT filters: the library's own scheduling, dispatcher and event store against
// a demultiplexer and a multiplex whose clock is a number. Nothing sleeps and nothing is random, so
// that an hour of broadcast is the same in every run.
#include <gtest/gtest.h>
#include <queue>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "fakes/driver.h"
#include "fakes/platform.h"
#include "orva_si/background.h"
#include "orva_si/filter.h"
#include "orva_si/notify.h"
#include "orva_si_alloc.h"
#include "support/broadcast.h"
#include "support/client.h"
#include "support/effort.h"

using namespace test;
using namespace std::chrono_literals;

namespace {

constexpr moment never = moment::max();
constexpr moment not_yet = moment{-1};
constexpr std::size_t single_table_filters = 5; // the first ones, which no EIT row gets
constexpr std::size_t dynamic_filters = 26;

// ---- The receiver

class receiver {
public:
    explicit receiver(const broadcast &from) : air{from}
    {
        self = this;
        handlers.DemuxInit = [](std::uint32_t) -> std::uint32_t { return 0; };
        handlers.FreeSecData = [](std::uint32_t, std::uint32_t, SiWord) -> std::uint32_t {
            return 0;
        };
        handlers.RemoveSecFilter = [](std::uint32_t, std::uint32_t id) { return switch_off(id); };
        handlers.EnableSecFilter = [](std::uint32_t, std::uint32_t) -> std::uint32_t { return 0; };
        handlers.DisableSecFilter = [](std::uint32_t, std::uint32_t id) { return switch_off(id); };
        handlers.AddSecFilter = [](std::uint32_t, std::uint32_t *id, SiDmxFilterParam) {
            return self->grant(*id);
        };
        handlers.UpdateSecFilter = [](std::uint32_t, std::uint32_t id, SiDmxFilterParam param) {
            return self->load(id, param);
        };
    }
    receiver(const receiver &) = delete;
    receiver &operator=(const receiver &) = delete;

    SiDmxSectHandler *table() { return &handlers; }
    moment now() const { return clock; }
    // Most dynamic filters that ran at a time.
    std::size_t busiest() const { return most_running; }

    // Lets time pass: sections reach the filters that are set for them, services run when due.
    void run_until(moment end)
    {
        for (;;) {
            start_timers();
            const moment tick = *std::ranges::min_element(due);
            const moment section = coming.empty() ? never : moment{coming.top().at};
            if (std::min(tick, section) > end)
                break;
            clock = std::min(tick, section);
            if (section <= tick)
                deliver_next();
            else
                run_services();
        }
        clock = end;
    }

private:
    struct filter {
        SiDmxFilterParam loaded{};
        bool running = false;
        unsigned loads = 0; // what was scheduled for an earlier one is void
    };
    // Compared more often than anything else is done here, by code that is not optimised.
    struct arrival {
        moment::rep at; // of the clock
        std::uint32_t section;
        std::uint32_t filter;
        unsigned load;

        bool operator>(const arrival &other) const
        {
            if (at != other.at)
                return at > other.at;
            return section != other.section ? section > other.section : filter > other.filter;
        }
    };
    static constexpr std::uint32_t first_id = 64;

    std::uint32_t grant(std::uint32_t &id)
    {
        if (filters.size() == single_table_filters + dynamic_filters)
            return 1;
        id = first_id + static_cast<std::uint32_t>(filters.size());
        filters.emplace_back();
        return 0;
    }

    static std::uint32_t switch_off(std::uint32_t id)
    {
        self->filters.at(id - first_id).running = false;
        return 0;
    }

    std::uint32_t load(std::uint32_t id, const SiDmxFilterParam &param)
    {
        const std::size_t index = id - first_id;
        filter &of = filters.at(index);
        of.loaded = param;
        of.running = true;
        ++of.loads;
        most_running = std::max(most_running, running_dynamic());
        if (param.pid == 0x12)
            expect_sections(index, param);
        return 0;
    }

    void expect_sections(std::size_t index, const SiDmxFilterParam &param)
    {
        const bool one_service = param.mask[3] == 0xFF;
        const auto service = static_cast<std::uint16_t>(param.match[3] << 8 | param.match[4]);
        for (const std::size_t section : air.of_service(one_service ? service : SI_ANY_EXT)) {
            const std::uint8_t table_id = air.table(air.sections()[section].table).table_id;
            if (((table_id ^ param.match[0]) & param.mask[0]) == 0)
                expect_section(index, section);
        }
    }

    void expect_section(std::size_t index, std::size_t section)
    {
        if (!air.sections()[section].missing)
            coming.push({air.next(section, clock + moment{1}).count(),
                         static_cast<std::uint32_t>(section), static_cast<std::uint32_t>(index),
                         filters[index].loads});
    }

    void deliver_next()
    {
        const arrival next = coming.top();
        coming.pop();
        const auto current = [&] {
            return filters[next.filter].running && filters[next.filter].loads == next.load;
        };
        if (!current())
            return;
        const octets &section = air.content(next.section);
        if (fake::passes(filters[next.filter].loaded, section))
            process(next.filter, section);
        if (current())
            expect_section(next.filter, next.section);
    }

    // What the section thread does with a section from the queue.
    static void process(std::size_t index, const octets &section)
    {
        auto *node = si::allocate_record<SiSection>();
        node->section = si::allocate_section(section.size());
        std::ranges::copy(section, node->section);
        node->sect_len = static_cast<std::uint16_t>(section.size());
        node->filter_id = static_cast<std::uint16_t>(first_id + index);
        Si_SectFlt_ProcessModel(node);
    }

    // A timer that is let go runs after a whole interval.
    void start_timers()
    {
        const fake::timer_facility &facility = fake::timers();
        due.resize(facility.timers.size(), never);
        for (std::size_t i = 0; i < due.size(); ++i) {
            const fake::timer &timer = facility.timers[i];
            if (timer.paused || facility.all_paused)
                due[i] = never;
            else if (due[i] == never)
                due[i] = clock + moment{timer.interval_ms};
        }
    }

    void run_services()
    {
        for (std::size_t i = 0; i < due.size(); ++i) {
            if (due[i] != clock)
                continue;
            const fake::timer timer = fake::timers().timers[i];
            timer.function(timer.user);
            due[i] = clock + moment{timer.interval_ms};
        }
    }

    std::size_t running_dynamic() const
    {
        std::size_t running = 0;
        for (std::size_t i = single_table_filters; i < filters.size(); ++i)
            running += filters[i].running ? 1 : 0;
        return running;
    }

    static inline receiver *self = nullptr;
    const broadcast &air;
    SiDmxSectHandler handlers{};
    moment clock{0};
    std::vector<filter> filters;
    std::priority_queue<arrival, std::vector<arrival>, std::greater<>> coming;
    std::vector<moment> due; // by timer
    std::size_t most_running = 0;
};

// ---- What the client hears, and when

// Moments at which the client was told of a section for the first and for the last time.
class reception {
public:
    explicit reception(const broadcast &on_air)
        : air{on_air}, first(air.sections().size(), never), last(air.sections().size(), not_yet)
    {
        for (std::size_t i = 0; i < first.size(); ++i) {
            const event_table &table = air.table(air.sections()[i].table);
            places[{table.of, folded(table.table_id), air.sections()[i].number}] = i;
        }
    }

    void note(const SiEitNotify &told, moment now)
    {
        const service_key of{told.original_network_id, told.transport_stream_id, told.service_id};
        const std::size_t section = places.at({of, told.table_id, told.section_number});
        first[section] = std::min(first[section], now);
        last[section] = now;
    }

    // When a table was complete: one section of each segment of a schedule, present and following.
    moment complete(std::size_t table) const
    {
        const unsigned segment_size = air.table(table).table_id < 0x50 ? 1 : 8;
        std::map<unsigned, moment> segments;
        for (std::size_t n = 0; n < air.section_count(table); ++n) {
            const std::size_t section = air.first_section(table) + n;
            const unsigned number = air.sections()[section].number / segment_size;
            moment &segment = segments.emplace(number, never).first->second;
            segment = std::min(segment, first[section]);
        }
        moment all{0};
        for (const auto &[number, when] : segments)
            all = std::max(all, when);
        return all;
    }
    // Of the last times that the client was told of each section that is sent, the first.
    moment renewed(std::size_t table) const
    {
        moment all = never;
        for (std::size_t n = 0; n < air.section_count(table); ++n)
            if (const std::size_t section = air.first_section(table) + n;
                !air.sections()[section].missing)
                all = std::min(all, last[section]);
        return all;
    }
    // When every section of a table had come; never while one is missing.
    moment whole(std::size_t table) const
    {
        moment all{0};
        for (std::size_t n = 0; n < air.section_count(table); ++n)
            all = std::max(all, first[air.first_section(table) + n]);
        return all;
    }
    // When the client was told of anything of a table for the last time.
    moment settled(std::size_t table) const
    {
        moment all = not_yet;
        for (std::size_t n = 0; n < air.section_count(table); ++n)
            all = std::max(all, last[air.first_section(table) + n]);
        return all;
    }
    // Sections that were never there, in percent of all of these tables.
    double missed(const std::vector<std::size_t> &tables) const
    {
        double all = 0;
        double missing = 0;
        for (const std::size_t table : tables)
            for (std::size_t n = 0; n < air.section_count(table); ++n) {
                ++all;
                missing += first[air.first_section(table) + n] == never ? 1 : 0;
            }
        return 100 * missing / all;
    }

private:
    static std::uint8_t folded(std::uint8_t table_id)
    {
        if (table_id == 0x4F)
            return 0x4E;
        return table_id >= 0x60 ? static_cast<std::uint8_t>(table_id - 0x10) : table_id;
    }

    const broadcast &air;
    std::vector<moment> first; // by section
    std::vector<moment> last;
    std::map<std::tuple<service_key, std::uint8_t, std::uint8_t>, std::size_t> places;
};

// ---- A multiplex at the rates of ETSI TS 101 211, 4.4

constexpr moment pf_period = 2s;
constexpr moment near_period = 10s;
constexpr moment far_period = 30s;
constexpr moment other_pf_period = 10s;
constexpr moment terrestrial_other_pf_period = 20s;
constexpr moment other_sch_period = 60s;
constexpr std::uint16_t onid = 1;
constexpr std::uint16_t own_ts = 1;
constexpr std::uint16_t first_service = 0x100;

// Tables of one service.
struct on_air {
    service_key key;
    std::size_t pf;
    std::vector<std::size_t> schedule; // by sub-table
    bool silent = false;               // nothing is sent of it
};

// Bounds follow from the rates alone:
// - A filter that waits for a table has every section of it after one period; a table of which
//   nothing comes times out after limit + 1 runs of the service, a second each.
// - A rotation deals services to filters in the order of the request. All of m filters are busy
//   with earlier services until one is free for the next: it begins no later than an m-th of what
//   those took together.
class EitSimulation : public testing::Test {
protected:
    EitSimulation() { fake::set_log_level(0); }
    ~EitSimulation() override
    {
        Si_SectFlt_StopAllFilters();
        end_store();
    }
    EitSimulation(const EitSimulation &) = delete;
    EitSimulation &operator=(const EitSimulation &) = delete;

    // One to three schedule tables of four days each, of which the first day is the near one;
    // every fourth service has two sections in its segments.
    void put_services_on_air(unsigned count)
    {
        for (unsigned i = 0; i < count; ++i) {
            const service_key key{onid, own_ts, static_cast<std::uint16_t>(first_service + i)};
            on_air service{key, add_pf(key, 0x4E, pf_period), {}, false};
            const auto last = static_cast<std::uint8_t>(0x50 + i % 3);
            for (std::uint8_t table_id = 0x50; table_id <= last; ++table_id)
                service.schedule.push_back(
                    air.add({.of = key,
                             .table_id = table_id,
                             .last_table_id = last,
                             .segments = std::vector<unsigned>(32, i % 4 == 0 ? 2 : 1),
                             .period = far_period,
                             .near_period = near_period,
                             .near_segments = table_id == 0x50 ? 8U : 0U}));
            own.push_back(service);
        }
    }
    void put_others_on_air(unsigned count, moment period = other_pf_period)
    {
        for (unsigned i = 0; i < count; ++i) {
            const service_key key{onid, static_cast<std::uint16_t>(2 + i / 10),
                                  static_cast<std::uint16_t>(0x1000 + i)};
            on_air service{key, add_pf(key, 0x4F, period), {}, false};
            service.schedule.push_back(air.add({.of = key,
                                                .table_id = 0x60,
                                                .last_table_id = 0x60,
                                                .segments = std::vector<unsigned>(8, 1),
                                                .period = other_sch_period}));
            others.push_back(service);
        }
    }

    // Tunes to a service when all other filters are in use: a request for the PMTs of other
    // programs has taken what it could get.
    void tune_to(std::size_t service)
    {
        tuner.emplace(air);
        heard.emplace(air);
        hearing = this;
        tuned = service;
        Si_BG_InitServiceList();
        ASSERT_EQ(Si_SectFlt_InitPidFlts(tuner->table()), ORVA_SI_OK);
        test::tune(474000, own[tuned].key.service);
        for (const auto enable :
             {Si_CtlHelper_SetActPfEitEnableFlag, Si_CtlHelper_SetOtherPfEitEnableFlag,
              Si_CtlHelper_SetActSchEitEnableFlag, Si_CtlHelper_SetOtherSchEitEnableFlag})
            enable(1);
        Orva_Si_InstallCallback(hear);
        Si_BG_EnableAllService();
        SiPmtPidList programs{};
        programs.cur_prog_num = SI_NO_PROGRAM;
        for (; programs.count < 255; ++programs.count)
            programs.pmtpid_array[programs.count] = {
                static_cast<std::uint16_t>(0x2000 + programs.count), 0x100};
        Si_SectFlt_StartPmt(&programs);
        Si_BG_ResumeService(0);
        ASSERT_EQ(tuner->busiest(), dynamic_filters);
    }
    void request_own()
    {
        std::vector<std::uint16_t> ids;
        for (const on_air &service : own)
            ids.push_back(service.key.service);
        const auto count = static_cast<std::uint32_t>(ids.size());
        ASSERT_EQ(Si_SectFlt_StartActPfEit(own_ts, onid, ids.data(), count), ORVA_SI_OK);
        ASSERT_EQ(
            Si_SectFlt_StartActSchEit(own_ts, onid, own[tuned].key.service, ids.data(), count),
            ORVA_SI_OK);
    }
    void request_others()
    {
        std::vector<SiEitRequest> requests;
        for (const on_air &service : others)
            requests.push_back({service.key.ts, service.key.original_network, service.key.service});
        const auto count = static_cast<std::uint32_t>(requests.size());
        ASSERT_EQ(Si_SectFlt_StartOtherPfEit(requests.data(), count), ORVA_SI_OK);
        ASSERT_EQ(Si_SectFlt_StartOtherSchEit(requests.data(), count), ORVA_SI_OK);
    }

    moment pf_wait(const on_air &service) const { return heard->complete(service.pf); }
    moment schedule_wait(const on_air &service) const
    {
        moment all{0};
        for (const std::size_t table : service.schedule)
            all = std::max(all, heard->complete(table));
        return all;
    }

    void silence(on_air &service)
    {
        service.silent = true;
        air.omit(service.pf);
        for (const std::size_t table : service.schedule)
            air.omit(table);
    }

    static moment pf_time(const on_air &service) { return service.silent ? 11 * run : pf_period; }
    // A service's tables come one after the other; of a silent one only the first is asked for.
    static moment schedule_time(const on_air &service)
    {
        return service.silent ? 51 * run : static_cast<int>(service.schedule.size()) * far_period;
    }
    // The tuned service has a filter of its own; the other one goes round the rest.
    moment pf_bound(std::size_t n) const
    {
        moment before{0};
        for (std::size_t i = 0; n != tuned && i < n; ++i)
            before += i == tuned ? 0s : pf_time(own[i]);
        return before + pf_time(own[n]);
    }
    moment schedule_bound(std::size_t n) const
    {
        moment before{0};
        for (std::size_t i = 0; i < n; ++i)
            before += schedule_time(own[i]);
        return before / schedule_filters + schedule_time(own[n]);
    }
    // Later turns end with the run after the last section that was missing.
    static moment later_schedule_time(const on_air &service)
    {
        return static_cast<int>(service.schedule.size()) * (far_period + run);
    }
    // Until every service had a turn after its first one: the last of them begins when the filters
    // have done with all others.
    moment later_round_bound() const
    {
        moment all{0};
        moment longest{0};
        for (const on_air &service : own) {
            all += later_schedule_time(service);
            longest = std::max(longest, later_schedule_time(service));
        }
        return own.size() <= schedule_filters ? longest : all / schedule_filters + longest;
    }
    // Until every service had its turn.
    moment round_bound() const
    {
        moment all{0};
        for (std::size_t n = 0; n < own.size(); ++n)
            all = std::max({all, pf_bound(n), schedule_bound(n)});
        return all;
    }
    // Other multiplexes: nothing tells that a table is complete, so that each service keeps the one
    // filter of its kind as long as its limit says, a run more than that, of a second each. A
    // second round waits for more than a period.
    moment other_pf_bound() const { return others.size() * (6 * run + 11 * run) + run; }
    moment other_schedule_bound() const { return others.size() * (51 * run + 61 * run) + run; }

    static void report(const std::string &what, std::vector<moment> waits)
    {
        std::ranges::sort(waits);
        report(what + "_first_ms", waits.front());
        report(what + "_median_ms", waits[waits.size() / 2]);
        report(what + "_worst_ms", waits.back());
    }
    static void report(const std::string &what, moment wait)
    {
        RecordProperty(what, wait == never ? "never" : std::to_string(wait.count()));
        std::cout << "  " << what << ": ";
        if (wait == never)
            std::cout << "never\n";
        else
            std::cout << wait.count() << '\n';
    }

    static constexpr moment run = 1s; // of the background services
    static constexpr int schedule_filters = 5;
    broadcast air;
    std::vector<on_air> own;
    std::vector<on_air> others;
    std::size_t tuned = 0;
    std::optional<receiver> tuner;
    std::optional<reception> heard;

private:
    std::size_t add_pf(const service_key &of, std::uint8_t table_id, moment period)
    {
        return air.add({.of = of,
                        .table_id = table_id,
                        .last_table_id = table_id,
                        .segments = {2},
                        .period = period});
    }
    static std::uint32_t hear(std::uint32_t reason, std::uint32_t, SiWord data, std::uint32_t)
    {
        if (reason >= SI_REASON_EIT_PRESENT_FOLLOWING && reason <= SI_REASON_EIT_SCHEDULE_NEW)
            hearing->heard->note(*reinterpret_cast<const SiEitNotify *>(data),
                                 hearing->tuner->now());
        return 0;
    }
    static inline EitSimulation *hearing = nullptr;
};

class EitScheduling : public EitSimulation, public testing::WithParamInterface<unsigned> {};

TEST_P(EitScheduling, NoServiceStarves)
{
    put_services_on_air(GetParam());
    put_others_on_air(10);
    ASSERT_NO_FATAL_FAILURE(tune_to(GetParam() / 2));
    ASSERT_NO_FATAL_FAILURE(request_own());
    ASSERT_NO_FATAL_FAILURE(request_others());
    tuner->run_until(std::max(round_bound(), other_schedule_bound()));

    std::vector<moment> pf;
    std::vector<moment> schedule;
    std::vector<std::size_t> schedule_tables;
    for (std::size_t n = 0; n < own.size(); ++n) {
        pf.push_back(pf_wait(own[n]));
        schedule.push_back(schedule_wait(own[n]));
        EXPECT_LE(pf.back(), pf_bound(n)) << n;
        EXPECT_LE(schedule.back(), schedule_bound(n)) << n;
        schedule_tables.insert(schedule_tables.end(), own[n].schedule.begin(),
                               own[n].schedule.end());
    }
    std::vector<moment> other_pf;
    std::vector<moment> other_schedule;
    for (const on_air &service : others) {
        other_pf.push_back(pf_wait(service));
        other_schedule.push_back(schedule_wait(service));
        EXPECT_LE(other_pf.back(), other_pf_bound()) << service.key.service;
        EXPECT_LE(other_schedule.back(), other_schedule_bound()) << service.key.service;
    }
    std::cout << GetParam() << " services:\n";
    report("tuned_pf_ms", pf[tuned]);
    report("tuned_schedule_ms", schedule[tuned]);
    report("pf", pf);
    report("schedule", schedule);
    report("other_pf", other_pf);
    report("other_schedule", other_schedule);
    std::cout << "  missed schedule sections: " << heard->missed(schedule_tables) << " %\n";
    EXPECT_EQ(tuner->busiest(), dynamic_filters);
}

TEST_P(EitScheduling, TheTunedServiceIsFirstAndKeepsItsFilter)
{
    put_services_on_air(GetParam());
    put_others_on_air(20);
    ASSERT_NO_FATAL_FAILURE(tune_to(GetParam() - 1));
    ASSERT_NO_FATAL_FAILURE(request_own());
    ASSERT_NO_FATAL_FAILURE(request_others());
    tuner->run_until(pf_period);
    EXPECT_LE(pf_wait(own[tuned]), pf_period);
    for (unsigned change = 1; change <= 40; ++change) {
        const moment when = tuner->now();
        air.set_version(own[tuned].pf, static_cast<std::uint8_t>(change % 32));
        tuner->run_until(when + 2 * pf_period);
        EXPECT_GT(heard->renewed(own[tuned].pf), when) << "change " << change;
        tuner->run_until(tuner->now() + change * 333ms);
    }
}

TEST_P(EitScheduling, ANewVersionOfAnyServiceIsNoticedWithinARound)
{
    put_services_on_air(GetParam());
    ASSERT_NO_FATAL_FAILURE(tune_to(0));
    ASSERT_NO_FATAL_FAILURE(request_own());
    tuner->run_until(round_bound());
    for (const std::size_t n : {std::size_t{1}, own.size() / 2, own.size() - 1}) {
        const moment when = tuner->now();
        air.set_version(own[n].pf, 7);
        tuner->run_until(when + pf_bound(own.size() - 1) + pf_period);
        EXPECT_GT(heard->renewed(own[n].pf), when) << n;
    }
    const std::size_t one_a_segment = 2; // the client hears of all sections of the table
    const moment when = tuner->now();
    air.set_version(own[one_a_segment].schedule[0], 7);
    tuner->run_until(when + round_bound() + far_period);
    EXPECT_GT(heard->renewed(own[one_a_segment].schedule[0]), when);
}

TEST_P(EitScheduling, ASilentServiceCostsItsTimeOutAndNoMore)
{
    put_services_on_air(GetParam());
    for (std::size_t n = 0; n < own.size(); n += 5)
        silence(own[n]);
    ASSERT_NO_FATAL_FAILURE(tune_to(GetParam() / 2 + 1));
    ASSERT_FALSE(own[tuned].silent);
    ASSERT_NO_FATAL_FAILURE(request_own());
    tuner->run_until(round_bound());
    for (std::size_t n = 0; n < own.size(); ++n) {
        if (own[n].silent)
            continue;
        EXPECT_LE(pf_wait(own[n]), pf_bound(n)) << n;
        EXPECT_LE(schedule_wait(own[n]), schedule_bound(n)) << n;
    }
}

constexpr std::array numbers_of_services{255U, 40U, 200U};
INSTANTIATE_TEST_SUITE_P(
    Services, EitScheduling,
    testing::ValuesIn(std::span{numbers_of_services}.first<test::part_of(3)>()));

// Few services have a filter each, with one table to watch or several; more share filters.
class EitWholeness : public EitSimulation, public testing::WithParamInterface<unsigned> {
protected:
    EitWholeness() { put_services_on_air(GetParam()); }

    void listen()
    {
        ASSERT_NO_FATAL_FAILURE(tune_to(0));
        ASSERT_NO_FATAL_FAILURE(request_own());
        tuner->run_until(round_bound() + later_round_bound());
    }
    // No longer than until then.
    void run_until_renewed(std::size_t table, moment end)
    {
        for (const moment when = tuner->now(); tuner->now() < end && heard->renewed(table) <= when;)
            tuner->run_until(tuner->now() + run);
    }
    std::vector<std::size_t> schedule_tables() const
    {
        std::vector<std::size_t> all;
        for (const on_air &service : own)
            all.insert(all.end(), service.schedule.begin(), service.schedule.end());
        return all;
    }
};

TEST_P(EitWholeness, EverySectionHasComeAfterTheSecondTurns)
{
    ASSERT_NO_FATAL_FAILURE(listen());
    std::vector<moment> whole;
    for (const std::size_t table : schedule_tables())
        whole.push_back(heard->whole(table));
    EXPECT_EQ(heard->missed(schedule_tables()), 0);
    EXPECT_NE(std::ranges::max(whole), never);
    std::cout << GetParam() << " services:\n";
    report("whole", whole);
}

// Of tables with two sections in each segment, the first and the last one of a service.
TEST_P(EitWholeness, EverySectionOfANewVersionComesInTheTurnAfterIt)
{
    ASSERT_NO_FATAL_FAILURE(listen());
    std::cout << GetParam() << " services:\n";
    std::uint8_t version = 0;
    for (std::size_t n = 0; n < own.size(); n += 4 * std::max<std::size_t>(own.size() / 16, 1))
        for (const std::size_t table : {own[n].schedule.front(), own[n].schedule.back()}) {
            const moment when = tuner->now();
            air.set_version(table, ++version % 32);
            run_until_renewed(table, when + later_round_bound() + far_period + run);
            EXPECT_GT(heard->renewed(table), when) << n;
            report("renewed_after_ms", heard->settled(table) - when);
        }
}

// Other services do not wait for it longer than its time-out.
TEST_P(EitWholeness, ASectionThatIsAnnouncedAndNeverSentHoldsUpNoOther)
{
    const std::size_t lacking = own[0].schedule[0];
    air.omit(lacking, 5 * 8 + 1); // its segment has another
    ASSERT_NO_FATAL_FAILURE(listen());
    tuner->run_until(tuner->now() + 51 * run);
    EXPECT_EQ(heard->whole(lacking), never);
    EXPECT_NE(heard->complete(lacking), never);
    std::vector<std::size_t> all_sent = schedule_tables();
    std::erase(all_sent, lacking);
    EXPECT_TRUE(all_sent.empty() || heard->missed(all_sent) == 0);
    const moment when = tuner->now();
    air.set_version(lacking, 1);
    run_until_renewed(lacking, when + later_round_bound() + 2 * 51 * run);
    EXPECT_GT(heard->renewed(lacking), when);
}

constexpr std::array few_to_all{1U, 2U, 5U, 6U, 12U, 40U, 255U};
INSTANTIATE_TEST_SUITE_P(
    Services, EitWholeness,
    testing::ValuesIn(std::span{few_to_all}.first<test::part_of(7) < 7 ? 6 : 7>()));

// The table whose segment never comes times out; the turn of the next one is a round later.
TEST_F(EitSimulation, ATableThatLacksASegmentDoesNotHideTheLaterOnes)
{
    put_services_on_air(40);
    const std::size_t lacking = 5;
    ASSERT_EQ(own[lacking].schedule.size(), 3U);
    air.omit(own[lacking].schedule[0], 5 * 8);
    ASSERT_NO_FATAL_FAILURE(tune_to(0));
    ASSERT_NO_FATAL_FAILURE(request_own());
    moment all{0};
    for (const on_air &service : own)
        all += schedule_time(service);
    const moment bound =
        schedule_bound(lacking) + 51 * run + all / schedule_filters + 2 * far_period;
    tuner->run_until(bound);
    EXPECT_EQ(heard->complete(own[lacking].schedule[0]), never);
    EXPECT_LE(heard->complete(own[lacking].schedule[1]), bound);
    EXPECT_LE(heard->complete(own[lacking].schedule[2]), bound);
}

// The turns last 6, 11 and 21 seconds, then so on.
TEST_F(EitSimulation, OtherServicesThatComeSeldomAreMetInTheThirdRound)
{
    put_services_on_air(1);
    put_others_on_air(40, terrestrial_other_pf_period);
    ASSERT_NO_FATAL_FAILURE(tune_to(0));
    ASSERT_NO_FATAL_FAILURE(request_others());
    const moment bound = 40 * (6 + 11 + 21) * run + run;
    tuner->run_until(bound);
    for (const on_air &service : others)
        EXPECT_LE(pf_wait(service), bound) << service.key.service;
}

TEST_F(EitSimulation, WithAFilterForEachNoServiceWaitsForAnother)
{
    put_services_on_air(2);
    ASSERT_NO_FATAL_FAILURE(tune_to(0));
    ASSERT_NO_FATAL_FAILURE(request_own());
    tuner->run_until(2 * far_period);
    for (const on_air &service : own) {
        EXPECT_LE(pf_wait(service), pf_period);
        EXPECT_LE(schedule_wait(service), schedule_time(service));
    }
    for (const on_air &service : own) {
        const moment when = tuner->now();
        air.set_version(service.pf, 3);
        tuner->run_until(when + 2 * pf_period);
        EXPECT_GT(heard->renewed(service.pf), when);
    }
}

TEST_F(EitSimulation, ARequestForEveryOtherServiceNeedsNoTurns)
{
    put_services_on_air(1);
    put_others_on_air(250);
    ASSERT_NO_FATAL_FAILURE(tune_to(0));
    ASSERT_EQ(Si_SectFlt_StartOtherPfEit(nullptr, 0), ORVA_SI_OK);
    ASSERT_EQ(Si_SectFlt_StartOtherSchEit(nullptr, 0), ORVA_SI_OK);
    tuner->run_until(other_sch_period);
    for (const on_air &service : others) {
        EXPECT_LE(pf_wait(service), other_pf_period) << service.key.service;
        EXPECT_LE(schedule_wait(service), other_sch_period) << service.key.service;
    }
}

} // namespace
