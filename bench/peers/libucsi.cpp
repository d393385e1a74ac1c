// SPDX-License-Identifier: LGPL-2.1-or-later
// libucsi: checks a section and its CRC_32 and decodes it in place, in a copy, without memory of
// its own. It keeps nothing.
#include <libucsi/dvb/descriptor.h>
#include <libucsi/dvb/eit_section.h>
#include <libucsi/dvb/sdt_section.h>
#include <libucsi/dvb/service_descriptor.h>
#include <libucsi/dvb/short_event_descriptor.h>
#include <libucsi/mpeg/pat_section.h>
#include <libucsi/section.h>

#include "answers.h"

namespace bench {

namespace {

struct libucsi {
    using bytes = std::span<const std::uint8_t>;

    static section_ext *load(bytes section)
    {
        alignas(8) static std::array<std::uint8_t, 4096> copy;
        std::ranges::copy(section, copy.begin());
        ::section *head = section_codec(copy.data(), section.size());
        return head == nullptr ? nullptr : section_ext_decode(head, 1);
    }

    static bool is_pat(bytes section)
    {
        section_ext *head = load(section);
        return head != nullptr && mpeg_pat_section_codec(head) != nullptr;
    }

    template <class Visit>
    static bool each_event(bytes section, Visit visit)
    {
        section_ext *head = load(section);
        dvb_eit_section *eit = head == nullptr ? nullptr : dvb_eit_section_codec(head);
        if (eit == nullptr)
            return false;
        dvb_eit_event *event = nullptr;
        dvb_eit_section_events_for_each(eit, event) visit(*event);
        return true;
    }

    template <class Visit>
    static bool each_service(bytes section, Visit visit)
    {
        section_ext *head = load(section);
        dvb_sdt_section *sdt = head == nullptr ? nullptr : dvb_sdt_section_codec(head);
        if (sdt == nullptr)
            return false;
        dvb_sdt_service *service = nullptr;
        dvb_sdt_section_services_for_each(sdt, service) visit(*service);
        return true;
    }

    static std::uint16_t id(const dvb_eit_event &of) { return of.event_id; }
    static std::uint16_t id(const dvb_sdt_service &of) { return of.service_id; }

    static void times(dvb_eit_event &of, SiBasicEvent &to)
    {
        to.duration = static_cast<std::uint32_t>(dvbduration_to_seconds(of.duration));
    }

    static void name(dvb_eit_event &of, SiDvbString &to)
    {
        ::descriptor *each = nullptr;
        dvb_eit_event_descriptors_for_each(&of, each) if (each->tag == dtag_dvb_short_event) if (
            auto *text = dvb_short_event_descriptor_codec(each);
            text != nullptr) return copy_text(to, dvb_short_event_descriptor_event_name(text),
                                              text->event_name_length);
    }

    static void name(dvb_sdt_service &of, SiDvbString &to)
    {
        ::descriptor *each = nullptr;
        dvb_sdt_service_descriptors_for_each(
            &of, each) if (each->tag ==
                           dtag_dvb_service) if (auto *text = dvb_service_descriptor_codec(each);
                                                 text != nullptr)
        {
            auto *part = dvb_service_descriptor_part2(text);
            return copy_text(to, dvb_service_descriptor_service_name(part),
                             part->service_name_length);
        }
    }
};

} // namespace

const candidate libucsi_candidate = decoding<libucsi>::as_candidate("libucsi");

} // namespace bench
