#include "ui/PreferencesDialog.h"

#include "core/Preferences.h"
#include "platform/AppPaths.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

namespace {
QComboBox* sizeCombo()
{
    auto* combo = new QComboBox;
    combo->setEditable(true);
    for (const char* size : {"600", "649", "650", "700", "800", "4300"})
        combo->addItem(size);
    combo->setValidator(nullptr);
    return combo;
}
} // namespace

PreferencesDialog::PreferencesDialog(QWidget* parent) : QDialog(parent), pages_(new QTabWidget)
{
    setWindowTitle(tr("Preferences"));
    auto check = [this](const char* key, const QString& label) {
        auto* box = new QCheckBox(label);
        checks_.insert(key, box);
        connect(box, &QCheckBox::toggled, this, &PreferencesDialog::controlsChanged);
        return box;
    };

    auto* general = new QWidget;
    auto* generalLayout = new QVBoxLayout(general);
    generalLayout->addWidget(check(PrefKeys::ShowPlayer, tr("Show the player controls")));
    generalLayout->addWidget(check(PrefKeys::ShowWriter, tr("Show the burn controls")));
    generalLayout->addWidget(check(PrefKeys::AutoPlay, tr("Play files opened from the desktop at once")));
    generalLayout->addWidget(check(PrefKeys::AutoEject, tr("Eject a disc when its work is done")));
    generalLayout->addWidget(
        check(PrefKeys::AutoClip, tr("Show an inserted disc or flash player in the Clip tab at once")));
    generalLayout->addWidget(check(PrefKeys::RipFromFolder, tr("Rip from a folder instead of a disc")));
    generalLayout->addStretch();
    pages_->addTab(general, tr("General"));

    auto* files = new QWidget;
    auto* filesLayout = new QVBoxLayout(files);
    filesLayout->addWidget(check(PrefKeys::StripID3v2, tr("Strip ID3v2 tags from written MP3 files")));
    filesLayout->addWidget(check(PrefKeys::AppendID3v1, tr("Append an ID3v1 tag to written MP3 files")));
    filesLayout->addWidget(check(PrefKeys::UseCoverart, tr("Carry cover art into written files")));
    filesLayout->addWidget(check(PrefKeys::PreserveOrder, tr("Keep the playlist order when writing")));
    filesLayout->addStretch();
    pages_->addTab(files, tr("Files"));

    auto* discs = new QWidget;
    auto* discsLayout = new QVBoxLayout(discs);
    discsLayout->addWidget(check(PrefKeys::IncludeJoliet, tr("Give data discs Joliet names")));
    warnSpaceCombo_ = sizeCombo();
    warnMoreCombo_ = sizeCombo();
    auto warnRow = [&](const char* key, const QString& label, QComboBox* combo) {
        auto* row = new QHBoxLayout;
        row->addWidget(check(key, label));
        row->addWidget(combo);
        row->addWidget(new QLabel(tr("MB")));
        row->addStretch();
        discsLayout->addLayout(row);
        connect(combo, &QComboBox::currentTextChanged, this, &PreferencesDialog::controlsChanged);
    };
    warnRow(PrefKeys::WarnSpaceCheck, tr("Warn when a disc's contents exceed"), warnSpaceCombo_);
    warnRow(PrefKeys::WarnMoreCheck, tr("Warn again when the contents exceed"), warnMoreCombo_);
    discsLayout->addStretch();
    pages_->addTab(discs, tr("Discs"));

    auto* m3u = new QWidget;
    auto* m3uLayout = new QFormLayout(m3u);
    m3uLayout->addRow(check(PrefKeys::CreateM3U, tr("Write an M3U playlist beside exported files")));
    prefixEdit_ = new QLineEdit;
    m3uLayout->addRow(tr("Path prefix in M3U files:"), prefixEdit_);
    exportFolderEdit_ = new QLineEdit;
    auto* browse = new QPushButton(tr("Choose…"));
    browse->setToolTip(tr("Choose the folder that also gets a copy of every exported M3U file"));
    auto* folderRow = new QHBoxLayout;
    folderRow->addWidget(exportFolderEdit_);
    folderRow->addWidget(browse);
    m3uLayout->addRow(tr("M3U export folder:"), folderRow);
    connect(prefixEdit_, &QLineEdit::textEdited, this, &PreferencesDialog::controlsChanged);
    connect(exportFolderEdit_, &QLineEdit::textEdited, this, &PreferencesDialog::controlsChanged);
    connect(browse, &QPushButton::clicked, this, [this] {
        const QString folder = QFileDialog::getExistingDirectory(this, tr("M3U export folder"),
                                                                 AppPaths::expandTilde(exportFolderEdit_->text()));
        if (!folder.isEmpty()) {
            exportFolderEdit_->setText(folder);
            controlsChanged();
        }
    });
    pages_->addTab(m3u, tr("M3U"));

    auto* buttons = new QDialogButtonBox;
    saveButton_ = buttons->addButton(tr("Save"), QDialogButtonBox::AcceptRole);
    auto* revert = buttons->addButton(tr("Revert"), QDialogButtonBox::ResetRole);
    auto* defaults = buttons->addButton(tr("Defaults"), QDialogButtonBox::ResetRole);
    auto* close = buttons->addButton(QDialogButtonBox::Close);
    saveButton_->setToolTip(tr("Keep these settings"));
    revert->setToolTip(tr("Put the controls back to the settings last kept"));
    defaults->setToolTip(tr("Put back the settings Velmora came with, and keep them"));
    close->setToolTip(tr("Close this window; settings not saved are not kept"));
    connect(saveButton_, &QPushButton::clicked, this, &PreferencesDialog::save);
    connect(revert, &QPushButton::clicked, this, [] { Preferences::sharedInstance().prefsRevert(); });
    connect(defaults, &QPushButton::clicked, this, [] { Preferences::sharedInstance().prefsDefaults(); });
    connect(close, &QPushButton::clicked, this, &QDialog::close);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(pages_);
    layout->addWidget(buttons);

    Preferences& prefs = Preferences::sharedInstance();
    connect(&prefs, &Preferences::controlsReverted, this, &PreferencesDialog::revertControls);
    connect(&prefs, &Preferences::saveEnabledChanged, saveButton_, &QPushButton::setEnabled);
    revertControls();
}

void PreferencesDialog::addPage(QWidget* page, const QString& title)
{
    pages_->addTab(page, title);
}

void PreferencesDialog::revertControls()
{
    reverting_ = true;
    const Preferences& prefs = Preferences::sharedInstance();
    for (auto it = checks_.begin(); it != checks_.end(); ++it)
        it.value()->setChecked(prefs.prefsIntForKey(it.key()) != 0);
    warnSpaceCombo_->setCurrentText(QString::number(prefs.prefsIntForKey(PrefKeys::WarnSpaceCombo)));
    warnMoreCombo_->setCurrentText(QString::number(prefs.prefsIntForKey(PrefKeys::WarnMoreCombo)));
    prefixEdit_->setText(prefs.prefsStringForKey(PrefKeys::M3UPathPrefix));
    exportFolderEdit_->setText(prefs.prefsStringForKey(PrefKeys::M3UExportFolder));
    updateComboStates();
    saveButton_->setEnabled(false);
    reverting_ = false;
}

void PreferencesDialog::controlsChanged()
{
    updateComboStates();
    if (!reverting_)
        saveButton_->setEnabled(true);
}

void PreferencesDialog::updateComboStates()
{
    warnSpaceCombo_->setEnabled(checks_.value(PrefKeys::WarnSpaceCheck)->isChecked());
    warnMoreCombo_->setEnabled(checks_.value(PrefKeys::WarnMoreCheck)->isChecked());
}

void PreferencesDialog::save()
{
    Preferences& prefs = Preferences::sharedInstance();
    for (auto it = checks_.begin(); it != checks_.end(); ++it)
        prefs.setPrefsInt(it.key(), it.value()->isChecked() ? 1 : 0);
    // A combo box holding text reads as its number.
    prefs.setPrefsInt(PrefKeys::WarnSpaceCombo, warnSpaceCombo_->currentText().trimmed().toInt());
    prefs.setPrefsInt(PrefKeys::WarnMoreCombo, warnMoreCombo_->currentText().trimmed().toInt());
    prefs.setPrefsString(PrefKeys::M3UPathPrefix, prefixEdit_->text());
    prefs.setPrefsString(PrefKeys::M3UExportFolder, exportFolderEdit_->text());
    prefs.prefsSave();
}
