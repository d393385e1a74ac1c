/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* Runs what the client guide shows, over a file: prints the state of a program, its present and its
 * following event, then whether SIGINT cancelled a scan. */
#define _POSIX_C_SOURCE 200809L
#include <unistd.h>

#include "client_guide.c"

static atomic_bool scan_ended;

static void *scan_thread(void *result)
{
    *(uint32_t *)result = scan(60000);
    atomic_store(&scan_ended, true);
    return NULL;
}

static enum program_state settled_state(uint16_t program)
{
    for (unsigned tries = 0; tries < 500; ++tries) {
        const enum program_state state = state_of(program);
        if (state == NOT_IN_PAT || state == ON_AIR)
            return state;
        Orva_Sleep(10);
    }
    return state_of(program);
}

/* A signal that is pending for the process while it is blocked everywhere: only who waits for it
 * takes it. */
static bool interrupted_scan(const sigset_t *kept)
{
    pthread_t thread;
    uint32_t result = ORVA_SI_OK;
    if (kill(getpid(), SIGINT) != 0 || pthread_create(&thread, NULL, scan_thread, &result) != 0)
        return false;
    const bool cancelled = cancel_by_signal(kept, &scan_ended);
    pthread_join(thread, NULL);
    return cancelled && result == ORVA_SI_FAILURE;
}

int main(int argc, char **argv)
{
    sigset_t kept;
    keep_signals(&kept);
    OrvaDemux *demux = argc == 3 ? orva_demux_open(argv[1], NULL, NULL) : NULL;
    if (demux == NULL || !start_library(orva_demux_handler()))
        return 1;
    const uint16_t program = (uint16_t)strtoul(argv[2], NULL, 10);
    const SiTuneParam channel = {.frequency = 1, .program_number = program};
    if (Orva_Si_StartChannel(&channel) != ORVA_SI_OK)
        return 1;
    static const char *const states[] = {"no PAT", "not in the PAT", "no PMT", "on air"};
    const enum program_state state = settled_state(program);
    printf("%s\n", states[state]);
    if (state == ON_AIR) {
        struct programme both[2];
        printf("%s\n", now_and_next(program, 10, both) ? "both" : "not both");
        for (unsigned i = 0; i < 2; ++i)
            printf("%u +%u %s\n", (unsigned)both[i].start, (unsigned)both[i].duration,
                   both[i].name);
    }
    Orva_Si_StopChannel();
    printf("scan %s\n", interrupted_scan(&kept) ? "cancelled" : "not cancelled");
    end_library(demux);
    return 0;
}
