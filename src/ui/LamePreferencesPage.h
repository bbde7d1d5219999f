#pragma once
#include <QWidget>

class LameWrapper;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

// The LAME page of the Preferences window: shows what the LAME locator found
// and forwards "Locate…" and "Download" to it; the MP3 settings on the page are
// enabled only while a usable lame is known.
class LamePreferencesPage : public QWidget {
    Q_OBJECT
public:
    explicit LamePreferencesPage(LameWrapper* lame, QWidget* parent = nullptr);

    // The window-modal offer to fetch lame, shown at start-up when it is missing.
    static void offerDownload(LameWrapper* lame, QWidget* window);

private:
    void refresh();
    void findLame();
    void storeSettings();

    LameWrapper* lame_;
    QLineEdit* pathField_;
    QLabel* statusIndicator_;
    QPlainTextEdit* versionField_;
    QLabel* explanationField_;
    QLabel* linkField_;
    QLabel* progressField_;
    QPushButton* downloadButton_;
    QList<QWidget*> dependentControls_;
    QList<QLabel*> dependentLabels_;
    QComboBox* bitrateCombo_;
    QComboBox* sampleRateCombo_;
    QCheckBox* vbrBox_;
    QCheckBox* monoBox_;
};
