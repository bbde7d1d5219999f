#pragma once
#include <QWidget>

class AppControllers;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QProgressDialog;
class QPushButton;
class QTableWidget;
class RipSourcesWrapper;

// The Rip tab: the audio CDs and their tracks (tick boxes, number, title,
// artist, duration), the FreeDB album chooser, eject, the rip actions per
// format, their settings sheets, the cache folder and the clip made during a
// rip. It shows state and forwards the user's actions to RipSourcesWrapper.
class RipTab : public QWidget {
    Q_OBJECT
public:
    explicit RipTab(AppControllers& controllers, QWidget* parent = nullptr);
    ~RipTab() override;

    RipSourcesWrapper& rip() { return rip_; }
    QTableWidget* trackTable() const { return tracks_; }
    QComboBox* formatChooser() const { return format_; }
    // The path the selected track would get in the chosen format.
    QLabel* preview() const { return preview_; }
    // Opens the settings sheet of the chosen format (the multi-rip sheet for MULTI-RIP).
    void showSettings();

private:
    void refreshDiscs();
    void refreshTracks();
    void refreshPreview();
    void chooseSaveFolder(const QString& type);
    void chooseCacheFolder();
    void showProgressSheet();
    void showProgress(const QVariantMap& progress);
    void endProgressSheet();

    RipSourcesWrapper& rip_;
    QComboBox* disc_;
    QComboBox* album_;
    QPushButton* eject_;
    QTableWidget* tracks_;
    QComboBox* format_;
    QLabel* preview_;
    QLabel* cacheLabel_;
    QCheckBox* background_;
    QCheckBox* log_;
    QCheckBox* clip_;
    QList<QWidget*> ripControls_;  // off while a rip reads
    QProgressDialog* progressSheet_ = nullptr;
    QString operation_, status_, saveFileName_;
    bool refreshing_ = false;
};
