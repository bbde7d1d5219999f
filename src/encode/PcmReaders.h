#pragma once
// Readers for the uncompressed inputs of the Ogg encoder: WAV (integer and
// float PCM) and AIFF/AIFF-C. Each reader recognises its format from the first
// bytes of the file, parses the header and then hands out de-interleaved float
// channels. Diagnostics go to standard error.
#include <cstdio>

// What an open function tells the encoder about its input.
struct OggEncInput {
    long rate = 0;
    int channels = 0;
    long long totalSamplesPerChannel = 0; // 0 when the length is unknown
    // Fills buffer[channel][0 .. samples) with values in [-1, 1]; returns the
    // samples delivered per channel, 0 at the end of the input.
    long (*readSamples)(void* state, float** buffer, int samples) = nullptr;
    void* readState = nullptr;
};

// One row of the reader table.
struct PcmInputFormat {
    bool (*identify)(const unsigned char* header, int length);
    int identifyLength;
    // Called with the stream positioned after the identified leading bytes.
    bool (*open)(FILE* in, OggEncInput* input, const unsigned char* header, int headerLength);
    void (*close)(void* state);
    const char* format;
    const char* description;
};

// Reads the leading bytes, finds the first reader that recognises them and opens
// the input with it. Returns that reader's row, or nullptr when no reader knows
// the file or its open failed (its message is then on standard error).
const PcmInputFormat* open_audio_file(FILE* in, OggEncInput* input);

bool wav_id(const unsigned char* header, int length);
bool wav_open(FILE* in, OggEncInput* input, const unsigned char* header, int headerLength);
bool aiff_id(const unsigned char* header, int length);
bool aiff_open(FILE* in, OggEncInput* input, const unsigned char* header, int headerLength);
// Frees the private state of either reader.
void pcm_close(void* state);
