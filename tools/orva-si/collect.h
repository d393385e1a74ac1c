// SPDX-License-Identifier: LGPL-2.1-or-later
// How the library is asked for what a scan brought.
#ifndef TOOLS_COLLECT_H
#define TOOLS_COLLECT_H

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <set>
#include <vector>

#include "multiplex.h"
#include "orva_si.h"
#include "terminal.h"

namespace tool {

// What the collecting of every kind of table needs.
struct collecting {
    const options &chosen;
    int signal_before = received_signal();

    // A signal during the scan asks for what is there; one that comes now ends the asking itself.
    bool interrupted() const { return received_signal() != signal_before; }

    label text(const SiDvbString &stored) const;
};

std::vector<network> collect_networks(const collecting &run, std::optional<std::uint16_t> current);
std::vector<service> collect_services(const collecting &run);
std::vector<program> collect_programs(const collecting &run);
software_updates collect_updates(const std::vector<network> &networks);

// The answer to a question for one value.
template <class T, class Ask>
std::optional<T> value_of(Ask ask)
{
    T value{};
    return ask(&value) == ORVA_SI_OK ? std::optional<T>{value} : std::nullopt;
}

// The answer to a question for a list, however long it is. usual: elements that most answers do not
// exceed.
template <class T, class Count = std::uint32_t, class Ask>
std::vector<T> list_of(Ask ask, std::uint32_t usual = 256)
{
    constexpr std::uint32_t most_elements = 1u << 20; // no store holds as many
    for (std::uint32_t capacity = std::max(usual, 1u);; capacity *= 4) {
        std::vector<T> list(capacity);
        Count count = static_cast<Count>(capacity);
        const std::uint32_t result = ask(list.data(), &count);
        if (result == ORVA_SI_ARRAY_FULL && capacity < most_elements)
            continue;
        list.resize(static_cast<std::size_t>(count));
        return list;
    }
}

// The name that a question answers.
template <class Ask>
std::optional<label> name_of(const collecting &run, Ask ask)
{
    const auto stored = value_of<SiDvbString>(ask);
    return stored ? std::optional{run.text(*stored)} : std::nullopt;
}

// The items, each as told makes it.
template <class Items, class Tell>
auto each(const Items &items, Tell tell)
{
    std::vector<decltype(tell(*std::begin(items)))> all;
    for (const auto &item : items)
        all.push_back(tell(item));
    return all;
}

// Of what the sections say, in their order, leaves what the library lists as well, as often.
template <class Item, class Key, class KeyOf>
void keep_listed(std::vector<Item> &items, std::multiset<Key> listed, KeyOf key_of)
{
    std::erase_if(items, [&](const Item &item) {
        const auto found = listed.find(key_of(item));
        if (found == listed.end())
            return true;
        listed.erase(found);
        return false;
    });
}

class id_set {
public:
    explicit id_set(const std::vector<std::uint16_t> &ids = {}) : held(0x10000)
    {
        for (const std::uint16_t id : ids)
            held[id] = true;
    }
    bool has(std::uint16_t id) const { return held[id]; }
    // Takes an id out; whether it was there.
    bool take(std::uint16_t id)
    {
        const bool was = held[id];
        held[id] = false;
        return was;
    }

private:
    std::vector<bool> held;
};

inline std::vector<std::uint16_t> without_repeats(std::vector<std::uint16_t> ids)
{
    id_set left{ids};
    std::erase_if(ids, [&](std::uint16_t id) { return !left.take(id); });
    return ids;
}

// The field as it was broadcast: the library splits a selector off its text.
std::vector<std::uint8_t> field_of(const SiDvbString &stored);

// A code of the library, fit for a terminal; empty when there is none.
std::string code_of(const char (&code)[4]);

region region_of(const SiTargetRegion &coded);

} // namespace tool

#endif
