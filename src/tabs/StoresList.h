#pragma once
#include <QString>
#include <QStringList>

// The Stores tab's list of music web stores: names and addresses kept side by
// side in the defaults database. The factory list shows on a fresh install but
// is written only after the first update, delete or reset.
class stores_wrapper {
public:
    static const QStringList& defaultStoreNames();
    static const QStringList& defaultStoreURLs();
    static const QString kNewStoreName;
    static const QString kNewStoreURL;

    void awakeFromNib();

    int numberOfRows();
    QString nameAt(int row) const;
    QString toolTipAt(int row) const;  // the address

    // Selection: -1 for none. The two fields follow the selected row.
    void selectRow(int row);
    int selectedRow() const { return selected_; }
    QString nameField() const { return nameField_; }
    QString urlField() const { return urlField_; }
    void setFields(const QString& name, const QString& url);

    void add();
    void update();
    void remove();
    void resetDefaultStores();
    bool gotoSelected();

    const QStringList& names() const { return mMusicStore; }
    const QStringList& urls() const { return mMusicStoreURL; }

private:
    void setupDefaultStores();
    void save();

    QStringList mMusicStore;
    QStringList mMusicStoreURL;
    int selected_ = -1;
    QString nameField_;
    QString urlField_;
};
