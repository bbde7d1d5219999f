#pragma once
#include <QList>
#include <QPair>
#include <QString>

class QWidget;

// The About box: what Velmora is, its version, and the libraries it runs on.
namespace AboutBox {

// Name and version of each library, as the library reports it where it can.
QList<QPair<QString, QString>> libraryVersions();
void show(QWidget* parent);

}  // namespace AboutBox
