/* Quendarik: real-time 3-D audio, the C interface.
 *
 * An engine renders what a listener hears in a room, block by block, for headphones: the
 * host picks the rate and the block, adds sources (audio it pushes, files, noise), places
 * virtual sources that each play one source, places the listener, and asks for each block.
 * Nothing here plays to a device: the host takes the blocks where it wants them.
 *
 *   qk_engine *e = qk_engine_create(48000, 512);
 *   int src, vs;
 *   qk_engine_set_shoebox(e, 5.0f, 4.0f, 3.0f);
 *   qk_engine_set_model(e, QK_MODEL_IMAGES, 2);
 *   qk_source_add_noise(e, 0.1f, &src);
 *   qk_vsource_add(e, src, 1.0f, 1.0f, 1.2f, &vs);
 *   qk_listener_set(e, 0.0f, 0.0f, 1.2f, 0.0f, 0.0f, 0.0f);
 *   qk_engine_render(e, left, right, 512);   (again for every block)
 *   qk_engine_destroy(e);
 *
 * Results: QK_OK (0) or a negative QK_E_ code; qk_last_error() then says what failed and,
 * for a file, which one. Nothing is thrown, nothing aborts.
 *
 * Coordinates in metres: x across (+x to the right of a listener looking along +y), y along,
 * z up. A shoe box is centred on x = 0 and y = 0 with its floor at z = 0. Angles in degrees:
 * yaw about +z from the +y axis, anticlockwise seen from above (90 looks along -x, to the
 * left), as the library's azimuths run; pitch up from the horizontal.
 *
 * Samples are 32-bit floats with full scale 1.0, mono into sources, two planar channels out.
 *
 * Threads: an engine may be used from several threads. qk_vsource_move and qk_listener_set
 * never wait: the engine takes a new pose whole at the start of the next block, so a game may
 * call them at any rate while a block is being made. qk_engine_render and qk_room_response
 * are called by one thread at a time for an engine (the audio thread). Everything else may
 * wait for the block in progress. qk_engine_destroy is the last call for an engine, made when
 * no other thread uses it.
 *
 * Memory: what the library hands out is freed with qk_free; what the host passes in stays
 * the host's. No C++ type crosses this interface.
 */
#ifndef QUENDARIK_H
#define QUENDARIK_H

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define QK_C_API __attribute__((visibility("default")))
#else
#define QK_C_API
#endif

typedef struct qk_engine qk_engine;

/* Results. Every failure also leaves a text for qk_last_error. */
enum qk_result {
    QK_OK = 0,
    QK_E_ARGUMENT = -1,  /* a null pointer, or a number out of its range */
    QK_E_FILE = -2,      /* a file can't be read, written or used */
    QK_E_HRTF = -3,      /* no HRTF set could be loaded: nothing can be rendered */
    QK_E_NOT_FOUND = -4, /* no source or virtual source of that id in this engine */
    QK_E_STATE = -5,     /* not possible now, e.g. no response has been made yet */
    QK_E_FULL = -6,      /* a host source holds as much as it can */
    QK_E_MEMORY = -7,    /* memory ran out */
    QK_E_ENGINE = -8     /* the engine made no block */
};

/* The room models (the library's sound field model numbers). */
enum qk_model {
    QK_MODEL_FREE_FIELD = 0,  /* the direction's HRTF and 1/r beyond a metre; no room */
    QK_MODEL_IMAGES = 1,      /* image sources up to the order, through the walls' filters */
    QK_MODEL_IMAGES_LATE = 2, /* the image model and a late reverb */
    QK_MODEL_HRTF_LATE = 3,   /* the direction's HRTF and the late reverb */
    QK_MODEL_PRECOMPUTED = 4  /* responses from a pre-computed set */
};

/* The longest block, in frames, an engine renders in one call. */
#define QK_MAX_FRAMES 32768

/* "MAJOR.MINOR.PATCH" of the library. Any thread. */
QK_C_API const char *qk_version(void);

/* This thread's last failure in words ("" when none yet). The text stays until this thread's
 * next failure. Any thread. */
QK_C_API const char *qk_last_error(void);

/* Receives every text the library reports to its user (a file it can't read, an unsupported
 * kind of file), with severity 0 info, 1 warning, 2 error. Runs on the thread that found the
 * problem, possibly an engine's own, and must return promptly. NULL: back to one line on
 * standard error. Process-wide: for every engine, and for C++ hosts of the facade too. */
typedef void (*qk_message_fn)(void *user, int severity, const char *text);
QK_C_API void qk_set_message_handler(qk_message_fn fn, void *user);

/* An engine for blocks at sample_rate Hz (8000 to 192000; HRTF sets measured at another rate
 * are resampled) of block_frames frames (1 to QK_MAX_FRAMES), the length most renders ask
 * for: host sources hold four such blocks ahead. Its listener stands at the origin looking
 * along +y; there is no room (free field) and the library's default HRTF set is asked for.
 * NULL on failure (qk_last_error says why). Any thread. */
QK_C_API qk_engine *qk_engine_create(int sample_rate, int block_frames);

/* Stops and frees the engine and everything it holds. NULL is fine. */
QK_C_API void qk_engine_destroy(qk_engine *e);

/* The engine's rate in Hz and block in frames, as created; 0 for NULL. Any thread. */
QK_C_API int qk_engine_sample_rate(const qk_engine *e);
QK_C_API int qk_engine_block_frames(const qk_engine *e);

/* Loads an HRTF set now: a .qkhrtf file, or a .sofa file (free-field impulse responses,
 * AES69) made into a set on the fly. NULL asks for the library's default set (looked for
 * below the common folder, then the installed data folder). QK_E_FILE when the file is
 * missing or can't be used; the engine then has no set and renders nothing until a good one
 * is loaded. May wait for a block. */
QK_C_API int qk_engine_set_hrtf(qk_engine *e, const char *path);

/* A shoe box of width (x), depth (y) and height (z) in metres, each 0.1 to 1000; the image
 * model (QK_MODEL_IMAGES) hears it once qk_engine_set_model chooses it. May wait for a block. */
QK_C_API int qk_engine_set_shoebox(qk_engine *e, float width, float depth, float height);

/* One of the library's preset rooms, 1 to 6: shoe boxes of 2 x 2 x 2, 6 x 6 x 4 and
 * 10 x 10 x 5 m, trapezia of depth 2, 6 and 10 m. May wait for a block. */
QK_C_API int qk_engine_set_preset(qk_engine *e, int preset);

/* A room from a world file: a world text (with its INCLUDEs) or a .qkworld archive.
 * QK_E_FILE when it can't be read or describes no plane. May wait for a block. */
QK_C_API int qk_engine_load_world(qk_engine *e, const char *path);

/* The room model (enum qk_model) and the highest order of reflections (0 to 30) of the image
 * model. Orders above 10 cost seconds for each move of a source. May wait for a block. */
QK_C_API int qk_engine_set_model(qk_engine *e, int model, int order);

/* How virtual sources convolve: 0 (the library's default) one transform of block + response
 * length a block, which hears a response only up to about two blocks; 1 partitioned, which
 * hears long room responses whole at any block length. Takes effect at the next block. */
QK_C_API int qk_engine_set_convolution(qk_engine *e, int method);

/* Threads rendering the virtual sources of a block, the engine's own counted: 1 to 64, or
 * 0 for the machine's cores (the default). The output is the same whatever the count. */
QK_C_API int qk_engine_set_threads(qk_engine *e, int threads);

/* Files at another rate than the engine's: 0 (the library's default) its integer
 * zero-stuffing, right only for whole multiples of rates; 1 a band-limited conversion. */
QK_C_API int qk_engine_set_file_conversion(qk_engine *e, int band_limited);

/* The output limiter (on by default): a block that would exceed full scale turns the gain
 * down so that it peaks at 0.95, and the gain stays down. 0 switches it off. */
QK_C_API int qk_engine_set_limiter(qk_engine *e, int on);

/* A source fed by the host with qk_source_push. Its id in *id. May wait for a block. */
QK_C_API int qk_source_add_host(qk_engine *e, int *id);

/* A source playing a file in a loop: WAV (.wav), MP3 (.mp3) or AC-3 (.ac3, played once).
 * QK_E_FILE when it can't be opened or is of another kind. May wait for a block. */
QK_C_API int qk_source_add_file(qk_engine *e, const char *path, int *id);

/* A source of white Gaussian noise of rms level (0 to 1, full scale 1). May wait. */
QK_C_API int qk_source_add_noise(qk_engine *e, float rms, int *id);

/* Queues frames mono samples (any count from 0) for a host source; each render takes the
 * frames it renders from the front of the queue, and silence for any it lacks. The queue
 * holds four blocks of the engine's block_frames (at least 4096 frames): a push that doesn't
 * fit gives QK_E_FULL and queues nothing. Any thread; never waits for a block. */
QK_C_API int qk_source_push(qk_engine *e, int id, const float *mono, int frames);

/* A virtual source that plays source at (x, y, z). Its id in *id. May wait for a block. */
QK_C_API int qk_vsource_add(qk_engine *e, int source, float x, float y, float z, int *id);

/* Removes a virtual source. May wait for a block. */
QK_C_API int qk_vsource_remove(qk_engine *e, int id);

/* Moves a virtual source; taken whole at the start of the next block. Never waits. */
QK_C_API int qk_vsource_move(qk_engine *e, int id, float x, float y, float z);

/* Places the listener at (x, y, z), turned by yaw and pitch (degrees, see above). The
 * library's listener is a position and a point it looks at, so it has no roll: roll_deg is
 * taken and has no effect. Taken whole at the start of the next block. Never waits. */
QK_C_API int qk_listener_set(qk_engine *e, float x, float y, float z, float yaw_deg,
                             float pitch_deg, float roll_deg);

/* Renders one block of frames (1 to QK_MAX_FRAMES) for headphones into left and right
 * (frames floats each, the host's). File and noise sources play on; host sources take their
 * queued samples. A change of length makes every source start its filters afresh.
 * QK_E_HRTF when no HRTF set is loaded (both buffers are then silent). */
QK_C_API int qk_engine_render(qk_engine *e, float *left, float *right, int frames);

/* The binaural room response the virtual source was last rendered with, from the source to
 * the listener's ears: copies of frames floats each in *left and *right, freed with qk_free.
 * QK_E_STATE when none has been made yet (render a block after placing things). */
QK_C_API int qk_room_response(qk_engine *e, int vsource, float **left, float **right, int *frames);

/* The room model's echogram for the same response: one impulse per image at its delay, of
 * its distance gain. A copy in *data of *frames floats, freed with qk_free. QK_E_STATE when
 * the model makes none (free field) or nothing has been rendered yet. */
QK_C_API int qk_echogram(qk_engine *e, int vsource, float **data, int *frames);

/* Frees what qk_room_response and qk_echogram handed out. NULL is fine. Any thread. */
QK_C_API void qk_free(void *p);

#ifdef __cplusplus
}
#endif

#endif /* QUENDARIK_H */
