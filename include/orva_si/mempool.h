/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * A buddy memory pool for clients. The library's own records do not come from it.
 *
 * There is one pool in a process. Messages go to standard output, not to the debug framework.
 *
 * @par Results
 * Unlike the rest of the library these functions answer 1 for success and 0 for failure.
 *
 * @par Memory
 * Every block has a header of 4 bytes in front, so its address is a multiple of 4 and not more:
 * keep no 64-bit numbers or pointers in it where the processor requires them aligned. Writing in
 * front of a block or behind it damages the pool.
 *
 * @par Threads and locks
 * Any thread may call any of the functions at any time, before Orva_Si_Init too. They take the
 * pool's own lock and no other.
 */
#ifndef ORVA_SI_MEMPOOL_H
#define ORVA_SI_MEMPOOL_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Obtains the pool's memory from the system heap, all zero, and sets the count of
 * orva_mempool_getmalloccnt to 0.
 *
 * @param size  bytes, up to 1 GiB (0x40000000). The pool is divided as if it were rounded up to a
 * power of two, but a block that would end beyond size is never handed out; with 0 to 3 bytes every
 * request is met from the system heap
 * @return 1, also when there is a pool already, which stays as it is; 0 for a size above 1 GiB or
 * below 0, or when the heap is exhausted
 */
ORVA_SI_API uint32_t orva_mempool_init(int32_t size);

/**
 * Allocates a block of zeros. The block takes size and its 4-byte header, rounded up to a power of
 * two: 60 bytes take 64, 61 take 128. What the pool cannot serve comes from the system heap, and so
 * does everything while there is no pool.
 *
 * @param size  bytes, 0 included
 * @return the memory, to be given back with orva_mempool_free; null when the system heap is
 * exhausted too or size exceeds 0xFFFFFFFB
 */
ORVA_SI_API void *orva_mempool_malloc(uint32_t size);

/**
 * Gives back a block, from wherever it came, and overwrites it with zeros if it is the pool's.
 *
 * @param pointer  what orva_mempool_malloc returned and was not given back since; null is ignored
 */
ORVA_SI_API void orva_mempool_free(void *pointer);

/**
 * Gives the pool's memory back to the system heap. Blocks that came from the system heap are not
 * counted, stay valid and are still to be freed.
 *
 * @return 1 when released; 0 when there is no pool or a block of it is still in use
 */
ORVA_SI_API uint32_t orva_mempool_cleanup(void);

/**
 * Prints one line: low 32 bits of the pool's address, its size and the bytes of its blocks in use
 * in KiB, and the number of blocks, free ones included.
 */
ORVA_SI_API void orva_mempool_printinfo(void);

/**
 * Tells how many requests the system heap has served since the pool was made.
 *
 * @return the number; freeing does not lower it
 */
ORVA_SI_API uint32_t orva_mempool_getmalloccnt(void);

#ifdef __cplusplus
}
#endif

#endif
