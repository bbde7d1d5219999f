#include "ui/LamePreferencesPage.h"

#include "core/Defaults.h"
#include "encode/ExportArguments.h"
#include "encode/LameWrapper.h"
#include "platform/Desktop.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
const QString kBitrateKey = QStringLiteral("mTSPBitrateStored");
const QString kResampleKey = QStringLiteral("mTSPResampleStored");
const QString kVbrKey = QStringLiteral("mTSPVBRStored");
const QString kMonoKey = QStringLiteral("mTSPMonoStored");
} // namespace

LamePreferencesPage::LamePreferencesPage(LameWrapper* lame, QWidget* parent)
    : QWidget(parent), lame_(lame), pathField_(new QLineEdit), statusIndicator_(new QLabel),
      versionField_(new QPlainTextEdit), explanationField_(new QLabel), linkField_(new QLabel),
      progressField_(new QLabel), downloadButton_(new QPushButton(tr("Download LAME"))),
      bitrateCombo_(new QComboBox), sampleRateCombo_(new QComboBox), vbrBox_(new QCheckBox(tr("Variable bit rate"))),
      monoBox_(new QCheckBox(tr("Mono")))
{
    pathField_->setReadOnly(true);
    versionField_->setReadOnly(true);
    versionField_->setMaximumBlockCount(200);
    explanationField_->setWordWrap(true);
    linkField_->setOpenExternalLinks(false);
    connect(linkField_, &QLabel::linkActivated, this, [this](const QString& url) {
        if (!Desktop::openUrl(url))
            QMessageBox::warning(this, tr("LAME"), tr("No web browser could open \u201c%1\u201d.").arg(url));
    });
    statusIndicator_->setFixedSize(14, 14);

    auto* locateButton = new QPushButton(tr("Locate…"));
    locateButton->setToolTip(tr("Choose the lame program Velmora runs to make MP3 files"));
    downloadButton_->setToolTip(tr("Fetch and install lame for your user only"));
    connect(locateButton, &QPushButton::clicked, this, &LamePreferencesPage::findLame);
    connect(downloadButton_, &QPushButton::clicked, lame_, &LameWrapper::downloadLame);

    auto* pathRow = new QHBoxLayout;
    pathRow->addWidget(statusIndicator_);
    pathRow->addWidget(pathField_, 1);
    pathRow->addWidget(locateButton);
    pathRow->addWidget(downloadButton_);

    // Indices of the shared bit-rate table; 9 is the 128 kbit/s default.
    for (int index = 1; index <= 14; ++index)
        bitrateCombo_->addItem(tr("%1 kbit/s").arg(ExportArguments::bitrateForIndex(index)), index);
    sampleRateCombo_->addItem(tr("44,100 Hz"), 0);
    sampleRateCombo_->addItem(tr("48,000 Hz"), 1);
    Defaults& defaults = Defaults::standard();
    const int storedIndex = int(defaults.integerForKey(kBitrateKey));
    bitrateCombo_->setCurrentIndex(bitrateCombo_->findData(storedIndex >= 1 && storedIndex <= 14 ? storedIndex : 9));
    sampleRateCombo_->setCurrentIndex(defaults.integerForKey(kResampleKey) == 1 ? 1 : 0);
    vbrBox_->setChecked(defaults.integerForKey(kVbrKey) != 0);
    monoBox_->setChecked(defaults.integerForKey(kMonoKey) == 1);
    connect(bitrateCombo_, &QComboBox::currentIndexChanged, this, &LamePreferencesPage::storeSettings);
    connect(sampleRateCombo_, &QComboBox::currentIndexChanged, this, &LamePreferencesPage::storeSettings);
    connect(vbrBox_, &QCheckBox::toggled, this, &LamePreferencesPage::storeSettings);
    connect(monoBox_, &QCheckBox::toggled, this, &LamePreferencesPage::storeSettings);

    auto* settings = new QGridLayout;
    auto addRow = [&](int row, const QString& text, QWidget* control, QWidget* extra = nullptr) {
        auto* label = new QLabel(text);
        dependentLabels_ << label;
        settings->addWidget(label, row, 0);
        settings->addWidget(control, row, 1);
        dependentControls_ << control;
        if (extra) {
            settings->addWidget(extra, row, 2);
            dependentControls_ << extra;
        }
    };
    addRow(0, tr("Bit rate:"), bitrateCombo_, vbrBox_);
    addRow(1, tr("Sample rate:"), sampleRateCombo_);
    addRow(2, tr("Channels:"), monoBox_);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(pathRow);
    layout->addWidget(versionField_, 1);
    layout->addWidget(explanationField_);
    layout->addWidget(linkField_);
    layout->addWidget(progressField_);
    layout->addLayout(settings);

    connect(lame_, &LameWrapper::stateChanged, this, &LamePreferencesPage::refresh);
    refresh();
}

void LamePreferencesPage::refresh()
{
    pathField_->setText(lame_->pathText());
    versionField_->setPlainText(lame_->versionText());
    explanationField_->setText(lame_->explanationText());
    const QString page = lame_->downloadPageUrl().toString();
    linkField_->setText(QStringLiteral("<a href=\"%1\">%1</a>").arg(page.toHtmlEscaped()));
    progressField_->setText(lame_->progressText());
    downloadButton_->setEnabled(!lame_->isDownloading());

    const bool enabled = lame_->dependentControlsEnabled();
    const bool realLame = enabled && lame_->versionText().startsWith(QLatin1String("LAME"));
    statusIndicator_->setToolTip(lame_->statusToolTip());
    statusIndicator_->setStyleSheet(QStringLiteral("background: %1; border-radius: 7px;")
                                        .arg(!enabled ? "#c0392b" : realLame ? "#27ae60" : "#e6a817"));
    for (QWidget* control : dependentControls_)
        control->setEnabled(enabled);
    for (QLabel* label : dependentLabels_)
        label->setStyleSheet(enabled ? QStringLiteral("color: black;") : QStringLiteral("color: lightgray;"));
}

void LamePreferencesPage::findLame()
{
    auto* chooser = new QFileDialog(window(), tr("Locate LAME"), LameWrapper::kChooserFolder);
    chooser->setOption(QFileDialog::DontUseNativeDialog);
    chooser->setFileMode(QFileDialog::ExistingFiles);
    chooser->setWindowModality(Qt::WindowModal);
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    if (auto* grid = qobject_cast<QGridLayout*>(chooser->layout())) {
        auto* accessory = new QLabel(LameWrapper::kChooserMessage);
        accessory->setAlignment(Qt::AlignCenter);
        accessory->setFixedSize(400, 20);
        accessory->setTextInteractionFlags(Qt::NoTextInteraction);
        grid->addWidget(accessory, grid->rowCount(), 0, 1, grid->columnCount(), Qt::AlignCenter);
    }
    connect(chooser, &QFileDialog::filesSelected, lame_, [this](const QStringList& files) {
        if (!files.isEmpty())
            lame_->chooseLame(files.first());
    });
    chooser->open();
}

void LamePreferencesPage::storeSettings()
{
    Defaults& defaults = Defaults::standard();
    defaults.setInteger(kBitrateKey, bitrateCombo_->currentData().toInt());
    defaults.setInteger(kResampleKey, sampleRateCombo_->currentData().toInt());
    defaults.setInteger(kVbrKey, vbrBox_->isChecked() ? 1 : 0);
    defaults.setInteger(kMonoKey, monoBox_->isChecked() ? 1 : 0);
    defaults.synchronize();
}

void LamePreferencesPage::offerDownload(LameWrapper* lame, QWidget* window)
{
    auto* sheet = new QDialog(window);
    sheet->setWindowTitle(tr("LAME MP3 encoder"));
    sheet->setWindowModality(Qt::WindowModal);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    auto* text = new QLabel(LameWrapper::kNotFoundExplanation.section(QStringLiteral("\n\n"), 0, 0) +
                            tr("\n\nShall Velmora download and install LAME now?"));
    text->setWordWrap(true);
    auto* dontShow = new QCheckBox(tr("Don't show this again"));
    // Stored the moment it is ticked, whatever button ends the sheet.
    connect(dontShow, &QCheckBox::toggled, lame, [lame](bool checked) { lame->setDontShowDownload(checked ? 1 : 0); });
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(buttons, &QDialogButtonBox::accepted, sheet, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, sheet, &QDialog::reject);
    connect(sheet, &QDialog::accepted, lame, &LameWrapper::downloadLame);
    auto* layout = new QVBoxLayout(sheet);
    layout->addWidget(text);
    layout->addWidget(dontShow);
    layout->addWidget(buttons);
    sheet->open();
}
