// SPDX-License-Identifier: LGPL-2.1-or-later
// What a program with libucsi alone does with a section. Apart, for libucsi's headers define global
// names that others use too.
#ifndef BENCH_PLAIN_DECODER_H
#define BENCH_PLAIN_DECODER_H

#include <cstddef>
#include <cstdint>

namespace bench {

// Copies a section of at most 4,096 bytes, checks it with its CRC_32 and decodes its table, where
// it is one of those that are stored but no PMT, which the codec refuses in packages. Whether it
// was in order.
bool decode_alone(const std::uint8_t *section, std::size_t size);

} // namespace bench

#endif
