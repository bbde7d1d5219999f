#include "tags/MediaDuration.h"

#include <QFile>
#include <QFileInfo>
#include <QUrl>

#include <gst/gst.h>
#include <gst/pbutils/pbutils.h>
#include <taglib/fileref.h>

namespace {
int discovererDuration(const QString& path)
{
    static const bool initialised = [] { return gst_init_check(nullptr, nullptr, nullptr) == TRUE; }();
    if (!initialised)
        return -1;
    GstDiscoverer* discoverer = gst_discoverer_new(5 * GST_SECOND, nullptr);
    if (!discoverer)
        return -1;
    // A relative path would make a URI with no folder in it.
    const QByteArray uri = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toEncoded();
    int seconds = -1;
    if (GstDiscovererInfo* info = gst_discoverer_discover_uri(discoverer, uri.constData(), nullptr)) {
        if (gst_discoverer_info_get_result(info) == GST_DISCOVERER_OK) {
            const GstClockTime duration = gst_discoverer_info_get_duration(info);
            if (GST_CLOCK_TIME_IS_VALID(duration))
                seconds = int(duration / GST_SECOND);
        }
        g_object_unref(info);
    }
    g_object_unref(discoverer);
    return seconds;
}
} // namespace

int mediaDurationSeconds(const QString& path)
{
    {
        TagLib::FileRef file(QFile::encodeName(path).constData(), true, TagLib::AudioProperties::Average);
        if (!file.isNull() && file.audioProperties() && file.audioProperties()->lengthInMilliseconds() > 0)
            return file.audioProperties()->lengthInSeconds();
    }
    return discovererDuration(path);
}
