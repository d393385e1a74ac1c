/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * What several headers share: numbers that may be addresses, "any" and "none" values, text.
 */
#ifndef ORVA_SI_TYPES_H
#define ORVA_SI_TYPES_H

#include <stdint.h>

#include "orva_si/result.h"

#ifndef ORVA_SI_API
/** Marks what the shared library exports; everything else stays hidden. */
#define ORVA_SI_API __attribute__((visibility("default")))
#endif

/** An unsigned word that carries either a number or an address: 32 bits wide on a 32-bit machine.
 */
typedef uintptr_t SiWord;

/* Wildcards of a table key and "none" values of identifiers. */
#define SI_ANY_PID 0x2000 /**< any PID in a key; "no PID" elsewhere (13-bit PIDs end at 0x1FFF) */
#define SI_ANY_TABLE_ID 0xFF /**< any table_id in a key */
#define SI_ANY_EXT 0xFFFF    /**< any table_id_extension in a key */
#define SI_NO_PROGRAM 0xFFFF /**< no program */
#define SI_NO_FILTER 32      /**< no demux filter; a driver must never grant this id */

/** Bytes of text that a SiDvbString holds. */
#define SI_DVB_STRING_BYTES 256

/**
 * A text field of the broadcast (EN 300 468 annex A), still in its broadcast character table.
 * Not terminated when all 256 bytes are used: always go by length.
 */
typedef struct SiDvbString {
    uint32_t charset_type; /**< first byte of the field: a selector 0x01-0x1F, else simply its first
                              character */
    uint8_t text[SI_DVB_STRING_BYTES]; /**< the bytes behind a one-byte selector, or all bytes when
                                          there is none */
    uint16_t length;                   /**< bytes used in text, 0 to 256 */
} SiDvbString;

#endif
