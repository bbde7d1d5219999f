#pragma once
#include "tabs/ClipSourcesWrapper.h"

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QSlider;
class QStandardItemModel;
class QTableView;
class QToolButton;
class QTreeWidget;

// The selected song's waveform with its clip drawn on it: the clip's stretch
// shaded, its fades as the slopes of its loudness, and its two edges, which
// the mouse drags to set the start and the length.
class WaveformView : public QWidget {
    Q_OBJECT
public:
    explicit WaveformView(QWidget* parent = nullptr);

    void setPeaks(const WaveformPeaks& peaks);
    void setClip(const QVariantMap& parameters, double songSeconds);
    // What shows while there are no peaks.
    void setPlaceholder(const QString& text);
    double start() const { return start_; }
    double length() const { return length_; }
    QSize sizeHint() const override { return {600, 110}; }

signals:
    // While an edge is dragged: the start and length it gives.
    void clipDragged(double start, double length);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    enum class Edge { None, Start, End };
    double xFor(double seconds) const;
    double secondsAt(double x) const;
    Edge edgeAt(double x) const;

    WaveformPeaks peaks_;
    QString placeholder_;
    double seconds_ = 0;
    double start_ = 0;
    double length_ = 0;
    double fadeIn_ = 0;
    double fadeOut_ = 0;
    Edge dragging_ = Edge::None;
};

// The Clip tab: sources, the song table with each song's clip, the waveform,
// sliders for the selected song's clip, the player's buttons and modes, and the
// save into any format. It shows ClipSourcesWrapper's state and forwards the
// user's actions to it.
class ClipTab : public QWidget {
    Q_OBJECT
public:
    explicit ClipTab(ClipSourcesWrapper& clip, QWidget* parent = nullptr);

    ClipSourcesWrapper& clip() { return clip_; }
    QTreeWidget* sourcesOutline() const { return outline_; }
    QTableView* songTable() const { return table_; }
    WaveformView* waveformView() const { return waveform_; }
    QSlider* slider(const QString& key) const { return sliders_.value(key); }
    // Saves the selected songs' clips (all of them when none is selected) into a folder already chosen.
    void saveInto(const QString& type, const QString& folder);

private:
    void rebuildOutline();
    void showSourceSelected(int row);
    void rebuildSongTable();
    void showParameters(int row);
    void selectionChanged();
    void chooseSaveFolder(const QString& type);
    void showAlert(const QString& title, const QString& message);
    int currentRow() const;
    QList<int> selectedRows() const;

    ClipSourcesWrapper& clip_;
    QTreeWidget* outline_;
    QTableView* table_;
    QStandardItemModel* songs_;
    WaveformView* waveform_;
    QHash<QString, QSlider*> sliders_;
    QHash<QString, QLabel*> sliderValues_;
    QList<QToolButton*> modeButtons_;
    QCheckBox* includeTags_;
    QComboBox* formatCombo_;
    QLabel* statusLabel_;
    bool updating_ = false;
};
