/* Converts a QAZ file into the module it holds through libdeqaz:
 *   convert song.qaz song.it
 * Build against an installed DEQAZ: cc convert.c $(pkg-config --cflags --libs deqaz) */
#include <deqaz/deqaz.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: convert infile.qaz outfile\n");
        return 1;
    }
    FILE *in = fopen(argv[1], "rb");
    if (!in) {
        perror(argv[1]);
        return 2;
    }
    size_t size = 0, capacity = 1 << 16, n;
    unsigned char *qaz = malloc(capacity);
    while (qaz && (n = fread(qaz + size, 1, capacity - size, in)) > 0)
        if ((size += n) == capacity) qaz = realloc(qaz, capacity *= 2);
    fclose(in);
    if (!qaz) return 3;

    void *module;
    size_t module_size;
    char ext[4];
    int result = deqaz_convert(qaz, size, &module, &module_size, ext);
    free(qaz);
    if (result != DEQAZ_OK) {
        fprintf(stderr, "%s: %s\n", argv[1], result == DEQAZ_NOT_QAZ ? "not a QAZ file" : "damaged QAZ file");
        return result;
    }
    FILE *out = fopen(argv[2], "wb");
    int ok = out && fwrite(module, 1, module_size, out) == module_size;
    if (out && fclose(out) != 0) ok = 0;
    deqaz_free(module);
    if (!ok) {
        perror(argv[2]);
        return 4;
    }
    printf("%s: %s module, %zu bytes (libdeqaz %s)\n", argv[2], ext, module_size, deqaz_version());
    return 0;
}
