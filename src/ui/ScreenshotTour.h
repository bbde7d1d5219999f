#pragma once
#include <QString>

class MainWindow;

// Pictures of the window for the documentation: the library opened, each tab
// in turn, a conversion under way, the burn and copy sheets and the
// Preferences window, saved as PNG files into a folder; Velmora then quits.
// The desktop program starts it when the environment variable
// VELMORA_SCREENSHOTS names a folder.
void startScreenshotTour(MainWindow* window, const QString& folder);
