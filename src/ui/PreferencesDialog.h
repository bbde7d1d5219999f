#pragma once
#include <QDialog>
#include <QHash>

class QCheckBox;
class QComboBox;
class QLineEdit;
class QPushButton;
class QTabWidget;

// The Preferences window: shows the Preferences fields in controls and hands
// them back on Save; Revert and Defaults go through the Preferences controller.
class PreferencesDialog : public QDialog {
    Q_OBJECT
public:
    explicit PreferencesDialog(QWidget* parent = nullptr);

    // Extra pages (the LAME page) are added by their owners.
    void addPage(QWidget* page, const QString& title);

private:
    void revertControls();
    void controlsChanged();
    void save();
    void updateComboStates();

    QTabWidget* pages_;
    QHash<QString, QCheckBox*> checks_;
    QComboBox* warnSpaceCombo_;
    QComboBox* warnMoreCombo_;
    QLineEdit* prefixEdit_;
    QLineEdit* exportFolderEdit_;
    QPushButton* saveButton_;
    bool reverting_ = false;
};
