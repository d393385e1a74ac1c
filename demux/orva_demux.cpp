// SPDX-License-Identifier: LGPL-2.1-or-later
// The public interface and the thread that reads an input and delivers its sections.
#include "orva_demux.h"

#include <cerrno>

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <unordered_set>
#include <vector>

#include "orva_demux_carousel.h"
#include "orva_demux_delivery.h"
#include "orva_demux_input.h"
#include "orva_demux_pacing.h"
#include "orva_demux_reread.h"
#include "orva_si/result.h"
#include "orva_ts_packets.h"
#include "orva_ts_sections.h"

using namespace si::demux;

namespace {

constexpr std::size_t default_carousel_bytes = std::size_t{256} << 20;
constexpr std::size_t least_carousel_bytes = 65536;
constexpr std::size_t most_services = 8192;
constexpr std::uint16_t eit_pid = 0x0012;

void take_section(OrvaDemux &demux, std::uint16_t pid, si::bytes section);

std::size_t carousel_limit(const OrvaDemuxOptions &options)
{
    return options.carousel_bytes == 0
               ? default_carousel_bytes
               : std::max<std::size_t>(options.carousel_bytes, least_carousel_bytes);
}

} // namespace

// Written by the reading thread alone unless it says otherwise.
struct OrvaDemux {
    explicit OrvaDemux(const OrvaDemuxOptions &with)
        : kept{carousel_limit(with)}, assembler{[this](std::uint16_t pid, si::bytes section) {
              take_section(*this, pid, section);
          }}
    {
    }

    bool realtime = false; // at the pace of its PCR
    input in;
    packet_sync sync;
    pacer pace;
    carousel kept;
    section_assembler assembler;
    std::atomic<OrvaDemuxState> state = ORVA_DEMUX_WAITING;
    std::atomic<OrvaDemuxError> error = ORVA_DEMUX_OK; // before state, where both change
    std::unordered_set<std::uint64_t> met_services;
    std::mutex services_lock;
    std::vector<SiEitRequest> services; // under services_lock
    std::thread thread;
};

namespace {

void note_eit_service(OrvaDemux &demux, si::bytes section)
{
    if (section[0] < 0x4E || section[0] > 0x6F || section.size() < si::eit_header_bytes)
        return;
    const SiEitRequest service{.transport_stream_id = si::be16(section.subspan(8).first<2>()),
                               .original_network_id = si::be16(section.subspan(10).first<2>()),
                               .service_id = si::be16(section.subspan(3).first<2>())};
    const std::uint64_t key = std::uint64_t{service.original_network_id} << 32 |
                              std::uint64_t{service.transport_stream_id} << 16 | service.service_id;
    if (demux.met_services.size() >= most_services || !demux.met_services.insert(key).second)
        return;
    const std::scoped_lock held{demux.services_lock};
    demux.services.push_back(service);
}

void take_section(OrvaDemux &demux, std::uint16_t pid, si::bytes section)
{
    if (pid == eit_pid && is_long_section(section))
        note_eit_service(demux, section);
    const bool ends = !demux.in.datagrams; // else there is nothing to keep it for
    offer(pid, section, ends ? keep(demux.kept, pid, section, demux.assembler.place) : 0);
}

// Takes the packets of what was read so far.
void take_window(OrvaDemux &demux)
{
    const si::bytes shown = window(demux.in);
    const std::uint64_t position = window_position(demux.in);
    const std::size_t done = take_packets(demux.sync, shown, demux.in.ended, [&](packet p) {
        if (demux.realtime)
            if (const auto due = due_time(demux.pace, p, steady::now()))
                wait_until(*due);
        if (!can_matter(demux.assembler, p))
            return true;
        demux.assembler.position = position + static_cast<std::uint64_t>(p.data() - shown.data());
        take_packet(demux.assembler, p);
        return !stopped();
    });
    consume(demux.in, done);
}

bool is_no_stream(const OrvaDemux &demux)
{
    return demux.sync.period == 0 && (demux.in.ended || demux.sync.skipped > probe_bytes);
}

// Reads the input to its end.
OrvaDemuxError read_input(OrvaDemux &demux)
{
    for (;;) {
        take_window(demux);
        if (stopped())
            return ORVA_DEMUX_OK;
        if (is_no_stream(demux))
            return demux.in.read == 0 ? ORVA_DEMUX_EMPTY : ORVA_DEMUX_NOT_TS;
        if (demux.in.ended)
            return ORVA_DEMUX_OK;
        flush_batches();
        if (read_more(demux.in, next_batch_due()) == read_result::failed) {
            demux.in.ended = true;
            take_window(demux);
            return ORVA_DEMUX_READ_ERROR;
        }
    }
}

void read_and_serve(OrvaDemux &demux)
{
    if (!wait_for_setting())
        return;
    demux.state = ORVA_DEMUX_READING;
    demux.error = read_input(demux);
    end_of_packets(demux.assembler);
    flush_batches(true);
    if (stopped())
        return;
    close_carousel(demux.kept);
    const bool failed = demux.error != ORVA_DEMUX_OK && demux.sync.period == 0;
    demux.state = failed ? ORVA_DEMUX_FAILED : ORVA_DEMUX_CAROUSEL;
    if (failed)
        return;
    packet_reader again{demux.in, demux.sync.period};
    serve(demux.kept, again);
}

void run(OrvaDemux &demux)
{
    try {
        read_and_serve(demux);
    } catch (const std::bad_alloc &) {
        demux.error = ORVA_DEMUX_NO_MEMORY;
        demux.state = ORVA_DEMUX_FAILED;
    }
}

// Opens the input and starts reading; what was half done is undone by the caller.
OrvaDemuxError start(std::unique_ptr<OrvaDemux> &demux, const char *name,
                     const OrvaDemuxOptions &options)
{
    try {
        demux = std::make_unique<OrvaDemux>(options);
        if (const OrvaDemuxError error = open_input(demux->in, name); error != ORVA_DEMUX_OK)
            return error;
        demux->kept.rereads = demux->in.regular;
        the_delivery().live = demux->in.datagrams.has_value();
        demux->realtime = options.realtime != 0 && !the_delivery().live;
        demux->thread = std::thread{run, std::ref(*demux)};
        return ORVA_DEMUX_OK;
    } catch (const std::bad_alloc &) {
        return ORVA_DEMUX_NO_MEMORY;
    } catch (const std::system_error &) {
        return ORVA_DEMUX_NO_MEMORY;
    }
}

} // namespace

OrvaDemux *orva_demux_open(const char *input, const OrvaDemuxOptions *options,
                           OrvaDemuxError *error)
{
    OrvaDemuxError ignored{};
    OrvaDemuxError &result = error != nullptr ? *error : ignored;
    if (!open_delivery()) {
        result = ORVA_DEMUX_BUSY;
        return nullptr;
    }
    std::unique_ptr<OrvaDemux> demux;
    result = start(demux, input, options != nullptr ? *options : OrvaDemuxOptions{});
    if (result == ORVA_DEMUX_OK)
        return demux.release();
    const int reason = errno;
    demux.reset();
    close_delivery();
    errno = reason;
    return nullptr;
}

SiDmxSectHandler *orva_demux_handler(void)
{
    return &handler_table;
}

void orva_demux_get_status(OrvaDemux *demux, OrvaDemuxStatus *status)
{
    if (demux == nullptr || status == nullptr)
        return;
    const OrvaDemuxState state = demux->state;
    const delivery_counts given = count_deliveries();
    const section_counters &faults = demux->assembler.counters;
    *status = {
        .state = state,
        .error = demux->error,
        .idle = static_cast<std::uint8_t>(state == ORVA_DEMUX_CAROUSEL && given.idle),
        .packet_size = si::load_relaxed(demux->sync.period),
        .input_bytes = demux->in.size,
        .bytes = si::load_relaxed(demux->in.read),
        .packets = si::load_relaxed(demux->sync.packets),
        .sync_losses = si::load_relaxed(demux->sync.losses),
        .transport_errors = si::load_relaxed(faults.transport_errors),
        .scrambled = si::load_relaxed(faults.scrambled),
        .duplicates = si::load_relaxed(faults.duplicates),
        .continuity_errors = si::load_relaxed(faults.continuity_errors),
        .sections = si::load_relaxed(faults.sections),
        .crc_errors = si::load_relaxed(faults.crc_errors),
        .cut_sections = si::load_relaxed(faults.cut_sections),
        .bad_sections = si::load_relaxed(faults.bad_sections),
        .delivered = given.delivered,
        .congested = given.congested,
        .evicted = si::load_relaxed(demux->kept.evicted),
    };
}

uint32_t orva_demux_get_eit_services(OrvaDemux *demux, SiEitRequest *services, uint32_t *count)
{
    if (demux == nullptr || services == nullptr || count == nullptr)
        return ORVA_SI_NULL_ARGUMENT;
    const std::scoped_lock held{demux->services_lock};
    const std::size_t fitting = std::min<std::size_t>(*count, demux->services.size());
    std::copy_n(demux->services.begin(), fitting, services);
    *count = static_cast<std::uint32_t>(fitting);
    return fitting < demux->services.size() ? ORVA_SI_ARRAY_FULL : ORVA_SI_OK;
}

const char *orva_demux_error_text(OrvaDemuxError error)
{
    static constexpr std::array<const char *, 8> texts{
        "no error",
        "the input is missing or cannot be read",
        "the input is empty",
        "the input is not a transport stream",
        "the input is not written as a path, - or udp://[@]address:port",
        "another demultiplexer is open",
        "out of memory or threads",
        "reading the input failed half-way",
    };
    const auto index = static_cast<std::size_t>(error);
    return index < texts.size() ? texts[index] : "unknown error";
}

void orva_demux_close(OrvaDemux *demux)
{
    if (demux == nullptr)
        return;
    stop_delivery();
    wake_input(demux->in);
    demux->thread.join();
    close_delivery();
    delete demux;
}
