/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* Opens a channel and waits for what the library tells: prints the services of the multiplex, then
 * the video PID and the present event of the program that is watched.
 *
 * The callback runs on a thread of the library, which processes no section meanwhile. It only notes
 * what happened and wakes the main thread, which asks the questions. */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <pthread.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "orva_demux.h"
#include "orva_si.h"
#include "print_text.h"

enum { SERVICES = 512, SECONDS = 15, EVENTS_PRESENT_AND_FOLLOWING = 2 };

/* ---- From the callback to the main thread */

/* One bit for each reason: however often it comes, the store holds the last state only. Static,
 * because a callback may still be under way when the channel has been stopped. */
static struct {
    pthread_mutex_t lock;
    pthread_cond_t changed; /* waits by the monotonic clock */
    unsigned reasons;
} news = {.lock = PTHREAD_MUTEX_INITIALIZER};

static unsigned bit(uint32_t reason)
{
    return 1u << reason;
}

static uint32_t on_news(uint32_t reason, uint32_t flag, SiWord data, uint32_t value)
{
    (void)flag;
    (void)value;
    (void)data; /* what it points to is gone after the call: copy what is wanted of it here */
    if (reason < 32) {
        pthread_mutex_lock(&news.lock);
        news.reasons |= bit(reason);
        pthread_cond_signal(&news.changed);
        pthread_mutex_unlock(&news.lock);
    }
    return 0;
}

/* Waits until one of the reasons came since it was last waited for. */
static bool wait_for_news(unsigned reasons, const struct timespec *deadline)
{
    pthread_mutex_lock(&news.lock);
    int result = 0;
    while ((news.reasons & reasons) == 0 && result != ETIMEDOUT)
        result = pthread_cond_timedwait(&news.changed, &news.lock, deadline);
    const bool came = (news.reasons & reasons) != 0;
    news.reasons &= ~reasons;
    pthread_mutex_unlock(&news.lock);
    return came;
}

static void init_news(void)
{
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&news.changed, &attributes);
    pthread_condattr_destroy(&attributes);
}

/* Gives a language a number of our own: here its three letters. Called with a lock of the library
 * held: it must not call the library. */
static uint32_t number_of_language(const char *iso639_code, uint32_t *language_id)
{
    const unsigned char *c = (const unsigned char *)iso639_code;
    *language_id = (uint32_t)c[0] << 16 | (uint32_t)c[1] << 8 | c[2];
    return 0;
}

/* ---- Questions. Each says whether it was answered; if not, it is asked again later. */

static bool show_services(uint16_t program)
{
    (void)program;
    static uint16_t services[SERVICES];
    uint32_t count = SERVICES; /* capacity in, number of services out */
    const uint32_t result = Orva_Si_GetActServIdList(services, &count);
    if (result != ORVA_SI_OK && result != ORVA_SI_ARRAY_FULL)
        return false; /* no complete SDT of this multiplex yet */
    for (uint32_t i = 0; i < count; ++i) {
        SiDvbString name;
        printf("%u\t", (unsigned)services[i]);
        if (Orva_Si_GetServiceName(services[i], &name) == ORVA_SI_OK)
            print_text(&name);
        putchar('\n');
    }
    return true;
}

static bool has_pat(uint16_t program)
{
    (void)program;
    uint16_t ts = 0;
    return Orva_Si_GetPatTsId(&ts) == ORVA_SI_OK;
}

static bool show_video_pid(uint16_t program)
{
    uint16_t pid = 0;
    if (Orva_Si_GetVideoPID(program, &pid) != ORVA_SI_OK)
        return false;
    printf("video\t%u\n", (unsigned)pid);
    return true;
}

/* Of the events of now and next the one that starts first. */
static bool show_present_event(uint16_t program)
{
    uint16_t ts = 0;
    uint16_t onid = 0;
    if (Orva_Si_GetActTsId(&ts) != ORVA_SI_OK || Orva_Si_GetActOnitId(&onid) != ORVA_SI_OK)
        return false;
    uint16_t present = 0;
    uint32_t present_start = 0;
    bool found = false;
    for (uint32_t i = 0; i < EVENTS_PRESENT_AND_FOLLOWING; ++i) {
        uint16_t event = 0;
        uint32_t start = 0;
        if (Orva_Si_GetBnrEvtId(onid, ts, program, i, &event) != ORVA_SI_OK ||
            Orva_Si_GetEvtStartUTCTime(onid, ts, program, event, &start, 1) != ORVA_SI_OK)
            return false; /* both must be there to tell which is first */
        if (!found || start < present_start) {
            present = event;
            present_start = start;
            found = true;
        }
    }
    uint32_t language = 0;
    uint32_t count = 1; /* the first will do; the library logs that there are more */
    SiDvbString name;
    Orva_Si_GetEvtNameLangList(onid, ts, program, present, &language, &count, 1);
    if (count == 0 ||
        Orva_Si_GetEvtNameByID(onid, ts, program, present, &name, language, 1) != ORVA_SI_OK)
        return false;
    printf("now\t");
    print_text(&name);
    putchar('\n');
    return true;
}

/* Asks at once, then after each notification that may have brought the answer. */
static bool ask(bool (*question)(uint16_t program), uint32_t reason, uint16_t program,
                const struct timespec *deadline)
{
    while (!question(program))
        if (!wait_for_news(bit(reason), deadline))
            return false;
    return true;
}

static bool show_program(uint16_t program, const struct timespec *deadline)
{
    if (ask(has_pat, SI_REASON_PAT, program, deadline) && Orva_Si_IsFoundSsService(program) == 0) {
        fprintf(stderr, "the PAT lacks program %u\n", (unsigned)program);
        return false; /* no PMT of any program would come */
    }
    const bool video = ask(show_video_pid, SI_REASON_PMT, program, deadline);
    /* Events come only for the services that they are asked for. */
    Orva_Si_StartCurrentPFEIT(SI_ANY_EXT, SI_ANY_EXT, program);
    return ask(show_present_event, SI_REASON_EIT_PRESENT_FOLLOWING, program, deadline) && video;
}

static int watch(uint16_t program)
{
    const SiTuneParam channel = {.frequency = 1, .program_number = program};
    if (Orva_Si_StartChannel(&channel) != ORVA_SI_OK)
        return 1;
    struct timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += SECONDS;

    bool all = ask(show_services, SI_REASON_SDT, program, &deadline);
    if (program != SI_NO_PROGRAM)
        all = show_program(program, &deadline) && all;
    Orva_Si_StopChannel();
    return all ? 0 : 1;
}

int main(int argc, char **argv)
{
    if (argc != 2 && argc != 3) {
        fprintf(stderr, "usage: %s FILE.ts [PROGRAM]\n", argv[0]);
        return 2;
    }
    const uint16_t program =
        argc == 3 ? (uint16_t)strtoul(argv[2], NULL, 10) : (uint16_t)SI_NO_PROGRAM;
    OrvaDemuxError error = ORVA_DEMUX_OK;
    OrvaDemux *demux = orva_demux_open(argv[1], NULL, &error);
    if (demux == NULL) {
        fprintf(stderr, "%s: %s\n", argv[1], orva_demux_error_text(error));
        return 1;
    }
    init_news();
    int status = 1;
    if (Orva_Si_InstallCallback(on_news) == ORVA_SI_OK && /* both before the first start */
        Orva_Si_InstallISO639toIDFunc(number_of_language) == ORVA_SI_OK &&
        Orva_Si_Init(orva_demux_handler()) == ORVA_SI_OK) {
        for (unsigned tries = 0; tries < 5000 && Orva_Si_GetTableList() == NULL; ++tries)
            Orva_Sleep(1); /* the library's thread creates it */
        status = watch(program);
        Orva_Si_DeInit();
    }
    orva_demux_close(demux);
    return status;
}
