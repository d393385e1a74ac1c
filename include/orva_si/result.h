/* SPDX-License-Identifier: LGPL-2.1-or-later */
/**
 * @file
 * The result codes.
 */
#ifndef ORVA_SI_RESULT_H
#define ORVA_SI_RESULT_H

/**
 * Result codes. Every function that says so returns one of these in an unsigned 32-bit value;
 * its own comment names the codes it can answer.
 */
enum orva_si_result {
    ORVA_SI_OK = 0,            /**< done; an answer was written where one was asked for */
    ORVA_SI_FAILURE = 1,       /**< failed, or a single value that nothing in the store answers */
    ORVA_SI_NULL_ARGUMENT = 2, /**< a required pointer is null; nothing was locked or written */
    ORVA_SI_ARRAY_FULL = 3,    /**< the caller's array is full; it holds the first results */
    ORVA_SI_NO_TABLE = 4,      /**< a table record could not be created */
    ORVA_SI_INVALID_ARGUMENT = 5,      /**< a null function, an invalid count or service_id */
    ORVA_SI_CONDITION_FALSE = 0x20001, /**< a fixed wait ended and its condition was false */
    ORVA_SI_NO_DATA = 0x2000D,   /**< a list that nothing in the store answers; its count is 0 */
    ORVA_SI_NOT_FOUND = 0x20052, /**< no such PAT, PMT or EIT entity, or an invalid PID */
    ORVA_SI_UNKNOWN_SERVICE = 0x20063, /**< background service unknown, unregistered or paused */
    ORVA_SI_SERVICE_RUNNING = 0x20064, /**< background service still running after the wait */
    ORVA_SI_TABLE_DISABLED = 0x20065   /**< the kind of table is switched off by its enable flag */
};

/** Another name of ORVA_SI_NO_DATA. */
#define SI_NO_DATA ORVA_SI_NO_DATA

#endif
