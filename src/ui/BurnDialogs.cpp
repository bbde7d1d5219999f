#include "ui/BurnDialogs.h"

#include "core/Defaults.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QFutureWatcher>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QStandardPaths>
#include <QVBoxLayout>
#include <QtConcurrent>

namespace {

constexpr char kDriveKey[] = "mBurnDriveStored";
constexpr char kSpeedKey[] = "mBurnSpeedStored";
constexpr char kSimulateKey[] = "mBurnSimulateStored";
constexpr char kEjectKey[] = "mBurnEjectStored";
constexpr char kImageKey[] = "mBurnImage%1Stored";  // per image kind: cue, iso

// The combo entry that stands for writing an image file.
const QString& imageEntry()
{
    static const QString entry = QStringLiteral("image");
    return entry;
}

void listDrivesLater(QObject* owner, BurnDrives& drives, std::function<void(const QList<BurnDriveInfo>&)> show)
{
    auto* watcher = new QFutureWatcher<QList<BurnDriveInfo>>(owner);
    QObject::connect(watcher, &QFutureWatcher<QList<BurnDriveInfo>>::finished, owner, [watcher, show] {
        show(watcher->result());
        watcher->deleteLater();
    });
    watcher->setFuture(QtConcurrent::run([&drives] { return drives.drives(); }));
}

}  // namespace

BurnSetupDialog::BurnSetupDialog(BurnDrives& drives, const QString& description, const QString& imageSuffix,
                                 QWidget* parent)
    : QDialog(parent), suffix_(imageSuffix), drive_(new QComboBox), image_(new QLineEdit),
      chooseImage_(new QPushButton(QIcon::fromTheme(QStringLiteral("document-save-as")), tr("Choose…"))),
      speed_(new QComboBox), simulate_(new QCheckBox(tr("Simulate the burn (the laser stays off)"))),
      eject_(new QCheckBox(tr("Eject the disc when done"))), media_(new QLabel), ok_(nullptr)
{
    setWindowTitle(description);
    setObjectName(QStringLiteral("burnSetup"));
    Defaults& defaults = Defaults::standard();

    drive_->setObjectName(QStringLiteral("burnDrive"));
    drive_->setToolTip(tr("The burner to write with, or an image file to write instead"));
    drive_->addItem(QIcon::fromTheme(QStringLiteral("document-save")),
                    imageSuffix == QLatin1String("cue") ? tr("Write to an image file (BIN/CUE)")
                                                        : tr("Write to an image file (ISO)"),
                    imageEntry());
    drive_->addItem(QIcon::fromTheme(QStringLiteral("view-refresh")), tr("Looking for burners…"));
    image_->setObjectName(QStringLiteral("burnImage"));
    image_->setToolTip(tr("The image file to write"));
    // A whole path in the home folder stays readable.
    image_->setMinimumWidth(image_->fontMetrics().horizontalAdvance(QLatin1Char('x')) * 45);
    const QString defaultImage = QStandardPaths::writableLocation(QStandardPaths::MusicLocation)
                                 + QStringLiteral("/Velmora.") + imageSuffix;
    const QString storedImage = defaults.stringForKey(QString::fromLatin1(kImageKey).arg(imageSuffix));
    image_->setText(storedImage.isEmpty() ? defaultImage : storedImage);
    chooseImage_->setToolTip(tr("Choose where the image file goes"));
    speed_->setToolTip(tr("How fast to write; slower can suit older burners and discs"));
    speed_->addItem(tr("Fastest"), 0);
    for (int speed : {4, 8, 16, 24, 48})
        speed_->addItem(tr("%1×").arg(speed), speed);
    speed_->setCurrentIndex(std::max(0, speed_->findData(defaults.integerForKey(kSpeedKey))));
    simulate_->setChecked(defaults.integerForKey(kSimulateKey) != 0);
    eject_->setChecked(defaults.integerForKey(kEjectKey) != 0);
    media_->setObjectName(QStringLiteral("burnMedia"));

    auto* imageRow = new QHBoxLayout;
    imageRow->addWidget(image_, 1);
    imageRow->addWidget(chooseImage_);
    form_ = new QFormLayout;
    QFormLayout* form = form_;
    form->addRow(tr("Burner:"), drive_);
    form->addRow(QString(), media_);
    form->addRow(tr("Image file:"), imageRow);
    form->addRow(tr("Speed:"), speed_);
    form->addRow(QString(), simulate_);
    form->addRow(QString(), eject_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    ok_ = buttons->button(QDialogButtonBox::Ok);
    ok_->setText(tr("Burn"));
    ok_->setIcon(QIcon::fromTheme(QStringLiteral("media-optical-burn")));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);

    connect(drive_, &QComboBox::currentIndexChanged, this, &BurnSetupDialog::updateChoice);
    connect(image_, &QLineEdit::textChanged, this, &BurnSetupDialog::updateChoice);
    connect(chooseImage_, &QPushButton::clicked, this, [this] {
        auto* chooser = new QFileDialog(this, tr("Image File"), image_->text(),
                                        tr("Disc images (*.%1)").arg(suffix_));
        chooser->setAcceptMode(QFileDialog::AcceptSave);
        chooser->setDefaultSuffix(suffix_);
        chooser->setAttribute(Qt::WA_DeleteOnClose);
        connect(chooser, &QFileDialog::fileSelected, image_, &QLineEdit::setText);
        chooser->open();
    });
    updateChoice();
    listDrivesLater(this, drives, [this](const QList<BurnDriveInfo>& found) { showDrives(found); });
}

void BurnSetupDialog::showDrives(const QList<BurnDriveInfo>& drives)
{
    const QString stored = Defaults::standard().stringForKey(kDriveKey);
    drive_->removeItem(1);
    for (const BurnDriveInfo& drive : drives) {
        drive_->addItem(QIcon::fromTheme(QStringLiteral("drive-optical")), QStringLiteral("%1 (%2)").arg(drive.name, drive.address),
                        drive.address);
        drive_->setItemData(drive_->count() - 1, drive.media, Qt::ToolTipRole);
    }
    if (drives.isEmpty())
        drive_->addItem(tr("No burner found"));
    if (const int index = drive_->findData(stored); index >= 0)
        drive_->setCurrentIndex(index);
    updateChoice();
}

void BurnSetupDialog::updateChoice()
{
    const QVariant chosen = drive_->currentData();
    const bool toImage = chosen == imageEntry();
    image_->setEnabled(toImage);
    chooseImage_->setEnabled(toImage);
    speed_->setEnabled(!toImage);
    simulate_->setEnabled(!toImage);
    eject_->setEnabled(!toImage);
    media_->setText(toImage ? QString() : drive_->currentData(Qt::ToolTipRole).toString());
    form_->setRowVisible(media_, !media_->text().isEmpty());
    ok_->setEnabled(toImage ? QFileInfo(image_->text()).suffix().toLower() == suffix_ && QFileInfo(image_->text()).isAbsolute()
                            : chosen.isValid());
}

BurnSetup BurnSetupDialog::setup() const
{
    BurnSetup setup;
    if (drive_->currentData() == imageEntry())
        setup.image = image_->text();
    else
        setup.drive = drive_->currentData().toString();
    setup.speed = speed_->currentData().toInt();
    setup.simulate = simulate_->isChecked() && setup.image.isEmpty();
    setup.ejectAfter = eject_->isChecked() && setup.image.isEmpty();
    return setup;
}

void BurnSetupDialog::accept()
{
    Defaults& defaults = Defaults::standard();
    defaults.setObject(kDriveKey, drive_->currentData().toString());
    defaults.setObject(QString::fromLatin1(kImageKey).arg(suffix_), image_->text());
    defaults.setInteger(kSpeedKey, speed_->currentData().toInt());
    defaults.setInteger(kSimulateKey, simulate_->isChecked() ? 1 : 0);
    defaults.setInteger(kEjectKey, eject_->isChecked() ? 1 : 0);
    defaults.synchronize();
    QDialog::accept();
}

EraseDialog::EraseDialog(BurnDrives& drives, QWidget* parent)
    : QDialog(parent), drive_(new QComboBox), full_(new QRadioButton(tr("Full: every sector (takes long)"))),
      ok_(nullptr)
{
    setWindowTitle(tr("Erase Disc"));
    setObjectName(QStringLiteral("eraseSetup"));
    drive_->setToolTip(tr("The burner holding the rewritable disc"));
    // Wide enough for a burner's name, address and disc, which come after the sheet is laid out.
    drive_->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
    drive_->setMinimumContentsLength(44);
    drive_->addItem(tr("Looking for burners…"));
    auto* quick = new QRadioButton(tr("Quick: the table of contents only"));
    quick->setChecked(true);
    auto* form = new QFormLayout;
    form->addRow(tr("Burner:"), drive_);
    form->addRow(tr("Erase:"), quick);
    form->addRow(QString(), full_);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    ok_ = buttons->button(QDialogButtonBox::Ok);
    ok_->setText(tr("Erase"));
    ok_->setIcon(QIcon::fromTheme(QStringLiteral("edit-clear")));
    ok_->setEnabled(false);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(buttons);
    listDrivesLater(this, drives, [this](const QList<BurnDriveInfo>& found) {
        drive_->clear();
        for (const BurnDriveInfo& drive : found) {
            if (drive.erasable)
                drive_->addItem(QIcon::fromTheme(QStringLiteral("drive-optical")),
                                QStringLiteral("%1 (%2): %3").arg(drive.name, drive.address, drive.media), drive.address);
        }
        if (drive_->count() == 0)
            drive_->addItem(tr("No burner holds a disc that can be erased"));
        ok_->setEnabled(drive_->currentData().isValid());
    });
}

QString EraseDialog::drive() const
{
    return drive_->currentData().toString();
}

bool EraseDialog::full() const
{
    return full_->isChecked();
}
