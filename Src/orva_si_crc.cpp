// SPDX-License-Identifier: LGPL-2.1-or-later
// The CRC_32 of a section: by carry-less multiplication where the processor has it, else by tables.
// Which way is taken is decided at the first call, which may come before main.
#include "orva_si_crc.h"

#include <array>
#include <atomic>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <immintrin.h>
#define SI_FOLDS 1
#define SI_FOLDS_PAIRS 1
#define SI_FOLDING [[gnu::target("pclmul,ssse3")]]
#define SI_FOLDING_PAIRS [[gnu::target("avx2,vpclmulqdq,pclmul,ssse3")]]
#elif defined(__aarch64__) && defined(__linux__) && !defined(__AARCH64EB__)
#include <arm_neon.h>
#include <sys/auxv.h>
#define SI_FOLDS 1
#ifdef __clang__
#define SI_FOLDING [[gnu::target("crypto")]]
#else
#define SI_FOLDING [[gnu::target("+crypto")]]
#endif
#elif defined(__arm__) && defined(__linux__) && !defined(__ARMEB__) && !defined(__clang__)
#include <arm_neon.h> // clang has it for processors only that all have NEON
#include <asm/hwcap.h>
#include <sys/auxv.h>
#define SI_FOLDS 1
#define SI_FOLDING [[gnu::target("fpu=crypto-neon-fp-armv8")]]
#endif

namespace si {
namespace {

// ---- By tables

// Each table is derived from the one before it and the first is libucsi's.
constexpr std::size_t step_bytes = 8;
using crc_tables = std::array<std::array<std::uint32_t, 256>, step_bytes>;

const crc_tables &tables()
{
    static const crc_tables made = [] {
        crc_tables t{};
        for (std::size_t i = 0; i < 256; ++i)
            t[0][i] = crc32tbl[i];
        for (std::size_t k = 1; k < t.size(); ++k)
            for (std::size_t i = 0; i < 256; ++i)
                t[k][i] = t[k - 1][i] << 8 ^ t[0][t[k - 1][i] >> 24];
        return t;
    }();
    return made;
}

std::uint32_t crc_by_tables(bytes of)
{
    const crc_tables &t = tables();
    std::uint32_t crc = 0xFFFFFFFF;
    while (of.size() >= step_bytes) {
        crc ^= be32(of.first<4>());
        crc = t[7][crc >> 24] ^ t[6][crc >> 16 & 0xFF] ^ t[5][crc >> 8 & 0xFF] ^ t[4][crc & 0xFF] ^
              t[3][of[4]] ^ t[2][of[5]] ^ t[1][of[6]] ^ t[0][of[7]];
        of = of.subspan(step_bytes);
    }
    for (const std::uint8_t b : of)
        crc = crc << 8 ^ t[0][crc >> 24 ^ b];
    return crc;
}

bool everywhere()
{
    return true;
}

#ifdef SI_FOLDS

// ---- By carry-less multiplication
//
// Sixteen bytes are a polynomial over GF(2), the first bit its highest power. Those that stand d
// bits in front of others are multiplied by x^d modulo the generator, which keeps the remainder,
// and added to them: until sixteen bytes are left, whose remainder is the CRC.

constexpr std::uint64_t generator = 0x1'04C1'1DB7;

// x^power modulo the generator.
constexpr std::uint64_t power_of_x(unsigned power)
{
    std::uint64_t rest = 1;
    for (unsigned i = 0; i < power; ++i) {
        rest <<= 1;
        if (rest >> 32 != 0)
            rest ^= generator;
    }
    return rest;
}

// x^64 divided by the generator, without remainder.
constexpr std::uint64_t inverse_of_generator()
{
    std::uint64_t quotient = 1; // of x^32
    std::uint64_t rest = generator ^ std::uint64_t{1} << 32;
    for (unsigned i = 0; i < 32; ++i) {
        rest <<= 1;
        const std::uint64_t bit = rest >> 32;
        quotient = quotient << 1 | bit;
        if (bit != 0)
            rest ^= generator;
    }
    return quotient;
}

// Multipliers of the two halves of sixteen bytes.
struct multipliers {
    std::uint64_t high;
    std::uint64_t low;
};

constexpr multipliers over(unsigned blocks)
{
    return {power_of_x(blocks * 128 + 64), power_of_x(blocks * 128)};
}

constexpr std::size_t block_bytes = 16;
constexpr std::size_t lanes = 4; // blocks that are folded side by side
// Where a block moves up by n bytes, read from 16 - n; where it moves down by n, from 16 + n.
constexpr std::array<std::uint8_t, 3 *block_bytes> moves = [] {
    std::array<std::uint8_t, 3 * block_bytes> made{};
    made.fill(0x80); // nothing
    for (std::size_t i = 0; i < block_bytes; ++i)
        made[block_bytes + i] = static_cast<std::uint8_t>(i);
    return made;
}();

#if defined(__x86_64__) || defined(__i386__)

using block = __m128i;

bool folds_here()
{
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_PCLMUL) != 0 && (c & bit_SSSE3) != 0;
}

SI_FOLDING inline block loaded(const std::uint8_t *from)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(from));
}

SI_FOLDING inline block moved(block of, block by)
{
    return _mm_shuffle_epi8(of, by);
}

// The bytes that a move keeps, where they are.
SI_FOLDING inline block kept(block of, block by)
{
    return _mm_andnot_si128(_mm_cmplt_epi8(by, _mm_setzero_si128()), of);
}

SI_FOLDING inline block sum(block one, block other)
{
    return _mm_xor_si128(one, other);
}

SI_FOLDING inline block halves(multipliers of)
{
    return _mm_set_epi64x(static_cast<long long>(of.high), static_cast<long long>(of.low));
}

SI_FOLDING inline std::uint64_t low_half(block of)
{
    std::uint64_t low = 0;
    _mm_storel_epi64(reinterpret_cast<__m128i *>(&low), of);
    return low;
}

SI_FOLDING inline block folded(block of, block by)
{
    return sum(_mm_clmulepi64_si128(of, by, 0x11), _mm_clmulepi64_si128(of, by, 0x00));
}

#else

using block = uint8x16_t;

#ifdef __aarch64__

bool folds_here()
{
    return (getauxval(AT_HWCAP) & HWCAP_PMULL) != 0;
}

SI_FOLDING inline block moved(block of, block by)
{
    return vqtbl1q_u8(of, by);
}

SI_FOLDING inline poly128_t product_of_high(poly64x2_t one, poly64x2_t other)
{
    return vmull_high_p64(one, other);
}

#else // of ARMv8 too: 32-bit systems run on such processors

bool folds_here()
{
    return (getauxval(AT_HWCAP2) & HWCAP2_PMULL) != 0;
}

SI_FOLDING inline block moved(block of, block by)
{
    const uint8x8x2_t both{{vget_low_u8(of), vget_high_u8(of)}};
    return vcombine_u8(vtbl2_u8(both, vget_low_u8(by)), vtbl2_u8(both, vget_high_u8(by)));
}

SI_FOLDING inline poly128_t product_of_high(poly64x2_t one, poly64x2_t other)
{
    return vmull_p64(vget_lane_p64(vget_high_p64(one), 0), vget_lane_p64(vget_high_p64(other), 0));
}

#endif

SI_FOLDING inline block loaded(const std::uint8_t *from)
{
    return vld1q_u8(from);
}

SI_FOLDING inline block kept(block of, block by)
{
    return vandq_u8(vcgeq_s8(vreinterpretq_s8_u8(by), vdupq_n_s8(0)), of);
}

SI_FOLDING inline block sum(block one, block other)
{
    return veorq_u8(one, other);
}

SI_FOLDING inline block halves(multipliers of)
{
    return vreinterpretq_u8_u64(vcombine_u64(vcreate_u64(of.low), vcreate_u64(of.high)));
}

SI_FOLDING inline std::uint64_t low_half(block of)
{
    return vgetq_lane_u64(vreinterpretq_u64_u8(of), 0);
}

SI_FOLDING inline block folded(block of, block by)
{
    const poly64x2_t one = vreinterpretq_p64_u8(of);
    const poly64x2_t other = vreinterpretq_p64_u8(by);
    const poly128_t high = product_of_high(one, other);
    const poly128_t low =
        vmull_p64(vget_lane_p64(vget_low_p64(one), 0), vget_lane_p64(vget_low_p64(other), 0));
    return sum(vreinterpretq_u8_p128(high), vreinterpretq_u8_p128(low));
}

#endif

// The order that turns a block round.
SI_FOLDING inline block backwards()
{
    static constexpr std::array<std::uint8_t, block_bytes> order{15, 14, 13, 12, 11, 10, 9, 8,
                                                                 7,  6,  5,  4,  3,  2,  1, 0};
    return loaded(order.data());
}

SI_FOLDING inline block reversed(const std::uint8_t *from)
{
    return moved(loaded(from), backwards());
}

// The product of the low halves; its upper half is not asked for.
SI_FOLDING inline std::uint64_t product(std::uint64_t one, std::uint64_t other)
{
    return low_half(folded(halves({0, one}), halves({0, other})));
}

// The remainder of sixteen bytes and 32 zero bits behind them.
SI_FOLDING inline std::uint32_t remainder_of(block of)
{
    const block shorter = folded(of, halves({power_of_x(96), std::uint64_t{1} << 32}));
    const std::uint64_t last = low_half(folded(shorter, halves({power_of_x(64), 1})));
    const std::uint64_t quotient = product(last >> 32, inverse_of_generator()) >> 32;
    return static_cast<std::uint32_t>(last ^ product(quotient, generator));
}

// Joins fewer bytes than a block to what stands in front of them. ends: one past the last of them,
// with a block at least in front.
SI_FOLDING inline block with_rest(block so_far, const std::uint8_t *ends, std::size_t rest)
{
    const block up = loaded(moves.data() + block_bytes - rest);
    const block down = loaded(moves.data() + 2 * block_bytes - rest);
    const block last = sum(moved(so_far, up), kept(reversed(ends - block_bytes), down));
    return sum(folded(moved(so_far, down), halves(over(1))), last);
}

// The remainder of what was folded into a block, and of the bytes behind it.
SI_FOLDING inline std::uint32_t remainder_with(block so_far, const std::uint8_t *at,
                                               std::size_t left)
{
    for (; left >= block_bytes; left -= block_bytes, at += block_bytes)
        so_far = sum(folded(so_far, halves(over(1))), reversed(at));
    return remainder_of(left != 0 ? with_rest(so_far, at + left, left) : so_far);
}

// Added to the first bytes: the CRC begins with all ones.
SI_FOLDING inline block all_ones()
{
    return halves({0xFFFF'FFFFull << 32, 0});
}

SI_FOLDING std::uint32_t crc_by_folding(bytes of)
{
    if (of.size() < block_bytes)
        return crc_by_tables(of);
    const std::uint8_t *at = of.data();
    std::size_t left = of.size() - block_bytes;
    block first = sum(reversed(at), all_ones());
    at += block_bytes;
    if (left >= (2 * lanes - 1) * block_bytes) {
        block second = reversed(at);
        block third = reversed(at + block_bytes);
        block fourth = reversed(at + 2 * block_bytes);
        at += (lanes - 1) * block_bytes;
        left -= (lanes - 1) * block_bytes;
        const block far = halves(over(lanes));
        for (; left >= lanes * block_bytes; left -= lanes * block_bytes) {
            first = sum(folded(first, far), reversed(at));
            second = sum(folded(second, far), reversed(at + block_bytes));
            third = sum(folded(third, far), reversed(at + 2 * block_bytes));
            fourth = sum(folded(fourth, far), reversed(at + 3 * block_bytes));
            at += lanes * block_bytes;
        }
        first = sum(sum(folded(first, halves(over(3))), folded(second, halves(over(2)))),
                    sum(folded(third, halves(over(1))), fourth));
    }
    return remainder_with(first, at, left);
}

#ifdef SI_FOLDS_PAIRS

// ---- The same with two blocks side by side in one register

using block_pair = __m256i;

bool folds_pairs_here()
{
    __builtin_cpu_init(); // nobody has, before main
    return folds_here() && __builtin_cpu_supports("avx2") && __builtin_cpu_supports("vpclmulqdq");
}

SI_FOLDING_PAIRS inline block_pair both(block of)
{
    return _mm256_broadcastsi128_si256(of);
}

SI_FOLDING_PAIRS inline block_pair reversed_pair(const std::uint8_t *from)
{
    const block_pair pair = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(from));
    return _mm256_shuffle_epi8(pair, both(backwards()));
}

SI_FOLDING_PAIRS inline block_pair sum(block_pair one, block_pair other)
{
    return _mm256_xor_si256(one, other);
}

SI_FOLDING_PAIRS inline block_pair folded(block_pair of, block_pair by)
{
    return sum(_mm256_clmulepi64_epi128(of, by, 0x11), _mm256_clmulepi64_epi128(of, by, 0x00));
}

SI_FOLDING_PAIRS std::uint32_t crc_by_folding_pairs(bytes of)
{
    constexpr std::size_t pair_bytes = 2 * block_bytes;
    constexpr std::size_t step = lanes * pair_bytes;
    if (of.size() < 2 * step)
        return crc_by_folding(of);
    const std::uint8_t *at = of.data();
    std::size_t left = of.size() - step;
    block_pair first = sum(reversed_pair(at), _mm256_zextsi128_si256(all_ones()));
    block_pair second = reversed_pair(at + pair_bytes);
    block_pair third = reversed_pair(at + 2 * pair_bytes);
    block_pair fourth = reversed_pair(at + 3 * pair_bytes);
    at += step;
    const block_pair far = both(halves(over(2 * lanes)));
    for (; left >= step; left -= step) {
        first = sum(folded(first, far), reversed_pair(at));
        second = sum(folded(second, far), reversed_pair(at + pair_bytes));
        third = sum(folded(third, far), reversed_pair(at + 2 * pair_bytes));
        fourth = sum(folded(fourth, far), reversed_pair(at + 3 * pair_bytes));
        at += step;
    }
    first = sum(sum(folded(first, both(halves(over(6)))), folded(second, both(halves(over(4))))),
                sum(folded(third, both(halves(over(2)))), fourth));
    const block last = sum(folded(_mm256_castsi256_si128(first), halves(over(1))),
                           _mm256_extracti128_si256(first, 1));
    return remainder_with(last, at, left);
}

#endif

#endif

constexpr crc_way ways[] = {
#ifdef SI_FOLDS_PAIRS
    {"pairs", crc_by_folding_pairs, folds_pairs_here},
#endif
#ifdef SI_FOLDS
    {"multiplication", crc_by_folding, folds_here},
#endif
    {"tables", crc_by_tables, everywhere},
};

std::uint32_t choose_and_run(bytes of);

// Threads that choose at the same time choose the same.
constinit std::atomic<crc_function> chosen{choose_and_run};

std::uint32_t choose_and_run(bytes of)
{
    const crc_way *way = ways;
    while (!way->runs_here())
        ++way;
    chosen.store(way->crc, std::memory_order_relaxed);
    return way->crc(of);
}

} // namespace

std::span<const crc_way> crc_ways()
{
    return ways;
}

std::uint32_t crc32_mpeg(bytes of)
{
    return chosen.load(std::memory_order_relaxed)(of);
}

} // namespace si
