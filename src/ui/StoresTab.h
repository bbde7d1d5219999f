#pragma once
#include "tabs/StoresList.h"

#include <QWidget>

class QLineEdit;
class QListWidget;

// The Stores tab: the list of music web stores with fields to edit the selected one.
class StoresTab : public QWidget {
    Q_OBJECT
public:
    explicit StoresTab(QWidget* parent = nullptr);

private:
    void reload();
    void selectionChanged();
    void goToStore();

    stores_wrapper stores_;
    QListWidget* list_;
    QLineEdit* nameEdit_;
    QLineEdit* urlEdit_;
};
