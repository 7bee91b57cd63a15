/* A noise source circling the listener in a 5 x 4 x 3 m room, rendered for headphones through
 * the C interface and written to a 16-bit stereo WAV file.
 *
 *   qk_example_c_render [OUT.wav [SECONDS [HRTF]]]     (default: c_render.wav, 4 s)
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <quendarik/quendarik.h>

enum { RATE = 48000, BLOCK = 512 };

static void put16(FILE *f, unsigned v) {
    fputc((int)(v & 0xff), f);
    fputc((int)((v >> 8) & 0xff), f);
}

static void put32(FILE *f, unsigned long v) {
    put16(f, (unsigned)(v & 0xffff));
    put16(f, (unsigned)((v >> 16) & 0xffff));
}

/* A canonical 44-byte header for stereo 16-bit samples at RATE. */
static void write_header(FILE *f, unsigned long frames) {
    const unsigned long data = frames * 4ul;
    fwrite("RIFF", 1, 4, f);
    put32(f, 36ul + data);
    fwrite("WAVEfmt ", 1, 8, f);
    put32(f, 16ul);
    put16(f, 1u); /* PCM */
    put16(f, 2u);
    put32(f, (unsigned long)RATE);
    put32(f, (unsigned long)RATE * 4ul);
    put16(f, 4u);
    put16(f, 16u);
    fwrite("data", 1, 4, f);
    put32(f, data);
}

static short to16(float v) {
    const float s = v * 32767.0f;
    return (short)(s > 32767.0f ? 32767.0f : s < -32768.0f ? -32768.0f : s);
}

static int fail(const char *what) {
    fprintf(stderr, "c_render: %s: %s\n", what, qk_last_error());
    return 1;
}

int main(int argc, char **argv) {
    const char *out = argc > 1 ? argv[1] : "c_render.wav";
    const double seconds = argc > 2 ? atof(argv[2]) : 4.0;
    const char *hrtf = argc > 3 ? argv[3] : NULL;
    const double pi = 3.14159265358979323846;
    const float radius = 1.5f, ear = 1.2f;
    float left[BLOCK], right[BLOCK];
    unsigned long frames = 0;
    int noise = 0, vs = 0, r = 0, i = 0;
    FILE *f = NULL;
    qk_engine *e = qk_engine_create(RATE, BLOCK);

    if (e == NULL) {
        return fail("no engine");
    }
    /* The partitioned convolution hears the room's reflections whole at a short block. */
    if (qk_engine_set_hrtf(e, hrtf) != QK_OK || qk_engine_set_shoebox(e, 5.0f, 4.0f, 3.0f) ||
        qk_engine_set_model(e, QK_MODEL_IMAGES, 2) || qk_engine_set_convolution(e, 1) ||
        qk_source_add_noise(e, 0.05f, &noise) || qk_vsource_add(e, noise, 0.0f, radius, ear, &vs) ||
        qk_listener_set(e, 0.0f, 0.0f, ear, 0.0f, 0.0f, 0.0f)) {
        r = fail("set-up");
        qk_engine_destroy(e);
        return r;
    }
    f = fopen(out, "wb");
    if (f == NULL) {
        fprintf(stderr, "c_render: %s can't be written\n", out);
        qk_engine_destroy(e);
        return 1;
    }
    write_header(f, 0ul);
    while ((double)frames < seconds * RATE) {
        /* Once round every 4 s, anticlockwise seen from above, starting straight ahead. */
        const double a = 2.0 * pi * (double)frames / (4.0 * RATE);
        qk_vsource_move(e, vs, (float)(-radius * sin(a)), (float)(radius * cos(a)), ear);
        if (qk_engine_render(e, left, right, BLOCK) != QK_OK) {
            r = fail("render");
            break;
        }
        for (i = 0; i < BLOCK; ++i) {
            put16(f, (unsigned)(unsigned short)to16(left[i]));
            put16(f, (unsigned)(unsigned short)to16(right[i]));
        }
        frames += BLOCK;
    }
    qk_engine_destroy(e);
    if (r == 0) {
        fseek(f, 0L, SEEK_SET);
        write_header(f, frames);
    }
    if (fclose(f) != 0 || ferror(stdout)) {
        fprintf(stderr, "c_render: %s can't be written\n", out);
        return 1;
    }
    if (r == 0) {
        printf("Wrote %s (%.1f s at %d Hz, %s)\n", out, (double)frames / RATE, RATE, qk_version());
    }
    return r;
}
