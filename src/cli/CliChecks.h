#pragma once
#include <QString>

class LameWrapper;

// Checks that commands writing music make before any work starts; each prints
// why it fails, naming the command.

// The absolute path of an output folder, made when missing; "" when it cannot be.
QString cliOutputFolder(const char* command, const QString& folder);
// Looks for lame; false (with its version and path texts printed) when MP3s cannot be made.
bool cliLameReady(const char* command, LameWrapper& lame);
