/* The decoders of foreign clips, in a plain C interface.
 *
 * Each decodes a whole file in memory to mono floats: the mean of the channels at the file's rate.
 * On success the outputs are set and the caller frees `samples` with zepho_audio_free; otherwise
 * they are untouched. No state; any thread. The libraries behind them are NOT safe on hostile bytes:
 * clips from outside are decoded by the program zephon-decode only, never by the service. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 1 success, 0 failure */
int32_t zepho_mp3_decode(const uint8_t* data, uint64_t size, float** samples, uint64_t* frames,
                         uint32_t* rate);

/* 1 success, 0 failure, -2 the stream is Opus */
int32_t zepho_ogg_decode(const uint8_t* data, uint64_t size, float** samples, uint64_t* frames,
                         uint32_t* rate);

/* A null pointer is allowed. */
void zepho_audio_free(float* samples);

#ifdef __cplusplus
}
#endif
