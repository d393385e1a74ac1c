// SPDX-License-Identifier: LGPL-2.1-or-later
// The memory pool as a plain program: what is handed out where, for comparison.
#ifndef TESTS_SUPPORT_MEMPOOL_MODEL_H
#define TESTS_SUPPORT_MEMPOOL_MODEL_H

#include <algorithm>
#include <bit>
#include <cstdint>
#include <map>
#include <optional>

namespace test {

inline constexpr std::int64_t header_size = 4;

struct model_block {
    std::int64_t size = 0;
    bool used = false;
};

// A buddy pool as a list of blocks. Blocks without room for a header in the memory are not in it.
struct model_pool {
    explicit model_pool(std::int64_t size) : total{size}
    {
        while (span < total)
            span *= 2;
        if (has_header(0))
            blocks[0] = {.size = span};
    }

    bool has_header(std::int64_t at) const { return at + header_size <= total; }

    // The offset of the block; nothing for a request of the system heap.
    std::optional<std::int64_t> allocate(std::int64_t request)
    {
        std::int64_t wanted = header_size;
        while (wanted < request + header_size)
            wanted *= 2;
        const auto found = std::ranges::find_if(blocks, [&](const auto &each) {
            return !each.second.used && each.second.size >= wanted;
        });
        if (found == blocks.end())
            return std::nullopt;
        const std::int64_t at = found->first;
        model_block &block = found->second;
        while (block.size / 2 >= wanted) {
            block.size /= 2;
            if (has_header(at + block.size))
                blocks[at + block.size] = {.size = block.size};
        }
        if (at + wanted > total)
            return std::nullopt;
        block.used = true;
        used += wanted;
        return at;
    }

    void release(std::int64_t at)
    {
        used -= blocks.at(at).size;
        blocks.at(at).used = false;
        while (const auto joined = join(at))
            at = *joined;
    }

    // The offset of a free block that was joined with its buddy.
    std::optional<std::int64_t> join(std::int64_t at)
    {
        const std::int64_t size = blocks.at(at).size;
        const std::int64_t buddy = at / size % 2 == 1 ? at - size : at + size;
        if (buddy >= span)
            return std::nullopt;
        if (has_header(buddy)) {
            const auto other = blocks.find(buddy);
            if (other == blocks.end() || other->second.used || other->second.size != size)
                return std::nullopt;
        }
        blocks.erase(std::max(at, buddy));
        blocks.at(std::min(at, buddy)).size = 2 * size;
        return std::min(at, buddy);
    }

    // Blocks of the address range for which the memory has no header.
    std::int64_t blocks_without_header() const
    {
        if (blocks.empty())
            return 1;
        const auto &[at, last] = *blocks.rbegin();
        return std::popcount(static_cast<std::uint64_t>(span - at - last.size));
    }

    std::int64_t total;
    std::int64_t span = 1;
    std::int64_t used = 0;
    std::map<std::int64_t, model_block> blocks; // by offset
};

} // namespace test

#endif
