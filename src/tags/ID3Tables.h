#pragma once
#include <QString>

// The ID3v1 genre names, indexed by genre number. The spellings are the
// historical ones ("Psychadelic", "Trash Metal", "Christian Rock " with its
// trailing blank): genre matching compares against them byte for byte.
constexpr int ID3_v1_genre_count = 148;
extern const char* const ID3_v1_genre_description[ID3_v1_genre_count];

// Picture types of the ID3v2 attached-picture frame, by name and number.
constexpr int kPictureTypeCount = 21;
// The number of a picture-type name (case-insensitive); 0 when none matches.
int encodeImageType(const QString& name);
// The name of a picture-type number; "Unknown" outside 0..20.
QString decodeImageType(int number);
