/* libdeqaz: converts QAZ files, packed tracker modules, back into the IT, XM, S3M, MOD or MTM
 * module they hold, in memory. Plain C; every call is independent of every other, so calls on
 * different threads are safe. */
#ifndef DEQAZ_DEQAZ_H
#define DEQAZ_DEQAZ_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results, the exit codes of the deqaz program. */
#define DEQAZ_OK 0
#define DEQAZ_NOT_QAZ 2  /* not a QAZ file (magic or version), or no input given */
#define DEQAZ_DAMAGED 3  /* the QAZ file is damaged, or memory ran out while converting */
#define DEQAZ_BAD_OPTIONS 1 /* deqaz_pack: a coding or version it does not know */
#define DEQAZ_NOT_MODULE 2  /* deqaz_pack: not a module the readers take */

/* Converts `qaz_size` bytes of a QAZ file into the module it holds: exactly the bytes the deqaz
 * program writes. On DEQAZ_OK, *module points at *module_size bytes that the caller releases with
 * deqaz_free, and `ext` holds the module's extension ("it", "xm", "s3m", "mod" or "mtm"); on
 * failure *module is NULL and *module_size 0. `ext` may be NULL. */
int deqaz_convert(const void *qaz, size_t qaz_size, void **module, size_t *module_size, char ext[4]);

/* Options of deqaz_convert_ex; a zeroed struct (or NULL) gives deqaz_convert's exact bytes. */
#define DEQAZ_FOR_PLAYERS 1u /* two header bytes as players need them: MTM beats per track 64
                                (not 0), S3M empty sample slots typed 0 (not 1) */
typedef struct deqaz_options {
    unsigned flags;      /* DEQAZ_FOR_PLAYERS */
    uint64_t max_output; /* the largest module to write; 0 for the formats' limit, 4 GiB - 1 */
    /* Caps in place of the resource bounds of the README (0 keeps each bound): */
    uint64_t max_body;   /* the unpacked body (bound: 64 MiB, beyond that 4096 bytes per packed byte) */
    uint64_t max_pcm;    /* decoded sample data (bound: 128 MiB plus 64 times the file) */
    uint64_t max_cells;  /* pattern cells, rows (at least 64) times channels (bound: 16 Mi) */
} deqaz_options;

/* What deqaz_convert_ex made. Release `module`, `messages` and `notes` with deqaz_free. */
typedef struct deqaz_result {
    void *module;       /* the module (NULL on failure) */
    size_t module_size;
    char ext[4];        /* "it", "xm", "s3m", "mod" or "mtm" */
    char *messages;     /* what the deqaz program would print about the conversion (its warnings
                           and, on failure, its error), a line each; NULL when none */
    char *notes;        /* what the writer left out, cut to fit or fixed for players, a line
                           each; NULL when none */
} deqaz_result;

/* deqaz_convert with options, and with the converter's messages and the writer's notes. Returns
 * the codes of deqaz_convert (a module past max_output is DEQAZ_DAMAGED, "Insufficient memory";
 * past another cap, DEQAZ_DAMAGED, "Something is wrong with this file!");
 * `result` is filled in every case. */
int deqaz_convert_ex(const void *qaz, size_t qaz_size, const deqaz_options *options, deqaz_result *result);

/* One sample of a QAZ file, as deqaz_inspect describes it. */
typedef struct deqaz_sample_info {
    const char *name;
    const char *coding;    /* "raw", "delta", "predict", "vorbis", "mp3", "copy", "empty" or "unknown" */
    int copy_of;           /* for "copy": the index of the sample whose data this one repeats; else -1 */
    int bits;              /* 8 or 16 */
    int channels;          /* 1 or 2 */
    uint32_t length;       /* frames */
    uint64_t stored_size;  /* bytes of sample data in the QAZ file */
    uint64_t decoded_size; /* bytes of sample data in the module */
} deqaz_sample_info;

/* What a QAZ file holds. */
typedef struct deqaz_info {
    int version;        /* the container version, 0 to 5 */
    char format[4];     /* the module's format: "it", "xm", "s3m", "mod" or "mtm" */
    const char *name;   /* the song's name */
    int channels, orders, patterns, instruments, sample_count;
    const deqaz_sample_info *samples; /* sample_count entries */
} deqaz_info;

/* Describes a QAZ file without converting it (no sample is decoded). On DEQAZ_OK, *info points
 * at one block, strings included, that the caller releases with deqaz_free; on failure it is
 * NULL. Returns the codes of deqaz_convert. */
int deqaz_inspect(const void *qaz, size_t qaz_size, deqaz_info **info);

/* Packs `module_size` bytes of an IT, XM, S3M, MOD or MTM module into a QAZ file, as qaz does.
 * `coding` is qaz's -c value: "auto" (also for NULL: each sample in its smallest lossless coding,
 * repeated sample data stored once), "raw", "delta", "predict", "vorbis[:QUALITY]" or
 * "mp3[:KBPS]" (lossy only where smaller); `version` is 4 or 5 (0 for 5). On DEQAZ_OK, *qaz
 * points at *qaz_size bytes that the caller releases with deqaz_free. If `messages` is not NULL
 * it receives the reader's warnings and the reason of a failure, a line each, to release with
 * deqaz_free (NULL when there are none). Returns DEQAZ_OK, DEQAZ_BAD_OPTIONS, DEQAZ_NOT_MODULE,
 * or DEQAZ_DAMAGED when a sample cannot be encoded or memory runs out. */
int deqaz_pack(const void *module, size_t module_size, const char *coding, int version, void **qaz, size_t *qaz_size,
               char **messages);

/* Releases what the library returned; NULL is allowed. */
void deqaz_free(void *p);

/* The library's version, as "2.4". */
const char *deqaz_version(void);

#ifdef __cplusplus
}
#endif

#endif
