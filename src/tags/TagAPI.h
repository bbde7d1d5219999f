#pragma once
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <memory>

namespace TagLib::MPEG {
class File;
}

// The ID3 tag object of the MP3 reader and writer, on TagLib. It is aimed at one
// file with examineFile() before every use; getters read that file's ID3v2 tag
// (its ID3v1 tag when it has no ID3v2), setters change the ID3v2 tag (and an
// ID3v1 tag the file already has) until updateFile() writes them.
//
// Not thread-safe: forThisThread() gives each thread its own object, so the
// export threads, the Tag tab and the flash writer never share one.
class TagAPI {
public:
    // genreList: names that numeric genre references ("(17)", "17") resolve to;
    // null means the ID3v1 genre table.
    explicit TagAPI(const QStringList* genreList = nullptr);
    ~TagAPI();
    TagAPI(const TagAPI&) = delete;
    TagAPI& operator=(const TagAPI&) = delete;

    static TagAPI& forThisThread();

    // Loads the tags of the MP3 file at path; false when it cannot be opened.
    bool examineFile(const QString& path);
    // Lets go of the examined file (it is not kept open between uses).
    void releaseFile();

    QString getTitle() const;   // null when absent
    QString getArtist() const;
    QString getAlbum() const;
    int getTrack() const;       // 0 when absent
    int getYear() const;
    QStringList getGenreNames() const;
    int getDuration() const;    // seconds, 0 when unknown
    int getTotalNumberTracks() const;  // the "of N" of the track field, 0 when absent
    // The pictures as artwork records; pictures that do not decode are left out.
    QVariantList getImage() const;

    void setTitle(const QString& value);
    void setArtist(const QString& value);
    void setAlbum(const QString& value);
    void setGenreName(const QStringList& names);
    void setYear(int year);
    void setTrack(int track, int totalTracks);
    // Replaces the pictures. Bytes come from "cachepath" when that file can be
    // read, otherwise "Image" is encoded as its "Mime Type" asks (JPEG or PNG).
    void setImages(const QVariantList& artwork);
    // Writes the changed tags into the file (ID3v2.3, the version id3 readers of
    // every age understand).
    bool updateFile();

private:
    QString resolveGenre(const QString& name) const;

    QStringList genres_;
    std::unique_ptr<TagLib::MPEG::File> file_;
};
