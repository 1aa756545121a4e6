/** @file
 * search.h - what the search for the simulator found on each port.
 */
#ifndef RAVO_SEARCH_H
#define RAVO_SEARCH_H

#include "ravo/error.h"

#include <assert.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The result of a look at one port.  The values never change; later versions may add some. */
typedef enum RAVO_FINDING {
    RAVO_FINDING_SIMULATOR = 1,         /**< the simulator */
    RAVO_FINDING_ABSENT = 2,            /**< no such port; only where that port was asked for */
    RAVO_FINDING_CANNOT_OPEN = 3,       /**< the system refuses to open it: SystemError */
    RAVO_FINDING_EXCLUSIVE = 4,         /**< another program has opened it exclusively */
    RAVO_FINDING_LOCKED = 5,            /**< process Owner holds its lock */
    RAVO_FINDING_LOCK_UNREADABLE = 6,   /**< its lock file names no process or may not be read */
    RAVO_FINDING_NO_LOCK_DIRECTORY = 7, /**< there is no /var/lock */
    RAVO_FINDING_LOCK_REFUSED = 8,      /**< its lock file cannot be made: SystemError */
    RAVO_FINDING_CANNOT_WRITE = 9,      /**< it takes no bytes */
    RAVO_FINDING_NO_ANSWER = 10,        /**< the device does not answer */
    RAVO_FINDING_FOREIGN_ANSWER = 11,   /**< something else answers: Answer */
    RAVO_FINDING_LOST = 12,             /**< it disappeared while it was being asked */
    RAVO_FINDING_NO_FLASH_TABLE = 13 /**< the simulator, but without a flash table: an older unit,
                                      * or one that sent it too late and is taken for such */
} RAVO_FINDING;

/** One port of the search's last round. */
typedef struct RAVO_SEARCH_ENTRY {
    int32_t Port;        /**< N of /dev/ttyACMN */
    int32_t Finding;     /**< a RAVO_FINDING */
    int32_t SystemError; /**< errno of what the system refused, else 0 */
    int32_t Owner;       /**< id of the process that holds the lock, else 0 */
    uint32_t AnswerSize; /**< bytes of Answer */
    uint8_t Answer[12];  /**< what the device sent, as far as it was read */
    char OwnerName[32];  /**< its program's name; empty when that cannot be told */
    char Text[192];      /**< all of it as one line: "/dev/ttyACM0: held by process 4711 (ravo)" */
} RAVO_SEARCH_ENTRY;

RAVO_LAYOUT(sizeof(RAVO_SEARCH_ENTRY) == 256, "size of RAVO_SEARCH_ENTRY");
RAVO_LAYOUT(offsetof(RAVO_SEARCH_ENTRY, Finding) == 4, "place of Finding");
RAVO_LAYOUT(offsetof(RAVO_SEARCH_ENTRY, SystemError) == 8, "place of SystemError");
RAVO_LAYOUT(offsetof(RAVO_SEARCH_ENTRY, Owner) == 12, "place of Owner");
RAVO_LAYOUT(offsetof(RAVO_SEARCH_ENTRY, AnswerSize) == 16, "place of AnswerSize");
RAVO_LAYOUT(offsetof(RAVO_SEARCH_ENTRY, Answer) == 20, "place of Answer");
RAVO_LAYOUT(offsetof(RAVO_SEARCH_ENTRY, OwnerName) == 32, "place of OwnerName");
RAVO_LAYOUT(offsetof(RAVO_SEARCH_ENTRY, Text) == 64, "place of Text");

/** Entry `index`, from 0, of the last round of the search that has ended: the ports that are
 * there, in the order in which they were asked, up to the simulator.  It stays until the next
 * round ends, and so for as long as a simulator is connected.  Does not wait for the search; may
 * be called from any thread and callback.
 * @param index 0 or more
 * @param entry the caller's, filled
 * @return false beyond the last entry, when `entry` is null, and in a forked child */
RAVO_API bool RAVOGetSearchReport(int index, RAVO_SEARCH_ENTRY* entry);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* RAVO_SEARCH_H */
