// SPDX-License-Identifier: LGPL-2.1-or-later
// The loops of decoded sections and descriptors as ranges, and descriptors by their type.
//
// Entries are libucsi's packed records inside the section's copy: take their fields by value. A
// descriptor is decoded in place by as and first, so each may be asked for once per copy of its
// section.
#ifndef SRC_DVBTABLES_ORVA_SI_UCSI_H
#define SRC_DVBTABLES_ORVA_SI_UCSI_H

#include <libucsi/dvb/ac3_descriptor.h>
#include <libucsi/dvb/bouquet_name_descriptor.h>
#include <libucsi/dvb/ca_identifier_descriptor.h>
#include <libucsi/dvb/cable_delivery_descriptor.h>
#include <libucsi/dvb/component_descriptor.h>
#include <libucsi/dvb/content_descriptor.h>
#include <libucsi/dvb/data_broadcast_id_descriptor.h>
#include <libucsi/dvb/descriptor.h>
#include <libucsi/dvb/extended_event_descriptor.h>
#include <libucsi/dvb/frequency_list_descriptor.h>
#include <libucsi/dvb/multilingual_network_name_descriptor.h>
#include <libucsi/dvb/multilingual_service_name_descriptor.h>
#include <libucsi/dvb/network_name_descriptor.h>
#include <libucsi/dvb/parental_rating_descriptor.h>
#include <libucsi/dvb/private_data_specifier_descriptor.h>
#include <libucsi/dvb/satellite_delivery_descriptor.h>
#include <libucsi/dvb/service_descriptor.h>
#include <libucsi/dvb/service_list_descriptor.h>
#include <libucsi/dvb/service_move_descriptor.h>
#include <libucsi/dvb/short_event_descriptor.h>
#include <libucsi/dvb/subtitling_descriptor.h>
#include <libucsi/dvb/teletext_descriptor.h>
#include <libucsi/dvb/terrestrial_delivery_descriptor.h>
#include <libucsi/mpeg/ca_descriptor.h>
#include <libucsi/mpeg/descriptor.h>
#include <libucsi/mpeg/iso_639_language_descriptor.h>

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "orva_si_codec.h"

namespace si {

// ---- How many bytes an entry takes, its own inner loop included

template <class Entry>
constexpr std::size_t extent(const Entry &)
{
    return sizeof(Entry);
}
inline std::size_t extent(const descriptor &entry)
{
    return sizeof entry + entry.len;
}
inline std::size_t extent(const dvb_sdt_service &entry)
{
    return sizeof entry + entry.descriptors_loop_length;
}
inline std::size_t extent(const dvb_nit_transport &entry)
{
    return sizeof entry + entry.transport_descriptors_length;
}
inline std::size_t extent(const mpeg_pmt_stream &entry)
{
    return sizeof entry + entry.es_info_length;
}
inline std::size_t extent(const dvb_eit_event &entry)
{
    return sizeof entry + entry.descriptors_loop_length;
}

// A loop walked with libucsi's accessors; ends before the first entry that does not lie wholly in
// front of end.
template <auto Next, class Owner, class Entry>
class ucsi_loop {
public:
    class iterator {
    public:
        using value_type = Entry;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::input_iterator_tag;

        iterator(const ucsi_loop &of, Entry *first) : loop{of}, at{of.bounded(first)} {}
        Entry &operator*() const { return *at; }
        iterator &operator++()
        {
            at = loop.bounded(Next(loop.owner, at));
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return at == nullptr; }

    private:
        ucsi_loop loop;
        Entry *at;
    };

    ucsi_loop(Owner &of, Entry *from, const std::uint8_t *up_to)
        : owner{&of}, first{from}, end_of_loop{up_to}
    {
    }
    iterator begin() const { return {*this, first}; }
    std::default_sentinel_t end() const { return {}; }

private:
    Entry *bounded(Entry *entry) const
    {
        if (entry == nullptr)
            return nullptr;
        const auto *start = reinterpret_cast<const std::uint8_t *>(entry);
        const auto room = static_cast<std::size_t>(start < end_of_loop ? end_of_loop - start : 0);
        return room >= sizeof(Entry) && room >= extent(*entry) ? entry : nullptr;
    }

    Owner *owner;
    Entry *first;
    const std::uint8_t *end_of_loop;
};

template <auto Next, class Owner, class Entry>
ucsi_loop<Next, Owner, Entry> loop_of(Owner &of, Entry *first, const std::uint8_t *up_to)
{
    return {of, first, up_to};
}

// The byte behind an owner's fixed part and length more.
template <class Owner>
const std::uint8_t *behind(const Owner &owner, std::size_t length = 0)
{
    return reinterpret_cast<const std::uint8_t *>(&owner) + sizeof(Owner) + length;
}

template <class Section>
const std::uint8_t *end_of_section(Section &section)
{
    return reinterpret_cast<const std::uint8_t *>(&section) + section_ext_length(&section.head);
}

// ---- Loops of sections

inline auto programs(mpeg_pat_section &pat)
{
    return loop_of<mpeg_pat_section_programs_next>(pat, mpeg_pat_section_programs_first(&pat),
                                                   end_of_section(pat));
}
inline auto streams(mpeg_pmt_section &pmt)
{
    return loop_of<mpeg_pmt_section_streams_next>(pmt, mpeg_pmt_section_streams_first(&pmt),
                                                  end_of_section(pmt));
}
inline auto services(dvb_sdt_section &sdt)
{
    return loop_of<dvb_sdt_section_services_next>(sdt, dvb_sdt_section_services_first(&sdt),
                                                  end_of_section(sdt));
}
inline auto transports(dvb_nit_section &nit)
{
    struct dvb_nit_section_part2 &loop = *dvb_nit_section_part2(&nit);
    return loop_of<dvb_nit_section_transports_next>(loop, dvb_nit_section_transports_first(&loop),
                                                    end_of_section(nit));
}
// The entries of a BAT are those of a NIT (EN 300 468, 5.2.1 and 5.2.2); libucsi's own record is
// not packed.
inline auto transports(dvb_bat_section &bat)
{
    auto &loop = *reinterpret_cast<struct dvb_nit_section_part2 *>(dvb_bat_section_part2(&bat));
    return loop_of<dvb_nit_section_transports_next>(loop, dvb_nit_section_transports_first(&loop),
                                                    end_of_section(bat));
}

inline auto events(dvb_eit_section &section)
{
    return loop_of<dvb_eit_section_events_next>(section, dvb_eit_section_events_first(&section),
                                                end_of_section(section));
}

// ---- Descriptor loops

inline auto descriptors(mpeg_pmt_section &pmt)
{
    return loop_of<mpeg_pmt_section_descriptors_next>(pmt, mpeg_pmt_section_descriptors_first(&pmt),
                                                      behind(pmt, pmt.program_info_length));
}
inline auto descriptors(mpeg_pmt_stream &stream)
{
    return loop_of<mpeg_pmt_stream_descriptors_next>(
        stream, mpeg_pmt_stream_descriptors_first(&stream), behind(stream, stream.es_info_length));
}
inline auto descriptors(dvb_sdt_service &service)
{
    return loop_of<dvb_sdt_service_descriptors_next>(
        service, dvb_sdt_service_descriptors_first(&service),
        behind(service, service.descriptors_loop_length));
}
inline auto descriptors(dvb_nit_section &nit)
{
    return loop_of<dvb_nit_section_descriptors_next>(nit, dvb_nit_section_descriptors_first(&nit),
                                                     behind(nit, nit.network_descriptors_length));
}
inline auto descriptors(dvb_bat_section &bat)
{
    return loop_of<dvb_bat_section_descriptors_next>(bat, dvb_bat_section_descriptors_first(&bat),
                                                     behind(bat, bat.bouquet_descriptors_length));
}
inline auto descriptors(dvb_nit_transport &transport)
{
    return loop_of<dvb_nit_transport_descriptors_next>(
        transport, dvb_nit_transport_descriptors_first(&transport),
        behind(transport, transport.transport_descriptors_length));
}

inline auto descriptors(dvb_eit_event &event)
{
    return loop_of<dvb_eit_event_descriptors_next>(event, dvb_eit_event_descriptors_first(&event),
                                                   behind(event, event.descriptors_loop_length));
}

// ---- Loops of descriptors

inline auto services(dvb_service_list_descriptor &list)
{
    return loop_of<dvb_service_list_descriptor_services_next>(
        list, dvb_service_list_descriptor_services_first(&list), behind(list, list.d.len));
}
inline auto languages(mpeg_iso_639_language_descriptor &list)
{
    return loop_of<mpeg_iso_639_language_descriptor_languages_next>(
        list, mpeg_iso_639_language_descriptor_languages_first(&list), behind(list, list.d.len));
}
inline auto pages(dvb_teletext_descriptor &teletext)
{
    return loop_of<dvb_teletext_descriptor_entries_next>(
        teletext, dvb_teletext_descriptor_entries_first(&teletext),
        behind(teletext, teletext.d.len));
}
inline auto subtitles(dvb_subtitling_descriptor &subtitling)
{
    return loop_of<dvb_subtitling_descriptor_subtitles_next>(
        subtitling, dvb_subtitling_descriptor_subtitles_first(&subtitling),
        behind(subtitling, subtitling.d.len));
}
inline auto genres(dvb_content_descriptor &content)
{
    return loop_of<dvb_content_descriptor_nibbles_next>(
        content, dvb_content_descriptor_nibbles_first(&content), behind(content, content.d.len));
}
inline auto ratings(dvb_parental_rating_descriptor &rating)
{
    return loop_of<dvb_parental_rating_descriptor_ratings_next>(
        rating, dvb_parental_rating_descriptor_ratings_first(&rating),
        behind(rating, rating.d.len));
}

// ---- Descriptors by type: tag and codec

template <class Descriptor>
struct ucsi_descriptor;

#define SI_UCSI_DESCRIPTOR_AS(name, dtag)                                                          \
    template <>                                                                                    \
    struct ucsi_descriptor<name##_descriptor> {                                                    \
        static constexpr std::uint8_t tag = dtag;                                                  \
        static auto *decode(descriptor &d) { return name##_descriptor_codec(&d); }                 \
    }
#define SI_UCSI_DESCRIPTOR(family, name)                                                           \
    SI_UCSI_DESCRIPTOR_AS(family##_##name, dtag_##family##_##name)
SI_UCSI_DESCRIPTOR(mpeg, ca);
SI_UCSI_DESCRIPTOR(mpeg, iso_639_language);
SI_UCSI_DESCRIPTOR(dvb, network_name);
SI_UCSI_DESCRIPTOR(dvb, service_list);
SI_UCSI_DESCRIPTOR_AS(dvb_satellite_delivery, dtag_dvb_satellite_delivery_system);
SI_UCSI_DESCRIPTOR_AS(dvb_cable_delivery, dtag_dvb_cable_delivery_system);
SI_UCSI_DESCRIPTOR(dvb, bouquet_name);
SI_UCSI_DESCRIPTOR(dvb, service);
SI_UCSI_DESCRIPTOR(dvb, short_event);
SI_UCSI_DESCRIPTOR(dvb, extended_event);
SI_UCSI_DESCRIPTOR(dvb, component);
SI_UCSI_DESCRIPTOR(dvb, ca_identifier);
SI_UCSI_DESCRIPTOR(dvb, content);
SI_UCSI_DESCRIPTOR(dvb, parental_rating);
SI_UCSI_DESCRIPTOR(dvb, teletext);
SI_UCSI_DESCRIPTOR(dvb, subtitling);
SI_UCSI_DESCRIPTOR_AS(dvb_terrestrial_delivery, dtag_dvb_terrestial_delivery_system);
SI_UCSI_DESCRIPTOR(dvb, multilingual_network_name);
SI_UCSI_DESCRIPTOR(dvb, multilingual_service_name);
SI_UCSI_DESCRIPTOR(dvb, private_data_specifier);
SI_UCSI_DESCRIPTOR(dvb, service_move);
SI_UCSI_DESCRIPTOR(dvb, frequency_list);
SI_UCSI_DESCRIPTOR(dvb, data_broadcast_id);
SI_UCSI_DESCRIPTOR(dvb, ac3);
#undef SI_UCSI_DESCRIPTOR
#undef SI_UCSI_DESCRIPTOR_AS

// The descriptor decoded as that type; null when it is another one, or its codec refuses it.
template <class Descriptor>
Descriptor *as(descriptor &d)
{
    using kind = ucsi_descriptor<Descriptor>;
    return d.tag == kind::tag ? kind::decode(d) : nullptr;
}

// The first descriptor of that type that its codec accepts; null when there is none.
template <class Descriptor, class Loop>
Descriptor *first(const Loop &loop)
{
    for (descriptor &d : loop)
        if (Descriptor *found = as<Descriptor>(d))
            return found;
    return nullptr;
}

} // namespace si

#endif
