#pragma once
#include "tabs/PlaySourcesWrapper.h"

#include <QWidget>

class QComboBox;
class QLabel;
class QProgressDialog;
class QSlider;
class QStandardItemModel;
class QTableView;
class QToolButton;
class QTreeWidget;

// The Play tab: the sources outline, the song table of the selected source,
// the player's buttons and sliders, the four playback modes, the convert
// actions and the information panel. It shows PlaySourcesWrapper's state and
// forwards the user's actions to it.
class PlayTab : public QWidget {
    Q_OBJECT
public:
    explicit PlayTab(PlaySourcesWrapper& play, QWidget* parent = nullptr);

    PlaySourcesWrapper& play() { return play_; }
    QTreeWidget* sourcesOutline() const { return outline_; }
    QTableView* songTable() const { return table_; }
    QToolButton* modeButton(PlaySourcesWrapper::Mode mode) const { return modeButtons_.value(int(mode)); }
    QToolButton* pauseButton() const { return pauseButton_; }
    QLabel* messageLabel() const { return messageLabel_; }
    // Starts a conversion of the selected songs into a folder already chosen.
    void convertInto(const QString& formatKey, const QString& folder);

private:
    void rebuildOutline();
    void showSourceSelected(int row);
    void rebuildSongTable();
    void showSongSelected(int row);
    void showPlaying();
    void showProgress(int value, const QString& text);
    void showModes();
    void showInformation(const QVariantMap& information);
    void chooseSaveFolder();
    void showSaveProgress(const QVariantMap& progress);
    QList<int> selectedRows() const;

    PlaySourcesWrapper& play_;
    QTreeWidget* outline_;
    QTableView* table_;
    QStandardItemModel* songs_;
    QToolButton* pauseButton_;
    QList<QToolButton*> modeButtons_;
    QSlider* volume_;
    QSlider* position_;
    QLabel* timeLabel_;
    QLabel* nowPlayingLabel_;
    QLabel* messageLabel_;
    QLabel* loadingLabel_;
    QComboBox* formatCombo_;
    QProgressDialog* saveSheet_ = nullptr;
    bool showsResume_ = false;
    int playingRow_ = -1;
};
