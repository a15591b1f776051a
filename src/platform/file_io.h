#pragma once

#include <QByteArray>
#include <QString>

class QFile;

// Replaces a file whole: written beside it, synced to the disk, then renamed over it, so that a
// crash leaves either the old file or the new one.
bool writeFileAtomically(const QString& path, const QByteArray& bytes, QString* error = nullptr);
// Copies a file over another the same way: a copy that fails leaves the target as it was.
bool copyFileOver(const QString& from, const QString& to, QString* error = nullptr);

// Appends one record line (the caller adds the line end) as one write, synced to the disk before
// it returns, so that a crash loses at most the line being written. A file made by this call has
// its folder synced too, so that the new name survives. The file is closed again: nothing stays
// open between lines. False with the reason in *error; a failed line is never retried here.
bool appendRecordLine(const QString& path, const QByteArray& line, QString* error = nullptr);

// A record file that stays open while lines are added to it, as the data file of a running log
// does. Each line goes out as one write and is synced to the disk before append returns; a line
// the disk refused part-way is cut off again, so the file ends with its last whole line.
class RecordAppender {
public:
    RecordAppender() = default;
    ~RecordAppender();
    RecordAppender(const RecordAppender&) = delete;
    RecordAppender& operator=(const RecordAppender&) = delete;

    // Creates the file and syncs its folder so the name survives. Anything already at the name,
    // a link included, is refused and left as it is: a new record never costs an old one.
    bool create(const QString& path, QString* error = nullptr);
    bool append(const QByteArray& line, QString* error = nullptr);
    void close();
    bool isOpen() const;
    // The file made by the last create.
    QString path() const { return m_path; }

private:
    QString m_path;
#ifdef Q_OS_UNIX
    int m_fd = -1;
#else
    class QFile* m_file = nullptr;
#endif
};

// The error number the boxes give for the last failure of a file call: 61 for a full disk, 75
// for any other refusal of a path or file.
int lastFileErrorNumber();

// Makes an empty file, and its folder, unless the file is already there; what it holds is left
// alone. False with the reason in *error.
bool ensureFileExists(const QString& path, QString* error = nullptr);

// Opens the file's name for writing as a scratch file of this account's own: made new, readable
// and writable by the owner alone, never through a link. A plain file at the name (the scratch
// file of an earlier use) is removed first, which leaves whatever else shares it by a hard link
// untouched; a link or anything else at the name is refused and left as it is, since the folder
// may be one that others can write. False with the reason in *error.
bool openPrivateScratch(QFile& file, QString* error = nullptr);
