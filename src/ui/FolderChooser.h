#pragma once
#include <QString>

#include <functional>

class QFileDialog;
class QWidget;

// A folder chooser shown as a sheet on parent: folders only, opening in a
// folder that exists, with a line that says what the folder is for. When
// newFolderName is given, a button makes that folder in the folder shown and
// opens it, so that Choose takes it.
QFileDialog* openFolderChooser(QWidget* parent, const QString& title, const QString& message, const QString& openIn,
                               const QString& newFolderName, std::function<void(const QString& folder)> chosen);
