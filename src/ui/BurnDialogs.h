#pragma once
#include "disc/BurnDrives.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

// The burn setup sheet: the burner, or an image file standing in for one, the
// speed, a simulated burn and ejecting after. Burners are looked for while the
// sheet is open (a disc spinning up takes seconds); the choices are kept for
// the next burn.
class BurnSetupDialog : public QDialog {
    Q_OBJECT
public:
    // imageSuffix: "cue" for an audio CD, "iso" for a data disc.
    BurnSetupDialog(BurnDrives& drives, const QString& description, const QString& imageSuffix,
                    QWidget* parent = nullptr);

    BurnSetup setup() const;
    QComboBox* driveCombo() const { return drive_; }
    QLineEdit* imageEdit() const { return image_; }

    void accept() override;

private:
    void showDrives(const QList<BurnDriveInfo>& drives);
    void updateChoice();

    QString suffix_;
    QComboBox* drive_;
    QLineEdit* image_;
    QPushButton* chooseImage_;
    QComboBox* speed_;
    QCheckBox* simulate_;
    QCheckBox* eject_;
    QLabel* media_;
    QPushButton* ok_;
    QFormLayout* form_ = nullptr;
};

// The erase sheet: the burner, and a quick or a full erase.
class EraseDialog : public QDialog {
    Q_OBJECT
public:
    EraseDialog(BurnDrives& drives, QWidget* parent = nullptr);

    QString drive() const;
    bool full() const;

private:
    QComboBox* drive_;
    QRadioButton* full_;
    QPushButton* ok_;
};
