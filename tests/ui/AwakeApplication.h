#pragma once
#include "tabs/AppControllers.h"
#include "core/MyController.h"
#include "ui/MainWindow.h"

#include <memory>

// The application woken as the desktop program wakes it, short of the launch notice.
struct AwakeApplication {
    AwakeApplication()
    {
        controllers.awakeFromNib();
        controller.awakeFromNib();
        windowOwner = std::make_unique<MainWindow>(controller, controllers);
    }
    AppControllers controllers;
    MyController controller;
    std::unique_ptr<MainWindow> windowOwner;
    MainWindow& window() { return *windowOwner; }
};
