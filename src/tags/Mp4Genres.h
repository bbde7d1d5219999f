#pragma once

namespace mp4 {

// The ID3v1 genre names by genre number 0..147, spelled as history has them
// ("Psychadelic", "Trash Metal", "Christian Rock " with its trailing blank).
constexpr int kID3v1GenreCount = 148;
extern const char* const kID3v1Genres[kID3v1GenreCount];

} // namespace mp4
