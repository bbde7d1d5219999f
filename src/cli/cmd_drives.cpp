// velmora-cli drives: the burners and the discs in them.
#include "cli/CliCommand.h"

#include "disc/LibburnDrives.h"

#include <cstdio>

namespace {

int runDrives(const QStringList& arguments)
{
    if (!arguments.isEmpty()) {
        std::fprintf(stderr, "Usage: velmora-cli drives\n");
        return 2;
    }
    LibburnDrives burners;
    const QList<BurnDriveInfo> drives = burners.drives();
    if (drives.isEmpty()) {
        std::printf("no burners found\n");
        return 0;
    }
    for (const BurnDriveInfo& drive : drives) {
        QStringList traits;
        if (drive.rewritable)
            traits << QStringLiteral("rewritable");
        if (drive.capacity > 0)
            traits << QStringLiteral("%1 MB free").arg(drive.capacity / 1000000);
        if (drive.canWriteAudio)
            traits << QStringLiteral("writes audio CDs");
        std::printf("%s\t%s\t%s%s\n", qPrintable(drive.address), qPrintable(drive.name), qPrintable(drive.media),
                    traits.isEmpty() ? "" : qPrintable(QStringLiteral(" (%1)").arg(traits.join(QStringLiteral(", ")))));
    }
    return 0;
}

CliRegistration reg({"drives", "",
                     "List the burners libburn finds, one a line: the address to give --drive, the burner's name, "
                     "and the disc in it (blank, appendable, full; rewritable; the room left).",
                     runDrives});

}  // namespace
