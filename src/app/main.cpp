#include "core/MyController.h"
#include "disc/MountedCDWrapper.h"
#include "platform/Desktop.h"
#include "platform/SingleInstance.h"
#include "tabs/AppControllers.h"
#include "tabs/MprisService.h"
#include "ui/MainWindow.h"
#include "ui/ScreenshotTour.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFileInfo>
#include <QIcon>
#include <QUrl>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("velmora (Velmora) %s\n", VELMORA_VERSION);
            return 0;
        }
        if (std::strcmp(argv[i], "--help") == 0) {
            std::printf("Usage: velmora [FILE...]\n\nVelmora keeps, plays, tags, converts, rips and burns your music.\n"
                        "Files given here are handed to the running Velmora (played at once when\n"
                        "\"Play files opened from the desktop at once\" is set in the Preferences);\n"
                        "a cue sheet (IMAGE.cue) is opened as an audio CD.\n");
            return 0;
        }
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Velmora"));
    QApplication::setApplicationVersion(QStringLiteral(VELMORA_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("com.dorvane.velmora"));
    // Outside a desktop session no icon theme is named: take the one Debian installs.
    if (QIcon::themeName().isEmpty() || QIcon::themeName() == QLatin1String("hicolor"))
        QIcon::setThemeName(QStringLiteral("Adwaita"));

    QStringList files;
    for (const QString& argument : app.arguments().mid(1))
        files << QFileInfo(argument).absoluteFilePath();

    SingleInstance instance(SingleInstance::defaultName());
    if (instance.sendToRunningInstance(files))
        return 0;
    instance.listen();

    Desktop::setBeepHandler([] { QApplication::beep(); });
    Desktop::setOpenUrlHandler([](const QString& url) { return QDesktopServices::openUrl(QUrl(url)); });

    AppControllers controllers;
    MyController controller;
    controllers.awakeFromNib();
    const int selectedTab = controller.awakeFromNib();
    MainWindow window(controller, controllers);
    MprisService mpris(controllers.play());
    mpris.registerOn(QDBusConnection::sessionBus());

    window.tabs()->setCurrentIndex(qBound(0, selectedTab, window.tabs()->count() - 1));
    // Cue sheets are disc images for the audio-CD watcher; the other files go to the shell.
    auto openFiles = [&controllers, &controller](QStringList paths) {
        auto isCue = [](const QString& path) { return path.endsWith(QLatin1String(".cue"), Qt::CaseInsensitive); };
        for (const QString& path : paths) {
            if (isCue(path))
                controllers.cdWatcher().openImage(path);
        }
        paths.removeIf(isCue);
        if (!paths.isEmpty())
            controller.openFiles(paths);
    };
    openFiles(files);
    QObject::connect(&instance, &SingleInstance::filesReceived, &controller, openFiles);
    QObject::connect(&app, &QApplication::aboutToQuit, &controller, &MyController::applicationWillTerminate);

    window.show();
    controller.applicationDidFinishLaunching();
    if (const QString pictures = qEnvironmentVariable("VELMORA_SCREENSHOTS"); !pictures.isEmpty())
        startScreenshotTour(&window, pictures);
    return app.exec();
}
