/* Plays a QAZ file without writing its module anywhere: libdeqaz converts it in memory, libxmp
 * loads the module from memory and renders it to a 16-bit stereo WAV file at 44.1 kHz.
 *   render song.qaz song.wav [seconds]   (default: until the song ends, at most 10 minutes)
 * Build: cc render.c $(pkg-config --cflags --libs deqaz libxmp) */
#include <deqaz/deqaz.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <xmp.h>

static void put32(unsigned char *p, uint32_t v) {
    p[0] = (unsigned char)v, p[1] = (unsigned char)(v >> 8), p[2] = (unsigned char)(v >> 16), p[3] = (unsigned char)(v >> 24);
}

/* The canonical 44-byte header of a PCM WAV file holding `bytes` of 16-bit stereo at 44.1 kHz. */
static void wavHeader(unsigned char h[44], uint32_t bytes) {
    static const unsigned char fixed[44] = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16, 0, 0, 0,
                                            1, 0, 2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 2, 0, 4, 0, 16, 0, 'd', 'a', 't', 'a'};
    for (int i = 0; i < 44; ++i) h[i] = fixed[i];
    put32(h + 4, 36 + bytes);
    put32(h + 40, bytes);
}

int main(int argc, char **argv) {
    if (argc < 3 || argc > 4) {
        fprintf(stderr, "usage: render song.qaz song.wav [seconds]\n");
        return 1;
    }
    const long seconds = argc == 4 ? atol(argv[3]) : 600;
    FILE *in = fopen(argv[1], "rb");
    if (!in) return perror(argv[1]), 2;
    size_t size = 0, capacity = 1 << 16, n;
    unsigned char *qaz = malloc(capacity);
    while (qaz && (n = fread(qaz + size, 1, capacity - size, in)) > 0)
        if ((size += n) == capacity) qaz = realloc(qaz, capacity *= 2);
    fclose(in);
    if (!qaz) return 3;

    /* The two header bytes players need (MTM beats per track, S3M empty sample slots) as libxmp
     * wants them, rather than as the original converter wrote them. */
    deqaz_options options = {0};
    options.flags = DEQAZ_FOR_PLAYERS;
    deqaz_result converted;
    int result = deqaz_convert_ex(qaz, size, &options, &converted);
    free(qaz);
    deqaz_free(converted.messages);
    deqaz_free(converted.notes);
    if (result != DEQAZ_OK) {
        fprintf(stderr, "%s: %s\n", argv[1], result == DEQAZ_NOT_QAZ ? "not a QAZ file" : "damaged");
        return result;
    }
    xmp_context xmp = xmp_create_context();
    if (xmp_load_module_from_memory(xmp, converted.module, (long)converted.module_size) != 0) {
        fprintf(stderr, "%s: libxmp cannot load the module it holds\n", argv[1]);
        return 4;
    }
    deqaz_free(converted.module);

    FILE *out = fopen(argv[2], "wb");
    if (!out) return perror(argv[2]), 5;
    unsigned char header[44] = {0};
    fwrite(header, 1, sizeof header, out); /* filled in once the length is known */
    uint32_t bytes = 0;
    int16_t buffer[8192];
    xmp_start_player(xmp, 44100, 0);
    /* With a loop count of 1, libxmp reports the end once the song has played through. */
    while (bytes < (uint32_t)seconds * 44100u * 4u && xmp_play_buffer(xmp, buffer, sizeof buffer, 1) == 0) {
        fwrite(buffer, 1, sizeof buffer, out);
        bytes += sizeof buffer;
    }
    xmp_end_player(xmp);
    xmp_release_module(xmp);
    xmp_free_context(xmp);
    wavHeader(header, bytes);
    fseek(out, 0, SEEK_SET);
    fwrite(header, 1, sizeof header, out);
    if (fclose(out) != 0) return perror(argv[2]), 5;
    printf("%s: %.1f s\n", argv[2], bytes / 176400.0);
    return 0;
}
