#pragma once
#include <QString>

#include <functional>

class QProgressDialog;
class QWidget;

// The sheet a save or rip shows while it hands files over: window-modal, busy
// until told otherwise, never closing itself. Its Cancel button calls cancel
// once and then stays disabled, as the work stops at the next file.
QProgressDialog* makeProgressSheet(QWidget* parent, const QString& cancelTip, std::function<void()> cancel);
