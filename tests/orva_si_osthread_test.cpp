// SPDX-License-Identifier: LGPL-2.1-or-later
#include <cerrno>
#include <climits>
#include <csignal>
#include <gtest/gtest.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/prctl.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "fakes/platform.h"
#include "orva_si/os.h"

namespace {

// The answer that the next call of a wrapped function on this thread gives instead of calling the
// real one, with that errno.
struct wrapped {
    std::optional<int> answer;
    int error = 0;
    unsigned calls = 0;
};
thread_local wrapped attr_init, create, mutex_init, mutex_lock, mutex_unlock, semaphore_init,
    semaphore_wait, semaphore_destroy;

template <class Real, class... Args>
int answer_or_call(wrapped &of, Real real, Args... given)
{
    ++of.calls;
    if (const auto answer = std::exchange(of.answer, std::nullopt)) {
        errno = of.error;
        return *answer;
    }
    return real(given...);
}

} // namespace

extern "C" {

int __real_pthread_attr_init(pthread_attr_t *attr);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*fn)(void *),
                          void *param);
int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr);
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
int __real_sem_init(sem_t *sem, int shared, unsigned value);
int __real_sem_wait(sem_t *sem);
int __real_sem_destroy(sem_t *sem);

int __wrap_pthread_attr_init(pthread_attr_t *attr)
{
    return answer_or_call(attr_init, __real_pthread_attr_init, attr);
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*fn)(void *),
                          void *param)
{
    return answer_or_call(create, __real_pthread_create, thread, attr, fn, param);
}
int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr)
{
    return answer_or_call(mutex_init, __real_pthread_mutex_init, mutex, attr);
}
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex)
{
    return answer_or_call(mutex_lock, __real_pthread_mutex_lock, mutex);
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex)
{
    return answer_or_call(mutex_unlock, __real_pthread_mutex_unlock, mutex);
}
int __wrap_sem_init(sem_t *sem, int shared, unsigned value)
{
    return answer_or_call(semaphore_init, __real_sem_init, sem, shared, value);
}
int __wrap_sem_wait(sem_t *sem)
{
    return answer_or_call(semaphore_wait, __real_sem_wait, sem);
}
int __wrap_sem_destroy(sem_t *sem)
{
    return answer_or_call(semaphore_destroy, __real_sem_destroy, sem);
}

} // extern "C"

namespace {

constexpr std::uint32_t minus_one = 0xFFFFFFFF;

bool reported(const std::string &function, const std::string &text)
{
    return std::ranges::any_of(fake::log_lines(), [&](const fake::log_line &line) {
        return line.level == ORVA_DEBUG_ERROR && line.file == "Src/orva_si_osthread" &&
               line.function == function && line.text == text;
    });
}

const std::string no_parameter = "Parameter is NULL\n";

TEST(Mutex, NullIsReportedByEveryFunction)
{
    EXPECT_EQ(Orva_InitMutex(nullptr), 1u);
    EXPECT_EQ(Orva_MutexP(nullptr), 1u);
    EXPECT_EQ(Orva_MutexV(nullptr), 1u);
    EXPECT_EQ(Orva_MutexTryP(nullptr), 1u);
    for (const char *function : {"Orva_InitMutex", "Orva_MutexP", "Orva_MutexV", "Orva_MutexTryP"})
        EXPECT_TRUE(reported(function, no_parameter)) << function;
}

TEST(Mutex, LocksAndUnlocksSilently)
{
    pthread_mutex_t mutex;
    EXPECT_EQ(Orva_InitMutex(&mutex), 0u);
    EXPECT_EQ(Orva_MutexP(&mutex), 0u);
    EXPECT_EQ(Orva_MutexV(&mutex), 0u);
    EXPECT_EQ(Orva_MutexTryP(&mutex), 0u);
    EXPECT_EQ(Orva_MutexV(&mutex), 0u);
    EXPECT_EQ(pthread_mutex_destroy(&mutex), 0);
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

TEST(Mutex, TryOnOneThatTheCallerHoldsFails)
{
    pthread_mutex_t mutex;
    Orva_InitMutex(&mutex);
    Orva_MutexP(&mutex);
    EXPECT_EQ(Orva_MutexTryP(&mutex), 1u);
    EXPECT_TRUE(reported("Orva_MutexTryP", "mutex locked yet\n"));
    Orva_MutexV(&mutex);
}

TEST(Mutex, ExcludesOtherThreads)
{
    pthread_mutex_t mutex;
    Orva_InitMutex(&mutex);
    unsigned count = 0;
    const auto work = [&] {
        for (int i = 0; i < 10000; ++i) {
            Orva_MutexP(&mutex);
            ++count;
            Orva_MutexV(&mutex);
        }
    };
    std::thread first{work};
    std::thread second{work};
    first.join();
    second.join();
    EXPECT_EQ(count, 20000u);
}

TEST(Mutex, InitThatFailsIsReported)
{
    pthread_mutex_t mutex;
    mutex_init.answer = EAGAIN;
    EXPECT_EQ(Orva_InitMutex(&mutex), 1u);
    EXPECT_TRUE(reported("Orva_InitMutex", "Create the mutex fail\n"));
}

TEST(Mutex, OnlyANegativeResultOfLockAndUnlockIsAFailure)
{
    pthread_mutex_t mutex;
    Orva_InitMutex(&mutex);
    mutex_lock.answer = -1;
    EXPECT_EQ(Orva_MutexP(&mutex), 1u);
    EXPECT_TRUE(reported("Orva_MutexP", "mutex lock fail\n"));
    mutex_unlock.answer = -1;
    EXPECT_EQ(Orva_MutexV(&mutex), 1u);
    EXPECT_TRUE(reported("Orva_MutexV", "mutex unlock fail\n"));
}

TEST(Mutex, ErrorNumbersOfPosixAreNotFailures)
{
    pthread_mutex_t mutex;
    Orva_InitMutex(&mutex);
    mutex_lock.answer = EDEADLK;
    EXPECT_EQ(Orva_MutexP(&mutex), 0u);
    mutex_unlock.answer = EPERM;
    EXPECT_EQ(Orva_MutexV(&mutex), 0u);
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

TEST(Semaphore, NullIsOneAndReportedByEveryFunction)
{
    EXPECT_EQ(Orva_InitSemaphore(nullptr, 0), 1u);
    EXPECT_EQ(Orva_DestroySemaphore(nullptr), 1u);
    EXPECT_EQ(Orva_SemWait(nullptr), 1u);
    EXPECT_EQ(Orva_SemPost(nullptr), 1u);
    for (const char *function :
         {"Orva_InitSemaphore", "Orva_DestroySemaphore", "Orva_SemWait", "Orva_SemPost"})
        EXPECT_TRUE(reported(function, no_parameter)) << function;
}

TEST(Semaphore, CountsPostsAndWaits)
{
    sem_t sem;
    int value = -1;
    ASSERT_EQ(Orva_InitSemaphore(&sem, 2), 0u);
    EXPECT_EQ(Orva_SemWait(&sem), 0u);
    EXPECT_EQ(Orva_SemPost(&sem), 0u);
    EXPECT_EQ(Orva_SemPost(&sem), 0u);
    sem_getvalue(&sem, &value);
    EXPECT_EQ(value, 3);
    EXPECT_EQ(Orva_DestroySemaphore(&sem), 0u);
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

TEST(Semaphore, InitRefusesAValueThatIsTooLarge)
{
    sem_t sem;
    EXPECT_EQ(Orva_InitSemaphore(&sem, SEM_VALUE_MAX + 1u), 1u);
    EXPECT_TRUE(reported("Orva_InitSemaphore", "Create the semaphore fail\n"));
}

TEST(Semaphore, DestroyThatFailsIsReported)
{
    sem_t sem;
    Orva_InitSemaphore(&sem, 0);
    semaphore_destroy.answer = -1;
    EXPECT_EQ(Orva_DestroySemaphore(&sem), 1u);
    EXPECT_TRUE(reported("Orva_DestroySemaphore", "Destroy the semaphore fail\n"));
}

TEST(Semaphore, PostAtTheLargestValueIsMinusOneAndSilent)
{
    sem_t sem;
    ASSERT_EQ(Orva_InitSemaphore(&sem, SEM_VALUE_MAX), 0u);
    EXPECT_EQ(Orva_SemPost(&sem), minus_one);
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

// A handler that interrupts what waits.
void let_alarms_interrupt()
{
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval soon_and_again{{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &soon_and_again, nullptr);
}

TEST(Semaphore, WaitEndedByASignalIsMinusOneAndSilent)
{
    sem_t sem;
    Orva_InitSemaphore(&sem, 0);
    let_alarms_interrupt();
    EXPECT_EQ(Orva_SemWait(&sem), minus_one);
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

const std::set<int> library_signals{SIGHUP,  SIGINT,  SIGQUIT,  SIGPIPE,   SIGALRM,
                                    SIGTERM, SIGCHLD, SIGWINCH, SIGVTALRM, SIGPROF};

// What a thread finds out about itself.
struct self_portrait {
    std::string name;
    std::set<int> blocked;
    int cancel_type = -1;
    void *param = nullptr;
};

void look_at_self(self_portrait &self)
{
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    self.name = name;
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    for (int signal = 1; signal <= SIGRTMAX; ++signal)
        if (sigismember(&mask, signal) == 1)
            self.blocked.insert(signal);
    pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, &self.cancel_type);
    self.param = &self;
}

void *paint(void *param)
{
    look_at_self(*static_cast<self_portrait *>(param));
    return reinterpret_cast<void *>(std::uintptr_t{5});
}

TEST(Thread, BodyRunsNamedWithSignalsBlockedAndCancellable)
{
    self_portrait portrait;
    pthread_t thread{};
    ASSERT_EQ(Orva_CreateThread(&thread, paint, &portrait), 0u) << fake::log_text();
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(portrait.name, std::string("stack SiRunThread").substr(0, 15));
    EXPECT_EQ(portrait.blocked, library_signals);
    EXPECT_EQ(portrait.cancel_type, PTHREAD_CANCEL_ASYNCHRONOUS);
    EXPECT_EQ(portrait.param, &portrait);
    EXPECT_TRUE(fake::log_lines().empty()) << fake::log_text();
}

TEST(Thread, ResultOfTheBodyIsNotKept)
{
    self_portrait portrait;
    pthread_t thread{};
    void *result = &portrait;
    ASSERT_EQ(Orva_CreateThread(&thread, paint, &portrait), 0u);
    pthread_join(thread, &result);
    EXPECT_EQ(result, nullptr);
}

TEST(Thread, CreationEndsTheHandshakeSemaphore)
{
    self_portrait portrait;
    pthread_t thread{};
    ASSERT_EQ(Orva_CreateThread(&thread, paint, &portrait), 0u);
    EXPECT_EQ(semaphore_destroy.calls, 1u);
    EXPECT_EQ(args.fn, paint);
    EXPECT_EQ(args.param, &portrait);
    pthread_join(thread, nullptr);
}

void *add_to(void *param)
{
    static std::atomic<int> order{0};
    *static_cast<int *>(param) = ++order;
    return nullptr;
}

TEST(Thread, StartRecordCanBeUsedAgainAtOnce)
{
    std::array<int, 50> seen{};
    std::array<pthread_t, 50> threads{};
    for (std::size_t i = 0; i < threads.size(); ++i)
        ASSERT_EQ(Orva_CreateThread(&threads[i], add_to, &seen[i]), 0u);
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
    std::ranges::sort(seen);
    for (std::size_t i = 0; i < seen.size(); ++i)
        EXPECT_EQ(seen[i], static_cast<int>(i) + 1);
}

TEST(Thread, NullHandleOrBodyIsRefused)
{
    pthread_t thread{};
    EXPECT_EQ(Orva_CreateThread(nullptr, paint, nullptr), 1u);
    EXPECT_EQ(Orva_CreateThread(&thread, nullptr, nullptr), 1u);
    EXPECT_EQ(fake::times_logged(no_parameter), 2u);
    EXPECT_TRUE(reported("Orva_CreateThread", no_parameter));
    EXPECT_EQ(create.calls, 0u);
}

TEST(Thread, AttributesThatCannotBeMadeEndTheCreation)
{
    pthread_t thread{};
    semaphore_init.calls = 0; // the library has some of its own
    attr_init.answer = ENOMEM;
    EXPECT_EQ(Orva_CreateThread(&thread, paint, nullptr), 1u);
    EXPECT_TRUE(reported("Orva_CreateThread", "Couldn't initialize pthread attributes"));
    EXPECT_EQ(semaphore_init.calls, 0u);
    EXPECT_EQ(create.calls, 0u);
}

TEST(Thread, SemaphoreThatCannotBeMadeEndsTheCreation)
{
    pthread_t thread{};
    semaphore_init.answer = -1;
    EXPECT_EQ(Orva_CreateThread(&thread, paint, nullptr), 1u);
    EXPECT_TRUE(reported("Orva_InitSemaphore", "Create the semaphore fail\n"));
    EXPECT_TRUE(reported("Orva_CreateThread", "can't Init the sem for thread\n"));
    EXPECT_EQ(create.calls, 0u);
}

TEST(Thread, ThreadThatCannotBeMadeEndsTheCreation)
{
    pthread_t thread{};
    create.answer = EAGAIN;
    EXPECT_EQ(Orva_CreateThread(&thread, paint, nullptr), 1u);
    EXPECT_TRUE(reported("Orva_CreateThread", "Create the thread fail\n"));
    EXPECT_EQ(semaphore_wait.calls, 0u);
    EXPECT_EQ(semaphore_destroy.calls, 0u); // the record's semaphore stays as it is
}

TEST(Thread, RunsOnWhenTheWaitForItFails)
{
    self_portrait portrait;
    pthread_t thread{};
    semaphore_wait.answer = -1;
    semaphore_wait.error = EINVAL;
    EXPECT_EQ(Orva_CreateThread(&thread, paint, &portrait), 1u);
    EXPECT_TRUE(reported("Orva_CreateThread", "wait the sem of create thread failed\n"));
    EXPECT_EQ(semaphore_destroy.calls, 0u);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(portrait.param, &portrait);
}

TEST(Thread, IsWaitedForThroughSignals)
{
    self_portrait portrait;
    pthread_t thread{};
    semaphore_wait.answer = -1;
    semaphore_wait.error = EINTR;
    EXPECT_EQ(Orva_CreateThread(&thread, paint, &portrait), 0u);
    EXPECT_EQ(semaphore_wait.calls, 2u);
    EXPECT_EQ(semaphore_destroy.calls, 1u);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);
    EXPECT_EQ(portrait.param, &portrait);
}

TEST(ThreadSetup, BlocksTheSignalsAndMakesTheCallerCancellable)
{
    self_portrait before;
    self_portrait after;
    std::uint32_t result = 1;
    std::thread thread{[&] {
        look_at_self(before);
        result = SYS_SetupThread();
        look_at_self(after);
    }};
    thread.join();
    EXPECT_EQ(result, 0u);
    EXPECT_TRUE(before.blocked.empty());
    EXPECT_EQ(before.cancel_type, PTHREAD_CANCEL_DEFERRED);
    EXPECT_EQ(after.blocked, library_signals);
    EXPECT_EQ(after.cancel_type, PTHREAD_CANCEL_ASYNCHRONOUS);
}

TEST(ThreadRun, PostsTheSemaphoreBeforeTheBodyAndAnswersItsResult)
{
    SiThreadStart start{};
    start.fn = [](void *param) -> void * {
        int value = 0;
        sem_getvalue(&static_cast<SiThreadStart *>(param)->sem, &value);
        return value == 1 ? param : nullptr;
    };
    start.param = &start;
    Orva_InitSemaphore(&start.sem, 0);
    void *result = nullptr;
    std::thread thread{[&] { result = Os_RunThread(&start); }};
    thread.join();
    EXPECT_EQ(result, &start);
}

std::chrono::milliseconds duration_of_sleep(std::uint32_t ms, std::uint32_t *result)
{
    const auto begin = std::chrono::steady_clock::now();
    *result = Orva_Sleep(ms);
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 begin);
}

TEST(Sleep, TakesMilliseconds)
{
    std::uint32_t result = 1;
    EXPECT_GE(duration_of_sleep(50, &result).count(), 50);
    EXPECT_EQ(result, 0u);
}

TEST(Sleep, MicrosecondsWrapAt32Bits)
{
    std::uint32_t result = 1;
    EXPECT_LT(duration_of_sleep(4294968, &result).count(),
              30000); // 704 microseconds, not 71 minutes
    EXPECT_EQ(result, 0u);
}

TEST(Sleep, EndedByASignalIsMinusOne)
{
    std::uint32_t result = 0;
    let_alarms_interrupt();
    EXPECT_LT(duration_of_sleep(60000, &result).count(), 30000);
    EXPECT_EQ(result, minus_one);
}

} // namespace
