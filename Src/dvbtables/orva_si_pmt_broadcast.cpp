// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about the data broadcasts of programs, answered from the data_broadcast_id_descriptors
// (EN 300 468, 6.2.12) of their Program Map Tables.
#include <optional>

#include "orva_si/query_program.h"
#include "orva_si_descr.h"
#include "orva_si_pmt.h"

namespace si {

namespace {

struct data_broadcast_id {
    std::uint16_t id;
    bytes selector; // behind data_broadcast_id
};

// Empty for another descriptor, and for one without a whole data_broadcast_id.
std::optional<data_broadcast_id> read_data_broadcast_id(const descriptor &d)
{
    byte_reader in{payload(d)};
    const std::uint16_t id = in.u16();
    if (d.tag != dtag_dvb_data_broadcast_id || !in.ok)
        return std::nullopt;
    return data_broadcast_id{id, in.all()};
}

// Which data_broadcast_ids are wanted.
constexpr auto any_broadcast = [](std::uint16_t) { return true; };
constexpr auto software_update = [](std::uint16_t id) {
    return id == DVB_BROADCAST_ID_SOFTWARE_UPDATE;
};

// The selector bytes of the first descriptor of a stream whose id is wanted.
template <class Wanted>
std::optional<bytes> find_selector(mpeg_pmt_stream &stream, Wanted wanted)
{
    for (const descriptor &d : descriptors(stream))
        if (const auto broadcast = read_data_broadcast_id(d); broadcast && wanted(broadcast->id))
            return broadcast->selector;
    return std::nullopt;
}

void trace_stream(site here, const mpeg_pmt_stream &stream)
{
    SI_LOG_AT(here, level::trace, "elementary_PID = %#x\n", stream.pid);
    SI_LOG_AT(here, level::trace, "ES_info_length = %#x\n", stream.es_info_length);
}

// Copies those selector bytes to the caller.
template <class Wanted>
step copy_selector(site here, mpeg_pmt_stream &stream, Wanted wanted, std::uint8_t *data,
                   std::uint32_t &len)
{
    const auto selector = find_selector(stream, wanted);
    return selector ? copy_raw(here, *selector, data, len) : step::next;
}

// Lists a stream that has a wanted id.
template <class Wanted>
step append_broadcast(mpeg_pmt_stream &stream, Wanted wanted, const many<std::uint16_t> &pids)
{
    if (!find_selector(stream, wanted))
        return step::next;
    return pids.put(static_cast<std::uint16_t>(stream.pid)) ? step::next : step::full;
}

constexpr std::uint8_t tag_association = 0x14;       // association_tag_descriptor, ISO/IEC 13818-6
constexpr std::uint16_t broadcast_id_mheg5 = 0x0106; // ETSI TS 101 162

// How an MHEG-5 application is to be started: the selector bytes of its data_broadcast_id.
void trace_selector(site here, const data_broadcast_id &broadcast)
{
    SI_LOG_AT(here, level::trace, "data_broadcast_id = %#x\n", broadcast.id);
    if (broadcast.id != broadcast_id_mheg5)
        return;
    byte_reader in{broadcast.selector};
    const std::uint16_t app_type_code = in.u16();
    const std::uint8_t boot_priority_hint = in.u8();
    if (in.ok)
        SI_LOG_AT(here, level::trace, "app_type_code = %#x, boot_priority_hint = %#x\n",
                  app_type_code, boot_priority_hint);
    else
        SI_LOG_AT(here, level::trace, "selector byte is error\n");
}

void trace_association(site here, const descriptor &d)
{
    byte_reader in{payload(d)};
    const std::uint16_t association_tag = in.u16();
    if (d.tag == tag_association && in.ok)
        SI_LOG_AT(here, level::trace, "association tag = %#x\n", association_tag);
}

void trace_broadcasts(site here, mpeg_pmt_stream &stream)
{
    bool any = false;
    for (const descriptor &d : descriptors(stream)) {
        trace_association(here, d);
        if (const auto broadcast = read_data_broadcast_id(d)) {
            any = true;
            SI_LOG_AT(here, level::trace, "found the data_broadcast_id\n");
            trace_selector(here, *broadcast);
        }
    }
    if (!any)
        SI_LOG_AT(here, level::trace, "can't find the data_broadcast_id here\n");
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetSsuDataBroadCastDescSelector(uint32_t program_number, uint8_t *selector_bytes,
                                                 uint32_t *selector_length)
{
    SI_REQUIRE(selector_bytes);
    SI_REQUIRE(selector_length);
    const site here = SI_HERE;
    return ask_streams(here, program_number, ORVA_SI_FAILURE, [&](mpeg_pmt_stream &stream) {
        trace_stream(here, stream);
        return copy_selector(here, stream, software_update, selector_bytes, *selector_length);
    });
}

uint32_t Orva_Si_GetSsuPidsByPmtDataBroadCast(uint16_t *pids, uint32_t *pcount)
{
    SI_REQUIRE(pids);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{pids, pcount};
    return ask_streams(here, every_program, list, [&](mpeg_pmt_stream &stream) {
        trace_stream(here, stream);
        const step answer = append_broadcast(stream, software_update, list);
        SI_LOG_AT(here, level::trace, "count = %d, *pcount=%d\n", static_cast<int>(list.capacity),
                  static_cast<int>(*pcount));
        return answer;
    });
}

uint32_t Orva_Si_GetSoftwareUpatePIDs(uint32_t program_number, uint16_t *pidarray, uint32_t *pcount)
{
    SI_REQUIRE(pidarray);
    SI_REQUIRE(pcount);
    const many list{pidarray, pcount};
    return ask_streams(SI_HERE, program_number, list, [&](mpeg_pmt_stream &stream) {
        return append_broadcast(stream, any_broadcast, list);
    });
}

uint32_t Orva_Si_GetDataBroadcastDescPrivData(uint32_t program_number, uint8_t *priv_buf,
                                              uint32_t *plen)
{
    SI_REQUIRE(priv_buf);
    SI_REQUIRE(plen);
    const site here = SI_HERE;
    const std::uint32_t result =
        ask_streams(here, program_number, ORVA_SI_NO_DATA, [&](mpeg_pmt_stream &stream) {
            return copy_selector(here, stream, any_broadcast, priv_buf, *plen);
        });
    if (result == ORVA_SI_NO_DATA)
        SI_LOG_AT(here, level::error, "error:No entry\n");
    return result;
}

uint32_t Orva_Si_GetDataBroadCounts(uint32_t program_number)
{
    const site here = SI_HERE;
    return ask_streams(here, program_number, ORVA_SI_OK, [&](mpeg_pmt_stream &stream) {
        trace_broadcasts(here, stream);
        return step::next;
    });
}
