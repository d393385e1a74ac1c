// SPDX-License-Identifier: LGPL-2.1-or-later
// A program that a test runs, with what it prints, and files for it.
#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace test {

// A folder that is removed with its files when the test ends.
class scratch_folder {
public:
    scratch_folder();
    ~scratch_folder();
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;

    std::string path(const std::string &name) const { return (folder / name).string(); }
    // Writes a file; its path.
    std::string write(const std::string &name, std::span<const std::uint8_t> bytes) const;

private:
    std::filesystem::path folder;
};

std::string contents(const std::string &path);

struct ended {
    int status = -1; // exit status; 1000 and the signal's number for one that a signal killed
    std::string out;
    std::string err;
    std::chrono::milliseconds took{};
};

class process {
public:
    // Starts a program. Standard input and output are the given descriptors, or empty and a file.
    explicit process(const std::vector<std::string> &command, int in = -1, int out = -1);
    ~process();
    process(const process &) = delete;
    process &operator=(const process &) = delete;

    void signal(int number) const;
    // Waits for the end; kills it after a minute.
    ended wait();

private:
    scratch_folder files;
    std::chrono::steady_clock::time_point started;
    pid_t child = -1;
};

} // namespace test

#endif
