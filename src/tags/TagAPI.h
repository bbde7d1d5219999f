#pragma once
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <memory>

namespace TagLib {
class IOStream;
namespace MPEG {
class File;
}
} // namespace TagLib

// The ID3 tag object of the MP3 reader and writer, on TagLib. It is aimed at one
// file with examineFile() before every use; getters read that file's ID3v2 tag
// (its ID3v1 tag when it has no ID3v2), setters change the ID3v2 tag (and an
// ID3v1 tag the file already has) until updateFile() writes them. Frames that
// cannot be decoded are left out, and the others read, rather than the tag.
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

    // Loads the tags of the MP3 file at path (opened read-only); false when it cannot be opened.
    // Without the length (getDuration() gives 0) the audio frames are not searched, which
    // a write and its read-back do not need.
    enum class Length { Read, Skip };
    bool examineFile(const QString& path, Length length = Length::Read);
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
    // Writes the changed tags into a new file beside the old one (the ID3v2 tag
    // in its own version, 2.4 or 2.3; a new tag, or one of 2.2, as 2.3, the
    // version id3 readers of every age understand), followed by the old file's
    // audio; checks that it reads back with them and with the same MPEG audio,
    // and renames it over the file. False with the reason in *error when the
    // file was left as it was.
    bool updateFile(QString* error = nullptr);

private:
    // What a reader sees of the tags: compared after a write.
    struct Fields {
        QString title, artist, album;
        int track = 0, totalTracks = 0, year = 0;
        QStringList genres;
        QList<QByteArray> pictures;
        bool operator==(const Fields&) const = default;
    };
    Fields fields() const;
    QString resolveGenre(const QString& name) const;
    QString checkWritten(const QString& made, const Fields& expected) const;

    QStringList genres_;
    QString path_;
    int tagVersion_ = 0;  // the major version of the file's ID3v2 tag, 0 when it has none
    std::unique_ptr<TagLib::IOStream> stream_;
    std::unique_ptr<TagLib::MPEG::File> file_;
};
