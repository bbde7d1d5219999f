#include "ui/FlashSetupSheet.h"

#include "disc/FlashWriter.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QStyle>
#include <QVBoxLayout>

namespace {

QCheckBox* option(const QString& text, const QString& tip)
{
    auto* box = new QCheckBox(text);
    box->setToolTip(tip);
    return box;
}

} // namespace

FlashSetupSheet::FlashSetupSheet(FlashWriter& writer, QWidget* parent)
    : QDialog(parent), writer_(writer), players_(new QComboBox), status_(new QLabel),
      erase_(option(tr("Erase the player first"), tr("Erase everything on the player before copying; its name is kept"))),
      replace_(option(tr("Replace files of the same name"), tr("Overwrite files already on the player"))),
      noFolders_(option(tr("Put all files at the top level"), tr("Do not make folders on the player"))),
      whenPossible_(option(tr("Copy smaller when possible"), tr("Re-encode MP3 files at the quality below so more fit"))),
      quality_(new QSlider(Qt::Horizontal)),
      mono_(option(tr("Mono"), tr("Re-encode in mono, for players with one speaker"))),
      convertToMp3_(option(tr("Convert files that are not MP3"), tr("Make MP3 files of other formats while copying"))),
      ok_(new QPushButton(QIcon::fromTheme(QStringLiteral("document-save")), tr("Copy"))),
      eject_(new QPushButton(QIcon::fromTheme(QStringLiteral("media-eject")), tr("Eject")))
{
    setWindowTitle(tr("Copy to Flash Player"));
    setWindowModality(Qt::WindowModal);
    players_->setToolTip(tr("The flash player to copy to"));
    status_->setWordWrap(true);
    // Room for the space line of a large player without it wrapping.
    status_->setMinimumWidth(status_->fontMetrics().horizontalAdvance(
        FlashWriter::statusTextFor({999999LL << 20, 9999999LL << 20}).section('\n', 0, 0)));
    quality_->setRange(0, 100);
    quality_->setSingleStep(25);
    quality_->setPageStep(25);
    quality_->setTickInterval(25);
    quality_->setTickPosition(QSlider::TicksBelow);
    quality_->setToolTip(tr("Lower quality makes smaller files"));
    ok_->setToolTip(tr("Copy the music to the chosen player"));
    eject_->setToolTip(tr("Unmount the player and power it off, so it can be unplugged"));

    auto* form = new QFormLayout;
    form->addRow(tr("Player:"), players_);
    form->addRow(QString(), status_);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    for (QCheckBox* box : {erase_, replace_, noFolders_, convertToMp3_, whenPossible_})
        layout->addWidget(box);
    // The quality and mono go with "Copy smaller when possible", so they sit under it.
    const int indent =
        style()->pixelMetric(QStyle::PM_IndicatorWidth) + style()->pixelMetric(QStyle::PM_CheckBoxLabelSpacing);
    auto* qualityRow = new QHBoxLayout;
    qualityRow->addSpacing(indent);
    qualityRow->addWidget(new QLabel(tr("Smaller")));
    qualityRow->addWidget(quality_, 1);
    qualityRow->addWidget(new QLabel(tr("Better")));
    layout->addLayout(qualityRow);
    auto* monoRow = new QHBoxLayout;
    monoRow->addSpacing(indent);
    monoRow->addWidget(mono_, 1);
    layout->addLayout(monoRow);
    auto* buttons = new QDialogButtonBox;
    buttons->addButton(eject_, QDialogButtonBox::ResetRole);
    buttons->addButton(QDialogButtonBox::Cancel)->setToolTip(tr("Copy nothing"));
    buttons->addButton(ok_, QDialogButtonBox::AcceptRole);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(eject_, &QPushButton::clicked, this, [this] {
        eject_->setEnabled(false);
        writer_.writeToFlashSetupPanelEject();
    });
    connect(players_, &QComboBox::currentIndexChanged, this, [this](int index) {
        writer_.selectVolume(index);
        showSelectedDriveStatus();
    });
    connect(&writer_, &FlashWriter::volumesChanged, this, &FlashSetupSheet::reloadPlayers);
    const auto enableQuality = [this] {
        quality_->setEnabled(whenPossible_->isChecked());
        mono_->setEnabled(whenPossible_->isChecked());
    };
    connect(whenPossible_, &QCheckBox::toggled, this, enableQuality);

    const QVariantMap settings = writer_.settings();
    const QList<QCheckBox*> boxes = {erase_, replace_, noFolders_, whenPossible_, nullptr, mono_, convertToMp3_};
    for (int i = 0; i < boxes.size(); ++i) {
        if (boxes[i])
            boxes[i]->setChecked(settings.value(FlashWriter::settingKeys().at(i)).toInt() != 0);
    }
    quality_->setValue(settings.value("quality").toInt());
    enableQuality();
    reloadPlayers();
}

void FlashSetupSheet::reloadPlayers()
{
    const QSignalBlocker blocker(players_);
    players_->clear();
    players_->addItems(writer_.popupTitles());
    players_->setCurrentIndex(writer_.selectedIndex());
    showSelectedDriveStatus();
}

void FlashSetupSheet::showSelectedDriveStatus()
{
    // A player is always chosen while there is one.
    if (players_->currentIndex() < 0 && players_->count() > 0) {
        const QSignalBlocker blocker(players_);
        players_->setCurrentIndex(0);
        writer_.selectVolume(0);
    }
    status_->setText(writer_.driveStatusText());
    ok_->setEnabled(writer_.canWrite());
    eject_->setEnabled(writer_.canWrite());
}

QVariantMap FlashSetupSheet::chosenSettings() const
{
    const QList<QCheckBox*> boxes = {erase_, replace_, noFolders_, whenPossible_, nullptr, mono_, convertToMp3_};
    QVariantMap settings;
    for (int i = 0; i < boxes.size(); ++i)
        settings.insert(FlashWriter::settingKeys().at(i), boxes[i] ? int(boxes[i]->isChecked()) : quality_->value());
    return settings;
}

void FlashSetupSheet::accept()
{
    if (!answered_) {
        answered_ = true;
        writer_.writeToFlashSetupPanelOK(chosenSettings());
    }
    QDialog::accept();
}

void FlashSetupSheet::reject()
{
    if (!answered_) {
        answered_ = true;
        writer_.writeToFlashSetupPanelCancel();
    }
    QDialog::reject();
}

FlashEraseSheet::FlashEraseSheet(FlashWriter& writer, const QString& volumePath, QWidget* parent)
    : QDialog(parent), writer_(writer)
{
    setWindowTitle(tr("Erasing Flash Player"));
    setWindowModality(Qt::WindowModal);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Erasing %1").arg(volumePath)));
    auto* progress = new QProgressBar;
    progress->setRange(0, 0);  // the erase tells nothing of its progress
    layout->addWidget(progress);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Cancel)->setToolTip(tr("Stop erasing; nothing is copied"));
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &FlashEraseSheet::reject);
}

void FlashEraseSheet::reject()
{
    writer_.erasingMediaPanelCancel();
    QDialog::reject();
}
