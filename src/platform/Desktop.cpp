#include "platform/Desktop.h"

#include <mutex>

namespace {
std::mutex handlerMutex;
std::function<void()>& beepHandler()
{
    static std::function<void()> handler;
    return handler;
}
std::function<bool(const QString&)>& openUrlHandler()
{
    static std::function<bool(const QString&)> handler;
    return handler;
}
} // namespace

namespace Desktop {

void beep()
{
    std::function<void()> handler;
    {
        std::lock_guard lock(handlerMutex);
        handler = beepHandler();
    }
    if (handler)
        handler();
}

bool openUrl(const QString& url)
{
    std::function<bool(const QString&)> handler;
    {
        std::lock_guard lock(handlerMutex);
        handler = openUrlHandler();
    }
    return handler ? handler(url) : false;
}

void setBeepHandler(std::function<void()> handler)
{
    std::lock_guard lock(handlerMutex);
    beepHandler() = std::move(handler);
}

void setOpenUrlHandler(std::function<bool(const QString&)> handler)
{
    std::lock_guard lock(handlerMutex);
    openUrlHandler() = std::move(handler);
}

} // namespace Desktop
