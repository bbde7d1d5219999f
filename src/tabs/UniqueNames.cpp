#include "tabs/UniqueNames.h"

#include "platform/FileNames.h"

#include <QFileInfo>

namespace UniqueNames {

QString claim(const QString& folder, const QString& fileName, const QString& numberedStem, const QString& type,
              bool replace, Mode mode, Case names)
{
    // A name is ours once reserve() has made it; something already there (or a
    // concurrent batch that got it first) moves us on to the next number.
    const auto take = [&](const QString& name) {
        if (QFileInfo::exists(name))
            return false;
        if (names == Case::Insensitive && FileNames::existsIgnoringCase(folder, QFileInfo(name).fileName()))
            return false;
        return mode == Mode::Preview || FileNames::reserve(name) || !QFileInfo::exists(name);
    };
    const QString candidate = folder + '/' + fileName;
    if (take(candidate) || replace)
        return candidate;
    QString numbered;
    for (int n = 1; n <= 1024; ++n) {
        numbered = folder + '/' + FileNames::fitName(numberedStem, QStringLiteral(" %1.%2").arg(n).arg(type));
        if (take(numbered))
            return numbered;
    }
    return numbered;
}

}  // namespace UniqueNames
