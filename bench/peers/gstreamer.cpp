// SPDX-License-Identifier: LGPL-2.1-or-later
// GStreamer: its section library decodes a section, checked with its CRC_32, into arrays on the
// heap; descriptors stay raw until they are asked for, their texts come as UTF-8. Its element
// tsparse finds the sections in packets, passes over what it saw already and posts the others.
#define GST_USE_UNSTABLE_API
#include <gst/gst.h>
#include <gst/mpegts/mpegts.h>

#include <cstring>
#include <memory>

#include "answers.h"

namespace bench {

namespace {

struct gstreamer {
    using bytes = std::span<const std::uint8_t>;

    struct unref {
        void operator()(GstMpegtsSection *of) const { gst_mpegts_section_unref(of); }
        void operator()(GPtrArray *of) const { g_ptr_array_unref(of); }
    };
    using section_pointer = std::unique_ptr<GstMpegtsSection, unref>;

    // The section takes its bytes, from GLib's heap.
    static section_pointer load(std::uint16_t pid, bytes section)
    {
        static const bool ready = [] {
            gst_init(nullptr, nullptr);
            gst_mpegts_initialize();
            return true;
        }();
        auto *copy = static_cast<std::uint8_t *>(g_memdup2(section.data(), section.size()));
        return section_pointer{ready ? gst_mpegts_section_new(pid, copy, section.size()) : nullptr};
    }

    static bool is_pat(bytes section)
    {
        const section_pointer loaded = load(0x0000, section);
        const std::unique_ptr<GPtrArray, unref> pat{
            loaded == nullptr ? nullptr : gst_mpegts_section_get_pat(loaded.get())};
        return pat != nullptr;
    }

    template <class Entry, class Visit>
    static void each(const GPtrArray *of, Visit visit)
    {
        for (guint at = 0; at < of->len; ++at)
            visit(*static_cast<const Entry *>(g_ptr_array_index(of, at)));
    }

    template <class Visit>
    static bool each_event(bytes section, Visit visit)
    {
        const section_pointer loaded = load(0x0012, section);
        const GstMpegtsEIT *eit =
            loaded == nullptr ? nullptr : gst_mpegts_section_get_eit(loaded.get());
        if (eit != nullptr)
            each<GstMpegtsEITEvent>(eit->events, visit);
        return eit != nullptr;
    }

    template <class Visit>
    static bool each_service(bytes section, Visit visit)
    {
        const section_pointer loaded = load(0x0011, section);
        const GstMpegtsSDT *sdt =
            loaded == nullptr ? nullptr : gst_mpegts_section_get_sdt(loaded.get());
        if (sdt != nullptr)
            each<GstMpegtsSDTService>(sdt->services, visit);
        return sdt != nullptr;
    }

    static std::uint16_t id(const GstMpegtsEITEvent &of) { return of.event_id; }
    static std::uint16_t id(const GstMpegtsSDTService &of) { return of.service_id; }

    static void times(const GstMpegtsEITEvent &of, SiBasicEvent &to) { to.duration = of.duration; }

    static void name(const GstMpegtsEITEvent &of, SiDvbString &to)
    {
        const auto *raw = gst_mpegts_find_descriptor(of.descriptors, GST_MTS_DESC_DVB_SHORT_EVENT);
        char *text = nullptr;
        if (raw == nullptr ||
            !gst_mpegts_descriptor_parse_dvb_short_event(raw, nullptr, &text, nullptr))
            return;
        copy_text(to, text, std::strlen(text));
        g_free(text);
    }

    static void name(const GstMpegtsSDTService &of, SiDvbString &to)
    {
        const auto *raw = gst_mpegts_find_descriptor(of.descriptors, GST_MTS_DESC_DVB_SERVICE);
        char *text = nullptr;
        if (raw == nullptr ||
            !gst_mpegts_descriptor_parse_dvb_service(raw, nullptr, &text, nullptr))
            return;
        copy_text(to, text, std::strlen(text));
        g_free(text);
    }
};

// ---- Packets: filesrc ! tsparse ! fakesink

// The sections of the stream that were not posted yet: by table_id, table_id_extension (those here
// are small) and section_number. What tsparse posts beside them does not count.
constexpr std::size_t most_extensions = 1024;
std::vector<bool> missing;
std::size_t found = 0;

std::size_t place_of(std::size_t table_id, std::size_t extension, std::size_t number)
{
    return (table_id * most_extensions + extension) * 256 + number;
}

void expect(const mux &of)
{
    missing.resize(place_of(0x80, 0, 0));
    for (const section &each : of.sections) {
        const octets &head = each.bytes;
        missing[place_of(head[0], static_cast<std::size_t>(head[3] << 8 | head[4]), head[6])] =
            true;
    }
}

void note_section(const GstMpegtsSection &of)
{
    const std::size_t at = place_of(of.table_id, of.subtable_extension, of.section_number);
    if (of.subtable_extension >= most_extensions || at >= missing.size() || !missing[at])
        return;
    missing[at] = false;
    ++found;
}

GstBusSyncReply note_message(GstBus *, GstMessage *message, gpointer)
{
    const GstMessageType type = GST_MESSAGE_TYPE(message);
    if (type == GST_MESSAGE_EOS || type == GST_MESSAGE_ERROR)
        return GST_BUS_PASS;
    if (GstMpegtsSection *section = gst_message_parse_mpegts_section(message); section != nullptr) {
        note_section(*section);
        gst_mpegts_section_unref(section);
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
}

counts demultiplex(const std::string &path, const mux &of)
{
    expect(of);
    gst_init(nullptr, nullptr);
    gst_mpegts_initialize();
    const std::string description =
        "filesrc blocksize=262144 location=" + path + " ! tsparse ! fakesink sync=false";
    GstElement *pipeline = gst_parse_launch(description.c_str(), nullptr);
    if (pipeline == nullptr)
        return {.sections = 0};
    GstBus *bus = gst_element_get_bus(pipeline);
    gst_bus_set_sync_handler(bus, note_message, nullptr, nullptr);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    constexpr auto end = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
    GstMessage *last = gst_bus_timed_pop_filtered(bus, GST_CLOCK_TIME_NONE, end);
    const bool played = GST_MESSAGE_TYPE(last) == GST_MESSAGE_EOS;
    gst_message_unref(last);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    return {.sections = played ? found : 0};
}

} // namespace

const candidate gstreamer_candidate =
    decoding<gstreamer>::as_candidate("GStreamer mpegts", demultiplex);

} // namespace bench
