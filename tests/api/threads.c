/* Converts one QAZ file on four threads at once through the installed library and writes what
 * the first thread got; exits 1 when the threads disagree or a conversion fails.
 *   threads in.qaz out */
#include <deqaz/deqaz.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct job {
    const unsigned char *qaz;
    size_t size;
    void *module;
    size_t module_size;
    int result;
};

static void *convert(void *arg) {
    struct job *j = arg;
    j->result = deqaz_convert(j->qaz, j->size, &j->module, &j->module_size, NULL);
    return NULL;
}

int main(int argc, char **argv) {
    FILE *in = argc == 3 ? fopen(argv[1], "rb") : NULL;
    if (!in) return 2;
    static unsigned char qaz[1 << 22];
    const size_t size = fread(qaz, 1, sizeof qaz, in);
    fclose(in);
    struct job jobs[4];
    pthread_t threads[4];
    for (int t = 0; t < 4; ++t) {
        jobs[t] = (struct job){qaz, size, NULL, 0, -1};
        if (pthread_create(&threads[t], NULL, convert, &jobs[t]) != 0) return 2;
    }
    int same = 1;
    for (int t = 0; t < 4; ++t) {
        pthread_join(threads[t], NULL);
        same = same && jobs[t].result == DEQAZ_OK && jobs[t].module_size == jobs[0].module_size &&
               memcmp(jobs[t].module, jobs[0].module, jobs[0].module_size) == 0;
    }
    FILE *out = fopen(argv[2], "wb");
    if (!out || !same || fwrite(jobs[0].module, 1, jobs[0].module_size, out) != jobs[0].module_size) return 1;
    fclose(out);
    for (int t = 0; t < 4; ++t) deqaz_free(jobs[t].module);
    return 0;
}
