// SPDX-License-Identifier: LGPL-2.1-or-later
// A client of the demultiplexer for tests: files and pipes to read, filters to arm, and what came
// of them.
#ifndef TESTS_DEMUX_CLIENT_H
#define TESTS_DEMUX_CLIENT_H

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "demux/pending.h"
#include "demux/stream.h"
#include "orva_demux.h"

namespace test {

using steady = std::chrono::steady_clock;
using namespace std::chrono_literals;

// A section that was given, with the callback that brought it.
struct delivered {
    std::uint32_t filter;
    octets section;
    SiWord handle;
    steady::time_point when;
    std::size_t callback; // counted from 0; the sections of a batch share one
};

// What callbacks do, and what they saw. One per process, as there is one demultiplexer.
struct recorder {
    std::mutex lock;
    std::vector<delivered> all;
    std::size_t callbacks = 0;
    std::atomic<bool> give_back = true; // each buffer before the callback ends
    std::function<void(std::uint32_t filter, const octets &)> on_section; // called without the lock
};
inline recorder &recorded()
{
    static recorder one;
    return one;
}

// What the callbacks do from now on.
inline void on_each_section(std::function<void(std::uint32_t filter, const octets &)> act)
{
    const std::scoped_lock held{recorded().lock};
    recorded().on_section = std::move(act);
}

inline SiDmxSectHandler &handler()
{
    return *orva_demux_handler();
}

inline octets bytes_of(const SiDmxSection &s)
{
    octets all{s.pPrimaraySectionData, s.pPrimaraySectionData + s.PrimaraySectionSize};
    if (s.SecondarySectionSize != 0)
        all.insert(all.end(), s.pSecondarySectionData,
                   s.pSecondarySectionData + s.SecondarySectionSize);
    return all;
}

inline void record(std::uint32_t demux, std::uint32_t filter, const SiDmxSection *sections,
                   std::uint32_t count, SiWord handle)
{
    recorder &to = recorded();
    std::vector<octets> seen;
    std::function<void(std::uint32_t, const octets &)> act;
    {
        const std::scoped_lock held{to.lock};
        act = to.on_section;
        for (std::uint32_t i = 0; i < count; ++i) {
            seen.push_back(bytes_of(sections[i]));
            to.all.push_back({filter, seen.back(), handle, steady::now(), to.callbacks});
        }
        ++to.callbacks;
    }
    if (act)
        for (const octets &section : seen)
            act(filter, section);
    if (to.give_back) {
        EXPECT_EQ(handler().FreeSecData(demux, filter, handle), 0u);
    }
}

inline std::uint32_t on_single(std::uint32_t demux, std::uint32_t filter, SiWord,
                               SiDmxSection *section)
{
    record(demux, filter, section, 1, section->BufferHandle);
    return 0;
}
inline std::uint32_t on_list(std::uint32_t demux, std::uint32_t filter, SiWord,
                             SiDmxSectionList *list)
{
    record(demux, filter, list->section, list->section_count, list->BufferHandle);
    return 0;
}

// Settings as the library makes them.
inline SiDmxFilterParam on_pid(std::uint16_t pid)
{
    SiDmxFilterParam setting{};
    setting.pid = pid;
    setting.start_flag = 1;
    setting.list_length = 1;
    setting.option = 1;
    setting.section_callback = on_single;
    return setting;
}
inline SiDmxFilterParam on_table(std::uint16_t pid, std::uint8_t table_id, std::uint8_t mask = 0xFF)
{
    SiDmxFilterParam setting = on_pid(pid);
    setting.filter_depth = 1;
    setting.match[0] = table_id;
    setting.mask[0] = mask;
    return setting;
}
inline SiDmxFilterParam on_extension(std::uint16_t pid, std::uint8_t table_id,
                                     std::uint16_t extension)
{
    SiDmxFilterParam setting = on_table(pid, table_id);
    setting.filter_depth = 5;
    setting.match[3] = static_cast<std::uint8_t>(extension >> 8);
    setting.match[4] = static_cast<std::uint8_t>(extension & 0xFF);
    setting.mask[3] = setting.mask[4] = 0xFF;
    return setting;
}
inline SiDmxFilterParam in_batches(SiDmxFilterParam setting, std::uint32_t length)
{
    setting.list_mode = 1;
    setting.list_length = length;
    setting.section_callback = nullptr;
    setting.section_list_callback = on_list;
    return setting;
}

// Polls until something holds, for twenty seconds at most: as long as a busy machine may take.
template <class Condition>
bool eventually(Condition holds)
{
    const steady::time_point end = steady::now() + 20s;
    while (!holds()) {
        if (steady::now() > end)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// What is done at once takes no longer on a busy machine; what waits for the test's next step never
// ends.
constexpr auto at_once = 5s;

// The shortest of some times: a busy machine makes one of them long, a fault makes all of them so.
template <class Measure>
steady::duration shortest_of(unsigned times, Measure took)
{
    steady::duration shortest = took();
    for (unsigned i = 1; i < times; ++i)
        shortest = std::min<steady::duration>(shortest, took());
    return shortest;
}

class DemuxClient : public testing::Test {
protected:
    DemuxClient()
    {
        fake::pending = 0;
        forget();
        recorded().give_back = true;
        on_each_section(nullptr);
    }
    // Before the members of the test itself are gone: callbacks use them.
    void TearDown() override { close(); }
    ~DemuxClient() override
    {
        for (const std::string &path : files)
            std::remove(path.c_str());
        for (const int descriptor : {pipe_in, pipe_out})
            if (descriptor >= 0)
                ::close(descriptor);
    }

    std::string file(const octets &content)
    {
        char name[] = "/tmp/orva-demux-XXXXXX";
        const int fd = mkstemp(name);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
        ::close(fd);
        files.emplace_back(name);
        return name;
    }
    // A pipe, as a path; feed writes into it, end_pipe closes it.
    std::string pipe()
    {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        pipe_out = ends[0];
        pipe_in = ends[1];
        return "/dev/fd/" + std::to_string(pipe_out);
    }
    void feed(const octets &content)
    {
        EXPECT_EQ(write(pipe_in, content.data(), content.size()),
                  static_cast<ssize_t>(content.size()));
    }
    void end_pipe() { ::close(std::exchange(pipe_in, -1)); }

    void open(const std::string &path, const OrvaDemuxOptions &options = {})
    {
        OrvaDemuxError error{};
        demux = orva_demux_open(path.c_str(), &options, &error);
        ASSERT_NE(demux, nullptr) << orva_demux_error_text(error);
    }
    void open(const stream &ts) { open(file(ts.bytes)); }
    void close() { orva_demux_close(std::exchange(demux, nullptr)); }
    // Closes at the end of a block: declared behind the variables of it that callbacks use.
    struct closing {
        DemuxClient &client;
        ~closing() { client.close(); }
    };

    static std::uint32_t add()
    {
        std::uint32_t id = SI_NO_FILTER;
        EXPECT_EQ(handler().AddSecFilter(0, &id, SiDmxFilterParam{}), 0u);
        return id;
    }
    static void load(std::uint32_t id, const SiDmxFilterParam &setting)
    {
        EXPECT_EQ(handler().UpdateSecFilter(0, id, setting), 0u);
    }
    static std::uint32_t arm(const SiDmxFilterParam &setting)
    {
        const std::uint32_t id = add();
        load(id, setting);
        return id;
    }

    OrvaDemuxStatus status() const
    {
        OrvaDemuxStatus now{};
        orva_demux_get_status(demux, &now);
        return now;
    }
    bool reaches(OrvaDemuxState state) const
    {
        return eventually([&] { return status().state == state; });
    }
    bool idle() const
    {
        return eventually([&] { return status().idle == 1; });
    }

    static std::vector<delivered> all()
    {
        const std::scoped_lock held{recorded().lock};
        return recorded().all;
    }
    static std::vector<octets> sections(std::uint32_t filter)
    {
        std::vector<octets> found;
        for (const delivered &one : all())
            if (one.filter == filter)
                found.push_back(one.section);
        return found;
    }
    static std::size_t count() { return all().size(); }
    static void forget()
    {
        const std::scoped_lock held{recorded().lock};
        recorded().all.clear();
        recorded().callbacks = 0;
    }

    OrvaDemux *demux = nullptr;
    int pipe_in = -1;
    int pipe_out = -1;
    std::vector<std::string> files;
};

// Makes a wait of the client end once, from another thread.
struct gate {
    std::mutex lock;
    std::condition_variable changed;
    bool open = false;

    void pass()
    {
        std::unique_lock held{lock};
        changed.wait_for(held, 2s, [&] { return open; });
    }
    void release()
    {
        const std::scoped_lock held{lock};
        open = true;
        changed.notify_all();
    }
};

} // namespace test

#endif
