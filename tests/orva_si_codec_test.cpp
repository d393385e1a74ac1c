// SPDX-License-Identifier: LGPL-2.1-or-later
// Guarded decoding, against a second reading of the same bytes and with nothing readable behind the
// section.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <vector>

#include "dvbtables/orva_si_codec.h"
#include "dvbtables/orva_si_ucsi.h"
#include "support/effort.h"
#include "support/sections.h"

using test::octets;

namespace {

// Memory whose last byte is the last that may be read; also libucsi, which no sanitizer watches,
// stops there.
class guarded_buffer {
public:
    explicit guarded_buffer(std::size_t size)
        : page{static_cast<std::size_t>(sysconf(_SC_PAGESIZE))}
    {
        void *map =
            mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (map == MAP_FAILED || size > page)
            std::abort();
        start = static_cast<std::uint8_t *>(map);
        mprotect(start + page, page, PROT_NONE);
        room = {start + page - size, size};
    }
    ~guarded_buffer() { munmap(start, 2 * page); }
    guarded_buffer(const guarded_buffer &) = delete;
    guarded_buffer &operator=(const guarded_buffer &) = delete;

    std::span<std::uint8_t> room;

private:
    std::size_t page;
    std::uint8_t *start;
};

// ---- What a section holds: where its entries and descriptors stand, and what their fields say.

using outline = std::vector<std::size_t>;

// How a kind of section is laid out, for the second reading.
struct layout {
    std::optional<std::size_t> first_loop; // where the length of the descriptors in front stands
    bool counted_entries;                  // whether a length field stands in front of the entries
    std::size_t entries;                   // where they begin, without what the first loop takes
    std::size_t entry_header;
    std::optional<std::size_t>
        entry_length; // where in an entry the length of its descriptors stands
};

constexpr layout pat_layout{{}, false, 8, 4, {}};
constexpr layout sdt_layout{{}, false, 11, 5, 3};
constexpr layout pmt_layout{10, false, 12, 5, 3};
constexpr layout nit_layout{8, true, 12, 6, 4};

std::size_t length12(const octets &section, std::size_t at)
{
    return static_cast<std::size_t>((section[at] & 0x0F) << 8 | section[at + 1]);
}

// Appends the descriptors of a loop; false when they do not fill it exactly.
bool read_descriptors(const octets &section, std::size_t at, std::size_t length, outline &out)
{
    const std::size_t end = at + length;
    if (end > section.size() - 4)
        return false;
    while (at < end) {
        if (end - at < 2 || end - at - 2 < section[at + 1])
            return false;
        out.insert(out.end(), {at, section[at], section[at + 1]});
        at += 2u + section[at + 1];
    }
    return true;
}

// The outline by the standards' syntax; nothing when the lengths do not add up.
std::optional<outline> read_by_hand(const octets &section, const layout &kind)
{
    outline out;
    const std::size_t end = section.size() - 4;
    if (kind.entries > end)
        return {};
    std::size_t at = kind.entries;
    if (kind.first_loop) {
        const std::size_t length = length12(section, *kind.first_loop);
        if (!read_descriptors(section, *kind.first_loop + 2, length, out))
            return {};
        at += length;
    }
    if (at > end)
        return {};
    // Entries up to the CRC_32 have to be sound; those that begin behind the loop's own length do
    // not count.
    const std::size_t counted = kind.counted_entries ? at + length12(section, at - 2) : end;
    while (at < end) {
        outline entry{at};
        if (end - at < kind.entry_header)
            return {};
        for (std::size_t i = 0; i < 2; ++i)
            entry.push_back(section[at + i]); // the id, or type and part of the PID
        const std::size_t length =
            kind.entry_length ? length12(section, at + *kind.entry_length) : 0;
        if (!read_descriptors(section, at + kind.entry_header, length, entry))
            return {};
        if (at < counted)
            out.insert(out.end(), entry.begin(), entry.end());
        at += kind.entry_header + length;
    }
    return out;
}

template <class Record>
std::size_t offset(std::span<const std::uint8_t> room, const Record &record)
{
    return static_cast<std::size_t>(reinterpret_cast<const std::uint8_t *>(&record) - room.data());
}

template <class Loop>
void append_descriptors(std::span<const std::uint8_t> room, const Loop &loop, outline &out)
{
    for (descriptor &d : loop)
        out.insert(out.end(), {offset(room, d), d.tag, d.len});
}

void append_id(std::size_t id, outline &out)
{
    out.insert(out.end(), {id >> 8, id & 0xFF});
}

outline walk(std::span<const std::uint8_t> room, mpeg_pat_section &pat)
{
    outline out;
    for (mpeg_pat_program &program : si::programs(pat)) {
        out.push_back(offset(room, program));
        append_id(program.program_number, out);
    }
    return out;
}

outline walk(std::span<const std::uint8_t> room, dvb_sdt_section &sdt)
{
    outline out;
    for (dvb_sdt_service &service : si::services(sdt)) {
        out.push_back(offset(room, service));
        append_id(service.service_id, out);
        append_descriptors(room, si::descriptors(service), out);
    }
    return out;
}

outline walk(std::span<const std::uint8_t> room, mpeg_pmt_section &pmt)
{
    outline out;
    append_descriptors(room, si::descriptors(pmt), out);
    for (mpeg_pmt_stream &stream : si::streams(pmt)) {
        out.push_back(offset(room, stream));
        out.push_back(stream.stream_type);
        out.push_back(static_cast<std::size_t>(stream.reserved_1 << 5 | stream.pid >> 8));
        append_descriptors(room, si::descriptors(stream), out);
    }
    return out;
}

template <class Section>
outline walk_transports(std::span<const std::uint8_t> room, Section &section)
{
    outline out;
    append_descriptors(room, si::descriptors(section), out);
    for (dvb_nit_transport &transport : si::transports(section)) {
        out.push_back(offset(room, transport));
        append_id(transport.transport_stream_id, out);
        append_descriptors(room, si::descriptors(transport), out);
    }
    return out;
}

outline walk(std::span<const std::uint8_t> room, dvb_nit_section &nit)
{
    return walk_transports(room, nit);
}

outline walk(std::span<const std::uint8_t> room, dvb_bat_section &bat)
{
    return walk_transports(room, bat);
}

// The outline that the library reads, decoded in memory of just the section's size.
template <auto Codec>
std::optional<outline> read_decoded(const octets &section)
{
    const guarded_buffer buffer{section.size()};
    section_ext *head = si::load_section(buffer.room, section.data());
    auto *decoded = head != nullptr ? Codec(head) : nullptr;
    if (decoded == nullptr)
        return {};
    return walk(buffer.room, *decoded);
}

// Both readings agree on this section, and on the section with each byte of its body at every
// value, and cut at every length.
template <auto Codec>
void expect_agreement(const octets &section, const layout &kind)
{
    const auto whole = read_by_hand(section, kind);
    ASSERT_TRUE(whole.has_value());
    ASSERT_EQ(read_decoded<Codec>(section), whole);
    std::size_t accepted = 0;
    for (std::size_t at = 3; at + 4 < section.size(); ++at)
        for (unsigned value = 0; value <= 0xFF; value += test::sweep_step) {
            const auto changed = test::with_byte(section, at, static_cast<std::uint8_t>(value));
            const auto expected = read_by_hand(changed, kind);
            accepted += expected.has_value() ? 1 : 0;
            ASSERT_EQ(read_decoded<Codec>(changed), expected) << "byte " << at << " = " << value;
        }
    EXPECT_GT(accepted, section.size());
    for (std::size_t size = 12; size < section.size(); ++size) {
        const auto shorter = test::cut(section, size);
        ASSERT_EQ(read_decoded<Codec>(shorter), read_by_hand(shorter, kind)) << "cut to " << size;
    }
}

// Every value of a 12-bit length field.
template <auto Codec>
void expect_agreement_on_length(const octets &section, const layout &kind, std::size_t at)
{
    for (std::size_t length = 0; length <= 0xFFF; length += test::sweep_step) {
        const auto changed = test::with_length12(section, at, length);
        ASSERT_EQ(read_decoded<Codec>(changed), read_by_hand(changed, kind)) << "length " << length;
    }
}

const octets service{0x48, 5, 1, 1, 'P', 1, 'N'};
const octets language{0x0A, 4, 'e', 'n', 'g', 0};
const octets empty{0x80, 0};

octets sample_pat()
{
    return make(test::pat{.ts = 5, .programs = {{0, 0x10}, {1, 0x150}, {0xFFFF, 0x1FFF}}});
}

octets sample_sdt()
{
    return make(test::sdt{.ts = 5,
                          .services = {{.id = 1, .descriptors = {service, empty}},
                                       {.id = 2},
                                       {.id = 3, .descriptors = {empty}}}});
}

octets sample_pmt()
{
    return make(test::pmt{.program = 5,
                          .pcr_pid = 0x151,
                          .descriptors = {empty, language},
                          .streams = {{.type = 2, .pid = 0x151},
                                      {.type = 3, .pid = 0x152, .descriptors = {language, empty}},
                                      {.type = 6, .pid = 0x153, .descriptors = {empty}}}});
}

octets sample_nit()
{
    return make(
        test::nit{.network = 5,
                  .descriptors = {empty, language},
                  .transports = {{.ts = 1, .original_network = 2, .descriptors = {language}},
                                 {.ts = 2, .original_network = 2},
                                 {.ts = 3, .original_network = 2, .descriptors = {empty}}}});
}

octets sample_bat()
{
    return make(
        test::bat{.bouquet = 5,
                  .descriptors = {language},
                  .transports = {{.ts = 1, .original_network = 2, .descriptors = {empty, language}},
                                 {.ts = 2, .original_network = 2}}});
}

TEST(Decoding, PatAgreesWithItsSyntax)
{
    expect_agreement<si::pat_codec>(sample_pat(), pat_layout);
    expect_agreement<si::pat_codec>(make(test::pat{.ts = 5, .programs = {{1, 0x150}}}), pat_layout);
}

TEST(Decoding, SdtAgreesWithItsSyntax)
{
    const auto section = sample_sdt();
    expect_agreement<si::sdt_codec>(section, sdt_layout);
    expect_agreement_on_length<si::sdt_codec>(section, sdt_layout, 14);
    expect_agreement_on_length<si::sdt_codec>(section, sdt_layout, 14 + 5 + service.size() + 2);
}

TEST(Decoding, PmtAgreesWithItsSyntax)
{
    const auto section = sample_pmt();
    expect_agreement<si::pmt_codec>(section, pmt_layout);
    expect_agreement_on_length<si::pmt_codec>(section, pmt_layout, 10);
    expect_agreement_on_length<si::pmt_codec>(section, pmt_layout, 12 + 8 + 3);
    expect_agreement_on_length<si::pmt_codec>(section, pmt_layout, 12 + 8 + 5 + 3);
}

TEST(Decoding, NitAgreesWithItsSyntax)
{
    const auto section = sample_nit();
    expect_agreement<si::nit_codec>(section, nit_layout);
    expect_agreement_on_length<si::nit_codec>(section, nit_layout, 8);
    expect_agreement_on_length<si::nit_codec>(section, nit_layout, 10 + 8);
    expect_agreement_on_length<si::nit_codec>(section, nit_layout, 12 + 8 + 4);
}

TEST(Decoding, BatAgreesWithItsSyntax)
{
    const auto section = sample_bat();
    expect_agreement<si::bat_codec>(section, nit_layout);
    expect_agreement_on_length<si::bat_codec>(section, nit_layout, 8);
    expect_agreement_on_length<si::bat_codec>(section, nit_layout, 10 + 6);
}

TEST(Decoding, ATransportLoopLongerThanTheSectionEndsWithIt)
{
    const auto section = test::with_length12(make(test::nit{.network = 5}), 10, 0xFFF);
    EXPECT_EQ(read_decoded<si::nit_codec>(section), outline{});
    const guarded_buffer buffer{section.size()};
    dvb_nit_section *nit = si::nit_codec(si::load_section(buffer.room, section.data()));
    ASSERT_NE(nit, nullptr);
    EXPECT_EQ(dvb_nit_section_part2(nit)->transport_stream_loop_length, 0);
}

TEST(Decoding, PmtFieldsComeOutInHostOrder)
{
    const auto section = sample_pmt();
    const guarded_buffer buffer{section.size()};
    mpeg_pmt_section *pmt = si::pmt_codec(si::load_section(buffer.room, section.data()));
    ASSERT_NE(pmt, nullptr);
    EXPECT_EQ(mpeg_pmt_section_program_number(pmt), 5);
    EXPECT_EQ(pmt->pcr_pid, 0x151);
    EXPECT_EQ(pmt->program_info_length, 8);
    EXPECT_EQ(pmt->head.version_number, 0);
    auto stream = si::streams(*pmt).begin();
    EXPECT_EQ((*stream).pid, 0x151);
    EXPECT_EQ((*stream).es_info_length, 0);
    ++stream;
    EXPECT_EQ((*stream).pid, 0x152);
    EXPECT_EQ((*stream).es_info_length, 8);
}

TEST(Decoding, APmtWhoseReservedBitsAreClearIsTheSame)
{
    auto section = sample_pmt();
    section[8] &= 0x1F;
    section[10] &= 0x0F;
    section[12 + 8 + 1] &= 0x1F;
    section[12 + 8 + 3] &= 0x0F;
    section = test::fix_crc(section);
    EXPECT_EQ(read_by_hand(section, pmt_layout).value().size(),
              read_decoded<si::pmt_codec>(section).value().size());
}

// ---- What is decoded at all

bool is_loaded(const octets &section, std::size_t room)
{
    const guarded_buffer buffer{room};
    const bool copied = !si::copy_section(buffer.room, section.data()).empty();
    const bool loaded = si::load_section(buffer.room, section.data()) != nullptr;
    EXPECT_EQ(copied, loaded);
    return loaded;
}

TEST(Loading, NeedsRoomForTheWholeSection)
{
    const auto section = sample_sdt();
    EXPECT_TRUE(is_loaded(section, section.size()));
    EXPECT_TRUE(is_loaded(section, section.size() + 1));
    EXPECT_FALSE(is_loaded(section, section.size() - 1));
    EXPECT_FALSE(is_loaded(section, 0));
}

TEST(Loading, KeepsTheBytesOfACopy)
{
    const auto section = sample_sdt();
    const guarded_buffer buffer{section.size()};
    const si::bytes copy = si::copy_section(buffer.room, section.data());
    EXPECT_EQ(octets(copy.begin(), copy.end()), section);
}

TEST(Loading, NeedsAFittingCrc)
{
    const auto section = sample_sdt();
    for (std::size_t at = 3; at < section.size(); ++at)
        for (unsigned bit = 0; bit < 8; ++bit) {
            auto changed = section;
            changed[at] = static_cast<std::uint8_t>(changed[at] ^ 1u << bit);
            ASSERT_FALSE(is_loaded(changed, section.size())) << at;
        }
}

TEST(Loading, NeedsTheSyntaxIndicator)
{
    const auto section = sample_sdt();
    EXPECT_FALSE(is_loaded(test::with_byte(section, 1, section[1] & 0x7F), section.size()));
}

TEST(Loading, AHeaderAndACrcAreTheLeast)
{
    const auto section = make(test::pat{.ts = 5});
    ASSERT_EQ(section.size(), 12u);
    EXPECT_TRUE(is_loaded(section, 12));
    for (std::size_t size = 7; size < 12; ++size)
        EXPECT_FALSE(is_loaded(test::cut(section, size), 1024)) << size;
    for (std::size_t length = 0; length < 4; ++length)
        EXPECT_FALSE(is_loaded(test::set_length(section, length), 1024)) << length;
}

TEST(Loading, ASectionTooShortForItsTableIsRefusedByTheCodec)
{
    const auto shortest = make(test::private_table{.table_id = 0x42});
    EXPECT_EQ(read_decoded<si::sdt_codec>(shortest), std::nullopt);
    EXPECT_EQ(read_decoded<si::nit_codec>(shortest), std::nullopt);
    EXPECT_EQ(read_decoded<si::bat_codec>(shortest), std::nullopt);
    EXPECT_EQ(read_decoded<si::pmt_codec>(shortest), std::nullopt);
    EXPECT_EQ(read_decoded<si::pat_codec>(shortest), outline{});
}

} // namespace
