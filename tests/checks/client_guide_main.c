/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* Runs what the client guide shows, over a file: prints the state of a program, its present and its
 * following event, its schedule, the transport streams of the network, then whether SIGINT
 * cancelled a scan. */
#define _POSIX_C_SOURCE 200809L
#include <unistd.h>

#include "client_guide.c"

enum { noon = 1767268800 }; /* 2026-01-01 12:00 UTC, when the sample begins */

static atomic_bool scan_ended;

static void *scan_thread(void *result)
{
    *(uint32_t *)result = scan(60000);
    atomic_store(&scan_ended, true);
    return NULL;
}

/* Asks for the schedule; prints whether it is there before and behind that, how many sections it
 * has, and the events of a window. */
static void show_schedule(uint16_t program)
{
    SiEitNotify of = {.service_id = program};
    Orva_Si_GetActTsId(&of.transport_stream_id);
    Orva_Si_GetActOnitId(&of.original_network_id);
    const bool before = schedule_complete(&of);
    Orva_Si_StartActualScheduleEIT(of.transport_stream_id, of.original_network_id, program,
                                   &program, 1);
    const bool whole = wait_for(schedule_complete, &of, 10);
    unsigned sections = 0;
    for (uint32_t number = 0; number < 256; ++number) {
        uint16_t event = 0;
        uint32_t count = 1;
        Orva_Si_GetOneSectEvtIds(of.original_network_id, of.transport_stream_id, program, 0x50,
                                 number, &event, &count);
        sections += count;
    }
    printf("schedule %d %d, %u sections with events\n", before, whole, sections);
    print_schedule(&of, noon, noon + 60);
}

static void show_streams(void)
{
    static struct streams all;
    uint16_t network = 0;
    Orva_Si_GetCurrentNetworkId(&network);
    if (!each_nit_section(network, add_streams, &all))
        return;
    for (uint32_t i = 0; i < all.count; ++i)
        printf("stream %u.%u\n", (unsigned)all.of[i].original_network_id,
               (unsigned)all.of[i].transport_stream_id);
}

static bool has_network(const void *unused)
{
    uint16_t network = 0;
    (void)unused;
    return Orva_Si_GetCurrentNetworkId(&network) == ORVA_SI_OK;
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
    wait_for(state_is_known, &program, 5);
    const enum program_state state = state_of(program);
    printf("%s\n", states[state]);
    if (state == ON_AIR) {
        struct programme both[2];
        printf("%s\n", now_and_next(program, 10, both) ? "both" : "not both");
        for (unsigned i = 0; i < 2; ++i)
            printf("%u +%u %s\n", (unsigned)both[i].start, (unsigned)both[i].duration,
                   both[i].name);
        show_schedule(program);
    }
    if (wait_for(has_network, NULL, 5))
        show_streams();
    Orva_Si_StopChannel();
    printf("scan %s\n", interrupted_scan(&kept) ? "cancelled" : "not cancelled");
    return end_library(demux) ? 0 : 1;
}
