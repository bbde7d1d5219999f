#include "ui/AboutBox.h"

#include <QMessageBox>

#include <cdio/version.h>
#include <gst/gst.h>
#include <libburn/libburn.h>
#include <libisofs/libisofs.h>
#include <taglib/taglib.h>
#include <vorbis/codec.h>

namespace {

QString dotted(int major, int minor, int micro)
{
    return QStringLiteral("%1.%2.%3").arg(major).arg(minor).arg(micro);
}

}  // namespace

namespace AboutBox {

QList<QPair<QString, QString>> libraryVersions()
{
    int burnMajor = 0, burnMinor = 0, burnMicro = 0;
    burn::burn_version(&burnMajor, &burnMinor, &burnMicro);
    int isoMajor = 0, isoMinor = 0, isoMicro = 0;
    iso_lib_version(&isoMajor, &isoMinor, &isoMicro);
    guint gstMajor = 0, gstMinor = 0, gstMicro = 0, gstNano = 0;
    gst_version(&gstMajor, &gstMinor, &gstMicro, &gstNano);
    // "Xiph.Org libVorbis I 20200704 (Reducing Environment)": the release date is its version.
    QString vorbis = QString::fromLatin1(vorbis_version_string());
    vorbis.remove(QStringLiteral("Xiph.Org libVorbis "));
    return {
        {QStringLiteral("Qt"), QString::fromLatin1(qVersion())},
        {QStringLiteral("GStreamer"), dotted(int(gstMajor), int(gstMinor), int(gstMicro))},
        // TagLib and libplist do not tell their version at run time: these are the ones built against.
        {QStringLiteral("TagLib"), dotted(TAGLIB_MAJOR_VERSION, TAGLIB_MINOR_VERSION, TAGLIB_PATCH_VERSION)},
        {QStringLiteral("libplist"), QStringLiteral(VELMORA_LIBPLIST_VERSION)},
        // "2.1.0 x86_64-pc-linux-gnu": the version, without the machine it was built for.
        {QStringLiteral("libcdio"), QString::fromLatin1(cdio_version_string).section(' ', 0, 0)},
        {QStringLiteral("libburn"), dotted(burnMajor, burnMinor, burnMicro)},
        {QStringLiteral("libisofs"), dotted(isoMajor, isoMinor, isoMicro)},
        {QStringLiteral("libvorbis"), vorbis},
    };
}

void show(QWidget* parent)
{
    QString libraries;
    for (const auto& [name, version] : libraryVersions())
        libraries += QStringLiteral("<tr><td>%1</td><td>&nbsp;&nbsp;%2</td></tr>")
                         .arg(name.toHtmlEscaped(), version.toHtmlEscaped());
    const QString text = QObject::tr("<h3>Velmora %1</h3>"
                                     "<p>Keeps, plays, tags, converts, rips and burns your music.</p>"
                                     "<p>Libraries in use:</p><table>%2</table>")
                             .arg(QStringLiteral(VELMORA_VERSION), libraries);
    auto* box = new QMessageBox(QMessageBox::NoIcon, QObject::tr("About Velmora"), text, QMessageBox::Ok, parent);
    box->setObjectName(QStringLiteral("aboutBox"));
    box->setTextFormat(Qt::RichText);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->open();
}

}  // namespace AboutBox
