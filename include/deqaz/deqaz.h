/* libdeqaz: converts QAZ files, packed tracker modules, back into the IT, XM, S3M, MOD or MTM
 * module they hold, in memory. Plain C; every call is independent of every other, so calls on
 * different threads are safe. */
#ifndef DEQAZ_DEQAZ_H
#define DEQAZ_DEQAZ_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results, the exit codes of the deqaz program. */
#define DEQAZ_OK 0
#define DEQAZ_NOT_QAZ 2  /* not a QAZ file (magic or version), or no input given */
#define DEQAZ_DAMAGED 3  /* the QAZ file is damaged, or memory ran out while converting */

/* Converts `qaz_size` bytes of a QAZ file into the module it holds: exactly the bytes the deqaz
 * program writes. On DEQAZ_OK, *module points at *module_size bytes that the caller releases with
 * deqaz_free, and `ext` holds the module's extension ("it", "xm", "s3m", "mod" or "mtm"); on
 * failure *module is NULL and *module_size 0. `ext` may be NULL. */
int deqaz_convert(const void *qaz, size_t qaz_size, void **module, size_t *module_size, char ext[4]);

/* Releases what the library returned; NULL is allowed. */
void deqaz_free(void *p);

/* The library's version, as "2.4". */
const char *deqaz_version(void);

#ifdef __cplusplus
}
#endif

#endif
