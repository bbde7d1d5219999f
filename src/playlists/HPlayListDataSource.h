#pragma once
#include <QObject>
#include <QStringList>

// The names of the playlists the user chose to hide, kept in the defaults
// under "mHPlaylistArray". A hidden name hides every playlist of that name in
// the playlist folder and the iTunes folder alike.
class HPlayListDataSource : public QObject {
    Q_OBJECT
public:
    static constexpr char kDefaultsKey[] = "mHPlaylistArray";
    static constexpr char kPlaceholderName[] = "Type playlist name here to save it";

    explicit HPlayListDataSource(QObject* parent = nullptr);
    ~HPlayListDataSource() override;

    // Reads the hidden names and starts observing VLDidHidePlaylistNotification.
    void awakeFromNib();

    bool hideThisItem(const QString& path) const;
    QStringList hiddenNames() const { return names_; }

    // The hidden-name table.
    int rowCount() const { return int(names_.size()); }
    QString nameAt(int row) const;
    void setNameAt(int row, const QString& text);
    int selectedRow() const { return selectedRow_; }
    void selectRow(int row);
    void addPlaylist();
    void deletePlaylist();

signals:
    // Both tables show something else now.
    void changed();

private:
    void vlDidHidePlaylistNotification(const QString& path);
    void store();

    QStringList names_;
    int selectedRow_ = -1;
};
