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
#include <string>
#include <string_view>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;

struct settings {
    bool here = false;
    unsigned jobs = 1;
    std::chrono::seconds timeout{180};
};

enum class verdict { none, passed, failed, skipped, disabled };

// What a test's process says of itself, in memory that it shares with this one.
struct statement {
    verdict of_test;
    unsigned long inputs;
};

struct test_process {
    std::string name;
    pid_t pid;
    FILE *output;
    statement *said;
    clock_type::time_point started;
    bool timed_out = false;
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
std::vector<std::string> names_in(FILE *listing)
{
    std::vector<std::string> names;
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

std::vector<std::string> selected_tests()
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
    std::vector<std::string> names = names_in(listing);
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

unsigned long inputs_of(const testing::UnitTest &unit)
{
    unsigned long inputs = 0;
    for (int suite = 0; suite < unit.total_test_suite_count(); ++suite)
        for (int test = 0; test < unit.GetTestSuite(suite)->total_test_count(); ++test) {
            const testing::TestResult &result =
                *unit.GetTestSuite(suite)->GetTestInfo(test)->result();
            for (int at = 0; at < result.test_property_count(); ++at)
                if (result.GetTestProperty(at).key() == std::string_view{"inputs"})
                    inputs += std::strtoul(result.GetTestProperty(at).value(), nullptr, 10);
        }
    return inputs;
}

[[noreturn]] void run_alone(const std::string &name, FILE *output, statement &said,
                            const sigset_t &signals)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setpgid(0, 0);
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(nothing, STDIN_FILENO);
    dup2(fileno(output), STDOUT_FILENO);
    dup2(fileno(output), STDERR_FILENO);
    GTEST_FLAG_SET(filter, name);
    const int result = RUN_ALL_TESTS();
    std::fflush(nullptr);
    const testing::UnitTest &unit = *testing::UnitTest::GetInstance();
    said = {verdict_of(unit, result), inputs_of(unit)};
    std::exit(result);
}

test_process start(const std::string &name, const sigset_t &signals)
{
    void *shared =
        mmap(nullptr, sizeof(statement), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    FILE *output = std::tmpfile();
    if (shared == MAP_FAILED || output == nullptr)
        give_up(name.c_str());
    fcntl(fileno(output), F_SETFD, FD_CLOEXEC);
    auto *said = static_cast<statement *>(shared);
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid < 0)
        give_up("fork");
    if (pid == 0)
        run_alone(name, output, *said, signals);
    setpgid(pid, pid); // here too, so that it is done before anybody kills the group
    return {name, pid, output, said, clock_type::now()};
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

void conclude(test_process &test, int status, const settings &wanted, bool show, tally &all)
{
    kill(-test.pid, SIGKILL); // what it left behind
    const auto took =
        std::chrono::duration_cast<std::chrono::milliseconds>(clock_type::now() - test.started);
    const std::string fault = fault_of(test, status, wanted);
    const char *word = "passed";
    if (!fault.empty()) {
        word = "FAILED";
        all.failed.push_back(test.name + " (" + fault + ")");
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
    if (show || !fault.empty() || test.said->of_test == verdict::skipped)
        copy_to_stdout(test.output);
    std::printf("%-8s %s%s%s (%lld ms)\n", word, test.name.c_str(), fault.empty() ? "" : ": ",
                fault.c_str(), static_cast<long long>(took.count()));
    std::fclose(test.output);
    munmap(test.said, sizeof *test.said);
}

void reap(std::vector<test_process> &running, const settings &wanted, bool show, tally &all)
{
    int status = 0;
    for (pid_t pid = 0; (pid = waitpid(-1, &status, WNOHANG)) > 0;) {
        const auto test = std::ranges::find(running, pid, &test_process::pid);
        if (test == running.end())
            continue;
        conclude(*test, status, wanted, show, all);
        running.erase(test);
    }
}

tally run(const std::vector<std::string> &names, const settings &wanted)
{
    sigset_t ended;
    sigset_t before;
    sigemptyset(&ended);
    sigaddset(&ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ended, &before);

    tally all;
    std::vector<test_process> running;
    for (auto next = names.begin(); next != names.end() || !running.empty();) {
        while (next != names.end() && running.size() < wanted.jobs)
            running.push_back(start(*next++, before));
        constexpr timespec second{1, 0};
        sigtimedwait(&ended, nullptr, &second);
        reap(running, wanted, names.size() == 1, all);
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
    return report(run(selected_tests(), wanted));
}
