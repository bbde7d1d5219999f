#include "ui/RipSettingsSheet.h"

#include "encode/ExportArguments.h"
#include "tabs/RipSourcesWrapper.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

// The sheet's buttons: Default restores the values, Cancel drops the edits (as
// Escape does, through the sheet's reject()), Save keeps them.
QDialogButtonBox* sheetButtons(QDialog* sheet, const std::function<void()>& save, const std::function<void()>& restore)
{
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel);
    QPushButton* defaults = buttons->addButton(QObject::tr("Default"), QDialogButtonBox::ResetRole);
    QObject::connect(defaults, &QPushButton::clicked, sheet, restore);
    QObject::connect(buttons, &QDialogButtonBox::accepted, sheet, [sheet, save] {
        save();
        sheet->accept();
    });
    QObject::connect(buttons, &QDialogButtonBox::rejected, sheet, &QDialog::reject);
    return buttons;
}

}  // namespace

RipSettingsSheet::RipSettingsSheet(RipSourcesWrapper& rip, const QString& format, QWidget* parent)
    : QDialog(parent), rip_(rip), format_(format), bitrate_(new QComboBox),
      vbr_(new QCheckBox(tr("Variable bit rate"))), mono_(new QCheckBox(tr("Mono"))),
      maxSpeed_(new QCheckBox(tr("Rip without error correction (faster)"))),
      subfolders_(new QCheckBox(tr("Artist and album sub-folders"))),
      typeFolder_(new QCheckBox(tr("A folder for the format"))),
      lowerCase_(new QCheckBox(tr("Folder names in lower case"))),
      noSpaces_(new QCheckBox(tr("No blanks in folder names"))), nameFormat_(new QComboBox), custom_(new QLineEdit),
      preview_(new QLabel), changes_(new QTableWidget(0, 2)), replace_(new QLineEdit), with_(new QLineEdit)
{
    setWindowTitle(tr("%1 Rip Settings").arg(format));
    setWindowModality(Qt::WindowModal);
    rip_.ripSettingsShow(format);

    for (int index = 1; index <= 14; ++index)
        bitrate_->addItem(tr("%1 kbit/s").arg(ExportArguments::bitrateForIndex(index)), index);
    auto* encoder = new QGroupBox(tr("Encoder"));
    auto* encoderLayout = new QFormLayout(encoder);
    encoderLayout->addRow(tr("Bit rate:"), bitrate_);
    encoderLayout->addRow(vbr_);
    encoderLayout->addRow(mono_);
    encoderLayout->addRow(maxSpeed_);

    nameFormat_->addItems({tr("01 Title"), tr("Artist - 01 - Title"), tr("Album - Artist - 01 - Title"),
                           tr("Album - 01 - Artist - Title"), tr("01-Artist - Title"), tr("Title"), tr("Custom")});
    custom_->setPlaceholderText(QStringLiteral("[Track] [Title].[ext]"));
    custom_->setToolTip(tr("[Track] [Artist] [Album] [Title] [Ext]; lower case for lower-case text, upper case for "
                           "upper-case text"));
    preview_->setWordWrap(true);
    preview_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* naming = new QGroupBox(tr("Names"));
    auto* namingLayout = new QFormLayout(naming);
    namingLayout->addRow(subfolders_);
    namingLayout->addRow(typeFolder_);
    namingLayout->addRow(lowerCase_);
    namingLayout->addRow(noSpaces_);
    namingLayout->addRow(tr("File name:"), nameFormat_);
    namingLayout->addRow(tr("Custom format:"), custom_);
    namingLayout->addRow(tr("Selected track:"), preview_);

    changes_->setHorizontalHeaderLabels({tr("Replace"), tr("With")});
    changes_->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    changes_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    changes_->setSelectionBehavior(QAbstractItemView::SelectRows);
    auto* add = new QPushButton(tr("Add"));
    auto* remove = new QPushButton(tr("Delete"));
    auto* changeRow = new QHBoxLayout;
    replace_->setPlaceholderText(tr("Replace"));
    with_->setPlaceholderText(tr("With"));
    for (QWidget* widget : std::initializer_list<QWidget*>{replace_, with_, add, remove})
        changeRow->addWidget(widget);
    auto* characters = new QGroupBox(tr("Character changes in file names"));
    auto* charactersLayout = new QVBoxLayout(characters);
    charactersLayout->addWidget(changes_);
    charactersLayout->addLayout(changeRow);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(encoder);
    layout->addWidget(naming);
    layout->addWidget(characters);
    layout->addWidget(sheetButtons(
        this, [this] { rip_.ripSettingsSave(); }, [this] { rip_.ripSettingsDefault(); }));

    connect(bitrate_, &QComboBox::activated, this, [this] { rip_.setRipBitrate(bitrate_->currentData().toInt()); });
    const std::pair<QCheckBox*, const char*> boxes[] = {{vbr_, "vbr"},
                                                        {mono_, "mono"},
                                                        {maxSpeed_, "maxspeed"},
                                                        {subfolders_, "mRipSubfoldersStored"},
                                                        {typeFolder_, "mRipTypeFolderStored"},
                                                        {lowerCase_, "mRipFolderCaseStored"},
                                                        {noSpaces_, "mRipFolderSpacesStored"}};
    for (const auto& [box, key] : boxes) {
        connect(box, &QCheckBox::toggled, this, [this, key = QString::fromLatin1(key)](bool on) {
            if (!loading_)
                rip_.setShownValue(key, on ? 1 : 0);
        });
    }
    connect(nameFormat_, &QComboBox::activated, this,
            [this](int index) { rip_.setShownValue(QStringLiteral("mRipFilenameFormatStored"), index); });
    connect(custom_, &QLineEdit::textEdited, this, [this](const QString& text) { rip_.setCustomFormat(text); });
    connect(add, &QPushButton::clicked, this, [this] {
        if (replace_->text().isEmpty())
            return;
        rip_.addCharChange(replace_->text(), with_->text());
        replace_->clear();
        with_->clear();
    });
    connect(remove, &QPushButton::clicked, this, [this] { rip_.deleteCharChange(changes_->currentRow()); });
    connect(&rip_, &RipSourcesWrapper::settingsChanged, this, &RipSettingsSheet::load);
    load();
}

RipSettingsSheet::~RipSettingsSheet()
{
    // Closed without Save or Cancel (the window went): the edits are dropped.
    if (!rip_.shownFormat().isEmpty())
        rip_.ripSettingsCancel();
}

void RipSettingsSheet::reject()
{
    rip_.ripSettingsCancel();
    QDialog::reject();
}

void RipSettingsSheet::load()
{
    if (rip_.shownFormat().isEmpty())
        return;
    loading_ = true;
    const QVariantMap shown = rip_.shownSettings();
    const auto flag = [&](const char* key) { return shown.value(QLatin1String(key)).toInt() != 0; };
    bitrate_->setCurrentIndex(std::max(0, bitrate_->findData(shown.value(QStringLiteral("bitrate")).toInt())));
    vbr_->setChecked(flag("vbr"));
    mono_->setChecked(flag("mono"));
    maxSpeed_->setChecked(flag("maxspeed"));
    subfolders_->setChecked(flag("mRipSubfoldersStored"));
    typeFolder_->setChecked(flag("mRipTypeFolderStored"));
    lowerCase_->setChecked(flag("mRipFolderCaseStored"));
    noSpaces_->setChecked(flag("mRipFolderSpacesStored"));
    const int format = shown.value(QStringLiteral("mRipFilenameFormatStored")).toInt();
    nameFormat_->setCurrentIndex(format >= 0 && format <= 6 ? format : 0);
    const QString custom = shown.value(QStringLiteral("mRipSettingsFormatStringStored")).toString();
    if (custom_->text() != custom)
        custom_->setText(custom);
    custom_->setEnabled(format == 6);
    const QVariantList changes = shown.value(QStringLiteral("charchange")).toList();
    changes_->setRowCount(int(changes.size()));
    for (int row = 0; row < changes.size(); ++row) {
        const QVariantMap change = changes[row].toMap();
        changes_->setItem(row, 0, new QTableWidgetItem(change.value(QStringLiteral("replace")).toString()));
        changes_->setItem(row, 1, new QTableWidgetItem(change.value(QStringLiteral("with")).toString()));
    }
    const QString path = rip_.previewPath(format_);
    preview_->setText(path.isEmpty() ? tr("(no track)") : path);
    loading_ = false;
}

MultiRipSettingsSheet::MultiRipSettingsSheet(RipSourcesWrapper& rip, QWidget* parent) : QDialog(parent), rip_(rip)
{
    setWindowTitle(tr("Multi-Rip Settings"));
    setWindowModality(Qt::WindowModal);
    rip_.multiRipSettingsShow();
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(tr("Each track is read once and saved in every format ticked:")));
    for (const QString& format : RipSettings::formatNames()) {
        auto* box = new QCheckBox(format);
        connect(box, &QCheckBox::clicked, this, [this, format](bool on) { rip_.setMultiRipFormat(format, on); });
        boxes_ << box;
        layout->addWidget(box);
    }
    layout->addWidget(sheetButtons(
        this, [this] { rip_.multiRipSettingsSave(); }, [this] { rip_.multiRipSettingsDefault(); }));
    connect(&rip_, &RipSourcesWrapper::settingsChanged, this, &MultiRipSettingsSheet::load);
    load();
}

MultiRipSettingsSheet::~MultiRipSettingsSheet() = default;

void MultiRipSettingsSheet::reject()
{
    rip_.multiRipSettingsCancel();
    QDialog::reject();
}

void MultiRipSettingsSheet::load()
{
    const QStringList chosen = rip_.shownMultiRip();
    for (QCheckBox* box : std::as_const(boxes_))
        box->setChecked(chosen.contains(box->text()));
}
