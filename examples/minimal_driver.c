/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* A demultiplexer driver: the seven functions that the library needs, over a few sections in
 * memory that are on air again and again. A small client scans through it.
 *
 * Three rules keep it from dead stops and from mixing up tables:
 * - Sections are given on the driver's own thread, never from inside one of the seven functions.
 * - No lock of the driver is held while the library is called back.
 * - Once a filter was loaded anew, switched off or released, no section that was matched before
 *   reaches the library: those functions wait for a callback that runs. */
#define _POSIX_C_SOURCE 200809L
#include <errno.h>
#include <pthread.h>
#include <semaphore.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "orva_si.h"
#include "print_text.h"

/* ---- What is on air */

enum { MOST_SECTIONS = 16, MOST_BYTES = 128, CRC_BYTES = 4 };

struct section {
    uint16_t pid;
    uint32_t size;
    uint8_t bytes[MOST_BYTES];
};
static struct section on_air[MOST_SECTIONS];
static unsigned section_count;

/* CRC_32 of ISO/IEC 13818-1, annex A. */
static uint32_t crc_32(const uint8_t *bytes, uint32_t size)
{
    uint32_t crc = 0xFFFFFFFF;
    for (uint32_t i = 0; i < size; ++i) {
        crc ^= (uint32_t)bytes[i] << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x80000000) != 0 ? crc << 1 ^ 0x04C11DB7 : crc << 1;
    }
    return crc;
}

/* Takes a section but for its section_length and its CRC_32. */
static void broadcast(uint16_t pid, const uint8_t *bytes, uint32_t size)
{
    struct section *s = &on_air[section_count++];
    s->pid = pid;
    s->size = size + CRC_BYTES;
    memcpy(s->bytes, bytes, size);
    const uint32_t section_length = s->size - 3;
    s->bytes[1] = (uint8_t)(s->bytes[1] | section_length >> 8);
    s->bytes[2] = (uint8_t)section_length;
    const uint32_t crc = crc_32(s->bytes, size);
    for (uint32_t i = 0; i < CRC_BYTES; ++i)
        s->bytes[size + i] = (uint8_t)(crc >> (24 - 8 * i));
}

/* Transport stream 1 of network 0xFF01 with the service 257; events of service 513 in stream 2. */
static void make_broadcast(void)
{
    static const uint8_t pat[] = {0x00, 0xB0, 0, 0x00, 0x01, 0xC1, 0, 0, 0x01, 0x01, 0xE1, 0x00};
    static const uint8_t pmt[] = {0x02, 0xB0, 0,    0x01, 0x01, 0xC1, 0,    0,   0xE1,
                                  0x01, 0xF0, 0x00, 0x02, 0xE1, 0x01, 0xF0, 0x00};
    static const uint8_t nit[] = {0x40, 0xF0, 0,    0xFF, 0x01, 0xC1, 0,    0,    0xF0,
                                  0x00, 0xF0, 0x06, 0x00, 0x01, 0xFF, 0x01, 0xF0, 0x00};
    static const uint8_t sdt[] = {0x42, 0xF0, 0,    0x00, 0x01, 0xC1, 0,    0,    0xFF, 0x01, 0xFF,
                                  0x01, 0x01, 0xFC, 0x80, 0x10, 0x48, 0x0E, 0x01, 0x00, 0x0B, 'M',
                                  'i',  'n',  'i',  'm',  'a',  'l',  ' ',  'O',  'n',  'e'};
    static const uint8_t present[] = {0x4F, 0xF0, 0,    0x02, 0x01, 0xC1, 0,    1,    0x00, 0x02,
                                      0xFF, 0x01, 1,    0x4F, 0x00, 0x07, 0xEF, 0x60, 0x20, 0x00,
                                      0x00, 0x01, 0x30, 0x00, 0x80, 0x0D, 0x4D, 0x0B, 'e',  'n',
                                      'g',  0x06, 'H',  'a',  'r',  'b',  'o',  'r',  0x00};
    static const uint8_t following[] = {0x4F, 0xF0, 0,    0x02, 0x01, 0xC1, 1,    1,    0x00, 0x02,
                                        0xFF, 0x01, 1,    0x4F, 0x00, 0x08, 0xEF, 0x60, 0x21, 0x30,
                                        0x00, 0x01, 0x00, 0x00, 0x20, 0x0B, 0x4D, 0x09, 'e',  'n',
                                        'g',  0x04, 'N',  'e',  'w',  's',  0x00};
    broadcast(0x0000, pat, sizeof pat);
    broadcast(0x0100, pmt, sizeof pmt);
    broadcast(0x0010, nit, sizeof nit);
    broadcast(0x0011, sdt, sizeof sdt);
    broadcast(0x0012, present, sizeof present);
    broadcast(0x0012, following, sizeof following);
}

/* ---- The driver */

enum { FILTERS = 31, LONGEST_LIST = 200, ROUND_MS = 10, DRIVER_OK = 0, DRIVER_REFUSES = 1 };

struct filter {
    bool used;
    bool running;
    unsigned turn; /* counts settings and ends */
    SiDmxFilterParam setting;
};

static struct {
    pthread_mutex_t lock;
    pthread_cond_t callback_ended;
    pthread_t thread;
    bool started;
    bool stop;
    struct filter filters[FILTERS]; /* the id is the index: below SI_NO_FILTER, which means none */
    struct filter *called_back;     /* whose callback runs; null for none */
    SiWord lent;                    /* handle of the buffer that the library has; 0 for none */
    unsigned buffers_lent, buffers_back, batches;
} driver = {.lock = PTHREAD_MUTEX_INITIALIZER, .callback_ended = PTHREAD_COND_INITIALIZER};

static struct filter *find_filter(uint32_t id)
{
    return id < FILTERS && driver.filters[id].used ? &driver.filters[id] : NULL;
}

static bool matches(const SiDmxFilterParam *wanted, const struct section *s)
{
    if (s->pid != wanted->pid || s->size < wanted->filter_depth)
        return false;
    bool any_negated = false;
    bool differs = false;
    for (unsigned i = 0; i < wanted->filter_depth; ++i) {
        const unsigned difference = (unsigned)(s->bytes[i] ^ wanted->match[i]);
        if ((difference & wanted->mask[i]) != 0)
            return false;
        any_negated = any_negated || wanted->negate[i] != 0;
        differs = differs || (difference & wanted->negate[i]) != 0;
    }
    return differs || !any_negated; /* the negated bits are compared together */
}

/* Lends sections to the library. With the lock held, which is given up during the callback. */
static void give(struct filter *to, SiDmxSection *sections, uint32_t count)
{
    const uint32_t id = (uint32_t)(to - driver.filters);
    const SiDmxFilterParam setting = to->setting;
    const SiWord handle = (SiWord)++driver.buffers_lent;
    driver.called_back = to;
    driver.lent = handle;
    driver.batches += setting.list_mode;
    pthread_mutex_unlock(&driver.lock);
    if (setting.list_mode == 0) {
        sections[0].BufferHandle = handle;
        setting.section_callback(0, id, 0, &sections[0]);
    } else {
        SiDmxSectionList list = {
            .section_count = count, .section = sections, .BufferHandle = handle};
        setting.section_list_callback(0, id, 0, &list);
    }
    pthread_mutex_lock(&driver.lock);
    driver.called_back = NULL;
    pthread_cond_broadcast(&driver.callback_ended);
}

/* Gives a filter once what it matches: one by one, or in batches, of which the last may be short.
 * Sections are matched and lent in one hold of the lock: none is lent under a setting that it was
 * not matched by. */
static void serve(struct filter *of)
{
    static SiDmxSection batch[LONGEST_LIST];
    pthread_mutex_lock(&driver.lock);
    const unsigned turn = of->turn;
    uint32_t count = 0;
    for (unsigned i = 0; of->running && of->turn == turn && i < section_count; ++i) {
        if (!matches(&of->setting, &on_air[i]))
            continue;
        batch[count++] = (SiDmxSection){.pPrimaraySectionData = on_air[i].bytes,
                                        .PrimaraySectionSize = on_air[i].size};
        if (count == of->setting.list_length) {
            give(of, batch, count);
            count = 0;
        }
    }
    if (count != 0)
        give(of, batch, count);
    pthread_mutex_unlock(&driver.lock);
}

static bool is_stopped(void)
{
    pthread_mutex_lock(&driver.lock);
    const bool stopped = driver.stop;
    pthread_mutex_unlock(&driver.lock);
    return stopped;
}

/* Hardware has the pace of the broadcast. Memory has none: it waits until the library is done
 * before it looks for sections of a filter, or the library's queue would fill up, and drop. */
static void *deliver(void *unused)
{
    const struct timespec pause = {.tv_nsec = ROUND_MS * 1000000L};
    const struct timespec moment = {.tv_nsec = 100000};
    while (!is_stopped()) {
        for (unsigned i = 0; i < FILTERS; ++i) {
            while (!is_stopped() && Si_SectFlt_GetPendingCount() != 0)
                nanosleep(&moment, NULL);
            serve(&driver.filters[i]);
        }
        nanosleep(&pause, NULL);
    }
    return unused;
}

/* Ends a setting: what it matched is not given any more, and no callback of it runs. The library
 * may hold its locks here; its callbacks need none of them, so the wait ends. Another thread may
 * switch the filter on again during the wait, which gives the lock up. */
static void silence(struct filter *f)
{
    f->running = false;
    ++f->turn;
    while (driver.called_back == f) {
        pthread_cond_wait(&driver.callback_ended, &driver.lock);
        f->running = false;
    }
}

static uint32_t init_demux(uint32_t demux)
{
    if (demux != 0)
        return DRIVER_REFUSES;
    if (!driver.started && pthread_create(&driver.thread, NULL, deliver, NULL) != 0)
        return DRIVER_REFUSES;
    driver.started = true;
    return DRIVER_OK;
}

/* Comes back from inside the callback that lent the buffer. */
static uint32_t free_section_data(uint32_t demux, uint32_t filter_id, SiWord handle)
{
    (void)demux;
    (void)filter_id; /* the handle alone tells */
    pthread_mutex_lock(&driver.lock);
    const bool known = handle != 0 && handle == driver.lent;
    if (known) {
        driver.lent = 0;
        ++driver.buffers_back;
    }
    pthread_mutex_unlock(&driver.lock);
    return known ? DRIVER_OK : DRIVER_REFUSES;
}

static uint32_t add_filter(uint32_t demux, uint32_t *filter_id, SiDmxFilterParam setting)
{
    uint32_t result = DRIVER_REFUSES;
    pthread_mutex_lock(&driver.lock);
    for (uint32_t id = 0; demux == 0 && result != DRIVER_OK && id < FILTERS; ++id) {
        if (driver.filters[id].used)
            continue;
        driver.filters[id].used = true; /* a request: nothing runs before it is loaded */
        driver.filters[id].setting = setting;
        *filter_id = id;
        result = DRIVER_OK;
    }
    pthread_mutex_unlock(&driver.lock);
    return result;
}

static uint32_t update_filter(uint32_t demux, uint32_t filter_id, SiDmxFilterParam setting)
{
    (void)demux;
    pthread_mutex_lock(&driver.lock);
    struct filter *f = find_filter(filter_id);
    if (f != NULL) {
        silence(f);
        f->setting = setting;
        f->running = true; /* its sections come from the driver's thread, in the next round */
    }
    pthread_mutex_unlock(&driver.lock);
    return f != NULL ? DRIVER_OK : DRIVER_REFUSES;
}

static uint32_t enable_filter(uint32_t demux, uint32_t filter_id)
{
    (void)demux;
    pthread_mutex_lock(&driver.lock);
    struct filter *f = find_filter(filter_id);
    if (f != NULL)
        f->running = f->setting.start_flag != 0; /* only what has been loaded can run */
    pthread_mutex_unlock(&driver.lock);
    return f != NULL ? DRIVER_OK : DRIVER_REFUSES;
}

static uint32_t disable_filter(uint32_t demux, uint32_t filter_id)
{
    (void)demux;
    pthread_mutex_lock(&driver.lock);
    struct filter *f = find_filter(filter_id);
    if (f != NULL)
        silence(f);
    pthread_mutex_unlock(&driver.lock);
    return f != NULL ? DRIVER_OK : DRIVER_REFUSES;
}

static uint32_t remove_filter(uint32_t demux, uint32_t filter_id)
{
    (void)demux;
    pthread_mutex_lock(&driver.lock);
    struct filter *f = find_filter(filter_id);
    if (f != NULL) {
        silence(f);
        f->used = false;
    }
    pthread_mutex_unlock(&driver.lock);
    return f != NULL ? DRIVER_OK : DRIVER_REFUSES;
}

/* Static: it must outlive the library. */
static SiDmxSectHandler handler = {.DemuxInit = init_demux,
                                   .FreeSecData = free_section_data,
                                   .RemoveSecFilter = remove_filter,
                                   .EnableSecFilter = enable_filter,
                                   .DisableSecFilter = disable_filter,
                                   .AddSecFilter = add_filter,
                                   .UpdateSecFilter = update_filter};

/* After Orva_Si_DeInit, which has released all filters. */
static void close_driver(void)
{
    pthread_mutex_lock(&driver.lock);
    driver.stop = true;
    pthread_mutex_unlock(&driver.lock);
    if (driver.started)
        pthread_join(driver.thread, NULL);
}

/* ---- A client */

enum { SERVICES = 16, PMT_WAIT_MS = 500, EVENT_WAIT_SECONDS = 10 };

static sem_t event_came;
static SiEitNotify event; /* of the first section of events; written before the post, read after */

static uint32_t on_news(uint32_t reason, uint32_t flag, SiWord data, uint32_t value)
{
    static bool known;
    (void)flag;
    (void)value;
    if (reason == SI_REASON_EIT_PRESENT_FOLLOWING && !known) {
        known = true;
        event = *(const SiEitNotify *)data; /* a record lives during the call only */
        sem_post(&event_came);
    }
    return 0;
}

/* Without it every question about languages logs an error, and all languages are 0, as here. */
static uint32_t one_language(const char *iso639_code, uint32_t *language_id)
{
    (void)iso639_code;
    *language_id = 0;
    return 0;
}

static bool scan(void)
{
    const SiScanParam parameters = {.wait_time = PMT_WAIT_MS}; /* a scan does not wait for PMTs */
    Orva_Si_SetScanParam(&parameters);
    if (Orva_Si_StartScanChannel() != ORVA_SI_OK)
        return false;
    uint16_t services[SERVICES];
    uint32_t count = SERVICES;
    Orva_Si_GetActServIdList(services, &count);
    for (uint32_t i = 0; i < count; ++i) {
        SiDvbString name;
        uint16_t pid = 0;
        if (Orva_Si_GetServiceName(services[i], &name) != ORVA_SI_OK ||
            Orva_Si_GetVideoPID(services[i], &pid) != ORVA_SI_OK)
            return false;
        printf("%u\t", (unsigned)services[i]);
        print_text(&name);
        printf("\tvideo PID %u\n", (unsigned)pid);
    }
    return count != 0;
}

static bool wait_for_event(void)
{
    struct timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += EVENT_WAIT_SECONDS;
    int result = 0;
    do
        result = sem_timedwait(&event_came, &deadline);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

/* Events of all services of other multiplexes come through one filter, in batches. */
static bool watch_other_multiplexes(void)
{
    const SiTuneParam channel = {.frequency = 1, .program_number = SI_NO_PROGRAM};
    if (Orva_Si_StartChannel(&channel) != ORVA_SI_OK ||
        Orva_Si_StartOtherPFEIT(NULL, 0) != ORVA_SI_OK || !wait_for_event())
        return false;
    uint16_t id = 0;
    SiDvbString name;
    if (Orva_Si_GetBnrEvtId(event.original_network_id, event.transport_stream_id, event.service_id,
                            0, &id) != ORVA_SI_OK ||
        Orva_Si_GetEvtNameByID(event.original_network_id, event.transport_stream_id,
                               event.service_id, id, &name, 0, 1) != ORVA_SI_OK)
        return false;
    printf("%u\t", (unsigned)event.service_id);
    print_text(&name);
    printf("\tin transport stream %u\n", (unsigned)event.transport_stream_id);
    return true;
}

int main(void)
{
    make_broadcast();
    sem_init(&event_came, 0, 0);
    if (Orva_Si_InstallCallback(on_news) != ORVA_SI_OK ||
        Orva_Si_InstallISO639toIDFunc(one_language) != ORVA_SI_OK ||
        Orva_Si_Init(&handler) != ORVA_SI_OK)
        return 1;
    for (unsigned tries = 0; tries < 5000 && Orva_Si_GetTableList() == NULL; ++tries)
        Orva_Sleep(1); /* the library's thread creates it */
    const bool found = scan() && watch_other_multiplexes();
    Orva_Si_DeInit(); /* stops the channel and releases the filters */
    close_driver();
    const bool all_back = driver.buffers_lent != 0 && driver.buffers_lent == driver.buffers_back;
    printf("batches\t%s\nbuffers\t%s\n", driver.batches != 0 ? "some" : "none",
           all_back ? "all came back" : "missing");
    return found && all_back ? 0 : 1;
}
