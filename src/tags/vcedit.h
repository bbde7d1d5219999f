#pragma once
// Editing the comment header of an Ogg Vorbis stream: open reads the three
// Vorbis headers and exposes the comment list; write emits the headers again
// with the (edited) comment list and copies every following page.
#include <vorbis/codec.h>

#include <cstdio>
#include <functional>

struct vcedit_state;

vcedit_state* vcedit_new_state();
// 0 on success; negative with vcedit_error() telling why.
int vcedit_open(vcedit_state* state, FILE* in);
vorbis_comment* vcedit_comments(vcedit_state* state);
// The identification header (channels, rate) and serial number of an opened stream.
const vorbis_info* vcedit_info(vcedit_state* state);
long vcedit_serial(vcedit_state* state);
// Where vcedit_write puts the stream: false when the bytes could not be written.
using vcedit_sink = std::function<bool(const unsigned char* bytes, long length)>;
// 0 on success; negative with vcedit_error() telling why.
int vcedit_write(vcedit_state* state, const vcedit_sink& out);
// The text of the last error; null when none happened.
const char* vcedit_error(vcedit_state* state);
void vcedit_clear(vcedit_state* state);
