#pragma once
#include <QString>

// Output names that nothing else uses, shared by the tabs' save paths.
namespace UniqueNames {

enum class Mode {
    Reserve,  // the name is made (an empty file created with O_EXCL), for the export to replace
    Preview,  // nothing is made: the name a save would take now
};

// How names are told apart: FAT players see "a.mp3" and "A.MP3" as one name.
enum class Case { Sensitive, Insensitive };

// folder/fileName when it is free; with replace, that name even when taken (and
// not reserved). Otherwise "numberedStem N.type" for N from 1 until one is free;
// at 1,024 that name is returned whether or not it is taken.
QString claim(const QString& folder, const QString& fileName, const QString& numberedStem, const QString& type,
              bool replace, Mode mode = Mode::Reserve, Case names = Case::Sensitive);

}  // namespace UniqueNames
