// SPDX-License-Identifier: LGPL-2.1-or-later
// Log lines, argument checks, assertions and the entry and exit banners.
#ifndef SRC_ORVA_SI_LOG_H
#define SRC_ORVA_SI_LOG_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "orva_platform.h"
#include "orva_si/lifecycle.h"
#include "orva_si_shared.h"

namespace si {

// Where a log line speaks from. Inside a lambda __func__ is not the exported function, and a header
// must not speak in its own name: both carry a site instead.
struct site {
    const char *file;
    const char *func;
    unsigned line;
};

namespace level {
inline constexpr std::uint32_t fatal = ORVA_DEBUG_FATAL;
inline constexpr std::uint32_t error = ORVA_DEBUG_ERROR;
inline constexpr std::uint32_t notice = ORVA_DEBUG_NOTICE;
inline constexpr std::uint32_t trace = ORVA_DEBUG_TRACE;
inline constexpr std::uint32_t verbose = ORVA_DEBUG_VERBOSE;
} // namespace level

inline bool log_enabled(std::uint32_t at)
{
    return load_relaxed(__orva_debug_min) >= at;
}

} // namespace si

#define SI_HERE (si::site{SI_SOURCE, __func__, __LINE__}) // SI_SOURCE: set for each source by CMake

// Arguments are evaluated only when the level is on.
#define SI_LOG_AT(here, at, ...)                                                                   \
    do {                                                                                           \
        if (si::log_enabled(at)) {                                                                 \
            const si::site si_log_site = (here);                                                   \
            orva_debug_log(si::load_acquire(si_debug), (at), si_log_site.file, si_log_site.func,   \
                           si_log_site.line, __VA_ARGS__);                                         \
        }                                                                                          \
    } while (0)
#define SI_LOG(at, ...) SI_LOG_AT(SI_HERE, at, __VA_ARGS__)

// The line for a missing argument: its name behind an opening bracket that nothing closes.
#define SI_LOG_MISSING(name) SI_LOG(si::level::error, "[%s\n", (name))

// A required pointer, tested before any lock is taken.
#define SI_REQUIRE_AS(pointer, name, result)                                                       \
    do {                                                                                           \
        if ((pointer) == nullptr) {                                                                \
            SI_LOG_MISSING(name);                                                                  \
            return (result);                                                                       \
        }                                                                                          \
    } while (0)
#define SI_REQUIRE(pointer) SI_REQUIRE_AS(pointer, #pointer, ORVA_SI_NULL_ARGUMENT)

// A failed internal check is printed, not logged, whatever the level.
#define SI_ASSERT(condition, text, result)                                                         \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            si::print_assertion(SI_HERE, (text));                                                  \
            return result;                                                                         \
        }                                                                                          \
    } while (0)

namespace si {

inline void print_assertion(site here, const char *text)
{
    std::printf(
        "\n\033[0;34;41m ASSERT orva_failed, File:%s Line:%d Routine:%s, %s failed \033[0m \n",
        here.file, static_cast<int>(here.line), here.func, text);
    std::fflush(stdout);
}

// Entry and exit banners, on every way out.
class call_banner {
public:
    explicit call_banner(site where) : here{where}
    {
        SI_LOG_AT(here, level::verbose, " =========> \n");
    }
    ~call_banner() { SI_LOG_AT(here, level::verbose, " <========= \n"); }
    call_banner(const call_banner &) = delete;
    call_banner &operator=(const call_banner &) = delete;

private:
    site here;
};

// Text from a broadcast, made fit for a log: terminated, control bytes replaced by '.', so that no
// line can be forged and no terminal escape passes.
class printable_text {
public:
    printable_text(const std::uint8_t *from, std::size_t length)
    {
        const std::size_t kept = from == nullptr ? 0 : std::min(length, text.size() - 1);
        std::transform(from, from + kept, text.begin(), [](std::uint8_t c) {
            const bool control = c < 0x20 || (c >= 0x7F && c <= 0x9F);
            return control ? '.' : static_cast<char>(c);
        });
    }
    const char *c_str() const { return text.data(); }

private:
    std::array<char, 257> text{};
};

// An address for the texts that print it with %x.
inline unsigned address_of(const void *pointer)
{
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(pointer));
}

} // namespace si

#endif
