// SPDX-License-Identifier: LGPL-2.1-or-later
// Runs every test in a process of its own, because the library's state is global and its
// initialisation one-way. The processes are forked from one that has done nothing yet and has a
// single thread: that costs far less than to start the program for each test, above all with a
// sanitizer.
//
//     orva_si_sdt_test                                   all tests of the program
//     orva_si_sdt_test --gtest_filter='ServiceName.*'    GoogleTest's options choose and list
//     orva_si_sdt_test --here --gtest_filter=...         in this process, for a debugger
//     orva_si_sdt_test --jobs=4 --timeout=60             so many at a time; seconds that a test may
//     take
//     orva_si_sdt_test --together                        those that can in one process, where each
//     process is dear: who does not pass there is run again, alone
//
// A test has passed when it says so itself and its process then ends with status 0: what a
// sanitizer finds at the end counts, and so does a test that ends its process too early. Output is
// shown of those that did not pass, or of a single one that is asked for. Exit status: 0, 1 when a
// test failed or none was found, 77 when all were skipped. Tests that try many inputs record how
// many as the property "inputs", which is summed up.
#include <csignal>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "runner/between.h"

namespace {

using clock_type = std::chrono::steady_clock;

struct settings {
    bool here = false;
    bool together = false;
    bool show = false; // the output of those that pass too
    unsigned jobs = 1;
    std::chrono::seconds timeout{180};
};

enum class verdict { none, passed, failed, skipped, disabled };

using test_names = std::vector<std::string>;

// What a test says of itself, in memory that its process shares with this one.
struct statement {
    verdict of_test;
    unsigned long inputs;
};

struct test_process {
    test_names names;
    pid_t pid;
    FILE *output;
    statement *said; // each of the tests
    clock_type::time_point started;
    bool timed_out = false;

    const std::string &name() const { return names.front(); } // of one that is alone
};

struct tally {
    unsigned passed = 0;
    unsigned skipped = 0;
    unsigned disabled = 0;
    unsigned long inputs = 0;
    std::vector<std::string> failed;
};

[[noreturn]] void give_up(const char *what)
{
    std::perror(what);
    std::_Exit(1);
}

// Takes our own options away from those of GoogleTest; false for one that nobody knows.
bool read_options(int argc, char **argv, settings &wanted)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view option{argv[i]};
        if (option == "--here")
            wanted.here = true;
        else if (option == "--together")
            wanted.together = true;
        else if (option.starts_with("--jobs="))
            wanted.jobs = std::max(1u, static_cast<unsigned>(std::atoi(argv[i] + 7)));
        else if (option.starts_with("--timeout="))
            wanted.timeout = std::chrono::seconds{std::max(1, std::atoi(argv[i] + 10))};
        else {
            std::fprintf(stderr, "%s: %s?\n", argv[0], argv[i]);
            return false;
        }
    }
    return true;
}

// The names that the filter selects, as GoogleTest lists them: "Suite." and, indented, "Test", each
// perhaps with a remark.
test_names names_in(FILE *listing)
{
    test_names names;
    std::string suite;
    std::array<char, 4096> line{};
    while (std::fgets(line.data(), line.size(), listing) != nullptr) {
        std::string_view text{line.data()};
        const bool indented = text.starts_with("  ");
        if (indented)
            text.remove_prefix(2);
        text = text.substr(0, text.find_first_of(" \n"));
        if (indented)
            names.push_back(suite + std::string{text});
        else
            suite = text;
    }
    return names;
}

test_names selected_tests()
{
    FILE *listing = std::tmpfile();
    if (listing == nullptr)
        give_up("tmpfile");
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        dup2(fileno(listing), STDOUT_FILENO);
        GTEST_FLAG_SET(list_tests, true);
        std::exit(RUN_ALL_TESTS());
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0)
        give_up("listing the tests");
    std::rewind(listing);
    test_names names = names_in(listing);
    std::fclose(listing);
    return names;
}

verdict verdict_of(const testing::UnitTest &unit, int result)
{
    if (unit.test_to_run_count() == 0)
        return unit.reportable_disabled_test_count() != 0 ? verdict::disabled : verdict::none;
    if (result != 0)
        return verdict::failed;
    return unit.skipped_test_count() != 0 ? verdict::skipped : verdict::passed;
}

unsigned long inputs_of(const testing::TestResult &result)
{
    unsigned long inputs = 0;
    for (int at = 0; at < result.test_property_count(); ++at)
        if (result.GetTestProperty(at).key() == std::string_view{"inputs"})
            inputs += std::strtoul(result.GetTestProperty(at).value(), nullptr, 10);
    return inputs;
}

unsigned long inputs_of(const testing::UnitTest &unit)
{
    unsigned long inputs = 0;
    for (int suite = 0; suite < unit.total_test_suite_count(); ++suite)
        for (int test = 0; test < unit.GetTestSuite(suite)->total_test_count(); ++test)
            inputs += inputs_of(*unit.GetTestSuite(suite)->GetTestInfo(test)->result());
    return inputs;
}

// Writes down which of several tests pass, as each ends. They end in the order of their names.
class witness : public testing::EmptyTestEventListener {
public:
    witness(const test_names &names, statement *said) : names{names}, said{said} {}

private:
    void OnTestEnd(const testing::TestInfo &test) override
    {
        const std::string name = std::string{test.test_suite_name()} + "." + test.name();
        while (names[at] != name)
            ++at;
        const testing::TestResult &result = *test.result();
        said[at] = {result.Passed() && !result.Skipped() ? verdict::passed : verdict::failed,
                    inputs_of(result)};
        if (test::tidy_up != nullptr)
            test::tidy_up();
    }

    const test_names &names;
    statement *said;
    std::size_t at = 0;
};

std::string filter_of(const test_names &names)
{
    std::string filter = names.front();
    for (std::size_t i = 1; i < names.size(); ++i)
        filter += ":" + names[i];
    return filter;
}

[[noreturn]] void run_child(const test_names &names, FILE *output, statement *said,
                            const sigset_t &signals)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(fileno(output), STDOUT_FILENO);
    dup2(fileno(output), STDERR_FILENO);
    GTEST_FLAG_SET(filter, filter_of(names));
    testing::UnitTest &unit = *testing::UnitTest::GetInstance();
    const bool alone = names.size() == 1;
    if (!alone)
        unit.listeners().Append(new witness{names, said});
    const int result = RUN_ALL_TESTS();
    std::fflush(nullptr);
    if (!alone) // with 0 when what went wrong is said of the tests
        std::exit(unit.failed_test_count() == 0 ? result : 0);
    *said = {verdict_of(unit, result), inputs_of(unit)};
    std::exit(result);
}

std::size_t bytes_of(const test_names &names)
{
    return names.size() * sizeof(statement);
}

test_process start(const test_names &names, const sigset_t &signals)
{
    void *shared =
        mmap(nullptr, bytes_of(names), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    FILE *output = std::tmpfile();
    if (shared == MAP_FAILED || output == nullptr)
        give_up(names.front().c_str());
    fcntl(fileno(output), F_SETFD, FD_CLOEXEC);
    auto *said = static_cast<statement *>(shared);
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        give_up("fork");
    if (pid == 0)
        run_child(names, output, said, signals);
    setpgid(pid, pid); // here too, so that it is done before anybody kills the group
    return {names, pid, output, said, clock_type::now()};
}

// Empty for a test that did what it should.
std::string fault_of(const test_process &test, int status, const settings &wanted)
{
    if (test.timed_out)
        return "not over in " + std::to_string(wanted.timeout.count()) + " s";
    if (WIFSIGNALED(status))
        return std::string{"killed by "} + strsignal(WTERMSIG(status));
    if (test.said->of_test == verdict::failed)
        return "failed";
    if (test.said->of_test == verdict::none)
        return "ended too early with status " + std::to_string(WEXITSTATUS(status));
    if (WEXITSTATUS(status) != 0)
        return "status " + std::to_string(WEXITSTATUS(status)) + " after its end";
    return {};
}

void copy_to_stdout(FILE *output)
{
    std::rewind(output);
    std::array<char, 4096> part{};
    for (std::size_t count = 0; (count = std::fread(part.data(), 1, part.size(), output)) != 0;)
        std::fwrite(part.data(), 1, count, stdout);
}

void conclude_one(const test_process &test, int status, const settings &wanted, tally &all)
{
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(clock_type::now() - test.started);
    const std::string fault = fault_of(test, status, wanted);
    const char *word = "passed";
    if (!fault.empty()) {
        word = "FAILED";
        all.failed.push_back(test.name() + " (" + fault + ")");
    } else if (test.said->of_test == verdict::skipped) {
        word = "skipped";
        ++all.skipped;
    } else if (test.said->of_test == verdict::disabled) {
        word = "disabled";
        ++all.disabled;
    } else {
        ++all.passed;
    }
    all.inputs += test.said->inputs;
    if (wanted.show || !fault.empty() || test.said->of_test == verdict::skipped)
        copy_to_stdout(test.output);
    std::printf("%-8s %s%s%s (%lld ms)\n", word, test.name().c_str(), fault.empty() ? "" : ": ",
                fault.c_str(), static_cast<long long>(took.count()));
}

// Counts those that passed when the process ended well. What is still to be run: who failed, alone;
// who ended the process, alone, and all others together again; each alone when nobody says who it
// was.
std::vector<test_names> conclude_several(const test_process &tests, int status, tally &all)
{
    const bool ended_well = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    std::vector<test_names> rest;
    test_names again;
    bool to_the_end = true;
    for (std::size_t i = 0; i < tests.names.size(); ++i) {
        const std::string &name = tests.names[i];
        const verdict said = tests.said[i].of_test;
        const bool ended_here = said == verdict::none && to_the_end;
        to_the_end = to_the_end && !ended_here;
        if (said == verdict::passed && ended_well) {
            ++all.passed;
            all.inputs += tests.said[i].inputs;
            std::printf("passed   %s (with others)\n", name.c_str());
        } else if (said == verdict::failed || ended_here)
            rest.push_back({name});
        else
            again.push_back(name);
    }
    if (!to_the_end && !again.empty())
        rest.push_back(std::move(again));
    else
        for (const std::string &name : again)
            rest.push_back({name});
    return rest;
}

std::vector<test_names> conclude(test_process &test, int status, const settings &wanted, tally &all)
{
    kill(-test.pid, SIGKILL); // what it left behind
    std::vector<test_names> rest;
    if (test.names.size() > 1)
        rest = conclude_several(test, status, all);
    else
        conclude_one(test, status, wanted, all);
    std::fclose(test.output);
    munmap(test.said, bytes_of(test.names));
    return rest;
}

// What the tests that ended leave to be run.
std::vector<test_names> reap(std::vector<test_process> &running, const settings &wanted, tally &all)
{
    std::vector<test_names> rest;
    int status = 0;
    for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        const auto test = std::ranges::find(running, pid, &test_process::pid);
        if (test == running.end())
            continue;
        std::ranges::move(conclude(*test, status, wanted, all), std::back_inserter(rest));
        running.erase(test);
    }
    return rest;
}

tally run(const test_names &names, const settings &wanted)
{
    sigset_t ended;
    sigset_t before;
    sigemptyset(&ended);
    sigaddset(&ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ended, &before);

    std::deque<test_names> next;
    if (wanted.together && !names.empty())
        next.push_back(names);
    else
        for (const std::string &name : names)
            next.push_back({name});
    tally all;
    std::vector<test_process> running;
    while (!next.empty() || !running.empty()) {
        for (; !next.empty() && running.size() < wanted.jobs; next.pop_front())
            running.push_back(start(next.front(), before));
        constexpr timespec second{1, 0};
        sigtimedwait(&ended, nullptr, &second);
        std::ranges::move(reap(running, wanted, all), std::back_inserter(next));
        for (test_process &test : running) {
            if (clock_type::now() - test.started < wanted.timeout)
                continue;
            test.timed_out = true;
            kill(-test.pid, SIGKILL);
        }
    }
    return all;
}

int report(const tally &all)
{
    for (const std::string &failure : all.failed)
        std::printf("FAILED: %s\n", failure.c_str());
    std::printf("tests: %u passed, %zu failed, %u skipped, %u disabled\n", all.passed,
                all.failed.size(), all.skipped, all.disabled);
    if (all.inputs != 0)
        std::printf("inputs: %lu\n", all.inputs);
    if (!all.failed.empty() || all.passed + all.skipped + all.disabled == 0)
        return 1;
    return all.passed == 0 && all.skipped != 0 ? 77 : 0;
}

} // namespace

int main(int argc, char **argv)
{
    // A death test of the thorough kind starts the program again, for itself alone.
    const bool in_death_test = std::any_of(argv, argv + argc, [](std::string_view argument) {
        return argument.starts_with("--gtest_internal");
    });
    testing::InitGoogleMock(&argc, argv);
    settings wanted;
    if (!read_options(argc, argv, wanted))
        return 1;
    if (wanted.here || in_death_test || GTEST_FLAG_GET(list_tests))
        return RUN_ALL_TESTS();
    const test_names names = selected_tests();
    wanted.show = names.size() == 1;
    return report(run(names, wanted));
}
