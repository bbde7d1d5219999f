#pragma once
// The in-process Ogg Vorbis encoder, called with an oggenc-style command line:
//   "" -Q [-t title] [-a artist] [-l album] [-N track] [-G genre] [-d date]
//      [--downmix] -b kbit/s -o output.ogg input.wav
// (also -q quality, -m/-M, -h, -V). The first element, the program name, may be
// empty. Messages go to standard error. Safe to call from several threads at once:
// each call parses its own options; only the option parsing and the drawing of the
// stream serial number are serialised. Returns 0 on success, non-zero on failure;
// a failed encode leaves no output file behind.
int oggenc_main(int argc, char** argv);
