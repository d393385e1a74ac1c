// SPDX-License-Identifier: LGPL-2.1-or-later
#include "mutate.h"

#include <random>

#include <array>

#include "frames.h"
#include "outline.h"
#include "seeds.h"

namespace fuzz {

namespace {

constexpr std::size_t largest = 4096;

class mutation {
public:
    mutation(unsigned seed, plain_mutator other) : random{seed}, plain{other} {}

    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random() % limit; }
    bool one_in(std::size_t n) { return below(n) == 0; }
    template <class T>
    const T &one_of(const std::vector<T> &all)
    {
        return all[below(all.size())];
    }

    // One or a few changes to one section; then its length and CRC_32 fit, mostly.
    void change_section(octets &section)
    {
        do
            change_once(section);
        while (one_in(3));
        if (!one_in(16))
            repair_length(section);
        if (!one_in(16))
            repair_crc(section);
    }

    void change_frames(std::vector<frame> &frames)
    {
        constexpr std::size_t most = 24;
        if (frames.empty() || (frames.size() < most && one_in(8)))
            return insert_seed(frames);
        const std::size_t at = below(frames.size());
        switch (below(10)) {
        case 0: // a new version behind the old one
            if (frames.size() < most) {
                frame next = frames[at];
                next_version(next.content);
                change_section(next.content);
                frames.insert(frames.begin() + static_cast<std::ptrdiff_t>(at) + 1, next);
            }
            break;
        case 1:
            if (frames.size() > 1)
                frames.erase(frames.begin() + static_cast<std::ptrdiff_t>(at));
            break;
        case 2:
            std::swap(frames[at], frames[below(frames.size())]);
            break;
        case 3:
            frames[at].channel = static_cast<std::uint8_t>(random() & 0xFF);
            break;
        default:
            change_section(frames[at].content);
        }
    }

    // Bytes of which nothing is known.
    void change_plainly(octets &data, std::size_t capacity)
    {
        const std::size_t size = data.size();
        data.resize(std::max(capacity, size));
        data.resize(plain(data.data(), size, data.size()));
    }

private:
    void insert_seed(std::vector<frame> &frames)
    {
        const auto at = static_cast<std::ptrdiff_t>(below(frames.size() + 1));
        frames.insert(frames.begin() + at, {0, one_of(seed_sections())});
    }

    static void next_version(octets &section)
    {
        if (section.size() > 5)
            section[5] = static_cast<std::uint8_t>((section[5] & 0xC1) | ((section[5] + 2) & 0x3E));
    }

    void change_once(octets &section)
    {
        if (section.size() < 12)
            return change_plainly(section, 64);
        switch (below(11)) {
        case 0:
            return lie_about_a_loop(section);
        case 1:
            return lie_in_a_descriptor(section);
        case 2:
        case 3:
            return insert_descriptor(section);
        case 4:
            return remove_descriptor(section);
        case 5:
            return change_byte(section);
        case 6:
            return next_version(section);
        case 7: // section_number and last_section_number
            section[6 + below(2)] = static_cast<std::uint8_t>(one_in(4) ? below(256) : below(3));
            return;
        case 8: // ids: few, so that sections meet
            section[4] = static_cast<std::uint8_t>(below(4));
            return;
        case 9:
            return change_size(section);
        default:
            return change_plainly(section, std::min(section.size() + 32, largest));
        }
    }

    void change_byte(octets &section)
    {
        constexpr std::array<std::uint8_t, 8> edges{0x00, 0x01, 0x3F, 0x40, 0x7F, 0x80, 0xFE, 0xFF};
        std::uint8_t &byte = section[below(section.size())];
        byte = one_in(2) ? edges[below(edges.size())] : static_cast<std::uint8_t>(below(256));
    }

    // The end of the section stays: what was behind moves into the CRC_32's place or away from it.
    void change_size(octets &section)
    {
        if (one_in(2))
            section.resize(1 + below(section.size()));
        else
            section.resize(std::min(section.size() + 1 + below(16), largest), 0xFF);
    }

    // Near what is true, or at the ends of the range.
    std::size_t untrue(std::size_t truth, std::size_t most)
    {
        switch (below(6)) {
        case 0:
            return 0;
        case 1:
            return most;
        case 2:
            return truth + 1;
        case 3:
            return truth == 0 ? 1 : truth - 1;
        case 4:
            return truth + below(8);
        default:
            return below(most + 1);
        }
    }

    void lie_about_a_loop(octets &section)
    {
        const outline is = outline_of(section);
        const std::size_t at = one_of(is.lengths);
        set_length12(section, at, untrue(length12(section, at), 0xFFF) & 0xFFF);
    }

    // The position of a descriptor; 0 where there is none.
    std::size_t some_descriptor(const octets &section, const descriptor_loop *&its)
    {
        const outline is = outline_of(section);
        if (is.loops.empty())
            return 0;
        chosen = one_of(is.loops);
        its = &chosen;
        const auto all = descriptors_in(section, chosen);
        return all.empty() ? 0 : one_of(all);
    }

    void lie_in_a_descriptor(octets &section)
    {
        const descriptor_loop *its = nullptr;
        const std::size_t at = some_descriptor(section, its);
        if (at == 0)
            return change_byte(section);
        const std::size_t length = section[at + 1];
        // Any byte of it may be a length: its own, or one inside.
        const std::size_t changed = at + 1 + (one_in(3) ? 0 : below(length + 1));
        if (changed < section.size())
            section[changed] = static_cast<std::uint8_t>(untrue(length, 0xFF) & 0xFF);
    }

    void grow(octets &section, const descriptor_loop &loop, std::ptrdiff_t by)
    {
        for (const std::size_t at : {loop.length_at, loop.outer_length_at})
            if (at != 0)
                set_length12(section, at,
                             static_cast<std::size_t>(
                                 static_cast<std::ptrdiff_t>(length12(section, at)) + by) &
                                 0xFFF);
    }

    void insert_descriptor(octets &section)
    {
        const outline is = outline_of(section);
        if (is.loops.empty())
            return change_byte(section);
        const descriptor_loop loop = one_of(is.loops);
        std::vector<std::size_t> places = descriptors_in(section, loop);
        places.push_back(loop.end);
        const octets &descriptor = one_of(seed_descriptors());
        const std::size_t at = std::min(one_of(places), section.size());
        if (section.size() + descriptor.size() > largest)
            return;
        section.insert(section.begin() + static_cast<std::ptrdiff_t>(at), descriptor.begin(),
                       descriptor.end());
        grow(section, loop, std::ssize(descriptor));
    }

    void remove_descriptor(octets &section)
    {
        const descriptor_loop *its = nullptr;
        const std::size_t at = some_descriptor(section, its);
        if (at == 0)
            return change_byte(section);
        const std::size_t end = std::min(at + 2u + section[at + 1], section.size());
        section.erase(section.begin() + static_cast<std::ptrdiff_t>(at),
                      section.begin() + static_cast<std::ptrdiff_t>(end));
        grow(section, *its, -static_cast<std::ptrdiff_t>(end - at));
    }

    std::minstd_rand random;
    plain_mutator plain;
    descriptor_loop chosen{};
};

std::size_t written_back(const octets &changed, std::span<std::uint8_t> room)
{
    const std::size_t size = std::min(changed.size(), room.size());
    std::copy_n(changed.begin(), size, room.begin());
    return size;
}

} // namespace

std::size_t mutate(shape of, std::span<std::uint8_t> room, std::size_t size, unsigned seed,
                   plain_mutator plain)
{
    mutation with{seed, plain};
    if (of == shape::plain || size == 0 || with.one_in(of == shape::section ? 2 : 16))
        return plain(room.data(), size, room.size());
    const bytes now = room.first(size);
    if (of == shape::section) {
        octets section{now.begin() + 1, now.end()};
        with.change_section(section);
        section.insert(section.begin(), now[0]);
        return written_back(section, room);
    }
    std::vector<frame> frames = frames_of(now);
    with.change_frames(frames);
    return written_back(packed(frames), room);
}

} // namespace fuzz
