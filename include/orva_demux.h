/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Software section demultiplexer: assembles and filters the sections of a transport stream (ISO/IEC
 * 13818-1) and fills the demux handler table of the SI library, for machines without demultiplexer
 * hardware.
 *
 * The handlers of the table carry no context but the demux index, which the SI library always
 * passes as 0: there is one open demultiplexer in a process at a time.
 *
 * @par Arguments
 * - `demux`: from orva_demux_open, not closed yet
 *
 * @par Memory
 * What is passed stays the caller's and is needed during the call only. Sections that the callbacks
 * receive stay valid until their buffer handle comes back.
 *
 * @par Threads and locks
 * Any thread may call; each function tells what it waits for. No lock of the SI library is taken.
 *
 * @par Use
 *
 *     OrvaDemux *demux = orva_demux_open("file.ts", NULL, &error);
 *     Orva_Si_Init(orva_demux_handler());
 *     ... start a channel or scan ...
 *     Orva_Si_DeInit();
 *     orva_demux_close(demux);
 */
#ifndef ORVA_DEMUX_H
#define ORVA_DEMUX_H

#include <stdint.h>

#include "orva_si/channel.h"
#include "orva_si/filter.h"
#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** An open demultiplexer. */
typedef struct OrvaDemux OrvaDemux;

/** Why an input could not be opened or read. */
typedef enum OrvaDemuxError {
    ORVA_DEMUX_OK = 0,    /**< nothing is wrong */
    ORVA_DEMUX_NO_INPUT,  /**< missing, not readable, or a directory; errno tells why */
    ORVA_DEMUX_EMPTY,     /**< the input ended without a byte */
    ORVA_DEMUX_NOT_TS,    /**< no packet synchronisation in its first mebibyte, or to its end */
    ORVA_DEMUX_BAD_INPUT, /**< the input is not written as one of the forms that orva_demux_open
                             knows */
    ORVA_DEMUX_BUSY,      /**< another demultiplexer is open */
    ORVA_DEMUX_NO_MEMORY, /**< memory or threads are exhausted */
    ORVA_DEMUX_READ_ERROR /**< reading failed half-way; what came before is kept */
} OrvaDemuxError;

/** How an input is read. Zero everything that is not wanted. */
typedef struct OrvaDemuxOptions {
    uint8_t realtime; /**< 1: pace a file or pipe by its PCR instead of reading at full speed;
                         without PCR no pace; datagrams have their own */
    uint32_t carousel_bytes; /**< memory for the sections kept for filters that are armed late; 0:
                                256 MiB, less than 64 KiB: 64 KiB */
} OrvaDemuxOptions;

/** What the demultiplexer is doing. */
typedef enum OrvaDemuxState {
    ORVA_DEMUX_WAITING,  /**< no filter has taken effect yet */
    ORVA_DEMUX_READING,  /**< the input is being read for the first time */
    ORVA_DEMUX_CAROUSEL, /**< the input has ended; sections are served again from memory */
    ORVA_DEMUX_FAILED    /**< the input was no transport stream or reading failed; see error */
} OrvaDemuxState;

/** Where the demultiplexer stands, with counters since it was opened. */
typedef struct OrvaDemuxStatus {
    OrvaDemuxState state; /**< what it is doing */
    OrvaDemuxError error; /**< ORVA_DEMUX_OK unless reading failed or ended early */
    uint8_t idle; /**< 1 in the carousel when every loaded filter was given all that it matches; in
                     a scan: filters that rotate, as those of a channel do, are seldom all idle */
    uint32_t packet_size;      /**< 188, 192 or 204 bytes; 0 while synchronisation was not found */
    uint64_t input_bytes;      /**< size of a file; 0 for a pipe or datagrams */
    uint64_t bytes;            /**< bytes read, ahead of what is delivered */
    uint64_t packets;          /**< packets in synchronisation */
    uint64_t sync_losses;      /**< times that synchronisation was lost */
    uint64_t transport_errors; /**< packets dropped for transport_error_indicator */
    uint64_t scrambled;  /**< packets of section PIDs dropped for transport_scrambling_control */
    uint64_t duplicates; /**< packets of section PIDs dropped as legal duplicates */
    uint64_t continuity_errors; /**< jumps of continuity_counter on section PIDs */
    uint64_t sections;          /**< sections assembled with a right CRC_32, or without one */
    uint64_t crc_errors;        /**< sections dropped for their CRC_32 */
    uint64_t cut_sections; /**< sections that lost packets, were cut by another or by the end */
    uint64_t bad_sections; /**< section_length out of range, or a pointer_field beyond its packet */
    uint64_t delivered;    /**< sections given to callbacks */
    uint64_t congested;    /**< delivered while 100 or more were pending in the library */
    uint64_t evicted;      /**< sub-tables that the carousel gave up for lack of memory */
} OrvaDemuxStatus;

/**
 * Opens an input. Reading begins when the first filter has taken effect and none was loaded for 20
 * ms, at most 200 ms behind the first: the filters of one start miss nothing.
 *
 * @param input    a path; "-" for standard input; or "udp://[@]address:port" for datagrams, also
 *                 written "rtp://": an address of this machine, a multicast group, or none for
 *                 any; port 1 to 65535; IPv6 addresses in brackets
 * @param options  null for the defaults; copied
 * @param error    receives why null was returned; may be null
 * @return the demultiplexer, to be closed with orva_demux_close; null on failure
 *
 * A regular file is probed here: one that is empty or not a transport stream is refused. A pipe is
 * probed while it is read: see OrvaDemuxStatus. Opening a named pipe waits for its writer, which
 * only a signal that is not blocked cuts short. The carousel begins at the end of the input: a pipe
 * that stays open but silent never reaches it.
 *
 * Datagrams carry packets of the stream alone, or behind a header of RTP (RFC 3550), which is told
 * from a packet and taken off; RTP packets that come behind later ones are dropped. Datagrams have
 * no end and are not waited with: sections go to the library as they come, which drops what it has
 * no room for (see `congested`), and none is kept for filters that are armed late. Whoever can send
 * to the port is heard.
 */
ORVA_SI_API OrvaDemux *orva_demux_open(const char *input, const OrvaDemuxOptions *options,
                                       OrvaDemuxError *error);

/**
 * Tells the handler table for Orva_Si_Init.
 *
 * @return the table, never null; it is static and stays valid. Its slots answer 1 while no
 * demultiplexer is open, for another demux index than 0, and for an id or handle that was not
 * granted
 *
 * All slots may be called from any thread, also from inside a callback, with the caller's locks
 * held: no lock of ours is held during callbacks. Callbacks come one at a time, on a thread of the
 * demultiplexer. Slots 2, 4 and 6 return when no callback under the filter's former setting runs
 * any more (called from inside that callback they return at once), so a callback must not wait for
 * a lock that is held around them; what was collected under the former setting is dropped. Slot 6
 * starts the filter, slot 3 starts it with the setting that it was requested or loaded with. A
 * setting takes effect a millisecond after that.
 *
 * Up to 256 filters are granted, never the id 32. A section or batch stays where it is until its
 * buffer handle comes back through slot 1; a file is not read on while 1024 of them are out. Close
 * takes back what is left.
 */
ORVA_SI_API SiDmxSectHandler *orva_demux_handler(void);

/**
 * Writes where the demultiplexer stands. Never waits for delivery.
 *
 * @param status  receives it; untouched when demux is null
 */
ORVA_SI_API void orva_demux_get_status(OrvaDemux *demux, OrvaDemuxStatus *status);

/**
 * Lists the services whose EIT sections were met on PID 0x0012, each once, in order of appearance;
 * the first 8,192.
 *
 * @param services  array to fill
 * @param count     capacity on entry, number written on return
 * @return ORVA_SI_OK; ORVA_SI_ARRAY_FULL when there are more; ORVA_SI_NULL_ARGUMENT
 */
ORVA_SI_API uint32_t orva_demux_get_eit_services(OrvaDemux *demux, SiEitRequest *services,
                                                 uint32_t *count);

/**
 * Puts an error into words.
 *
 * @param error  the code
 * @return a static text in English without a line end, never null; "unknown error" for other
 * numbers
 */
ORVA_SI_API const char *orva_demux_error_text(OrvaDemuxError error);

/**
 * Stops reading and delivery, waits for a callback that is running, and frees everything, filters
 * included. Null is ignored. Not to be called from inside a callback.
 */
ORVA_SI_API void orva_demux_close(OrvaDemux *demux);

#ifdef __cplusplus
}
#endif

#endif
