/* SPDX-License-Identifier: LGPL-2.1-or-later */
/* Runs what the driver guide shows about the end of a setting: two threads deliver sections that
 * name the setting which matched them, while it is replaced and ended again and again. Fails when a
 * callback of a setting still runs after the function that ended it has returned. */
#include <sched.h>
#include <stdio.h>

#include "driver_guide.c"

enum { ROUNDS = 3000, THREADS = 2, SECTION_BYTES = 12 };

static atomic_uint oldest; /* setting that may still be given */
static atomic_uint late;
static atomic_uint given;
static atomic_bool ended;

void pause_ms(unsigned ms)
{
    for (; ms != 0; --ms)
        sched_yield();
}

static uint32_t on_section(uint32_t demux, uint32_t filter_id, SiWord reserved,
                           SiDmxSection *section)
{
    (void)demux;
    (void)filter_id;
    (void)reserved;
    const unsigned setting =
        (unsigned)section->pPrimaraySectionData[0] << 8 | section->pPrimaraySectionData[1];
    sched_yield();
    atomic_fetch_add(&given, 1);
    if (setting < atomic_load(&oldest))
        atomic_fetch_add(&late, 1);
    return 0;
}

static void *deliver(void *unused)
{
    uint8_t bytes[SECTION_BYTES] = {0};
    const struct ring ring = {.bytes = bytes, .size = sizeof bytes};
    while (!atomic_load(&ended)) {
        pthread_mutex_lock(&driver.lock);
        const bool running = driver.filters[0].running;
        const unsigned turn = driver.filters[0].turn;
        const unsigned setting = driver.filters[0].setting.pid;
        pthread_mutex_unlock(&driver.lock);
        bytes[0] = (uint8_t)(setting >> 8);
        bytes[1] = (uint8_t)setting;
        pause_ms(setting % 8); /* here the section is matched, and the setting may end */
        if (running)
            give_matched(0, turn, &ring, 0, sizeof bytes);
        sched_yield();
    }
    return unused;
}

int main(void)
{
    pthread_t threads[THREADS];
    for (unsigned i = 0; i < THREADS; ++i)
        if (pthread_create(&threads[i], NULL, deliver, NULL) != 0)
            return 2;
    for (unsigned setting = 1; setting <= ROUNDS; ++setting) {
        update_filter(0, 0,
                      (SiDmxFilterParam){.pid = (uint16_t)setting, .section_callback = on_section});
        atomic_store(&oldest, setting);
        for (const unsigned before = atomic_load(&given); atomic_load(&given) == before;)
            sched_yield();
        pause_ms(setting % 5);
        if (setting % 2 == 0) {
            disable_filter(0, 0);
            atomic_store(&oldest, setting + 1);
        }
    }
    atomic_store(&ended, true);
    for (unsigned i = 0; i < THREADS; ++i)
        pthread_join(threads[i], NULL);
    printf("late callbacks: %u\n", atomic_load(&late));
    return atomic_load(&late) == 0 ? 0 : 1;
}
