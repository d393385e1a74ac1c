// SPDX-License-Identifier: LGPL-2.1-or-later
// Guarded decoding of stored sections. libucsi decodes in place and trusts some lengths: every
// section is copied, checked as a whole and decoded once, and what libucsi leaves unchecked is
// checked here.
//
// Brings in libucsi, whose headers define global functions: for the sources of this folder only.
#ifndef SRC_DVBTABLES_ORVA_SI_CODEC_H
#define SRC_DVBTABLES_ORVA_SI_CODEC_H

#include <libucsi/dvb/bat_section.h>
#include <libucsi/dvb/eit_section.h>
#include <libucsi/dvb/nit_section.h>
#include <libucsi/dvb/sdt_section.h>
#include <libucsi/mpeg/pat_section.h>
#include <libucsi/mpeg/pmt_section.h>
#include <libucsi/section.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

#include "orva_si_bytes.h"
#include "orva_si_sanitizer.h"

namespace si {

// Where a section is copied to and decoded in. Some of libucsi's records are not packed.
template <std::size_t Capacity>
struct alignas(8) section_buffer {
#ifdef SI_ADDRESS_SANITIZER
    ~section_buffer();
#endif
    std::array<std::uint8_t, Capacity> room;
};

// A copy of a stored section in buffer, as long as its section_length says, once it is known to be
// a long section with a fitting CRC_32; empty when it is not, or does not fit the buffer. The
// address sanitizer then reports every touch of what the buffer has behind it.
bytes copy_section(std::span<std::uint8_t> buffer, const std::uint8_t *stored);

// The same with its header decoded; null in place of empty.
section_ext *load_section(std::span<std::uint8_t> buffer, const std::uint8_t *stored);

// Decode what load_section answered; null when the section's inner lengths do not fit. Once per
// copy.
dvb_sdt_section *sdt_codec(section_ext *section);
dvb_nit_section *nit_codec(section_ext *section);
dvb_bat_section *bat_codec(section_ext *section);
dvb_eit_section *eit_codec(section_ext *section);
mpeg_pat_section *pat_codec(section_ext *section);
mpeg_pmt_section *pmt_codec(section_ext *section);

// What a codec answers.
template <auto Codec>
using decoded = std::remove_pointer_t<std::invoke_result_t<decltype(Codec), section_ext *>>;

#ifdef SI_ADDRESS_SANITIZER
void allow_access(std::span<const std::uint8_t> memory);

// Other variables take the buffer's place on the stack.
template <std::size_t Capacity>
section_buffer<Capacity>::~section_buffer()
{
    allow_access(room);
}
#endif

} // namespace si

#endif
