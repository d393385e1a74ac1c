/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Orva SI: acquires, stores and answers questions about the Service Information of a DVB multiplex.
 *
 * A client initialises the library once with a demux handler table (orva_si/filter.h), installs its
 * callback (orva_si/notify.h), starts a channel or runs a blocking scan (orva_si/channel.h) and
 * reads what was received with the query functions (orva_si/query_*.h).
 *
 * @par Threads
 * The library creates one thread, which processes sections and calls the client's
 * callback. The demux driver delivers sections on a thread of its own, background services run on a
 * timer thread of the platform library, and everything else runs on the client's threads.
 *
 * @par Locks
 * Ts_Ctl_Mutex guards the table store and the list of PMT PIDs, Ts_Eit_Mutex the event
 * store, Ts_Time_Mutex the stored time offset table. When two are needed Ts_Ctl_Mutex is taken
 * first, then Ts_Eit_Mutex; Ts_Time_Mutex is always the last. The client's callback is called with
 * no lock held and may use the query functions; the language function is called with a store lock
 * held and must not.
 */
#ifndef ORVA_SI_H
#define ORVA_SI_H

#include "orva_si/background.h"
#include "orva_si/channel.h"
#include "orva_si/filter.h"
#include "orva_si/lifecycle.h"
#include "orva_si/limits.h"
#include "orva_si/list.h"
#include "orva_si/mempool.h"
#include "orva_si/notify.h"
#include "orva_si/os.h"
#include "orva_si/query_bouquet.h"
#include "orva_si/query_event.h"
#include "orva_si/query_network.h"
#include "orva_si/query_program.h"
#include "orva_si/query_service.h"
#include "orva_si/query_text.h"
#include "orva_si/readiness.h"
#include "orva_si/result.h"
#include "orva_si/store.h"
#include "orva_si/time.h"
#include "orva_si/types.h"

#endif
