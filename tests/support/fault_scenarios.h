// SPDX-License-Identifier: LGPL-2.1-or-later
// What a receiver goes through, each time with an outcome that can be told from outside: for tests
// that let something fail on the way. For one source, as support/fault_world.h.
#ifndef TESTS_SUPPORT_FAULT_SCENARIOS_H
#define TESTS_SUPPORT_FAULT_SCENARIOS_H

#include <array>
#include <cstdint>
#include <span>

#include "support/descriptors.h"
#include "support/fault_world.h"

namespace test {

// One thing that happens to a library that is open. The act is one that may be done again: whatever
// it finds, it is to end with the same outcome.
struct scenario {
    const char *name;
    void (*before)(); // nothing fails yet
    bool (*act)();    // whether the outcome is the right one
    // Requests of the act that the library makes for itself and whose refusal it tells nobody:
    // those of static tables when a channel starts, and one for each program of a PAT.
    unsigned own_requests = 0;
};

// ---- The broadcast: a multiplex of four programs

inline constexpr std::uint16_t programs = 4;
inline constexpr std::uint16_t first_pmt_pid = 0x100;

inline octets pat_section(std::uint16_t count = programs, std::uint8_t version = 0,
                          std::uint16_t ts = 1)
{
    pat table{.ts = ts, .version = version, .programs = {{0, 0x10}}};
    for (std::uint16_t i = 0; i < count; ++i)
        table.programs.push_back(
            {static_cast<std::uint16_t>(i + 1), static_cast<std::uint16_t>(first_pmt_pid + i)});
    return make(table);
}

inline octets pat_part(std::uint8_t version, std::uint8_t number)
{
    return make(pat{.ts = 1,
                    .version = version,
                    .section_number = number,
                    .last_section_number = 1,
                    .programs = {{static_cast<std::uint16_t>(number + 1),
                                  static_cast<std::uint16_t>(first_pmt_pid + number)}}});
}

inline carousel pmts(std::uint8_t version = 0)
{
    carousel all;
    for (std::uint16_t i = 0; i < programs; ++i)
        all.push_back({static_cast<std::uint16_t>(first_pmt_pid + i),
                       make(pmt{.program = static_cast<std::uint16_t>(i + 1),
                                .version = version,
                                .streams = {{0x02, 0x200}, {0x04, 0x201, {iso639("eng")}}}})});
    return all;
}

inline carousel cats(std::uint8_t version = 0)
{
    return {{0x01, make(cat{.version = version, .descriptors = {ca(0x100, 0x500)}})}};
}

inline carousel nits(std::uint8_t table_id, std::uint8_t version = 0)
{
    carousel all;
    for (std::uint8_t number = 0; number < 2; ++number)
        all.push_back({0x10, make(nit{.table_id = table_id,
                                      .network = 1,
                                      .version = version,
                                      .section_number = number,
                                      .last_section_number = 1,
                                      .descriptors = {network_name("Net")},
                                      .transports = {{.ts = number}}})});
    return all;
}

inline carousel sdts(std::uint8_t table_id, std::uint16_t ts, std::uint8_t version = 0)
{
    carousel all;
    for (std::uint8_t number = 0; number < 2; ++number)
        all.push_back(
            {0x11, make(sdt{.table_id = table_id,
                            .ts = ts,
                            .version = version,
                            .section_number = number,
                            .last_section_number = 1,
                            .services = {{.id = static_cast<std::uint16_t>(number + 1),
                                          .descriptors = {service_descriptor(1, "P", "News")}}}})});
    return all;
}

inline carousel bats(std::uint16_t count)
{
    carousel all;
    for (std::uint16_t id = 1; id <= count; ++id)
        all.push_back({0x11, make(bat{.bouquet = id, .descriptors = {bouquet_name("All")}})});
    return all;
}

inline const carousel &multiplex()
{
    static const carousel all =
        carousel{{0x00, pat_section()}} + cats() + nits(0x40) + sdts(0x42, 1) + bats(1) + pmts();
    return all;
}

inline const carousel &second_multiplex()
{
    static const carousel all = carousel{{0x00, pat_section(2, 1, 2)}} + sdts(0x42, 2, 1);
    return all;
}

inline octets event_section(std::uint8_t table_id, std::uint16_t service, std::uint8_t number,
                            std::uint8_t last, std::uint8_t version = 0, int last_table_id = -1)
{
    return make(eit{.table_id = table_id,
                    .service = service,
                    .ts = 1,
                    .original_network = 1,
                    .version = version,
                    .section_number = number,
                    .last_section_number = last,
                    .segment_last_section_number = std::min<int>(last, number | 7),
                    .last_table_id = last_table_id,
                    .events = {{.id = static_cast<std::uint16_t>(number + 1),
                                .descriptors = {short_event("eng", "News", "")}}}});
}

inline carousel present_following(std::uint8_t table_id, std::uint16_t services,
                                  std::uint8_t version = 0)
{
    carousel all;
    for (std::uint16_t service = 1; service <= services; ++service)
        for (std::uint8_t number = 0; number < 2; ++number)
            all.push_back({0x12, event_section(table_id, service, number, 1, version)});
    return all;
}

inline carousel schedule(std::uint8_t table_id, std::uint16_t service, std::uint8_t count)
{
    carousel all;
    for (std::uint8_t number = 0; number < count; ++number)
        all.push_back(
            {0x12, event_section(table_id, service, number, static_cast<std::uint8_t>(count - 1))});
    return all;
}

// ---- What was there before

inline void nothing() {}

inline void tuned()
{
    ASSERT_TRUE(start());
}

inline void tuned_with_pat()
{
    tuned();
    ASSERT_TRUE(receive({{0x00, pat_section()}}));
}

inline void tuned_with_all()
{
    tuned();
    ASSERT_TRUE(receive(multiplex()));
}

// ---- Channels

inline bool channel_starts()
{
    return start() && fake::driver().running() == 5;
}

inline bool next_multiplex()
{
    start(second_frequency);
    return receive(second_multiplex()) && !is_stored(multiplex().front());
}

inline bool whole_multiplex()
{
    start();
    return receive(multiplex());
}

inline bool without_a_program()
{
    start(second_frequency, SI_NO_PROGRAM); // so that the PAT is a new one
    start(first_frequency, SI_NO_PROGRAM);
    return receive(carousel{{0x00, pat_section()}} + pmts());
}

inline bool stream_changes_in_place()
{
    return receive(second_multiplex());
}

inline bool everything_stops()
{
    Orva_Si_StopAllEIT();
    return Orva_Si_StopChannel() == ORVA_SI_OK && fake::driver().running() == 0;
}

// Si_SectFlt_InitPidFlts is what is left of an initialisation, which happens once.
inline bool filters_are_requested_anew()
{
    Orva_Si_DeInit();
    return Si_SectFlt_InitPidFlts(fake::driver().table()) == ORVA_SI_OK && start() &&
           receive({{0x00, pat_section()}});
}

// ---- Tables

inline bool first_pat()
{
    return receive({{0x00, pat_section()}});
}

inline bool repeated_pat()
{
    start();
    send({0x00, pat_section()});
    send({0x00, pat_section()});
    return is_stored({0x00, pat_section()});
}

inline bool next_pat()
{
    return receive({{0x00, pat_section(6, 1)}});
}

inline bool pats_of_two_versions()
{
    start(); // the filter lets every version through again
    send({0x00, pat_part(0, 0)});
    return receive({{0x00, pat_part(1, 0)}, {0x00, pat_part(1, 1)}});
}

inline bool first_cat()
{
    return receive(cats());
}

inline bool next_cat()
{
    return receive(cats(1));
}

inline bool first_pmts()
{
    start();
    send({0x00, pat_section()}); // also when it is stored: it opens the filters
    return receive(carousel{{0x00, pat_section()}} + pmts());
}

inline bool next_pmts()
{
    start();
    send({0x00, pat_section()}); // also when it is stored: it opens the filters
    return receive(carousel{{0x00, pat_section()}} + pmts(1));
}

inline bool first_nits()
{
    return receive(nits(0x40) + nits(0x41));
}

inline bool next_nits()
{
    return receive(nits(0x40, 1));
}

inline bool first_sdts()
{
    return receive(sdts(0x42, 1));
}

inline bool sdts_of_two_versions()
{
    send(sdts(0x42, 1, 0).at(0));
    send(sdts(0x42, 1, 1).at(1));
    return receive(sdts(0x42, 1, 2));
}

inline bool sdts_of_others()
{
    return receive(sdts(0x46, 2) + sdts(0x46, 3) + sdts(0x46, 4));
}

inline bool first_bats()
{
    return receive(bats(5));
}

inline bool time_of_day()
{
    const octets offset = raw(0x58, {'G', 'B', 'R', 2, 1, 0, 0xEB, 0, 1, 0, 0, 2, 0});
    send({0x14, make(tdt{.utc_bcd = 0x120000})});
    send({0x14, make(tot{.utc_bcd = 0x120000, .descriptors = {offset}})});
    SiLocalTimeOffset got{};
    std::uint32_t room = 1;
    return Orva_Si_GetLocalTimeOffset(&got, &room) == ORVA_SI_OK && room == 1;
}

// ---- Events

inline constexpr std::array<std::uint16_t, 3> three_services{1, 2, 3};

inline bool ask_for_present_following()
{
    return granted(Orva_Si_StartActualPFEIT(1, 1, 1, three_services.data(), three_services.size()));
}

inline bool first_present_following()
{
    const bool asked = ask_for_present_following();
    return receive(present_following(0x4E, 3)) && asked;
}

inline void tuned_with_present_following()
{
    tuned();
    ASSERT_TRUE(first_present_following());
}

inline bool repeated_present_following()
{
    Orva_Si_StopActualPFEIT();
    const bool asked = ask_for_present_following();
    for (const transmission &sent : present_following(0x4E, 3))
        send(sent);
    return asked && are_stored(present_following(0x4E, 3));
}

inline bool next_present_following()
{
    return receive(present_following(0x4E, 3, 1));
}

inline bool present_following_of_others()
{
    const bool asked = granted(Orva_Si_StartOtherPFEIT(nullptr, 0));
    return receive(present_following(0x4F, 10)) && asked;
}

inline bool schedule_of_the_tuned()
{
    const bool asked = granted(Orva_Si_StartActualScheduleEIT(1, 1, 1, three_services.data(), 1));
    return receive(schedule(0x50, 1, 24)) && asked;
}

// So many sections that what is kept beside them is enlarged several times.
inline bool long_schedule()
{
    const bool asked = granted(Orva_Si_StartOtherSchedulEIT(nullptr, 0));
    return receive(schedule(0x60, 9, 44)) && asked;
}

inline bool events_anew()
{
    Orva_Si_EraseAllEitRawData();
    return first_present_following();
}

// Whether every answer is right while a client has the list of sections changed under it.
inline bool questions_about_changed_lists()
{
    Orva_MutexP(&Ts_Eit_Mutex);
    auto *service = static_cast<SiEitService *>(si_list_get(Orva_Si_GetDvbEitList(), 0));
    if (service != nullptr && si_list_add(service->sections, nullptr, -1) != -1)
        si_list_remove(service->sections, service->sections->nb_elt - 1);
    Orva_MutexV(&Ts_Eit_Mutex);
    std::uint16_t present = 0;
    std::uint16_t following = 0;
    return Orva_Si_GetBnrEvtId(1, 1, 1, 0, &present) == ORVA_SI_OK && present == 1 &&
           Orva_Si_GetBnrEvtId(1, 1, 1, 1, &following) == ORVA_SI_OK && following == 2;
}

inline bool questions_about_tables()
{
    std::array<std::uint16_t, 8> ids{};
    std::uint32_t count = ids.size();
    SiDvbString name{};
    std::int32_t room = ids.size();
    std::array<std::uint8_t, 1024> bytes{};
    std::uint32_t length = bytes.size();
    return Orva_Si_GetActServIdList(ids.data(), &count) == ORVA_SI_OK && count == 2 &&
           Orva_Si_GetServiceName(1, &name) == ORVA_SI_OK && text_of(name) == "News" &&
           Orva_Si_GetPatProgList(ids.data(), &room) == ORVA_SI_OK && room == programs &&
           Orva_Si_GetPmtData(2, bytes.data(), &length) == ORVA_SI_OK &&
           octets(bytes.begin(), bytes.begin() + length) == pmts().at(1).section;
}

inline bool requests_of_all_kinds()
{
    std::array<std::uint16_t, 12> ids{};
    std::array<SiEitRequest, 12> others{};
    for (std::uint16_t i = 0; i < ids.size(); ++i) {
        ids[i] = static_cast<std::uint16_t>(i + 1);
        others[i] = {2, 1, static_cast<std::uint16_t>(i + 1)};
    }
    bool all = granted(Orva_Si_StartActualPFEIT(1, 1, 1, ids.data(), ids.size()));
    all &= granted(Orva_Si_StartActualScheduleEIT(1, 1, 1, ids.data(), ids.size()));
    all &= granted(Orva_Si_StartOtherPFEIT(others.data(), others.size()));
    all &= granted(Orva_Si_StartOtherSchedulEIT(others.data(), others.size()));
    for (const si::task_row row :
         {si::act_pf_eit_task, si::act_sch_eit_task, si::other_pf_eit_task, si::other_sch_eit_task})
        all &= si::task_at(row).task_count == ids.size();
    return all;
}

// ---- Scans

// A part of the multiplex whenever the library sleeps, three times all of it.
inline void broadcast_while_asleep()
{
    static std::size_t at;
    at = 0;
    while_asleep = [] {
        if (at < 3 * multiplex().size())
            send(multiplex()[at++ % multiplex().size()]);
    };
}

inline bool scan()
{
    broadcast_while_asleep();
    return Orva_Si_StartScanChannel() == ORVA_SI_OK && are_stored(multiplex());
}

inline bool scan_that_is_cancelled()
{
    broadcast_while_asleep();
    static unsigned naps;
    naps = 0;
    while_asleep = [deliver = while_asleep] {
        if (++naps > 48) // the first wait is nearly over
            deliver();
        if (naps == 52) // some tables have come, the SDT has not
            Orva_Si_CancelScanChannel();
    };
    return Orva_Si_StartScanChannel() == ORVA_SI_FAILURE && Orva_Si_IsCancel() != 0 &&
           fake::driver().running() == 0;
}

inline bool scan_of_a_network()
{
    broadcast_while_asleep();
    const SiScanParam network{
        .wait_time = 600, .network_id = 1, .network_mode = 1, .nit_selector = 1};
    Orva_Si_SetScanParam(&network);
    return Orva_Si_StartScanChannel() == ORVA_SI_OK && are_stored(nits(0x40));
}

// ---- DSM-CC, latched programs, batches

inline constexpr std::uint16_t first_dsmcc_pid = 0x600;

inline bool data_carousels()
{
    bool all = true;
    for (std::uint16_t i = 0; i < 5; ++i)
        all &= granted(Orva_Si_StartDsmFilter(first_dsmcc_pid + i));
    const octets handed_on = make(private_table{.table_id = 0x3B, .payload = octets(80, 7)});
    const transmission kept{first_dsmcc_pid + 4, make(private_table{.table_id = 0x3E})};
    events.clear();
    for (std::uint16_t i = 0; i < 5; ++i)
        send({static_cast<std::uint16_t>(first_dsmcc_pid + i), handed_on});
    const bool told =
        std::ranges::count(events, std::uint32_t{SI_REASON_DSMCC}, &event::reason) == 5;
    return receive({kept}) && all && told;
}

inline bool latched_program()
{
    start();
    send({0x00, pat_section()});
    const bool latched = granted(Orva_Si_LatchPmt(4));
    send(pmts().at(3));
    return latched && is_stored(pmts().at(3)) && granted(Orva_Si_UnLatchPmt(4));
}

inline bool batch_of_sections()
{
    const bool asked = granted(Orva_Si_StartOtherPFEIT(nullptr, 0));
    const carousel all = present_following(0x4F, 14);
    std::vector<octets> batch;
    for (const transmission &sent : all)
        batch.push_back(sent.section);
    for (const pid_filter &record : si::filters(si::task_at(si::other_pf_eit_task)))
        fake::driver().deliver_batch(record.filter_id, batch);
    settle();
    return asked && are_stored(all);
}

// ---- What clients make of the store's own functions

inline bool list_of_a_client()
{
    si_list *list = nullptr;
    std::array<int, 10> elements{};
    bool all = granted(si_list_init(&list) == 0 ? ORVA_SI_OK : ORVA_SI_FAILURE);
    for (int &element : elements)
        all &= granted(si_list_add(list, &element, -1) != -1 ? ORVA_SI_OK : ORVA_SI_FAILURE);
    for (int &element : elements)
        all &= si_list_find(list, &element, [](const void *key, const void *held) {
                   return key == held ? 0 : 1;
               }) == &element;
    while (si_list_eol(list, 0) == 0)
        si_list_remove(list, 0);
    si_list_uninit(list);
    return all;
}

inline bool tables_of_a_client()
{
    octets section = make(private_table{.table_id = 0x90, .last_section_number = 1});
    SiSection record{.pid = 0x700,
                     .filter_id = 0,
                     .sect_len = static_cast<std::uint16_t>(section.size()),
                     .section = section.data()};
    Orva_MutexP(&Ts_Ctl_Mutex);
    SiTable *table = Orva_Si_FindTableById(0x700, 0x90, 1, SI_ANY_EXT, SI_ANY_EXT);
    if (table == nullptr)
        table = Orva_Si_CreateTable(0x700, 0x90, section.data());
    bool all = granted(table != nullptr ? ORVA_SI_OK : ORVA_SI_NO_TABLE);
    for (unsigned times = 0; all && times < 10; ++times)
        all = granted(Orva_Si_InsertSection(table, &record));
    Orva_MutexV(&Ts_Ctl_Mutex);
    return all;
}

// The store as the section thread makes it; nothing runs meanwhile.
inline bool stores_made_anew()
{
    Orva_Si_StopChannel();
    settle();
    end_store();
    const bool made = Orva_Si_InitTables() == ORVA_SI_OK;
    start();
    return receive({{0x00, pat_section()}}) && made;
}

} // namespace test

#endif
