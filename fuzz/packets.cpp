// SPDX-License-Identifier: LGPL-2.1-or-later
// Packets on their whole way: synchronisation, assembly, filters and batches of the demultiplexer,
// the library's callbacks, its queue and its section thread. The driver interface between the two
// is kept by a ledger: each buffer that is shown comes back once, before the callback returns, and
// is then gone.
#include <array>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "fence.h"
#include "frames.h"
#include "fuzz.h"
#include "orva_demux_datagrams.h"
#include "orva_demux_delivery.h"
#include "orva_demux_pending.h"
#include "orva_si.h"
#include "orva_si_bytes.h"
#include "seeds.h"
#include "support/store.h"

namespace fuzz {

namespace {

using namespace si::demux;

constexpr std::uint16_t data_pid = 0x200; // of DSM-CC sections
constexpr std::size_t longest_datagram = 4096;

// ---- The ledger between demultiplexer and library

struct lent_copy {
    SiWord handle; // the demultiplexer's
    std::vector<std::unique_ptr<std::uint8_t[]>> sections;
};

struct ledger {
    std::mutex lock;
    std::map<SiWord, lent_copy> lent;
    SiWord last = 0;
};

ledger &books()
{
    static ledger only;
    return only;
}

SiWord lend(lent_copy copy)
{
    const std::lock_guard held{books().lock};
    books().lent.emplace(++books().last, std::move(copy));
    return books().last;
}

void expect_returned(SiWord handle)
{
    const std::lock_guard held{books().lock};
    claim(!books().lent.contains(handle), "a buffer is kept");
}

std::uint32_t take_back(std::uint32_t demux, std::uint32_t filter_id, SiWord handle)
{
    lent_copy copy;
    {
        const std::lock_guard held{books().lock};
        const auto found = books().lent.find(handle);
        claim(found != books().lent.end(), "a buffer comes back that is not lent");
        copy = std::move(found->second);
        books().lent.erase(found);
    }
    return handler_table.FreeSecData(demux, filter_id, copy.handle);
}

// A copy in memory of its own, in two parts now and then.
SiDmxSection copied(const SiDmxSection &section, lent_copy &into)
{
    const std::size_t size = section.PrimaraySectionSize;
    const std::size_t first = size % 3 == 0 ? 1 + size / 2 : size;
    const auto part = [&](std::size_t from, std::size_t to) {
        into.sections.emplace_back(new std::uint8_t[to - from]);
        std::copy(section.pPrimaraySectionData + from, section.pPrimaraySectionData + to,
                  into.sections.back().get());
        return into.sections.back().get();
    };
    SiDmxSection shown{};
    shown.pPrimaraySectionData = part(0, first);
    shown.PrimaraySectionSize = static_cast<std::uint32_t>(first);
    if (first < size) {
        shown.pSecondarySectionData = part(first, size);
        shown.SecondarySectionSize = static_cast<std::uint32_t>(size - first);
    }
    return shown;
}

std::uint32_t show_section(std::uint32_t demux, std::uint32_t filter_id, SiWord reserved,
                           SiDmxSection *section)
{
    lent_copy copy{section->BufferHandle, {}};
    SiDmxSection shown = copied(*section, copy);
    const SiWord handle = lend(std::move(copy));
    shown.BufferHandle = handle;
    const std::uint32_t result = Si_SectFlt_PidFltCallback(demux, filter_id, reserved, &shown);
    expect_returned(handle);
    return result;
}

std::uint32_t show_batch(std::uint32_t demux, std::uint32_t filter_id, SiWord reserved,
                         SiDmxSectionList *list)
{
    lent_copy copy{list->BufferHandle, {}};
    std::vector<SiDmxSection> sections;
    for (const SiDmxSection &each : std::span{list->section, list->section_count})
        sections.push_back(copied(each, copy));
    const SiWord handle = lend(std::move(copy));
    SiDmxSectionList shown{list->section_count, sections.data(), handle};
    const std::uint32_t result =
        Si_SectFlt_PidFltSecListCallback(demux, filter_id, reserved, &shown);
    expect_returned(handle);
    return result;
}

SiDmxFilterParam through_ledger(SiDmxFilterParam param)
{
    if (param.section_callback != nullptr)
        param.section_callback = show_section;
    if (param.section_list_callback != nullptr)
        param.section_list_callback = show_batch;
    return param;
}

SiDmxSectHandler *table_with_ledger()
{
    static SiDmxSectHandler table = handler_table;
    table.FreeSecData = take_back;
    table.AddSecFilter = [](std::uint32_t demux, std::uint32_t *id, SiDmxFilterParam param) {
        return handler_table.AddSecFilter(demux, id, through_ledger(param));
    };
    table.UpdateSecFilter = [](std::uint32_t demux, std::uint32_t id, SiDmxFilterParam param) {
        return handler_table.UpdateSecFilter(demux, id, through_ledger(param));
    };
    return &table;
}

// ---- A stream out of frames

class stream_writer {
public:
    // Sections one behind the other; a pointer_field tells where the first of a packet begins.
    void put(std::uint16_t pid, const std::vector<bytes> &sections, std::uint8_t stuffing)
    {
        octets all;
        std::vector<std::size_t> starts;
        for (const bytes section : sections) {
            starts.push_back(all.size());
            all.insert(all.end(), section.begin(), section.end());
        }
        for (std::size_t at = 0; at < all.size();) {
            const std::size_t room = packet_bytes - 4 - stuffing;
            const auto next = std::ranges::lower_bound(starts, at);
            const bool starts_here = next != starts.end() && *next < at + room - 1;
            octets payload;
            if (starts_here)
                payload.push_back(static_cast<std::uint8_t>(*next - at));
            const std::size_t taken = std::min(all.size() - at, room - payload.size());
            payload.insert(payload.end(), all.begin() + static_cast<std::ptrdiff_t>(at),
                           all.begin() + static_cast<std::ptrdiff_t>(at + taken));
            put_packet(pid, starts_here, payload, stuffing);
            at += taken;
        }
    }
    void put_raw(bytes some) { stream.insert(stream.end(), some.begin(), some.end()); }
    void skip_one(std::uint16_t pid) { ++continuity[pid]; }

    octets stream;

private:
    void put_packet(std::uint16_t pid, bool unit_start, const octets &payload,
                    std::uint8_t stuffing)
    {
        const std::size_t end = stream.size() + packet_bytes;
        stream.push_back(sync_byte);
        stream.push_back(static_cast<std::uint8_t>((unit_start ? 0x40 : 0) | pid >> 8));
        stream.push_back(static_cast<std::uint8_t>(pid & 0xFF));
        stream.push_back(
            static_cast<std::uint8_t>((stuffing != 0 ? 0x30 : 0x10) | (continuity[pid]++ & 0x0F)));
        if (stuffing != 0) {
            stream.push_back(static_cast<std::uint8_t>(stuffing - 1));
            stream.resize(stream.size() + stuffing - 1, 0);
        }
        stream.insert(stream.end(), payload.begin(), payload.end());
        stream.resize(end, 0xFF);
    }

    std::map<std::uint16_t, std::uint8_t> continuity;
};

enum : std::uint8_t { raw = 0x80, lost = 0x40, stuffed = 0x20, joined = 0x10 };

std::uint16_t pid_of_channel(std::uint8_t channel, bytes section)
{
    constexpr std::array<std::uint16_t, 8> pids{0x00, 0x01, 0x10,  0x11,
                                                0x12, 0x14, 0x100, data_pid};
    const unsigned choice = channel & 0x0Fu;
    if (choice != 0 || section.empty())
        return pids[choice % pids.size()];
    if (section[0] == table_id_tdt || section[0] == table_id_tot)
        return 0x14;
    return section[0] >= 0x3A && section[0] <= 0x3E ? data_pid : test::usual_pid(section[0]);
}

octets stream_of(bytes input)
{
    stream_writer writer;
    std::vector<bytes> waiting;
    std::uint16_t pid = 0;
    std::uint8_t stuffing = 0;
    const auto flush = [&] {
        writer.put(pid, waiting, stuffing);
        waiting.clear();
    };
    every_frame(input, [&](std::uint8_t channel, bytes content) {
        if ((channel & joined) == 0 || (channel & raw) != 0)
            flush();
        if ((channel & raw) != 0)
            return writer.put_raw(content);
        if (waiting.empty()) {
            pid = pid_of_channel(channel, content);
            stuffing =
                static_cast<std::uint8_t>((channel & stuffed) != 0 ? 1 + content.size() % 180 : 0);
        }
        if ((channel & lost) != 0)
            writer.skip_one(pid);
        waiting.push_back(content);
    });
    flush();
    return std::move(writer.stream);
}

// As it is recorded: with a time stamp before each packet, or check bytes behind, or neither.
octets with_period(const octets &stream, std::size_t choice)
{
    constexpr std::array<std::array<std::size_t, 2>, 3> around{{{0, 0}, {4, 0}, {0, 16}}};
    const auto [before, after] = around[choice % around.size()];
    octets all;
    for (std::size_t at = 0; at < stream.size(); at += packet_bytes) {
        const bytes packet = bytes{stream}.subspan(at, std::min(packet_bytes, stream.size() - at));
        all.insert(all.end(), before, 0);
        all.insert(all.end(), packet.begin(), packet.end());
        all.insert(all.end(), after, 0);
    }
    return all;
}

// ---- The run

std::uint32_t client(std::uint32_t, std::uint32_t, SiWord, std::uint32_t)
{
    return 0;
}

void prepare()
{
    static const bool prepared = [] {
        open_delivery();
        Orva_Si_Init(table_with_ledger());
        Orva_Si_InstallCallback(client);
        while (Orva_Si_GetDvbEitList() == nullptr) // made by the library's own thread
            std::this_thread::yield();
        return true;
    }();
    static_cast<void>(prepared);
    the_delivery().thread = std::this_thread::get_id();
}

void start_channel()
{
    static std::uint32_t frequency = 0;
    const SiTuneParam param{++frequency % 2 + 1, 0, 0, 1}; // another one each time: empty stores
    Orva_Si_StartChannel(&param);
    constexpr std::uint16_t any = SI_ANY_EXT; // whose sections come in batches
    const std::array<std::uint16_t, 3> services{1, 2, any};
    const std::array<SiEitRequest, 2> others{{{2, 1, any}, {3, 1, 1}}};
    Orva_Si_StartActualPFEIT(1, 1, 1, services.data(), services.size());
    Orva_Si_StartActualScheduleEIT(1, 1, 1, services.data(), services.size());
    Orva_Si_StartOtherPFEIT(others.data(), others.size());
    Orva_Si_StartOtherSchedulEIT(others.data(), others.size());
    Si_CtlHelper_SetDSMCCEnableFlag(1);
    Orva_Si_StartDsmFilter(data_pid);
}

// Filters take effect a moment after their load; here that moment is over.
void let_filters_take_effect()
{
    delivery &state = the_delivery();
    const std::lock_guard held{state.lock};
    for (section_filter &filter : state.filters)
        filter.effective = {};
}

void wait_for_section_thread()
{
    while (Si_SectFlt_GetPendingCount() != 0)
        std::this_thread::yield();
}

void play(const octets &stream)
{
    packet_sync sync;
    section_assembler assembler{[](std::uint16_t pid, si::bytes section) {
        const bool has_crc = is_long_section(section) || section[0] == table_id_tot;
        claim(!has_crc || si::crc32_mpeg(section) == 0, "a damaged section comes through");
        claim(section.size() == si::section_size(section.data()), "a section of another size");
        offer(pid, section, 0);
        let_filters_take_effect();
    }};
    const auto visit = [&](packet each) {
        assembler.position += packet_bytes;
        take_packet(assembler, each);
        return true;
    };
    // In two windows, each in memory of its own.
    const auto window = [&](bytes of, bool at_end) {
        const std::unique_ptr<std::uint8_t[]> alone{new std::uint8_t[of.size()]};
        std::ranges::copy(of, alone.get());
        const std::size_t done = take_packets(sync, {alone.get(), of.size()}, at_end, visit);
        claim(done <= of.size(), "more was taken than is there");
        return done;
    };
    const std::size_t done = window(bytes{stream}.first(stream.size() / 2), false);
    window(bytes{stream}.subspan(done), true);
    end_of_packets(assembler);
    flush_batches(true);
}

// The input itself as what a network brings.
void take_as_datagram(bytes input)
{
    static fenced<longest_datagram> alone;
    const bytes datagram = alone.put(input);
    rtp_order order;
    const bytes carried = stream_in(order, datagram);
    const auto from = carried.data() - datagram.data();
    claim(carried.empty() || (from >= 0 && from + std::ssize(carried) <= std::ssize(datagram)),
          "a stream that is not in its datagram");
}

void run(bytes input)
{
    prepare();
    take_as_datagram(input);
    start_channel();
    let_filters_take_effect();
    play(with_period(stream_of(input), input.size()));
    wait_for_section_thread();
    Orva_Si_StopChannel();
    claim(books().lent.empty() && the_delivery().lent.empty(), "buffers are left with the library");
}

std::vector<octets> seeds()
{
    std::vector<octets> all = seed_frames(0);
    std::vector<frame> together;
    for (const octets &section : seed_sections()) {
        const bool first = together.size() % 4 == 0;
        together.push_back({static_cast<std::uint8_t>(first ? 0 : joined), section});
    }
    all.push_back(packed(together));
    const octets null_packet = [] {
        octets packet(packet_bytes, 0xFF);
        packet[0] = sync_byte;
        packet[1] = 0x1F;
        packet[3] = 0x10;
        return packet;
    }();
    all.push_back(packed({{raw, null_packet}, {stuffed, seed_sections()[0]}, {raw, null_packet}}));
    return all;
}

} // namespace

target packets()
{
    return {"packets", shape::frames, run, seeds};
}

} // namespace fuzz
