// SPDX-License-Identifier: LGPL-2.1-or-later
// Texts of events: the short_event_descriptor and the extended_event_descriptor (EN 300 468, 6.2.37
// and 6.2.15).
#include "orva_si_eit.h"

namespace si {

namespace {

constexpr std::uint32_t no_text = ORVA_SI_NULL_ARGUMENT; // the answer when there is none

// One of the two texts of the short event descriptor in a language.
std::uint32_t short_text(site here, const event_key &key, std::uint32_t language_id,
                         SiDvbString &to, bytes short_event::*which)
{
    return value_of_event(here, key, no_text, [&](dvb_eit_event &event) {
        const auto *d = first_in_language<dvb_short_event_descriptor>(here, event, language_id);
        return d != nullptr && copy_text(to, read_short_event(*d).*which);
    });
}

// The languages of an event's descriptors of one kind.
template <class Kind>
std::uint32_t languages_of(site here, const event_key &key, const many<std::uint32_t> &list)
{
    return each_descriptor(here, key, list, [&](descriptor &d) {
        const Kind *text = as<Kind>(d);
        return text == nullptr || put_language(here, list, text->language_code);
    });
}

// Shows an event's extended event descriptors in a language to a function until it answers that
// there is no more room.
template <class End, class Visit>
std::uint32_t each_extended(site here, const event_key &key, std::uint32_t language_id,
                            const End &end, Visit visit)
{
    return each_descriptor(here, key, end, [&](descriptor &d) {
        const auto *text =
            in_language<dvb_extended_event_descriptor>(here, d, language_id, key.event_id);
        return text == nullptr || visit(*text);
    });
}

// An item that runs over length_of_items ends the items. By hand: libucsi's iterators trust the
// lengths in them.
void copy_items(byte_reader in, SiExtendEvtDesc &to)
{
    to.item_count = 0;
    while (in.more() && to.item_count < SI_EXT_EVT_ITEMS) {
        const bytes description = in.nested8().all();
        const bytes item = in.nested8().all();
        if (!in.ok)
            break;
        auto &kept = to.items[to.item_count++];
        copy_text(kept.description, description);
        copy_text(kept.item, item);
    }
}

bool copy_extended(site here, const dvb_extended_event_descriptor &from, SiExtendEvtDesc &to)
{
    byte_reader in{payload(from.d)};
    const std::uint8_t numbers = in.u8();
    to.descriptor_number = numbers >> 4;
    to.last_descriptor_number = numbers & 0x0F;
    copy_code(to.lang, in.span(code_bytes));
    copy_items(in.nested8(), to);
    copy_text(to.text, in.nested8().all());
    SI_LOG_AT(here, level::trace, "event text : %s\n",
              printable_text(to.text.text, to.text.length).c_str());
    return true;
}

} // namespace

short_event read_short_event(const dvb_short_event_descriptor &d)
{
    byte_reader in{payload(d.d)};
    in.span(code_bytes);
    const bytes name = in.nested8().all();
    return {name, in.nested8().all()};
}

} // namespace si

using namespace si;

uint32_t Orva_Si_GetEvtNameByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                SiDvbString *peventname, uint32_t language_id, uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(peventname);
    const std::uint32_t result =
        short_text(SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner}, language_id,
                   *peventname, &short_event::name);
    if (result == ORVA_SI_OK)
        SI_LOG(level::trace, "the event name = %s len = %d type = %d\n",
               printable_text(peventname->text, peventname->length).c_str(), peventname->length,
               static_cast<int>(peventname->charset_type));
    return result;
}

uint32_t Orva_Si_GetEvtNameLangList(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                    uint32_t *langlist, uint32_t *psum, uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(langlist);
    SI_REQUIRE_NOT_NULL(psum);
    return languages_of<dvb_short_event_descriptor>(
        SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner},
        {langlist, psum, {.full_text = list_is_full}});
}

uint32_t Orva_Si_GetShortEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                     uint32_t language_id, SiDvbString *peventdesc,
                                     uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(peventdesc);
    return short_text(SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner}, language_id,
                      *peventdesc, &short_event::text);
}

uint32_t Orva_Si_GetShortEvtDescLangList(uint32_t onid, uint32_t ts, uint32_t sid,
                                         uint32_t event_id, uint32_t *langlist, uint32_t *psum,
                                         uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(langlist);
    SI_REQUIRE_NOT_NULL(psum);
    return languages_of<dvb_short_event_descriptor>(
        SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner},
        {langlist, psum, {.full_text = list_is_full}});
}

uint32_t Orva_Si_GetExtendEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                      uint32_t language_id, SiExtendEvtDesc *peventdesc,
                                      uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(peventdesc);
    const site here = SI_HERE;
    return value_of_event(
        here, {service_of(onid, ts, sid), event_id, bisbanner}, no_text, [&](dvb_eit_event &event) {
            const auto *text =
                first_in_language<dvb_extended_event_descriptor>(here, event, language_id);
            return text != nullptr && copy_extended(here, *text, *peventdesc);
        });
}

uint32_t Orva_Si_GetAllExtendEvtDescByID(uint32_t onid, uint32_t ts, uint32_t sid,
                                         uint32_t event_id, uint32_t language_id,
                                         SiExtendEvtDesc *peventdesc, uint32_t *psum,
                                         uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(peventdesc);
    SI_REQUIRE_NOT_NULL(psum);
    const site here = SI_HERE;
    const many list{peventdesc, psum, {.full_text = array_is_full}};
    return each_extended(here, {service_of(onid, ts, sid), event_id, bisbanner}, language_id, list,
                         [&](const dvb_extended_event_descriptor &text) {
                             return list.put(
                                 [&](SiExtendEvtDesc &to) { copy_extended(here, text, to); });
                         });
}

uint32_t Orva_Si_GetExtendEvtDescCnt(uint32_t onid, uint32_t ts, uint32_t sid, uint32_t event_id,
                                     uint32_t language_id, uint32_t *pcnt, uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(pcnt);
    const tally found{pcnt};
    return each_extended(SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner}, language_id,
                         found, [&](const dvb_extended_event_descriptor &) { return found.add(); });
}

uint32_t Orva_Si_GetExtendEvtDescLangList(uint32_t onid, uint32_t ts, uint32_t sid,
                                          uint32_t event_id, uint32_t *langlist, uint32_t *psum,
                                          uint8_t bisbanner)
{
    SI_REQUIRE_NOT_NULL(langlist);
    SI_REQUIRE_NOT_NULL(psum);
    return languages_of<dvb_extended_event_descriptor>(
        SI_HERE, {service_of(onid, ts, sid), event_id, bisbanner},
        {langlist, psum, {.full_text = list_is_full}});
}
