// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about the private descriptors of transport streams: logical channel numbers and service
// attributes.
#include "orva_si/query_network.h"
#include "orva_si_descr.h"
#include "orva_si_log.h"
#include "orva_si_nit.h"

namespace si {

namespace {

constexpr std::uint8_t tag_logical_channel = 0x83;
constexpr std::uint8_t tag_service_attribute = 0x86;
constexpr std::uint8_t tag_nordig_channel_lists = 0x87; // version 2

// Asks the private descriptors of the transport streams that are meant; the question is given the
// stream and a payload, and answers false when there is no more room.
template <class Meant, class Matches, class End, class Question>
std::uint32_t ask_private(site here, std::uint32_t nid, Meant meant, Matches matches,
                          std::uint8_t tag, const End &end, Question question)
{
    const auto tell = [&](std::uint32_t specifier) {
        SI_LOG_AT(here, level::trace, "found the pdsd = [%#lx|%ld], match_pdsd=%d\n",
                  static_cast<unsigned long>(specifier), static_cast<long>(specifier), 1);
    };
    return ask_transports(here, nid, meant, end, [&](dvb_nit_transport &transport) {
        const auto visit = [&](bytes found) {
            SI_LOG_AT(here, level::trace, "found the lcn desc and the match_pdsd = %d\n", 1);
            return question(transport, found);
        };
        return every_private(descriptors(transport), matches, tag, tell, visit) ? step::next
                                                                                : step::full;
    });
}

// ---- Logical channels: an entry of either descriptor

struct logical_channel {
    std::uint16_t serv_id;
    std::uint16_t coded; // visible_service_flag, reserved bits, logical_channel_number

    std::uint8_t visible() const { return static_cast<std::uint8_t>(coded >> 15); }
};

// The bits of a logical_channel_number; none in a mode that is not known.
constexpr std::uint16_t number_bits(std::uint32_t lcn_mode)
{
    switch (lcn_mode) {
    case 0:
        return 0x3FF;
    case 1:
        return 0x3FFF;
    default:
        return 0;
    }
}

// Writes what a record says of its channel; in an unknown mode the number stays the caller's.
template <class Record>
void fill(Record &record, const logical_channel &channel, std::uint32_t lcn_mode)
{
    record.serv_id = channel.serv_id;
    record.visible_service_flag = channel.visible();
    if (const std::uint16_t bits = number_bits(lcn_mode); bits != 0)
        record.lcn = channel.coded & bits;
}

// Shows whole entries to a function until it answers false; whether it never did.
template <class Visit>
bool every_channel(byte_reader in, Visit visit)
{
    while (in.more()) {
        const logical_channel channel{.serv_id = in.u16(), .coded = in.u16()};
        if (in.ok && !visit(channel))
            return false;
    }
    return true;
}

// ---- NorDig channel lists

struct channel_list {
    std::uint8_t id;
    bytes name;
    bytes country;
    byte_reader channels;
};

// Likewise the channel lists of a descriptor; one that does not fit ends it.
template <class Visit>
bool every_channel_list(bytes descriptor, Visit visit)
{
    for (byte_reader in{descriptor}; in.more();) {
        const channel_list list{.id = in.u8(),
                                .name = in.nested8().all(),
                                .country = in.span(code_bytes),
                                .channels = in.nested8()};
        if (in.ok && !visit(list))
            return false;
    }
    return true;
}

// Asks the channel lists of a transport stream.
template <class End, class Question>
std::uint32_t ask_channel_lists(site here, std::uint32_t nid, std::uint32_t ts, std::uint32_t onid,
                                std::uint32_t pdsd, const End &end, Question question)
{
    const auto visit = [&](const dvb_nit_transport &, bytes descriptor) {
        SI_LOG_AT(here, level::trace,
                  "nordig_logical_channel_ver2_descriptor->tag = %#x len = %d\n",
                  tag_nordig_channel_lists, static_cast<int>(descriptor.size()));
        return every_channel_list(descriptor, question);
    };
    return ask_private(here, nid, stream_with(ts, onid), specifier_equal_to(pdsd),
                       tag_nordig_channel_lists, end, visit);
}

bool put_channel(site here, const many<SiNordigLcn> &list, const logical_channel &channel,
                 std::uint32_t lcn_mode)
{
    return list.put([&](SiNordigLcn &record) {
        fill(record, channel, lcn_mode);
        SI_LOG_AT(here, level::trace, "%d) serv_id=%d,logchan num=%d, visiable flag = %d\n",
                  static_cast<int>(*list.count), record.serv_id,
                  channel.coded & number_bits(lcn_mode), record.visible_service_flag);
    });
}

bool put_channel(const many<SiLcnInfo> &list, const dvb_nit_transport &transport,
                 const logical_channel &channel, std::uint32_t lcn_mode)
{
    return list.put([&](SiLcnInfo &record) {
        record.transport_stream_id = transport.transport_stream_id;
        record.original_network_id = transport.original_network_id;
        fill(record, channel, lcn_mode);
    });
}

// Lists each specifier that a logical channel descriptor follows; the second behind the same
// specifier lists nothing.
bool put_specifiers(site here, const many<std::uint32_t> &list, dvb_nit_transport &transport)
{
    std::uint32_t current = 0;
    for (descriptor &d : descriptors(transport)) {
        if (const auto *found = as<dvb_private_data_specifier_descriptor>(d))
            current = found->private_data_specifier;
        if (d.tag != tag_logical_channel || current == 0)
            continue;
        if (!list.put(current))
            return false;
        SI_LOG_AT(here, level::trace, "found the matched pdsd_val=%#lx\n",
                  static_cast<unsigned long>(current));
        current = 0;
    }
    return true;
}

// ---- Service attributes

SiServAttr read_attributes(byte_reader &in)
{
    const std::uint16_t serv_id = in.u16();
    const unsigned flags = in.u8();
    return {.serv_id = serv_id,
            .visible_service_flag = static_cast<std::uint8_t>(flags & 1),
            .numeric_selection_flag = static_cast<std::uint8_t>(flags >> 1 & 1)};
}

bool put_attributes(site here, const many<SiServAttr> &list, bytes descriptor)
{
    for (byte_reader in{descriptor}; in.more();) {
        const SiServAttr read = read_attributes(in);
        if (!in.ok)
            break;
        if (!list.put(read))
            return false;
        SI_LOG_AT(here, level::trace,
                  "the servattarray[%d].serv_id = %#x, visible_service_flag = %d, "
                  "numeric_selection_flag = %d\n",
                  static_cast<int>(*list.count - 1), read.serv_id, read.visible_service_flag,
                  read.numeric_selection_flag);
    }
    return true;
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetNordigV2LCNInfo(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t pdsd,
                                    uint32_t channel_list_id, uint32_t lcn_mode, SiNordigLcn *pinfo,
                                    uint32_t *count)
{
    SI_REQUIRE(pinfo);
    SI_REQUIRE(count);
    const site here = SI_HERE;
    const many list{pinfo, count};
    const auto wanted = static_cast<std::uint8_t>(channel_list_id);
    const auto put = [&](const logical_channel &channel) {
        return put_channel(here, list, channel, lcn_mode);
    };
    return ask_channel_lists(here, nid, ts, onid, pdsd, list, [&](const channel_list &found) {
        return found.id != wanted || every_channel(found.channels, put);
    });
}

uint32_t Orva_Si_GetNordigV2ChanlList(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t pdsd,
                                      SiNordigChanList *pchnlist, uint32_t *pcount)
{
    SI_REQUIRE(pchnlist);
    SI_REQUIRE(pcount);
    const many list{pchnlist, pcount};
    return ask_channel_lists(SI_HERE, nid, ts, onid, pdsd, list, [&](const channel_list &found) {
        return list.put([&](SiNordigChanList &record) {
            record.channel_list_id = found.id;
            copy_text(record.name, found.name);
            copy_code(record.country_code, found.country);
        });
    });
}

uint32_t Orva_Si_GetLCNPdsdList(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t *pdsdlist,
                                uint32_t *pcount)
{
    SI_REQUIRE(pdsdlist);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{pdsdlist, pcount};
    const auto meant = stream_with(ts, onid);
    return ask_transports(here, nid, meant, list, [&](dvb_nit_transport &transport) {
        return put_specifiers(here, list, transport) ? step::next : step::full;
    });
}

uint32_t Orva_Si_GetAllLCNInfo(uint32_t nid, uint32_t pdsd, uint32_t lcn_mode, SiLcnInfo *pinfo,
                               uint32_t *pcount)
{
    SI_REQUIRE(pinfo);
    SI_REQUIRE(pcount);
    const many list{pinfo, pcount};
    const auto put = [&](const dvb_nit_transport &transport, bytes descriptor) {
        return every_channel(byte_reader{descriptor}, [&](const logical_channel &channel) {
            return put_channel(list, transport, channel, lcn_mode);
        });
    };
    return ask_private(SI_HERE, nid, any_stream, any_specifier_if_0(pdsd), tag_logical_channel,
                       list, put);
}

uint32_t Orva_Si_GetDBookServAttDesc(uint32_t nid, uint32_t ts, uint32_t onid, uint32_t pdsd,
                                     SiServAttr *servattarray, uint32_t *pcount)
{
    SI_REQUIRE(servattarray);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{servattarray, pcount};
    const auto put = [&](const dvb_nit_transport &, bytes descriptor) {
        return put_attributes(here, list, descriptor);
    };
    return ask_private(here, nid, stream_with(ts, onid), specifier_equal_to(pdsd),
                       tag_service_attribute, list, put);
}
