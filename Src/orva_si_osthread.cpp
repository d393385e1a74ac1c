// SPDX-License-Identifier: LGPL-2.1-or-later
#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

#include <array>

#include "orva_si/os.h"
#include "orva_si_log.h"

extern "C" {

SiThreadStart args;

// Executables may well have a global of this name, which would take the place of the exported one.
extern SiThreadStart si_args __attribute__((alias("args"), visibility("hidden")));

} // extern "C"

namespace si {

namespace {

// Meant for the client's threads, never for one of the library's.
constexpr std::array blocked_signals{SIGHUP,  SIGINT,  SIGQUIT,  SIGPIPE,   SIGALRM,
                                     SIGTERM, SIGCHLD, SIGWINCH, SIGVTALRM, SIGPROF};

// Both speak in the name of the exported function.
std::uint32_t failed(site here, const char *text)
{
    SI_LOG_AT(here, level::error, "%s", text);
    return ORVA_SI_FAILURE;
}

std::uint32_t missing(site here)
{
    return failed(here, "Parameter is NULL\n");
}

void *run_library_thread(void *start)
{
    prctl(PR_SET_NAME, "stack SiRunThread"); // the kernel keeps 15 characters of it
    Os_RunThread(static_cast<SiThreadStart *>(start));
    pthread_exit(nullptr);
}

} // namespace

} // namespace si

using namespace si;

std::uint32_t Orva_InitMutex(pthread_mutex_t *mutex)
{
    if (mutex == nullptr)
        return missing(SI_HERE);
    if (pthread_mutex_init(mutex, nullptr) != 0)
        return failed(SI_HERE, "Create the mutex fail\n");
    return ORVA_SI_OK;
}

// POSIX answers errors with positive numbers, so neither of the next two ever reports one: who
// locks goes on.
std::uint32_t Orva_MutexP(pthread_mutex_t *mutex)
{
    if (mutex == nullptr)
        return missing(SI_HERE);
    if (pthread_mutex_lock(mutex) < 0) // NOLINT(bugprone-posix-return)
        return failed(SI_HERE, "mutex lock fail\n");
    return ORVA_SI_OK;
}

std::uint32_t Orva_MutexV(pthread_mutex_t *mutex)
{
    if (mutex == nullptr)
        return missing(SI_HERE);
    if (pthread_mutex_unlock(mutex) < 0) // NOLINT(bugprone-posix-return)
        return failed(SI_HERE, "mutex unlock fail\n");
    return ORVA_SI_OK;
}

std::uint32_t Orva_MutexTryP(pthread_mutex_t *mutex)
{
    if (mutex == nullptr)
        return missing(SI_HERE);
    if (pthread_mutex_trylock(mutex) != 0)
        return failed(SI_HERE, "mutex locked yet\n");
    return ORVA_SI_OK;
}

std::uint32_t Orva_InitSemaphore(sem_t *sem, std::uint32_t value)
{
    if (sem == nullptr)
        return missing(SI_HERE);
    if (sem_init(sem, 0, value) != 0)
        return failed(SI_HERE, "Create the semaphore fail\n");
    return ORVA_SI_OK;
}

std::uint32_t Orva_DestroySemaphore(sem_t *sem)
{
    if (sem == nullptr)
        return missing(SI_HERE);
    if (sem_destroy(sem) != 0)
        return failed(SI_HERE, "Destroy the semaphore fail\n");
    return ORVA_SI_OK;
}

std::uint32_t Orva_SemWait(sem_t *sem)
{
    return sem == nullptr ? missing(SI_HERE) : static_cast<std::uint32_t>(sem_wait(sem));
}

std::uint32_t Orva_SemPost(sem_t *sem)
{
    return sem == nullptr ? missing(SI_HERE) : static_cast<std::uint32_t>(sem_post(sem));
}

// The attributes are left as they are after use: they own nothing.
std::uint32_t Orva_CreateThread(pthread_t *thread, SiThreadFn fn, void *param)
{
    if (thread == nullptr || fn == nullptr)
        return missing(SI_HERE);
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0)
        return failed(SI_HERE, "Couldn't initialize pthread attributes");
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);

    si_args.fn = fn;
    si_args.param = param;
    if (Orva_InitSemaphore(&si_args.sem, 0) != ORVA_SI_OK)
        return failed(SI_HERE, "can't Init the sem for thread\n");
    if (pthread_create(thread, &attr, run_library_thread, &si_args) != 0)
        return failed(SI_HERE, "Create the thread fail\n");
    // Until the thread has copied the one start record, the next creation must not begin, whatever
    // signals come.
    std::uint32_t waited;
    do
        waited = Orva_SemWait(&si_args.sem);
    while (waited != ORVA_SI_OK && errno == EINTR);
    if (waited != ORVA_SI_OK)
        return failed(SI_HERE, "wait the sem of create thread failed\n");
    Orva_DestroySemaphore(&si_args.sem);
    return ORVA_SI_OK;
}

std::uint32_t SYS_SetupThread(void)
{
    sigset_t blocked;
    sigemptyset(&blocked);
    for (const int signal : blocked_signals)
        sigaddset(&blocked, signal);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    return static_cast<std::uint32_t>(pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr));
}

void *Os_RunThread(SiThreadStart *start)
{
    SYS_SetupThread();
    const SiThreadFn fn = start->fn;
    void *param = start->param;
    Orva_SemPost(&start->sem);
    return fn(param);
}

std::uint32_t Orva_Sleep(std::uint32_t ms)
{
    return static_cast<std::uint32_t>(usleep(ms * 1000));
}
