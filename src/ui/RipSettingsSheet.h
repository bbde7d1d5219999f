#pragma once
#include <QDialog>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QTableWidget;
class RipSourcesWrapper;

// The rip settings of one format as a sheet: encoder settings, the naming
// controls with the path the current track would get, and the character
// changes. Every control edits the tab's shown copy; Save stores it.
class RipSettingsSheet : public QDialog {
    Q_OBJECT
public:
    RipSettingsSheet(RipSourcesWrapper& rip, const QString& format, QWidget* parent = nullptr);
    ~RipSettingsSheet() override;

    QLabel* preview() const { return preview_; }
    QLineEdit* customFormat() const { return custom_; }
    QComboBox* nameFormat() const { return nameFormat_; }
    void reject() override;

private:
    void load();

    RipSourcesWrapper& rip_;
    QString format_;
    bool loading_ = false;
    QComboBox* bitrate_;
    QCheckBox* vbr_;
    QCheckBox* mono_;
    QCheckBox* maxSpeed_;
    QCheckBox* subfolders_;
    QCheckBox* typeFolder_;
    QCheckBox* lowerCase_;
    QCheckBox* noSpaces_;
    QComboBox* nameFormat_;
    QLineEdit* custom_;
    QLabel* preview_;
    QTableWidget* changes_;
    QLineEdit* replace_;
    QLineEdit* with_;
};

// Which formats a MULTI-RIP makes.
class MultiRipSettingsSheet : public QDialog {
    Q_OBJECT
public:
    explicit MultiRipSettingsSheet(RipSourcesWrapper& rip, QWidget* parent = nullptr);
    ~MultiRipSettingsSheet() override;
    void reject() override;

private:
    void load();

    RipSourcesWrapper& rip_;
    QList<QCheckBox*> boxes_;
};
