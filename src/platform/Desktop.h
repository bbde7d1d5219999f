#pragma once
#include <QString>

#include <functional>

// The few desktop services the engine uses without knowing about widgets:
// the alert beep and opening an address in the user's browser or mail program.
// The desktop program installs real handlers; without one, a beep is a no-op
// and openUrl reports failure.
namespace Desktop {

void beep();
bool openUrl(const QString& url);

void setBeepHandler(std::function<void()> handler);
void setOpenUrlHandler(std::function<bool(const QString&)> handler);

} // namespace Desktop
