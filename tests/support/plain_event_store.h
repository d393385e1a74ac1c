// SPDX-License-Identifier: LGPL-2.1-or-later
// The event store as a plain program, for comparison.
#ifndef TESTS_SUPPORT_PLAIN_EVENT_STORE_H
#define TESTS_SUPPORT_PLAIN_EVENT_STORE_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "support/event_store.h"

namespace test {

struct kept {
    std::uint8_t table_id; // folded
    std::uint8_t number;
    octets section; // empty after a failed update
};
using key = std::array<std::uint16_t, 3>;

// The store as a plain program: vectors, no memory of its own to run out of.
class plain_store {
public:
    std::vector<std::pair<key, std::vector<kept>>> all;
    std::vector<notice> told_of;
    std::vector<std::string> calls;

    // failing: the allocation that fails, 0 for none; only for known services.
    void take(const octets &section, unsigned failing)
    {
        const key ids{static_cast<std::uint16_t>(section[10] << 8 | section[11]),
                      static_cast<std::uint16_t>(section[8] << 8 | section[9]),
                      static_cast<std::uint16_t>(section[3] << 8 | section[4])};
        auto at = std::find_if(all.begin(), all.end(),
                               [&](const auto &entry) { return entry.first == ids; });
        if (at == all.end())
            at = all.insert(all.end(), {ids, {}});
        std::vector<kept> &list = at->second;
        const auto is_this = [&](const kept &k) {
            return k.table_id == folded(section[0]) && k.number == section[6];
        };
        const auto differs = std::find_if(list.begin(), list.end(), [&](const kept &k) {
            return is_this(k) && (k.section.empty() || crc_of(k.section) != crc_of(section));
        });
        if (std::none_of(list.begin(), list.end(), is_this)) {
            told_of.push_back(told(section, 0));
            if (failing == 1 || failing == 2)
                return;
            if (failing != 3)
                list.push_back({folded(section[0]), section[6], section});
        } else if (differs != list.end()) {
            differs->section.clear();
            if (failing == 1)
                return;
            differs->section = section;
            told_of.push_back(told(section, 1));
        }
        check(list, section, ids[2]);
    }

private:
    void check(const std::vector<kept> &list, const octets &section, unsigned service)
    {
        const std::uint8_t id = section[0];
        if (id >= 0x50 && id <= 0x5F)
            calls.push_back(last_table(id, service, section[13]));
        if (id >= 0x60 || id == 0x4F)
            return;
        std::vector<octets> own;
        for (const kept &k : list)
            if (!k.section.empty() && k.section[0] == id)
                own.push_back(k.section);
        for (std::size_t count = 1; count <= own.size(); ++count) {
            const std::span<const octets> seen{own.data(), count};
            if ((seen.back()[5] >> 1 & 0x1F) != (own[0][5] >> 1 & 0x1F))
                return;
            if (id == 0x4E ? both(seen) : every_segment(seen)) {
                calls.push_back(complete(id, service, section[5] >> 1 & 0x1F));
                return;
            }
        }
    }
    static bool both(std::span<const octets> seen)
    {
        const auto there = [&](unsigned number) {
            return std::any_of(seen.begin(), seen.end(),
                               [&](const octets &s) { return s[6] == number; });
        };
        return there(0) && there(1);
    }
    // Exactly the segments up to the last one have a section whose place in its segment is not
    // beyond that of the last section, of which each one that comes has its own idea.
    static bool every_segment(std::span<const octets> seen)
    {
        std::map<unsigned, unsigned> first; // the lowest place that is there
        std::map<unsigned, bool> done;
        for (const octets &s : seen) {
            const unsigned place = s[6] % 8U;
            const auto lowest = first.emplace(s[6] / 8, place).first;
            lowest->second = std::min(lowest->second, place);
            if (lowest->second <= s[7] % 8U)
                done[s[6] / 8] = true;
        }
        const unsigned segments = seen[0][7] / 8 + 1U;
        return done.size() == segments && done.rbegin()->first == segments - 1;
    }
};

} // namespace test

#endif
