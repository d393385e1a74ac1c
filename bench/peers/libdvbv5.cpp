// SPDX-License-Identifier: LGPL-2.1-or-later
// libdvbv5: decodes a section into lists on the heap, all texts converted to UTF-8. Its reader of
// devices checks the CRC_32 first, with the same function.
#include <libdvbv5/crc32.h>
#include <libdvbv5/desc_event_short.h>
#include <libdvbv5/desc_service.h>
#include <libdvbv5/descriptors.h>
#include <libdvbv5/dvb-fe.h>
#include <libdvbv5/eit.h>
#include <libdvbv5/pat.h>
#include <libdvbv5/sdt.h>

#include <cstring>
#include <memory>

#include "answers.h"

namespace bench {

namespace {

struct libdvbv5 {
    using bytes = std::span<const std::uint8_t>;

    template <class Table>
    using table = std::unique_ptr<Table, void (*)(Table *)>;

    template <class Table>
    static table<Table> decode(bytes section,
                               ssize_t (*init)(dvb_v5_fe_parms *, const std::uint8_t *, ssize_t,
                                               Table **),
                               void (*free)(Table *))
    {
        constexpr std::size_t crc_bytes = 4;
        static dvb_v5_fe_parms *const parameters = dvb_fe_dummy();
        Table *decoded = nullptr;
        auto *first = const_cast<std::uint8_t *>(section.data()); // it only reads
        if (dvb_crc32(first, section.size(), 0xFFFFFFFF) == 0 &&
            init(parameters, section.data(), static_cast<ssize_t>(section.size() - crc_bytes),
                 &decoded) < 0)
            return {nullptr, free};
        return {decoded, free};
    }

    static bool is_pat(bytes section)
    {
        return decode(section, dvb_table_pat_init, dvb_table_pat_free) != nullptr;
    }

    template <class Visit>
    static bool each_event(bytes section, Visit visit)
    {
        const auto eit = decode(section, dvb_table_eit_init, dvb_table_eit_free);
        dvb_eit_event_foreach(event, eit) visit(*event);
        return eit != nullptr;
    }

    template <class Visit>
    static bool each_service(bytes section, Visit visit)
    {
        const auto sdt = decode(section, dvb_table_sdt_init, dvb_table_sdt_free);
        dvb_sdt_service_foreach(service, sdt) visit(*service);
        return sdt != nullptr;
    }

    static std::uint16_t id(const dvb_table_eit_event &of) { return of.event_id; }
    static std::uint16_t id(const dvb_table_sdt_service &of) { return of.service_id; }

    static void times(const dvb_table_eit_event &of, SiBasicEvent &to)
    {
        to.duration = of.duration;
    }

    static void name(const dvb_table_eit_event &of, SiDvbString &to)
    {
        const auto *from = &of;
        dvb_desc_find(dvb_desc_event_short, text, from, short_event_descriptor) return copy_text(
            to, text->name, std::strlen(text->name));
    }

    static void name(const dvb_table_sdt_service &of, SiDvbString &to)
    {
        const auto *from = &of;
        dvb_desc_find(dvb_desc_service, text, from,
                      service_descriptor) return copy_text(to, text->name, std::strlen(text->name));
    }
};

} // namespace

const candidate libdvbv5_candidate = decoding<libdvbv5>::as_candidate("libdvbv5");

} // namespace bench
