// SPDX-License-Identifier: LGPL-2.1-or-later
// Questions about the descriptors of a service, answered from the Service Description Tables
// (EN 300 468, 5.2.3).
#include <optional>

#include "orva_si/query_service.h"
#include "orva_si_descr.h"
#include "orva_si_sdt.h"

namespace si {

namespace {

// Lists what a service has; the question answers false once there is no room for more.
template <class End, class Question>
std::uint32_t list_of_service(site here, const SiTableKey &key, std::uint32_t sid, const End &end,
                              Question question)
{
    return visit_service(here, key, sid, end, [&](dvb_sdt_service &service) {
        return question(service) ? step::next : step::full;
    });
}

// ---- Names in several languages (EN 300 468, 6.2.25)

// The lists below answer false once there is no room for more. libucsi's codec has checked that the
// entries fill the descriptor.
bool append_names(bytes entries, const many<SiMultiServiceName> &list)
{
    for (byte_reader in{entries}; in.more();) {
        const bytes language = in.span(code_bytes);
        const bytes provider = in.nested8().all();
        const bytes name = in.nested8().all();
        if (!list.put([&](SiMultiServiceName &record) {
                copy_code(record.lang, language);
                copy_text(record.provider_name, provider);
                copy_text(record.service_name, name);
            }))
            return false;
    }
    return true;
}

std::uint32_t multi_names_of(site here, const SiTableKey &key, std::uint32_t sid,
                             const many<SiMultiServiceName> &list)
{
    return list_of_service(here, key, sid, list, [&](dvb_sdt_service &service) {
        for (descriptor &d : descriptors(service))
            if (as<dvb_multilingual_service_name_descriptor>(d) != nullptr &&
                !append_names(payload(d), list))
                return false;
        return true;
    });
}

constexpr list_codes multi_name_codes{.full_text = "error:need more room\n"};

// ---- Availability (EN 300 468, 6.2.34)

// By hand: libucsi refuses a descriptor whose last cell_id is followed by an odd byte.
bool append_cells(site here, bytes content, const many<SiServAvail> &list)
{
    byte_reader in{content};
    const std::uint8_t available = in.u8() >> 7;
    while (in.left() >= sizeof(std::uint16_t)) {
        const std::uint16_t cell = in.u16();
        if (!list.put([&](SiServAvail &record) {
                record.avail_flag = available;
                record.cell_id = cell;
            }))
            return false;
        SI_LOG_AT(here, level::trace, "availlist[%d].avail_falg = %d, cell_id = %d\n",
                  static_cast<int>(*list.count - 1), available, cell);
    }
    return true;
}

// ---- Data broadcast (EN 300 468, 6.2.11)

// By hand: libucsi swaps the wrong bytes. Empty for another descriptor, and for one whose inner
// lengths do not add up to its own.
std::optional<SiDataBroadcastDesc> read_data_broadcast(const descriptor &d)
{
    if (d.tag != dtag_dvb_data_broadcast)
        return std::nullopt;
    byte_reader in{payload(d)};
    SiDataBroadcastDesc read{};
    read.data_broadcast_id = in.u16();
    read.component_tag = in.u8();
    read.selector_length = in.u8();
    in.span(read.selector_length);
    copy_code(read.lang, in.span(code_bytes));
    in.nested8(); // text
    if (!in.ok || in.left() != 0)
        return std::nullopt;
    return read;
}

std::uint32_t data_broadcasts_of(site here, const SiTableKey &key, std::uint32_t sid,
                                 const many<SiDataBroadcastDesc> &list)
{
    return list_of_service(here, key, sid, list, [&](dvb_sdt_service &service) {
        for (const descriptor &d : descriptors(service))
            if (const auto found = read_data_broadcast(d); found && !list.put(*found))
                return false;
        return true;
    });
}

// ---- Where a service has moved and what it is linked to

std::uint32_t move_of(site here, const SiTableKey &key, std::uint32_t sid, SiServiceMove &move)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        const auto *found = first<dvb_service_move_descriptor>(descriptors(service));
        if (found == nullptr)
            return false;
        move = {found->new_original_network_id, found->new_transport_stream_id,
                found->new_service_id};
        return true;
    });
}

std::uint32_t linkage_of(site here, const SiTableKey &key, std::uint32_t sid, SiLinkage &to)
{
    return ask_service(here, key, sid, [&](dvb_sdt_service &service) {
        for (const descriptor &d : descriptors(service))
            if (const auto found = read_linkage(d)) {
                copy_linkage(to, found->to);
                return true;
            }
        return false;
    });
}

// ---- Regions

// Shows the regions of a service to a function until it answers false.
template <class End, class Visit>
std::uint32_t regions_of(site here, std::uint32_t ts, std::uint32_t sid, const End &end,
                         Visit visit)
{
    return list_of_service(here, sdt_of(ts), sid, end, [&](dvb_sdt_service &service) {
        for (const descriptor &d : descriptors(service))
            if (!every_region(d, visit))
                return false;
        return true;
    });
}

// ---- Private descriptors

constexpr std::uint8_t tag_preferred_name_list = 0x84; // DTG D-Book
constexpr std::uint8_t tag_short_service_name = 0x87;  // DTG D-Book
constexpr std::uint8_t tag_ci_protection = 0xCE;       // CI Plus Specification

// Asks each descriptor of a private tag that counts, until one does not answer next.
template <class Matches, class Question>
step ask_private(site here, dvb_sdt_service &service, Matches matches, std::uint8_t tag,
                 Question question)
{
    const auto tell = [&](std::uint32_t specifier) {
        SI_LOG_AT(here, level::trace, "found the pdsd = [%#3x|%d], match_pdsd=%d\n", specifier,
                  static_cast<int>(specifier), 1);
    };
    step answer = step::next;
    every_private(descriptors(service), matches, tag, tell, [&](bytes content) {
        answer = question(content);
        return answer == step::next;
    });
    return answer;
}

// Whether the descriptor holds the brands that it announces.
bool is_ci_protection(bytes content)
{
    byte_reader in{content};
    const bool match_brand_flag = (in.u8() & 0x40) != 0;
    if (match_brand_flag)
        in.span(sizeof(std::uint16_t) * in.u8()); // cicam_brand_identifier
    return in.ok;
}

step copy_ci_protection(site here, bytes content, std::uint8_t *data, std::uint32_t &len)
{
    if (is_ci_protection(content))
        return copy_raw(here, content, data, len);
    SI_LOG_AT(here, level::error, "ci_prot_desc codec failed!\n");
    return step::next;
}

// ---- Preferred names: they count behind any specifier but 0

// One language of a preferred_name_list_descriptor: its code, and a reader in front of its names.
struct preferred_names {
    bytes language;
    unsigned count;
    byte_reader in;
};

struct preferred_name {
    std::uint8_t id;
    bytes text;
};

// The next name; the reader's ok tells whether there was one.
preferred_name read_name(byte_reader &in)
{
    const std::uint8_t id = in.u8();
    return {id, in.nested8().all()};
}

// Asks each language of a preferred_name_list_descriptor, until one does not answer next.
template <class Question>
step ask_languages(bytes content, Question question)
{
    for (byte_reader in{content}; in.more();) {
        const bytes language = in.span(code_bytes);
        const unsigned count = in.u8();
        if (!in.ok)
            break;
        if (const step answer = question(preferred_names{language, count, in});
            answer != step::next)
            return answer;
        for (unsigned left = count; left != 0 && in.ok; --left)
            read_name(in);
    }
    return step::next;
}

// The name of that number, of the names that lie wholly in the descriptor.
std::optional<bytes> find_name(site here, preferred_names names, std::uint8_t name_id)
{
    for (unsigned left = names.count; left != 0; --left) {
        const preferred_name name = read_name(names.in);
        if (!names.in.ok)
            break;
        SI_LOG_AT(here, level::trace, "current name_id = %#x, the passed = %#x\n", name.id,
                  name_id);
        if (name.id == name_id)
            return name.text;
    }
    return std::nullopt;
}

// Asks each language of the preferred names of a service, until one does not answer next.
template <class Question>
step ask_preferred_names(site here, dvb_sdt_service &service, Question question)
{
    bool any = false;
    const step answer = ask_private(here, service, any_specifier_if_0(0), tag_preferred_name_list,
                                    [&](bytes content) {
                                        any = true;
                                        return ask_languages(content, question);
                                    });
    if (!any)
        SI_LOG_AT(here, level::trace, "sdt_pf_name_list_descriptor == NULL\n");
    return answer;
}

// The same in the tables of a transport stream that are of that original network.
template <class End, class Question>
std::uint32_t preferred_names_of(site here, std::uint32_t onid, std::uint32_t ts, std::uint32_t sid,
                                 const End &end, Question question)
{
    const auto ask = [&](dvb_sdt_section &sdt) {
        if (!is_of_network(here, sdt.original_network_id, onid))
            return step::next;
        dvb_sdt_service *service = find_service(sdt, sid);
        return service != nullptr ? ask_preferred_names(here, *service, question) : step::next;
    };
    return query<sdt_codec>(here, sdt_of(ts), end, ask, showing_service(sid));
}

// The name of that number out of the names of a language, when it is the one wanted.
std::optional<bytes> name_in_language(site here, const preferred_names &names,
                                      std::uint32_t language_id, std::uint8_t name_id)
{
    const std::uint32_t language = language_of(here, names.language);
    SI_LOG_AT(here, level::trace, "the current lang id = %d, the passed = %d\n",
              static_cast<int>(language), static_cast<int>(language_id));
    return language == language_id ? find_name(here, names, name_id) : std::nullopt;
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_GetMultiServiceNames(uint32_t sid, SiMultiServiceName *servnames, uint32_t *pcount)
{
    SI_REQUIRE(servnames);
    SI_REQUIRE(pcount);
    return multi_names_of(SI_HERE, sdt_actual, sid, many{servnames, pcount, multi_name_codes});
}

uint32_t Orva_Si_GetMultiServNames(uint32_t ts, uint32_t sid, SiMultiServiceName *servnames,
                                   uint32_t *pcount)
{
    SI_REQUIRE(servnames);
    SI_REQUIRE(pcount);
    return multi_names_of(SI_HERE, sdt_of(ts), sid, many{servnames, pcount, multi_name_codes});
}

// No availability is an empty list, not a failure.
uint32_t Orva_Si_GetServAvailList(uint32_t ts, uint32_t sid, SiServAvail *availlist,
                                  uint32_t *pcount)
{
    SI_REQUIRE(availlist);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{availlist, pcount, {.none = ORVA_SI_OK}};
    return list_of_service(here, sdt_of(ts), sid, list, [&](dvb_sdt_service &service) {
        for (const descriptor &d : descriptors(service))
            if (d.tag == dtag_dvb_service_availability && !append_cells(here, payload(d), list))
                return false;
        return true;
    });
}

uint32_t Orva_Si_GetSdtDataBroadCastDesc(uint32_t sid, SiDataBroadcastDesc *databroadcastdesc,
                                         uint32_t *psum)
{
    SI_REQUIRE(databroadcastdesc);
    SI_REQUIRE(psum);
    return data_broadcasts_of(SI_HERE, sdt_actual, sid, many{databroadcastdesc, psum});
}

uint32_t Orva_Si_GetServDataBroadCastDesc(uint32_t ts, uint32_t sid,
                                          SiDataBroadcastDesc *databroadcastdesc, uint32_t *psum)
{
    SI_REQUIRE(databroadcastdesc);
    SI_REQUIRE(psum);
    return data_broadcasts_of(SI_HERE, sdt_of(ts), sid, many{databroadcastdesc, psum});
}

uint32_t Orva_Si_GetServiceMoveDesc(uint32_t sid, SiServiceMove *servicemove)
{
    SI_REQUIRE(servicemove);
    return move_of(SI_HERE, sdt_actual, sid, *servicemove);
}

uint32_t Orva_Si_GetServMoveDesc(uint32_t ts, uint32_t sid, SiServiceMove *servicemove)
{
    SI_REQUIRE(servicemove);
    return move_of(SI_HERE, sdt_of(ts), sid, *servicemove);
}

uint32_t Orva_Si_GetLinkageDesc(uint32_t sid, SiLinkage *lkgrpcserv)
{
    SI_REQUIRE(lkgrpcserv);
    return linkage_of(SI_HERE, sdt_actual, sid, *lkgrpcserv);
}

uint32_t Orva_Si_GetServLinkageDesc(uint32_t ts, uint32_t sid, SiLinkage *lkgrpcserv)
{
    SI_REQUIRE(lkgrpcserv);
    return linkage_of(SI_HERE, sdt_of(ts), sid, *lkgrpcserv);
}

// A failure in every case but a full array: the count tells whether there are regions.
uint32_t Orva_Si_GetSdtTargetRegionInfo(uint32_t ts, uint32_t sid, SiTargetRegion *region_array,
                                        uint32_t *parray_count)
{
    SI_REQUIRE(region_array);
    SI_REQUIRE(parray_count);
    const many list{region_array, parray_count, {.some = ORVA_SI_FAILURE, .none = ORVA_SI_FAILURE}};
    return regions_of(SI_HERE, ts, sid, list,
                      [&](const SiTargetRegion &region) { return put_region(list, region); });
}

uint32_t Orva_Si_GetSdtTargetRegionInfoCount(uint32_t ts, uint32_t sid, uint32_t *parray_count)
{
    SI_REQUIRE(parray_count);
    *parray_count = 0;
    const std::uint32_t result =
        regions_of(SI_HERE, ts, sid, ORVA_SI_OK, [&](const SiTargetRegion &) {
            ++*parray_count;
            return true;
        });
    SI_LOG(level::trace, "target region count: %d: ret: %d\n", static_cast<int>(*parray_count),
           static_cast<int>(result));
    return result;
}

uint32_t Orva_Si_GetShortServiceName(uint32_t sid, uint32_t pdsd, SiDvbString *pname)
{
    SI_REQUIRE(pname);
    const site here = SI_HERE;
    return visit_service(here, sdt_actual, sid, ORVA_SI_FAILURE, [&](dvb_sdt_service &service) {
        return ask_private(here, service, specifier_equal_to(pdsd), tag_short_service_name,
                           [&](bytes name) {
                               copy_text(*pname, name);
                               return step::found;
                           });
    });
}

uint32_t Orva_Si_GetServCIProtDescData(uint32_t ts, uint32_t sid, uint32_t pdsd, uint8_t *data,
                                       uint32_t *plen)
{
    SI_REQUIRE(data);
    SI_REQUIRE(plen);
    const site here = SI_HERE;
    return visit_service(here, sdt_of(ts), sid, ORVA_SI_FAILURE, [&](dvb_sdt_service &service) {
        return ask_private(
            here, service, specifier_equal_to(pdsd), tag_ci_protection,
            [&](bytes content) { return copy_ci_protection(here, content, data, *plen); });
    });
}

uint32_t Orva_Si_GetPfNameByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t language_id,
                               SiDvbString *pPfName, uint32_t name_id)
{
    SI_REQUIRE(pPfName);
    const site here = SI_HERE;
    const auto wanted = static_cast<std::uint8_t>(name_id);
    return preferred_names_of(
        here, onid, ts, sid, ORVA_SI_FAILURE, [&](const preferred_names &names) {
            const auto name = name_in_language(here, names, language_id, wanted);
            return name && copy_text(*pPfName, *name) ? step::found : step::next;
        });
}

uint32_t Orva_Si_GetPfNameLangList(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t *langidlist,
                                   uint32_t *pcount)
{
    SI_REQUIRE(langidlist);
    SI_REQUIRE(pcount);
    const site here = SI_HERE;
    const many list{langidlist, pcount};
    return preferred_names_of(here, onid, ts, sid, list, [&](const preferred_names &names) {
        return put_language(here, list, names.language) ? step::next : step::full;
    });
}
