/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* Scans on a thread of its own, while the main thread shows how far it is and waits for Ctrl-C.
 * What was found is printed in any case; the exit status is 0 when it is all there is, 3 when
 * something stayed incomplete, 130 after Ctrl-C. */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "orva_demux.h"
#include "orva_si.h"
#include "print_text.h"

enum { PROGRAMS = 255, SERVICES = 1024, TICK_MS = 100, PMT_WAIT_MS = 1500 };

static atomic_bool scan_ended;

static void *scan(void *result)
{
    /* The scan does not wait for PMTs: give them some time, once the NIT has been met. */
    const SiScanParam parameters = {.wait_time = PMT_WAIT_MS};
    Orva_Si_SetScanParam(&parameters);
    *(uint32_t *)result = Orva_Si_StartScanChannel(); /* blocks */
    atomic_store(&scan_ended, true);
    return NULL;
}

static uint16_t services[SERVICES];
static uint16_t programs[PROGRAMS];

static uint32_t service_count(void)
{
    uint32_t count = SERVICES;
    Orva_Si_GetActServIdList(services, &count); /* sets it to 0 when there is none */
    return count;
}

static uint32_t program_count(void)
{
    int32_t count = PROGRAMS;
    Orva_Si_GetPatProgList(programs, &count);
    return (uint32_t)count;
}

/* Questions may be put while the scan runs: only what is complete answers. */
static void show_progress(void)
{
    static char shown[128];
    char line[sizeof shown];
    const uint32_t all = program_count();
    uint32_t with_pmt = 0;
    for (uint32_t i = 0; i < all; ++i) {
        uint16_t pid = 0;
        if (Orva_Si_GetPcrPID(programs[i], &pid) == ORVA_SI_OK)
            ++with_pmt;
    }
    snprintf(line, sizeof line, "%s, SDT %s, NIT %s, services %u, PMTs %u of %u\n",
             Orva_Si_IsGotSection() != 0 ? "receiving" : "nothing yet",
             Orva_Si_IsDetectActSDT() != 0 ? "met" : "not met",
             Orva_Si_IsDetectActNIT() != 0 ? "met" : "not met", (unsigned)service_count(),
             (unsigned)with_pmt, (unsigned)all);
    if (strcmp(line, shown) == 0)
        return;
    strcpy(shown, line);
    fputs(line, stderr);
}

static void show_result(void)
{
    const uint32_t count = service_count();
    for (uint32_t i = 0; i < count; ++i) {
        SiDvbString name;
        uint8_t scrambled = 0;
        Orva_Si_GetServiceEncrypted(services[i], &scrambled);
        printf("%u\t%s\t", (unsigned)services[i], scrambled != 0 ? "CA" : "free");
        if (Orva_Si_GetServiceName(services[i], &name) == ORVA_SI_OK)
            print_text(&name);
        putchar('\n');
    }
}

static int run(const sigset_t *interrupt)
{
    pthread_t thread;
    uint32_t result = ORVA_SI_FAILURE;
    if (pthread_create(&thread, NULL, scan, &result) != 0)
        return 1;
    const struct timespec tick = {.tv_nsec = TICK_MS * 1000000L};
    bool cancelled = false;
    while (!atomic_load(&scan_ended)) {
        if (sigtimedwait(interrupt, NULL, &tick) == SIGINT)
            cancelled = true;
        if (cancelled)
            Orva_Si_CancelScanChannel(); /* again and again: one that meets the start is lost */
        else
            show_progress();
    }
    pthread_join(thread, NULL);
    show_result(); /* the scan has stopped, the store is still there */
    if (cancelled)
        return 130;
    return result == ORVA_SI_OK ? 0 : 3;
}

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s FILE.ts, or - for standard input\n", argv[0]);
        return 2;
    }
    /* Every thread created from here on, those of the libraries too, leaves Ctrl-C to this one. */
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, NULL);

    OrvaDemuxError error = ORVA_DEMUX_OK;
    OrvaDemux *demux = orva_demux_open(argv[1], NULL, &error);
    if (demux == NULL) {
        fprintf(stderr, "%s: %s\n", argv[1], orva_demux_error_text(error));
        return 1;
    }
    int status = 1;
    if (Orva_Si_Init(orva_demux_handler()) == ORVA_SI_OK) {
        for (unsigned tries = 0; tries < 5000 && Orva_Si_GetTableList() == NULL; ++tries)
            Orva_Sleep(1); /* the library's thread creates it */
        status = run(&interrupt);
        Orva_Si_DeInit();
    }
    orva_demux_close(demux);
    return status;
}
