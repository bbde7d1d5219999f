// velmora-cli erase: blanks a rewritable disc.
#include "cli/BurnCommand.h"
#include "cli/CliCommand.h"
#include "cli/JobProgress.h"

#include "disc/Eraser.h"
#include "disc/LibburnDrives.h"

#include <cstdio>

namespace {

int runErase(const QStringList& arguments)
{
    bool full = false;
    QString drive;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments.at(i) == QLatin1String("--full")) {
            full = true;
        } else if (arguments.at(i) == QLatin1String("--drive") && i + 1 < arguments.size()) {
            drive = arguments.at(++i);
        } else {
            drive.clear();
            break;
        }
    }
    if (drive.isEmpty()) {
        std::fprintf(stderr, "Usage: velmora-cli erase [--full] --drive DEV\n");
        return 2;
    }
    LibburnDrives burners;
    eraser erasing(burners);
    JobProgress progress;
    const auto job = erasing.erase(drive, full);
    return burncommand::finish("erase", job);
}

CliRegistration reg({"erase", "[--full] --drive DEV",
                     "Erase the rewritable disc in the burner DEV: quickly (the table of contents), or every "
                     "sector with --full.",
                     runErase});

}  // namespace
