/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Start-up and shut-down. The library is initialised once in the life of a process.
 *
 * @par Memory
 * The handler table stays the client's.
 *
 * @par Threads and locks
 * The client calls these functions one after the other, before and after all other use, with no
 * lock of the library held.
 */
#ifndef ORVA_SI_LIFECYCLE_H
#define ORVA_SI_LIFECYCLE_H

#include "orva_platform.h"
#include "orva_si/filter.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The debug category of every log line of the library ("SI"); null before the first Orva_Si_Init.
 * Read only. */
extern ORVA_SI_API OrvaDebugCategory *si_debug;

/**
 * Initialises the library: takes the demux handler table, requests all section filters, starts the
 * thread that processes sections and registers the background services.
 *
 * @param handler_table  the seven functions of the demux driver; not copied, it must outlive the
 * library. Null, or one without AddSecFilter, is no failure either: the library then receives
 * nothing
 * @return ORVA_SI_OK, also when the library was initialised before, even if it was shut down since;
 *         ORVA_SI_FAILURE when the thread cannot be started: what was set up until then stays, and
 * the call may be repeated
 *
 * A driver that grants fewer filters than asked for is no failure here: the tables go without.
 * Returns before the new thread has created the store; a channel started in that very instant would
 * receive nothing. The store is there once Orva_Si_GetTableList answers a list.
 */
ORVA_SI_API uint32_t Orva_Si_Init(SiDmxSectHandler *handler_table);

/**
 * Stops the channel and releases all section filters. The processing thread, the debug category,
 * the locks and the installed functions stay; the library cannot be initialised again.
 *
 * @return ORVA_SI_OK
 */
ORVA_SI_API uint32_t Orva_Si_DeInit(void);

/** Hook called by Orva_Si_Init. Does nothing. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Init_Lib(void);

/** Hook called by Orva_Si_DeInit. Does nothing. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Exit_Lib(void);

/** Hook called when the store was emptied. Does nothing. @return ORVA_SI_OK */
ORVA_SI_API uint32_t Orva_Si_PrintMemSize(void);

#ifdef __cplusplus
}
#endif

#endif
