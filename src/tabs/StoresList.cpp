#include "tabs/StoresList.h"

#include "core/Defaults.h"
#include "platform/Desktop.h"

const QString stores_wrapper::kNewStoreName = QStringLiteral("New Music Store Name");
const QString stores_wrapper::kNewStoreURL = QStringLiteral("https://www.new-music-store.example/");

const QStringList& stores_wrapper::defaultStoreNames()
{
    static const QStringList names = {"Free Music Archive", "eMusic", "earBuzz", "Independent Music Online",
                                      "Classics Online"};
    return names;
}

const QStringList& stores_wrapper::defaultStoreURLs()
{
    static const QStringList urls = {"https://freemusicarchive.org/", "https://www.emusic.com/",
                                     "https://www.earbuzz.com/", "https://archive.org/details/iuma-archive",
                                     "https://www.naxos.com/"};
    return urls;
}

namespace {
QStringList stringList(const QVariantList& list)
{
    QStringList strings;
    for (const QVariant& item : list)
        strings << item.toString();
    return strings;
}
} // namespace

void stores_wrapper::awakeFromNib()
{
    mMusicStore = stringList(Defaults::standard().arrayForKey("mMusicStore"));
    mMusicStoreURL = stringList(Defaults::standard().arrayForKey("mMusicStoreURL"));
    // The two lists must stay parallel even if the stored ones were not.
    while (mMusicStoreURL.size() < mMusicStore.size())
        mMusicStoreURL << QString();
    mMusicStoreURL = mMusicStoreURL.mid(0, mMusicStore.size());
    selectRow(-1);
}

void stores_wrapper::setupDefaultStores()
{
    mMusicStore << defaultStoreNames();
    mMusicStoreURL << defaultStoreURLs();
}

int stores_wrapper::numberOfRows()
{
    if (mMusicStore.isEmpty())
        setupDefaultStores();
    return int(mMusicStore.size());
}

QString stores_wrapper::nameAt(int row) const
{
    return mMusicStore.value(row);
}

QString stores_wrapper::toolTipAt(int row) const
{
    return mMusicStoreURL.value(row);
}

void stores_wrapper::selectRow(int row)
{
    if (row < 0 || row >= mMusicStore.size()) {
        selected_ = -1;
        nameField_.clear();
        urlField_.clear();
        return;
    }
    selected_ = row;
    nameField_ = mMusicStore.at(row);
    urlField_ = mMusicStoreURL.at(row);
}

void stores_wrapper::setFields(const QString& name, const QString& url)
{
    nameField_ = name;
    urlField_ = url;
}

void stores_wrapper::add()
{
    numberOfRows();
    mMusicStore << kNewStoreName;
    mMusicStoreURL << kNewStoreURL;
}

void stores_wrapper::update()
{
    if (selected_ < 0)
        return;
    mMusicStore[selected_] = nameField_;
    mMusicStoreURL[selected_] = urlField_;
    save();
}

void stores_wrapper::remove()
{
    if (selected_ < 0)
        return;
    mMusicStore.removeAt(selected_);
    mMusicStoreURL.removeAt(selected_);
    save();
    selectRow(-1);
}

void stores_wrapper::resetDefaultStores()
{
    mMusicStore.clear();
    mMusicStoreURL.clear();
    setupDefaultStores();
    save();
    selectRow(-1);
}

bool stores_wrapper::gotoSelected()
{
    if (selected_ < 0)
        return false;
    return Desktop::openUrl(mMusicStoreURL.at(selected_));
}

void stores_wrapper::save()
{
    Defaults::standard().setObject("mMusicStore", mMusicStore);
    Defaults::standard().setObject("mMusicStoreURL", mMusicStoreURL);
    Defaults::standard().synchronize();
}
