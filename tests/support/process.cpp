// SPDX-License-Identifier: LGPL-2.1-or-later
#include "support/process.h"

#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace test {
namespace {

using namespace std::chrono_literals;
using clock = std::chrono::steady_clock;

int open_or_throw(const std::string &path, int flags)
{
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC, 0600);
    if (descriptor < 0)
        throw std::runtime_error{path};
    return descriptor;
}

} // namespace

std::string contents(const std::string &path)
{
    std::ostringstream all;
    all << std::ifstream{path, std::ios::binary}.rdbuf();
    return all.str();
}

scratch_folder::scratch_folder()
{
    std::string name = (std::filesystem::temp_directory_path() / "orva-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error{"no folder for temporary files"};
    folder = name;
}

scratch_folder::~scratch_folder()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

std::string scratch_folder::write(const std::string &name,
                                  std::span<const std::uint8_t> bytes) const
{
    std::ofstream out{path(name), std::ios::binary};
    for (const std::uint8_t byte : bytes)
        out.put(static_cast<char>(byte));
    return path(name);
}

process::process(const std::vector<std::string> &command, int in, int out)
{
    const int own_in = in >= 0 ? in : open_or_throw("/dev/null", O_RDONLY);
    const int own_out = out >= 0 ? out : open_or_throw(files.path("out"), O_WRONLY | O_CREAT);
    const int own_err = open_or_throw(files.path("err"), O_WRONLY | O_CREAT);
    std::vector<char *> arguments;
    for (const std::string &argument : command)
        arguments.push_back(const_cast<char *>(argument.c_str()));
    arguments.push_back(nullptr);
    started = clock::now();
    child = fork();
    if (child == 0) {
        dup2(own_in, STDIN_FILENO);
        dup2(own_out, STDOUT_FILENO);
        dup2(own_err, STDERR_FILENO);
        std::signal(SIGPIPE, SIG_DFL);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    if (in < 0)
        close(own_in);
    if (out < 0)
        close(own_out);
    close(own_err);
    if (child < 0)
        throw std::runtime_error{"no process"};
}

process::~process()
{
    if (child > 0) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

void process::signal(int number) const
{
    kill(child, number);
}

ended process::wait()
{
    constexpr auto longest = 60s;
    int status = 0;
    pid_t done = 0;
    while ((done = waitpid(child, &status, WNOHANG)) == 0 && clock::now() - started < longest)
        std::this_thread::sleep_for(2ms);
    if (done == 0) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    child = -1;
    ended result;
    result.took = std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - started);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    result.out = contents(files.path("out"));
    result.err = contents(files.path("err"));
    return result;
}

} // namespace test
