#include "ui/MainWindow.h"

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) {}
