/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* Runs the driver that the guide shows: first alone, where its settings are replaced and ended
 * while two threads deliver; then under the library, which scans a transport stream through it. */
#define _POSIX_C_SOURCE 200809L
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "driver_guide.c"

enum {
    ROUNDS = 3000,
    LEAST_ROUNDS = 200,
    SECONDS = 2,
    THREADS = 2,
    SECTION_BYTES = 12,
    PACKET = 188,
    PIDS = 8192
};

static void pause_ms(long ms)
{
    nanosleep(&(struct timespec){.tv_sec = ms / 1000, .tv_nsec = ms % 1000 * 1000000}, NULL);
}

/* ---- Settings. Each has a PID of its own, which is also in the sections on it. */

static atomic_uint newest; /* setting of which sections are on air */
static atomic_uint oldest; /* setting that may still be given */
static atomic_uint late;   /* callbacks of settings before that */
static atomic_uint given;
static atomic_bool ended;

static void note(const SiDmxSection *section)
{
    const unsigned setting =
        (unsigned)section->pPrimaraySectionData[0] << 8 | section->pPrimaraySectionData[1];
    if (setting < atomic_load(&oldest))
        atomic_fetch_add(&late, 1);
    atomic_fetch_add(&given, 1);
}

static uint32_t on_section(uint32_t demux, uint32_t filter_id, SiWord reserved,
                           SiDmxSection *section)
{
    (void)reserved;
    sched_yield();
    note(section);
    return free_buffer(demux, filter_id, section->BufferHandle);
}

static void offer(unsigned setting)
{
    uint8_t bytes[SECTION_BYTES] = {(uint8_t)(setting >> 8), (uint8_t)setting};
    offer_section(&(struct arrived){.pid = (uint16_t)setting,
                                    .in = {.bytes = bytes, .size = sizeof bytes},
                                    .length = sizeof bytes});
}

static void *keep_offering(void *unused)
{
    while (!atomic_load(&ended)) {
        offer(atomic_load(&newest));
        sched_yield();
    }
    return unused;
}

static void *keep_enabling(void *unused)
{
    while (!atomic_load(&ended)) {
        enable_filter(0, 0);
        sched_yield();
    }
    return unused;
}

static uint32_t load(unsigned setting, uint32_t (*callback)(uint32_t demux, uint32_t filter_id,
                                                            SiWord reserved, SiDmxSection *section))
{
    return update_filter(
        0, 0, (SiDmxFilterParam){.pid = (uint16_t)setting, .section_callback = callback});
}

/* Loads setting after setting while sections of them come; ends every second one if it is told to.
 * Fewer of them where the machine has other things to do. */
static void replace_settings(bool end_some, void *(*beside)(void *))
{
    pthread_t threads[THREADS + 1];
    unsigned count = 0;
    atomic_store(&ended, false);
    for (; count < THREADS; ++count)
        if (pthread_create(&threads[count], NULL, keep_offering, NULL) != 0)
            exit(2);
    if (beside != NULL && pthread_create(&threads[count++], NULL, beside, NULL) != 0)
        exit(2);
    const time_t last = time(NULL) + SECONDS;
    for (unsigned setting = 1; setting <= LEAST_ROUNDS || (setting <= ROUNDS && time(NULL) <= last);
         ++setting) {
        if (load(setting, on_section) != DRIVER_OK)
            exit(3);
        atomic_store(&oldest, setting);
        atomic_store(&newest, setting);
        for (const unsigned before = atomic_load(&given); atomic_load(&given) == before;)
            sched_yield();
        if (end_some && setting % 2 == 0) {
            disable_filter(0, 0);
            atomic_store(&oldest, setting + 1);
        }
    }
    atomic_store(&ended, true);
    for (unsigned i = 0; i < count; ++i)
        pthread_join(threads[i], NULL);
    disable_filter(0, 0);
    atomic_store(&oldest, 0);
}

/* ---- Slot 3 while another slot waits for a callback */

static atomic_uint inside;  /* callbacks that have begun */
static atomic_uint let_out; /* of these, how many may end */
static atomic_bool slot_ended;

static uint32_t held_section(uint32_t demux, uint32_t filter_id, SiWord reserved,
                             SiDmxSection *section)
{
    (void)reserved;
    const unsigned order = atomic_fetch_add(&inside, 1);
    while (atomic_load(&let_out) <= order)
        pause_ms(1);
    if (atomic_load(&slot_ended))
        atomic_fetch_add(&late, 1);
    return free_buffer(demux, filter_id, section->BufferHandle);
}

static void *offer_one(void *unused)
{
    offer(1);
    return unused;
}

static void *replace(void *unused)
{
    load(2, held_section);
    atomic_store(&slot_ended, true);
    return unused;
}

static void *end(void *unused)
{
    disable_filter(0, 0);
    atomic_store(&slot_ended, true);
    return unused;
}

/* Setting 1 is switched on again while a slot waits for its callback to end, and is given once
 * more: the slot must wait for that too, and the setting must be over behind it. */
static bool over_behind(void *(*slot)(void *))
{
    pthread_t first;
    pthread_t second;
    pthread_t waiting;
    atomic_store(&inside, 0);
    atomic_store(&let_out, 0);
    atomic_store(&slot_ended, false);
    if (load(1, held_section) != DRIVER_OK || pthread_create(&first, NULL, offer_one, NULL) != 0)
        exit(2);
    while (atomic_load(&inside) != 1)
        pause_ms(1);
    if (pthread_create(&waiting, NULL, slot, NULL) != 0)
        exit(2);
    for (bool off = false; !off; pause_ms(1)) { /* until it waits */
        pthread_mutex_lock(&driver.lock);
        off = !driver.filters[0].running;
        pthread_mutex_unlock(&driver.lock);
    }
    enable_filter(0, 0);
    if (pthread_create(&second, NULL, offer_one, NULL) != 0)
        exit(2);
    while (atomic_load(&inside) != 2)
        pause_ms(1);
    atomic_store(&let_out, 1);
    pthread_join(first, NULL);
    pause_ms(20);
    const bool waited = !atomic_load(&slot_ended);
    atomic_store(&let_out, 3);
    pthread_join(second, NULL);
    pthread_join(waiting, NULL);
    offer(1);
    return waited && atomic_load(&inside) == 2;
}

/* ---- A transport stream: the sections of a file, again and again, in a ring that they wrap in */

static struct {
    uint8_t *packets;
    size_t count;
    size_t at;
} file;

struct assembly {
    bool begun;
    uint32_t size;
    uint8_t bytes[MOST_BYTES + PACKET];
};

static bool read_file(const char *name)
{
    FILE *in = fopen(name, "rb");
    if (in == NULL || fseek(in, 0, SEEK_END) != 0)
        return false;
    file.count = (size_t)ftell(in) / PACKET;
    rewind(in);
    file.packets = malloc(file.count * PACKET);
    const bool whole =
        file.packets != NULL && fread(file.packets, PACKET, file.count, in) == file.count;
    fclose(in);
    return whole && file.count != 0;
}

static void put_in_ring(const uint8_t *bytes, uint32_t size, struct arrived *section)
{
    static uint8_t ring[MOST_BYTES + 100];
    static uint32_t end_of_last;
    section->in = (struct ring){.bytes = ring, .size = sizeof ring};
    section->start = end_of_last;
    section->length = size;
    for (uint32_t i = 0; i < size; ++i)
        ring[(section->start + i) % sizeof ring] = bytes[i];
    end_of_last = (uint32_t)((section->start + size) % sizeof ring);
}

/* The sample has no errors, no adaptation fields on these PIDs, and one section begun a packet. */
bool next_section(struct arrived *section)
{
    static struct assembly *of_pid[PIDS];
    section->length = 0;
    const uint8_t *packet = file.packets + PACKET * (file.at++ % file.count);
    section->pid = (uint16_t)((packet[1] & 0x1F) << 8 | packet[2]);
    const bool begins = (packet[1] & 0x40) != 0;
    if (section->pid == PIDS - 1 || (packet[3] & 0x30) != 0x10)
        return true;
    if (of_pid[section->pid] == NULL)
        of_pid[section->pid] = calloc(1, sizeof(struct assembly));
    struct assembly *to = of_pid[section->pid];
    if (to == NULL)
        return false;
    const uint32_t skip = begins ? 5u + packet[4] : 4;
    if (begins)
        *to = (struct assembly){.begun = true};
    if (!to->begun || skip >= PACKET || to->size > MOST_BYTES)
        return true;
    memcpy(to->bytes + to->size, packet + skip, PACKET - skip);
    to->size += PACKET - skip;
    const uint32_t size = 3 + ((to->bytes[1] & 0x0Fu) << 8 | to->bytes[2]);
    if (to->size < size)
        return true;
    to->begun = false;
    put_in_ring(to->bytes, size, section);
    return true;
}

/* ---- A client */

static atomic_bool other_events;
static atomic_uint overrun;

static uint32_t on_news(uint32_t reason, uint32_t flag, SiWord data, uint32_t value)
{
    (void)flag;
    (void)value;
    if (reason == SI_REASON_EIT_PRESENT_FOLLOWING &&
        ((const SiEitNotify *)data)->transport_stream_id == 1002)
        atomic_store(&other_events, true);
    return 0;
}

static void on_line(void *user, OrvaDebugCategory *category, uint32_t level, const char *name,
                    const char *function, uint32_t line, const char *text)
{
    (void)user;
    (void)category;
    (void)level;
    (void)name;
    (void)function;
    (void)line;
    if (strstr(text, "Invalid PMT") != NULL)
        atomic_fetch_add(&overrun, 1);
}

static bool scan(void)
{
    Orva_Si_SetScanParam(&(SiScanParam){.wait_time = 500});
    const bool complete = Orva_Si_StartScanChannel() == ORVA_SI_OK;
    uint16_t services[64];
    uint32_t count = 64;
    Orva_Si_GetActServIdList(services, &count);
    for (uint32_t i = 0; i < count; ++i) {
        uint16_t pid = 0;
        Orva_Si_GetPcrPID(services[i], &pid);
        printf("%u %u\n", (unsigned)services[i], (unsigned)pid);
    }
    return complete;
}

static bool receive_other_events(void)
{
    if (Orva_Si_StartChannel(&(SiTuneParam){.frequency = 1, .program_number = 101}) != ORVA_SI_OK ||
        Orva_Si_StartOtherPFEIT(NULL, 0) != ORVA_SI_OK)
        return false;
    for (unsigned tries = 0; !atomic_load(&other_events) && tries < 1000; ++tries)
        pause_ms(10);
    Orva_Si_StopChannel();
    return atomic_load(&other_events);
}

static bool run_library(void)
{
    orva_debug_set_sink(on_line, NULL);
    if (Orva_Si_InstallCallback(on_news) != ORVA_SI_OK ||
        Orva_Si_Init(driver_handler()) != ORVA_SI_OK)
        return false;
    while (Orva_Si_GetTableList() == NULL)
        pause_ms(1);
    const bool done = scan() && receive_other_events();
    Orva_Si_DeInit();
    return done && Si_SectFlt_CheckRunningStatus() == 0;
}

int main(int argc, char **argv)
{
    if (argc != 2 || !read_file(argv[1]))
        return 2;
    uint32_t id = SI_NO_FILTER;
    if (enable_filter(0, 0) == DRIVER_OK ||
        add_filter(0, &id, (SiDmxFilterParam){.option = 1}) != DRIVER_OK || id != 0)
        return 3;
    printf("enabled without a setting: %s\n", enable_filter(0, id) == DRIVER_OK ? "yes" : "no");
    replace_settings(true, NULL);
    replace_settings(false, keep_enabling);
    printf("over behind slot 6: %s\n", over_behind(replace) ? "yes" : "no");
    printf("over behind slot 4: %s\n", over_behind(end) ? "yes" : "no");
    printf("late callbacks: %u\n", atomic_load(&late));
    remove_filter(0, id);

    printf("library: %s\n", run_library() ? "done" : "failed");
    close_driver();
    printf("overrun: %u\n", atomic_load(&overrun));
    unsigned left = 0;
    for (unsigned i = 0; i < FILTERS; ++i)
        left += driver.filters[i].granted;
    printf("filters left: %u, buffers %s\n", left,
           driver.lent != 0 && driver.lent == driver.back ? "all came back" : "missing");
    free(file.packets);
    return 0;
}
