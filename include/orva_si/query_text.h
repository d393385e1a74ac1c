/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * Text fields and languages, as the query functions hand them out.
 *
 * Nothing here converts characters: what a client shows it makes from SiDvbString with EN 300 468
 * annex A.
 *
 * @par Memory
 * Arguments are the caller's and are not kept.
 *
 * @par Threads and locks
 * Any thread; no lock is taken. A language function is installed before another thread asks.
 */
#ifndef ORVA_SI_QUERY_TEXT_H
#define ORVA_SI_QUERY_TEXT_H

#include "orva_si/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The client's table of languages: gives its own number to an ISO 639-2 code.
 *
 * Runs on the thread of the query function that meets a language, with a store lock held. It must
 * return promptly, must not call the library, and must not wait for a lock that the client holds
 * while it calls a query function.
 *
 * @param iso639_code  three characters as broadcast, upper or lower case, and a NUL; valid during
 * the call only
 * @param language_id  receives the number, any 32-bit value; it is 0 when a query function asks and
 *                     stays so when nothing is written
 * @return ignored
 */
typedef uint32_t (*SiISO639toIDFunc)(const char *iso639_code, uint32_t *language_id);

/** The installed language function, null until one is installed. To be read only. */
extern ORVA_SI_API SiISO639toIDFunc SiLanguageFunc;

/**
 * Copies a text field of a descriptor (EN 300 468 annex A) into a record.
 *
 * The first byte always goes to charset_type. When it is a selector (0x01 to 0x1F) text starts
 * behind it, otherwise text starts with it. Only that one byte is split off: the further bytes of
 * the selectors 0x10 (two) and 0x1F (one) stay at the start of text. More than 256 bytes are cut; a
 * text of 256 bytes has no NUL.
 *
 * @param dest    caller's record, written whole
 * @param source  the field's bytes, at least length of them; not kept
 * @param length  bytes of the field; 0 and below give a record of zeros
 * @return ORVA_SI_OK; ORVA_SI_INVALID_ARGUMENT for a null dest or source, nothing is written then
 */
ORVA_SI_API uint32_t Orva_Si_ProcessString(SiDvbString *dest, const uint8_t *source, int length);

/**
 * Installs the language function, once for the life of the process. To be called before the first
 * query that compares or lists languages: until then all languages have the number 0.
 *
 * @param func  must stay callable as long as the process runs
 * @return ORVA_SI_OK; ORVA_SI_FAILURE when one is installed, which stays; ORVA_SI_INVALID_ARGUMENT
 * for a null func
 */
ORVA_SI_API uint32_t Orva_Si_InstallISO639toIDFunc(SiISO639toIDFunc func);

/**
 * Asks the language function for the number of a language. Both pointers go to it as they are, null
 * ones too.
 *
 * @param iso639_code  three characters and a NUL
 * @param language_id  receives the number; untouched when no function is installed
 * @return ORVA_SI_OK always
 */
ORVA_SI_API uint32_t Orva_Si_ISO639Map2ID(const char *iso639_code, uint32_t *language_id);

#ifdef __cplusplus
}
#endif

#endif
