// SPDX-License-Identifier: LGPL-2.1-or-later
// The whole library behind a driver that is as careless as one may be: it looks at nothing but the
// PID, keeps nothing and counts nothing, so that hundreds of thousands of sections cost little.
#ifndef TESTS_SUPPORT_BROADCASTER_H
#define TESTS_SUPPORT_BROADCASTER_H

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "fakes/platform.h"
#include "orva_si.h"
#include "support/sections.h"

namespace test {

class careless_driver {
public:
    careless_driver()
    {
        handlers.DemuxInit = [](std::uint32_t) { return 0u; };
        handlers.FreeSecData = [](std::uint32_t, std::uint32_t, SiWord) { return 0u; };
        handlers.EnableSecFilter = [](std::uint32_t, std::uint32_t) { return 0u; };
        handlers.RemoveSecFilter = switch_off;
        handlers.DisableSecFilter = switch_off;
        handlers.AddSecFilter = [](std::uint32_t, std::uint32_t *filter_id, SiDmxFilterParam) {
            static std::uint32_t granted = 0;
            *filter_id = granted++;
            return 0u;
        };
        handlers.UpdateSecFilter = [](std::uint32_t, std::uint32_t filter_id,
                                      SiDmxFilterParam param) {
            const std::lock_guard held{lock};
            loaded.at(filter_id) = param;
            return 0u;
        };
    }
    SiDmxSectHandler *table() { return &handlers; }

    // Gives a section so many times to the first filter on this PID, in lists where it wants such;
    // false when there is none.
    static bool deliver(std::uint16_t pid, const octets &section, std::uint32_t times = 1)
    {
        bool in_list = false;
        std::uint32_t filter_id = 0;
        {
            const std::lock_guard held{lock};
            while (filter_id < loaded.size() && loaded[filter_id].pid != pid)
                ++filter_id;
            if (filter_id == loaded.size())
                return false;
            in_list = loaded[filter_id].list_mode != 0;
        }
        SiDmxSection one{const_cast<std::uint8_t *>(section.data()),
                         static_cast<std::uint32_t>(section.size()), nullptr, 0, 0};
        std::vector<SiDmxSection> all(times, one);
        SiDmxSectionList list{times, all.data(), 0};
        if (in_list)
            Si_SectFlt_PidFltSecListCallback(0, filter_id, 0, &list);
        for (; !in_list && times != 0; --times)
            Si_SectFlt_PidFltCallback(0, filter_id, 0, &one);
        return true;
    }

private:
    static constexpr std::size_t most_filters = 32; // the last one's id stands for none
    static constexpr std::uint16_t off = 0xFFFF;

    static std::uint32_t switch_off(std::uint32_t, std::uint32_t filter_id)
    {
        const std::lock_guard held{lock};
        loaded.at(filter_id).pid = off;
        return 0;
    }
    static std::array<SiDmxFilterParam, most_filters> none_loaded()
    {
        std::array<SiDmxFilterParam, most_filters> none{};
        for (SiDmxFilterParam &each : none)
            each.pid = off;
        return none;
    }

    SiDmxSectHandler handlers{};
    static inline std::mutex lock; // never held while the library is called
    static inline std::array<SiDmxFilterParam, most_filters> loaded = none_loaded();
};

// Section number n of a kind of table of which only the table_id_extension differs, at almost no
// cost: a CRC_32 is linear, so that of any extension is put together from two tables.
class extension_flood {
public:
    explicit extension_flood(octets section) : now{std::move(section)}
    {
        for (unsigned value = 0; value < 256; ++value) {
            high[value] = crc_with(value, 0);
            low[value] = crc_with(0, value);
        }
    }
    const octets &operator[](unsigned extension)
    {
        set(extension >> 8 & 0xFF, extension & 0xFF);
        const std::uint32_t crc = high[now[3]] ^ low[now[4]] ^ high[0];
        for (std::size_t at = 0; at < 4; ++at)
            now[now.size() - 4 + at] = static_cast<std::uint8_t>(crc >> (24 - 8 * at));
        return now;
    }

private:
    void set(unsigned first, unsigned second)
    {
        now[3] = static_cast<std::uint8_t>(first);
        now[4] = static_cast<std::uint8_t>(second);
    }
    std::uint32_t crc_with(unsigned first, unsigned second)
    {
        set(first, second);
        return crc_of(fix_crc(now));
    }

    octets now;
    std::array<std::uint32_t, 256> high;
    std::array<std::uint32_t, 256> low;
};

class BroadcastLibrary : public testing::Test {
protected:
    BroadcastLibrary()
    {
        fake::set_log_level(0);
        EXPECT_EQ(Orva_Si_Init(driver.table()), ORVA_SI_OK);
        EXPECT_TRUE(wait_for([] { return Orva_Si_GetTableList() != nullptr; }));
    }
    ~BroadcastLibrary() override { Orva_Si_DeInit(); }
    BroadcastLibrary(const BroadcastLibrary &) = delete;
    BroadcastLibrary &operator=(const BroadcastLibrary &) = delete;

    static bool wait_for(const std::function<bool()> &condition)
    {
        for (int i = 0; i < 60000 && !condition(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds{1});
        return condition();
    }
    // Until the library has taken in all that was delivered.
    static void settle()
    {
        EXPECT_TRUE(wait_for([] {
            return Si_SectFlt_GetPendingCount() == 0 && Si_SectFlt_CheckRunningStatus() == 0;
        }));
    }
    static void tune(std::uint32_t frequency, std::uint16_t program = SI_NO_PROGRAM)
    {
        const SiTuneParam param{frequency, 0, 0, program};
        ASSERT_EQ(Orva_Si_StartChannel(&param), ORVA_SI_OK);
    }
    // Waits like a driver with a buffer of its own, so that the queue refuses nothing.
    static void deliver(std::uint16_t pid, const octets &section)
    {
        constexpr std::uint32_t most_pending = 64;
        if (Si_SectFlt_GetPendingCount() >= most_pending)
            while (Si_SectFlt_GetPendingCount() >= most_pending / 2)
                std::this_thread::sleep_for(std::chrono::microseconds{20});
        ASSERT_TRUE(driver.deliver(pid, section)) << "PID " << pid;
    }
    static SiLimitCounts counts()
    {
        SiLimitCounts now{};
        EXPECT_EQ(Orva_Si_GetLimitCounts(&now), ORVA_SI_OK);
        return now;
    }

    static inline careless_driver driver;
};

} // namespace test

#endif
