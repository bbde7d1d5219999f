#pragma once
#include <QWidget>

class FreeDBWrapper;
class QCheckBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;

// The FreeDB page of the Preferences window: the server table (the list the
// servers gave, or the server in use alone), the server in use, the names sent
// with every request, and the switch that turns FreeDB off. Every action goes
// to the FreeDB client of the preferences.
class FreeDBPreferencesPage : public QWidget {
    Q_OBJECT
public:
    explicit FreeDBPreferencesPage(FreeDBWrapper* freedb, QWidget* parent = nullptr);

    QTableWidget* serverTable() const { return table_; }
    QPushButton* makeDefaultButton() const { return makeDefault_; }
    QCheckBox* disableBox() const { return disable_; }
    QLineEdit* userNameField() const { return userName_; }
    QLineEdit* hostNameField() const { return hostName_; }

private:
    void reloadTable();
    void refreshFields();

    FreeDBWrapper* freedb_;
    QTableWidget* table_;
    QPushButton* makeDefault_;
    QLabel* defaultHost_;
    QLabel* status_;
    QLineEdit* userName_;
    QLineEdit* hostName_;
    QCheckBox* disable_;
};
