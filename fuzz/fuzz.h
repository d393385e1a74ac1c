// SPDX-License-Identifier: LGPL-2.1-or-later
// What the fuzzed bodies share. A body takes any bytes; what it finds wrong ends the process. It
// knows nothing of the engine: the same bodies are replayed by the tests.
#ifndef FUZZ_FUZZ_H
#define FUZZ_FUZZ_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace fuzz {

using bytes = std::span<const std::uint8_t>;
using octets = std::vector<std::uint8_t>;

// How an input is built, for the mutator.
enum class shape {
    plain,   // bytes of which nothing is known
    section, // a byte that chooses the reader, then one section or descriptor
    frames,  // sections in frames: see frames.h
};

struct target {
    std::string_view name;
    shape of;
    void (*run)(bytes input);
    std::vector<octets> (*seeds)();
};

target readers(); // bounded readers, codecs, loops
target getters(); // sections through the dispatcher, then every question
target packets(); // transport stream through demultiplexer, driver interface and section thread
target events();  // event store against a plain one, without memory at times
target mempool(); // memory pool against its model
target calls();   // sequences of calls on a recording driver

// Ends the process with a text when a claim does not hold.
void claim(bool holds, const char *text);
[[noreturn]] void fail(std::string_view text, std::string_view more = {});

// Decisions read off an input; behind its end all are 0.
class choices {
public:
    explicit choices(bytes of) : left{of} {}

    bool more() const { return !left.empty(); }
    std::uint8_t u8()
    {
        if (left.empty())
            return 0;
        const std::uint8_t first = left.front();
        left = left.subspan(1);
        return first;
    }
    std::uint16_t u16()
    {
        const unsigned high = u8();
        return static_cast<std::uint16_t>(high << 8 | u8());
    }
    bytes take(std::size_t count)
    {
        const bytes taken = left.first(std::min(count, left.size()));
        left = left.subspan(taken.size());
        return taken;
    }
    bytes rest() const { return left; }

private:
    bytes left;
};

} // namespace fuzz

#endif
