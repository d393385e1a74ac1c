// SPDX-License-Identifier: LGPL-2.1-or-later
// libdvbpsi: finds the sections in the packets of a PID, checks their CRC_32, gathers those of a
// table and hands the whole table over, decoded into lists on the heap with raw descriptors. A
// table that was handed over and comes again is passed over. A client has to keep the tables.
#include <fcntl.h>
#include <unistd.h>

#include "answers.h"

// They include nothing, and some need one before them.
// clang-format off
#include <dvbpsi/dvbpsi.h>
#include <dvbpsi/descriptor.h>
#include <dvbpsi/psi.h>
#include <dvbpsi/demux.h>
#include <dvbpsi/eit.h>
#include <dvbpsi/pat.h>
#include <dvbpsi/sdt.h>
#include <dvbpsi/dr_48.h>
#include <dvbpsi/dr_4d.h>
// clang-format on

namespace bench {

namespace {

constexpr std::uint16_t pid_sdt = 0x0011;
constexpr std::uint16_t pid_eit = 0x0012;

counts seen;
std::vector<dvbpsi_sdt_t *> sdts;                                   // by transport stream
std::vector<std::array<dvbpsi_eit_t *, schedule_tables>> schedules; // by service

struct decoder_handles {
    dvbpsi_t *pat = nullptr;
    dvbpsi_t *sdt = nullptr;
    dvbpsi_t *eit = nullptr;

    dvbpsi_t *of(std::uint16_t pid) const
    {
        return pid == pid_eit ? eit : pid == pid_sdt ? sdt : pat;
    }
} decoders;

template <class Table>
void keep(Table *&at, Table *table, void (*free)(Table *))
{
    if (at != nullptr)
        free(at);
    at = table;
}

void take_sdt(void *, dvbpsi_sdt_t *table)
{
    for (const auto *each = table->p_first_service; each != nullptr; each = each->p_next)
        ++seen.services;
    keep(sdts[table->i_extension - 1u], table, dvbpsi_sdt_delete);
}

void take_eit(void *, dvbpsi_eit_t *table)
{
    for (const auto *each = table->p_first_event; each != nullptr; each = each->p_next)
        ++seen.events;
    const bool is_schedule = table->i_table_id >= first_schedule_table(multiplex::tuned);
    if (is_schedule)
        keep(schedules[table->i_extension][table->i_table_id & 0x0Fu], table, dvbpsi_eit_delete);
    else
        dvbpsi_eit_delete(table);
}

// ---- Decoders: of the PAT, and of each table that shows itself on the other PIDs

void open_decoders()
{
    decoders = {dvbpsi_new(nullptr, DVBPSI_MSG_NONE), dvbpsi_new(nullptr, DVBPSI_MSG_NONE),
                dvbpsi_new(nullptr, DVBPSI_MSG_NONE)};
    dvbpsi_pat_attach(
        decoders.pat, [](void *, dvbpsi_pat_t *table) { dvbpsi_pat_delete(table); }, nullptr);
    dvbpsi_AttachDemux(
        decoders.sdt,
        [](dvbpsi_t *to, std::uint8_t table_id, std::uint16_t extension, void *) {
            dvbpsi_sdt_attach(to, table_id, extension, take_sdt, nullptr);
        },
        nullptr);
    dvbpsi_AttachDemux(
        decoders.eit,
        [](dvbpsi_t *to, std::uint8_t table_id, std::uint16_t extension, void *) {
            dvbpsi_eit_attach(to, table_id, extension, take_eit, nullptr);
        },
        nullptr);
}

void close_decoders()
{
    if (decoders.pat == nullptr)
        return;
    dvbpsi_pat_detach(decoders.pat);
    dvbpsi_DetachDemux(decoders.sdt);
    dvbpsi_DetachDemux(decoders.eit);
    for (dvbpsi_t *each : {decoders.pat, decoders.sdt, decoders.eit})
        dvbpsi_delete(each);
    decoders = {};
}

void forget()
{
    close_decoders();
    for (dvbpsi_sdt_t *&each : sdts)
        keep<dvbpsi_sdt_t>(each, nullptr, dvbpsi_sdt_delete);
    for (auto &tables : schedules)
        for (dvbpsi_eit_t *&each : tables)
            keep<dvbpsi_eit_t>(each, nullptr, dvbpsi_eit_delete);
    seen = {.events = 0, .services = 0};
    open_decoders();
}

void start(const mux &of)
{
    sdts.resize(of.sdts.size());
    schedules.resize(of.services);
    forget();
}

// ---- Sections, as dvbpsi_packet_push hands them to the decoders

dvbpsi_psi_section_t *load(std::span<const std::uint8_t> from)
{
    dvbpsi_psi_section_t *made = dvbpsi_NewPSISection(static_cast<int>(from.size()));
    std::ranges::copy(from, made->p_data);
    const std::uint8_t *head = made->p_data;
    made->i_table_id = head[0];
    made->b_syntax_indicator = true;
    made->b_private_indicator = (head[1] & 0x40) != 0;
    made->i_length = static_cast<std::uint16_t>(from.size() - 3);
    made->i_extension = static_cast<std::uint16_t>(head[3] << 8 | head[4]);
    made->i_version = head[5] >> 1 & 0x1F;
    made->b_current_next = (head[5] & 1) != 0;
    made->i_number = head[6];
    made->i_last_number = head[7];
    made->p_payload_start = made->p_data + 8;
    made->p_payload_end = made->p_data + from.size() - 4;
    return made;
}

bool take(std::span<const received> batch)
{
    for (const received &each : batch) {
        dvbpsi_psi_section_t *section = load(each.bytes);
        if (!dvbpsi_ValidPSISection(section)) {
            dvbpsi_DeletePSISections(section);
            return false;
        }
        dvbpsi_t *to = decoders.of(each.pid);
        if (each.pid == pid_sdt || each.pid == pid_eit)
            dvbpsi_Demux(to, section);
        else
            to->p_decoder->pf_gather(to, section);
    }
    return true;
}

// ---- Packets

counts demultiplex(const std::string &path, const mux &of)
{
    constexpr std::size_t packet_bytes = 188;
    static std::array<std::uint8_t, 1024 * packet_bytes> buffer;
    start(of);
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    for (ssize_t got = 0; (got = read(file, buffer.data(), buffer.size())) > 0;)
        for (std::size_t at = 0; at < static_cast<std::size_t>(got); at += packet_bytes) {
            std::uint8_t *packet = buffer.data() + at;
            const int pid = (packet[1] & 0x1F) << 8 | packet[2];
            dvbpsi_packet_push(decoders.of(static_cast<std::uint16_t>(pid)), packet);
        }
    close(file);
    return seen;
}

// ---- Questions

struct reader {
    static std::uint16_t id(const dvbpsi_eit_event_t &of) { return of.i_event_id; }
    static std::uint16_t id(const dvbpsi_sdt_service_t &of) { return of.i_service_id; }

    static void times(const dvbpsi_eit_event_t &of, SiBasicEvent &to)
    {
        to.duration = of.i_duration; // as broadcast, six digits
    }

    // The decoded descriptor stays with the raw one: the next time it is there already.
    static void name(const dvbpsi_eit_event_t &of, SiDvbString &to)
    {
        for (auto *each = of.p_first_descriptor; each != nullptr; each = each->p_next)
            if (each->i_tag == 0x4D)
                if (const auto *text = dvbpsi_DecodeShortEventDr(each); text != nullptr)
                    return copy_text(to, text->i_event_name,
                                     static_cast<std::size_t>(text->i_event_name_length));
    }

    static void name(const dvbpsi_sdt_service_t &of, SiDvbString &to)
    {
        for (auto *each = of.p_first_descriptor; each != nullptr; each = each->p_next)
            if (each->i_tag == 0x48)
                if (const auto *text = dvbpsi_DecodeServiceDr(each); text != nullptr)
                    return copy_text(to, text->i_service_name, text->i_service_name_length);
    }
};

struct kept_tables {
    template <class Visit>
    static void near_event(const mux &, std::uint16_t service, unsigned event, Visit visit)
    {
        each_event(*schedules[service][event / events_per_table], visit);
    }
    template <class Visit>
    static void events_of(const mux &, std::uint16_t service, Visit visit)
    {
        for (const dvbpsi_eit_t *table : schedules[service])
            each_event(*table, visit);
    }
    template <class Visit>
    static void services(const mux &, Visit visit)
    {
        for (const dvbpsi_sdt_t *table : sdts)
            for (auto *each = table->p_first_service; each != nullptr; each = each->p_next)
                visit(*each);
    }
    template <class Visit>
    static void each_event(const dvbpsi_eit_t &table, Visit visit)
    {
        for (auto *each = table.p_first_event; each != nullptr; each = each->p_next)
            visit(*each);
    }
};

using asked = answers<reader, kept_tables>;

} // namespace

const candidate libdvbpsi_candidate{
    .name = "libdvbpsi",
    .knows_repeats = true,
    .rounds_to_tell = 2, // a table of events is complete when its first section comes again
    .start = start,
    .forget = forget,
    .take = take,
    .settle = nullptr,
    .counted = [](const mux &) { return seen; },
    .event_name = asked::event_name,
    .events = asked::events,
    .service_ids = asked::service_ids,
    .service_names = asked::service_names,
    .demultiplex = demultiplex,
};

} // namespace bench
