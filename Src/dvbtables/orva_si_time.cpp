// SPDX-License-Identifier: LGPL-2.1-or-later
// TDT and TOT (EN 300 468, 5.2.5 and 5.2.6): new seconds, the stored TOT, times of MJD and BCD.
#include <libucsi/dvb/local_time_offset_descriptor.h>
#include <libucsi/dvb/tdt_section.h>
#include <libucsi/dvb/tot_section.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

#include "orva_si/notify.h"
#include "orva_si/time.h"
#include "orva_si_bytes.h"
#include "orva_si_lock.h"
#include "orva_si_log.h"
#include "orva_si_siids.h"
#include "orva_si_ucsi.h"

namespace si {

template <>
struct ucsi_descriptor<dvb_local_time_offset_descriptor> {
    static constexpr std::uint8_t tag = dtag_dvb_local_time_offset;
    // Null unless its length is a multiple of an entry's.
    static auto *decode(descriptor &d) { return dvb_local_time_offset_descriptor_codec(&d); }
};

namespace {

constexpr std::size_t tdt_length = 5;           // section_length of every TDT: the time alone
constexpr std::size_t shortest_tot_length = 11; // time, empty descriptor loop and CRC_32
constexpr std::uint32_t mjd_of_1970 = 40587;
constexpr std::uint32_t seconds_of_day = 86400;

using section_bytes = std::array<std::uint8_t, largest_psi_section>;

// The last TOT whose CRC_32 fitted; all zero when there is none.
constinit section_bytes stored_tot SI_GUARDED_BY(time_lock){};

// ---- MJD and BCD time (EN 300 468 annex C)

struct clock_time {
    unsigned hour, minute, second;
};

constexpr clock_time clock_of(std::uint32_t bcd)
{
    return {from_bcd(bcd >> 16), from_bcd(bcd >> 8), from_bcd(bcd)};
}

constexpr std::uint32_t utc_seconds(std::uint16_t mjd, std::uint32_t bcd)
{
    const clock_time clock = clock_of(bcd);
    return (mjd - mjd_of_1970) * seconds_of_day + clock.hour * 3600 + clock.minute * 60 +
           clock.second;
}
static_assert(utc_seconds(45218, 0x124525) == 400164325); // 6 September 1982, 12:45:25

constexpr bool has_30_days_or_less(unsigned month)
{
    return month == 2 || month == 4 || month == 6 || month == 9 || month == 11;
}

// The annex's formula. The day is kept in eight bits, as it always was.
constexpr SiDate date_of(std::uint16_t mjd)
{
    const int years = static_cast<int>((mjd - 15078.2) / 365.25);
    const int days_of_years = static_cast<int>(years * 365.25);
    const int months = static_cast<int>((mjd - 14956.1 - days_of_years) / 30.6001);
    const int days_of_months = static_cast<int>(months * 30.6001);
    const int next_year = months == 14 || months == 15 ? 1 : 0;
    SiDate date{};
    date.year = static_cast<std::uint16_t>(years + 1900 + next_year);
    date.month = static_cast<std::uint8_t>(months - 1 - 12 * next_year);
    date.day = static_cast<std::uint8_t>(mjd - 14956 - days_of_years - days_of_months);
    return date;
}

// A day past the end of its month. February is left as it is up to the 30th.
constexpr void carry_day(SiDate &date)
{
    if (date.day >= 32) {
        date.day = 1;
        if (++date.month == 13) {
            date.month = 1;
            ++date.year;
        }
    }
    if (date.day == 31 && has_30_days_or_less(date.month)) {
        date.day = 1;
        ++date.month;
    }
}

// Writes every field but the reserved one.
void write_date(SiDate &to, std::uint16_t mjd, std::uint32_t bcd)
{
    const clock_time clock = clock_of(bcd);
    SiDate date = date_of(mjd);
    const bool next_day = clock.hour >= 24;
    if (next_day)
        ++date.day;
    carry_day(date);
    to.year = date.year;
    to.month = date.month;
    to.day = date.day;
    to.hour = static_cast<std::uint8_t>(next_day ? clock.hour - 24 : clock.hour);
    to.minute = static_cast<std::uint8_t>(clock.minute);
    to.second = static_cast<std::uint8_t>(clock.second);
}

// Days and BCD time of a field of five bytes.
struct date_field {
    explicit date_field(std::span<const std::uint8_t, sizeof(dvbdate_t)> of)
        : mjd{be16(of.first<2>())}, bcd{be24(of.last<3>())}
    {
    }
    std::uint16_t mjd;
    std::uint32_t bcd;
};

// ---- Sections

// The section when the length given is that of its own header, else null.
const std::uint8_t *of_length(const std::uint8_t *buf, std::uint32_t length)
{
    return length >= section_header_bytes && section_size(buf) == length ? buf : nullptr;
}

// libucsi decodes in place: always a copy, and once.
template <class Section>
Section *decode(section_bytes &copy, std::size_t size, Section *(*codec)(section *))
{
    section *head = section_codec(copy.data(), size);
    return head != nullptr ? codec(head) : nullptr;
}

// Libucsi's codec takes no other length either; it is asked only for one whose length does not
// underflow in it.
const dvb_tdt_section *decode_tdt(section_bytes &copy, const std::uint8_t *tdt)
{
    const std::size_t size = section_size(tdt);
    if (size != section_header_bytes + tdt_length)
        return nullptr;
    std::copy_n(tdt, size, copy.begin());
    return decode(copy, size, dvb_tdt_section_codec);
}

// The section in the copy, which may be all zero.
dvb_tot_section *decode_tot(section_bytes &copy)
{
    const std::size_t size = section_size(copy.data());
    if (size < section_header_bytes + shortest_tot_length || size > copy.size())
        return nullptr;
    return decode(copy, size, dvb_tot_section_codec);
}

void store_tot(site here, std::span<const std::uint8_t> tot)
{
    const scope_lock lock{time_lock, here};
    const auto rest = std::ranges::copy(tot, stored_tot.begin()).out;
    std::fill(rest, stored_tot.end(), std::uint8_t{0});
}

section_bytes copy_of_stored_tot(site here)
{
    const scope_lock lock{time_lock, here};
    return stored_tot;
}

void notify_time(const dvbdate_t &utc_time, std::uint32_t from_tot)
{
    const date_field utc{utc_time};
    Orva_Si_NotifyTime(utc_seconds(utc.mjd, utc.bcd), from_tot);
}

// ---- Local time offsets (EN 300 468, 6.2.20)

auto descriptors(dvb_tot_section &tot)
{
    return loop_of<dvb_tot_section_descriptors_next>(tot, dvb_tot_section_descriptors_first(&tot),
                                                     behind(tot, tot.descriptors_loop_length));
}

auto offsets(dvb_local_time_offset_descriptor &d)
{
    return loop_of<dvb_local_time_offset_descriptor_offsets_next>(
        d, dvb_local_time_offset_descriptor_offsets_first(&d), behind(d, d.d.len));
}

void write_offset(SiLocalTimeOffset &to, const dvb_local_time_offset &from)
{
    const date_field change{from.time_of_change};
    to.valid = 1;
    *std::ranges::copy(from.country_code, to.country_code).out = '\0';
    to.country_region_id = from.country_region_id;
    to.local_time_offset_polarity = from.local_time_offset_polarity;
    to.offset_hours = static_cast<std::uint16_t>(from_bcd(from.local_time_offset[0]));
    to.offset_minutes = static_cast<std::uint16_t>(from_bcd(from.local_time_offset[1]));
    write_date(to.time_of_change, change.mjd, change.bcd);
    to.next_offset_hours = static_cast<std::uint8_t>(from_bcd(from.next_time_offset[0]));
    to.next_offset_minutes = static_cast<std::uint8_t>(from_bcd(from.next_time_offset[1]));
}

// Whether all entries found room.
bool write_offsets(dvb_tot_section &tot, std::span<SiLocalTimeOffset> to, std::uint32_t &count)
{
    for (descriptor &d : descriptors(tot)) {
        auto *local = as<dvb_local_time_offset_descriptor>(d);
        if (local == nullptr)
            continue;
        for (const dvb_local_time_offset &offset : offsets(*local)) {
            if (count == to.size())
                return false;
            write_offset(to[count++], offset);
        }
    }
    return true;
}

void trace_offset(site here, const SiLocalTimeOffset &of)
{
    const auto *country = reinterpret_cast<const std::uint8_t *>(of.country_code);
    const SiDate &change = of.time_of_change;
    SI_LOG_AT(here, level::trace,
              "country %s region %d polarity %d offset %02d:%02d, from %d-%02d-%02d %02d:%02d:%02d "
              "on %02d:%02d\n",
              printable_text(country, sizeof(iso639country_t)).c_str(), of.country_region_id,
              of.local_time_offset_polarity, of.offset_hours, of.offset_minutes, change.year,
              change.month, change.day, change.hour, change.minute, change.second,
              of.next_offset_hours, of.next_offset_minutes);
}

} // namespace

} // namespace si

using namespace si;

uint32_t Orva_Si_TimeCase(const uint8_t *psection, uint32_t length, uint32_t pid)
{
    SI_REQUIRE(psection);
    const int table_id = length != 0 ? psection[0] : -1;
    if (table_id == tid_tdt)
        return Orva_Si_TdtParse(psection, length, pid);
    if (table_id == tid_tot)
        return Orva_Si_TotParse(psection, length);
    return ORVA_SI_FAILURE;
}

uint32_t Orva_Si_TdtParse(const uint8_t *buf, uint32_t length, uint32_t)
{
    SI_REQUIRE(buf);
    const uint8_t *section = of_length(buf, length);
    SI_REQUIRE(section);
    section_bytes copy;
    const dvb_tdt_section *tdt_section = decode_tdt(copy, section);
    SI_REQUIRE(tdt_section);
    notify_time(tdt_section->utc_time, 0);
    return ORVA_SI_OK;
}

// Stored before its length is compared: a TOT that was given with a wrong length is kept, but tells
// no time.
uint32_t Orva_Si_TotParse(const uint8_t *buf, uint32_t length)
{
    SI_REQUIRE(buf);
    if (length > largest_psi_section) {
        SI_LOG(level::error, "fatal error of the tot section length > 1024!!\n");
        return ORVA_SI_FAILURE;
    }
    const uint8_t *section = length >= section_header_bytes ? buf : nullptr;
    SI_REQUIRE(section);
    const std::size_t size = section_size(section);
    if (size > largest_psi_section || crc32_mpeg({section, size}) != 0) {
        SI_LOG(level::error, "crc error\n");
        return ORVA_SI_FAILURE;
    }
    store_tot(SI_HERE, {section, length});

    section = of_length(buf, length);
    SI_REQUIRE(section);
    section_bytes copy{};
    std::copy_n(section, length, copy.begin());
    const dvb_tot_section *tot_section = decode_tot(copy);
    SI_REQUIRE(tot_section);
    notify_time(tot_section->utc_time, 1);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_ResetTimeSection(void)
{
    store_tot(SI_HERE, {});
    return ORVA_SI_OK;
}

uint32_t Orva_Si_GetUTCTimeFromMJD(uint16_t mjd, uint32_t bcd, uint32_t *pUTCTime)
{
    SI_REQUIRE_AS(pUTCTime, "pUTCTime != NULL", ORVA_SI_NULL_ARGUMENT);
    *pUTCTime = utc_seconds(mjd, bcd);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_GetDateTimeFromMJD(uint16_t mjd, uint32_t bcd, SiDate *siDatePtr)
{
    SI_REQUIRE_AS(siDatePtr, "siDatePtr != NULL", ORVA_SI_NULL_ARGUMENT);
    write_date(*siDatePtr, mjd, bcd);
    return ORVA_SI_OK;
}

uint32_t Orva_Si_GetLocalTimeOffset(SiLocalTimeOffset *localtimes, uint32_t *pcount)
{
    SI_LOG(level::trace, "invoked ...\n");
    SI_REQUIRE(pcount);
    const uint32_t capacity = *pcount;
    *pcount = 0;
    SI_REQUIRE(localtimes);

    section_bytes copy = copy_of_stored_tot(SI_HERE);
    dvb_tot_section *tot = decode_tot(copy);
    if (tot == nullptr) {
        SI_LOG(level::trace, "bad pointer\n");
        return ORVA_SI_FAILURE;
    }
    const bool all = write_offsets(*tot, {localtimes, capacity}, *pcount);
    if (*pcount == 0)
        return ORVA_SI_NO_DATA; // also when there was no room for any
    SI_LOG(level::trace, "got count = %d\n", static_cast<int>(*pcount));
    for (const SiLocalTimeOffset &entry : std::span{localtimes, *pcount})
        trace_offset(SI_HERE, entry);
    return all ? ORVA_SI_OK : ORVA_SI_ARRAY_FULL;
}
