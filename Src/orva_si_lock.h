// SPDX-License-Identifier: LGPL-2.1-or-later
// Locks as guards that write the lock traces, known to clang's thread safety analysis.
//
// Order: ctl, eit, the filter pool, then the section queue, the driver or the timers. The time lock
// is a leaf.
#ifndef SRC_ORVA_SI_LOCK_H
#define SRC_ORVA_SI_LOCK_H

#include <pthread.h>

#include <utility>

#include "orva_si/os.h"
#include "orva_si/store.h"
#include "orva_si_log.h"

#if defined(__clang__)
#define SI_THREAD_SAFETY(x) __attribute__((x))
#else
#define SI_THREAD_SAFETY(x)
#endif
#define SI_NEEDS(...)                                                                              \
    SI_THREAD_SAFETY(requires_capability(__VA_ARGS__))               // called with the lock held
#define SI_LEAVES(...) SI_THREAD_SAFETY(locks_excluded(__VA_ARGS__)) // called without it
#define SI_GUARDED_BY(x) SI_THREAD_SAFETY(guarded_by(x))

namespace si {

// An exported mutex, or one of a module's own, as guards and analysis see it.
class SI_THREAD_SAFETY(capability("mutex")) store_mutex {
public:
    constexpr explicit store_mutex(pthread_mutex_t &of) : native{of} {}
    bool lock() const SI_THREAD_SAFETY(acquire_capability())
    {
        return Orva_MutexP(&native) == ORVA_SI_OK;
    }
    void unlock() const SI_THREAD_SAFETY(release_capability()) { Orva_MutexV(&native); }
    // For entry points that a caller reaches with the lock held: tells the analysis, does nothing.
    void assume_held() const SI_THREAD_SAFETY(assert_capability(this)) {}

private:
    pthread_mutex_t &native;
};

inline constinit store_mutex ctl{Ts_Ctl_Mutex};
inline constinit store_mutex eit{Ts_Eit_Mutex};
inline constinit store_mutex time_lock{Ts_Time_Mutex};

// Holds a lock for a scope; traces at level 5 on the way in and on every way out.
class SI_THREAD_SAFETY(scoped_lockable) scope_lock {
public:
    scope_lock(const store_mutex &of, site where, const char *unlock_text = "===Mutex Unlock===\n")
        SI_THREAD_SAFETY(acquire_capability(of))
        : mutex{of}, here{where}, on_unlock{unlock_text}, held{of.lock()}
    {
        if (held)
            SI_LOG_AT(here, level::verbose, "~~~Mutex Lock~~~\n");
    }
    ~scope_lock() SI_THREAD_SAFETY(release_capability())
    {
        if (!held)
            return;
        mutex.unlock();
        SI_LOG_AT(here, level::verbose, "%s", on_unlock);
    }
    scope_lock(const scope_lock &) = delete;
    scope_lock &operator=(const scope_lock &) = delete;

private:
    const store_mutex &mutex;
    site here;
    const char *on_unlock;

public:
    const bool held; // false where the lock could not be taken; only the event getters ask
};

// Gives up, for its scope, a lock that the caller holds.
class SI_THREAD_SAFETY(scoped_lockable) scope_gap {
public:
    scope_gap(const store_mutex &of, site where) SI_THREAD_SAFETY(release_capability(of))
        : mutex{of}, here{where}
    {
        mutex.unlock();
        SI_LOG_AT(here, level::verbose, "===Mutex Unlock===\n");
    }
    ~scope_gap() SI_THREAD_SAFETY(release_capability()) // of the gap: the lock is held again
    {
        mutex.lock();
        SI_LOG_AT(here, level::verbose, "~~~Mutex Lock~~~\n");
    }
    scope_gap(const scope_gap &) = delete;
    scope_gap &operator=(const scope_gap &) = delete;

private:
    const store_mutex &mutex;
    site here;
};

// Undoes on the way out what a function did half-way, unless it was released.
template <class Undo>
class on_exit {
public:
    explicit on_exit(Undo undo) : action{std::move(undo)} {}
    ~on_exit()
    {
        if (armed)
            action();
    }
    on_exit(const on_exit &) = delete;
    on_exit &operator=(const on_exit &) = delete;
    void release() { armed = false; }

private:
    Undo action;
    bool armed = true;
};

} // namespace si

#endif
