/** @file
 * error.h - why a call failed.
 */
#ifndef RAVO_ERROR_H
#define RAVO_ERROR_H

#include <assert.h>
#include <stddef.h>

/** Marks what the library exports. */
#if defined(__GNUC__)
#define RAVO_API __attribute__((visibility("default")))
#else
#define RAVO_API
#endif

/** Asserts the layout of a structure, beside it; C99 cannot, and leaves it out. */
#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L)
#define RAVO_LAYOUT(condition, text) static_assert(condition, text)
#else
#define RAVO_LAYOUT(condition, text) struct RAVO_UNCHECKED_LAYOUT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Reasons of failure.  The values never change; later versions may add some at the end. */
typedef enum RAVO_ERROR {
    RAVO_ERROR_NONE = 0,         /**< no call of this thread has failed */
    RAVO_ERROR_NO_SUCH_FILE = 1, /**< a file, or a folder on its path, does not exist */
    RAVO_ERROR_NOT_READABLE = 2, /**< no permission, not an ordinary file, or a read error */
    RAVO_ERROR_FORMAT = 3,       /**< the contents are not of the format asked for */
    RAVO_ERROR_UNSUPPORTED = 4,  /**< a valid variant of the format that the library cannot read */
    RAVO_ERROR_MEMORY = 5,       /**< the system refuses memory */
    RAVO_ERROR_ARGUMENT = 6,     /**< an argument is null or out of range */
    RAVO_ERROR_NOTHING_LOADED = 7,  /**< the call needs loaded material */
    RAVO_ERROR_NO_LEAD = 8,         /**< no signal of the material feeds an output lead */
    RAVO_ERROR_NOT_CONNECTED = 9,   /**< no simulator is connected */
    RAVO_ERROR_NOT_IDENTIFIED = 10, /**< a port is open, but what is on it is not known yet */
    RAVO_ERROR_BUSY = 11,     /**< a port, a file or the library is in use; the text says by whom */
    RAVO_ERROR_REFUSED = 12,  /**< the simulator does not accept the command */
    RAVO_ERROR_WRITE = 13,    /**< a file or the port does not accept the data written */
    RAVO_ERROR_SILENT = 14,   /**< the simulator, or what is on its port, does not answer */
    RAVO_ERROR_CLOSING = 15,  /**< the library is being unloaded or the process is ending */
    RAVO_ERROR_SYSTEM = 16,   /**< the system refuses a thread, a timer or the like */
    RAVO_ERROR_CALLBACK = 17, /**< not to be called from this callback */
    RAVO_ERROR_FORKED = 18,   /**< the library does not work in a forked child */
    RAVO_ERROR_END = 19       /**< nothing follows: the end of the samples or annotations */
} RAVO_ERROR;

/** Why the last failed call of the calling thread failed: the RAVO_ERROR, and in `text` a
 * sentence in English that says what failed and where.  `text` is an array of `size` bytes, or
 * null; the sentence is cut to fit, between two characters of UTF-8, and always terminated; no
 * sentence has more than 1,023 bytes.
 * A call that succeeds does not clear the reason: ask after a failure only.  Holds for the
 * functions of ravo.h and wfdb.h alike.  Takes no lock and never waits; may be called from any
 * thread and callback.
 * @param text array of `size` bytes; may be null
 * @param size bytes of `text`
 * @return a RAVO_ERROR */
RAVO_API int RAVOGetLastError(char* text, size_t size);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* RAVO_ERROR_H */
