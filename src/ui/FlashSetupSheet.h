#pragma once
#include <QDialog>

class FlashWriter;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QSlider;

// The copy-to-flash sheet: the player, its space, and the seven options
// (stored under "flashpanelsettings" when OK is pressed). Eject unmounts and
// powers the player off.
class FlashSetupSheet : public QDialog {
    Q_OBJECT
public:
    explicit FlashSetupSheet(FlashWriter& writer, QWidget* parent = nullptr);

    QVariantMap chosenSettings() const;
    QComboBox* players() const { return players_; }
    QLabel* status() const { return status_; }
    QPushButton* okButton() const { return ok_; }
    QPushButton* ejectButton() const { return eject_; }

    void accept() override;
    void reject() override;

private:
    void reloadPlayers();
    void showSelectedDriveStatus();

    FlashWriter& writer_;
    bool answered_ = false;
    QComboBox* players_;
    QLabel* status_;
    QCheckBox* erase_;
    QCheckBox* replace_;
    QCheckBox* noFolders_;
    QCheckBox* whenPossible_;
    QSlider* quality_;
    QCheckBox* mono_;
    QCheckBox* convertToMp3_;
    QPushButton* ok_;
    QPushButton* eject_;
};

// The sheet shown while a player is being erased, with its Cancel button.
class FlashEraseSheet : public QDialog {
    Q_OBJECT
public:
    FlashEraseSheet(FlashWriter& writer, const QString& volumePath, QWidget* parent = nullptr);
    // Cancel and Escape stop the erase; the copy then does not start.
    void reject() override;

private:
    FlashWriter& writer_;
};
