#include "seal_commands.h"

#include "platform/seal_core.h"
#include "record_commands.h"

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QIODevice>
#include <QRegularExpression>
#include <map>
#include <set>

namespace {
const QStringList kRecordPatterns{"*.slg", "*.sif", "*.atr", "*.alf"};
// Far past a day's data log; a larger file is not read whole into memory.
constexpr qint64 kLargestFile = qint64(1) << 30;

// The lines of a file without their line ends; a last line the file ends inside is a line too.
std::optional<std::vector<std::string>> fileLines(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly) || f.size() > kLargestFile)
        return std::nullopt;
    const QByteArray bytes = f.readAll();
    if (f.error() != QFileDevice::NoError)
        return std::nullopt;
    std::vector<std::string> lines;
    qsizetype at = 0;
    while (at < bytes.size()) {
        qsizetype end = bytes.indexOf('\n', at);
        const qsizetype next = end < 0 ? bytes.size() : end + 1;
        if (end < 0)
            end = bytes.size();
        if (end > at && bytes[end - 1] == '\r')
            --end;
        lines.emplace_back(bytes.constData() + at, size_t(end - at));
        at = next;
    }
    return lines;
}

// The name the workstation seals a record file under: its folder and its name.
std::string sealName(const QFileInfo& file) {
    return (file.dir().dirName() + u'/' + file.fileName()).toStdString();
}

QString when(int64_t time) {
    return QDateTime::fromSecsSinceEpoch(time, Qt::UTC)
        .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss 'UTC'"));
}

int statusOf(seal::FileCheck::Severity severity) {
    switch (severity) {
    case seal::FileCheck::Intact:
        return kOk;
    case seal::FileCheck::Incomplete:
        return kNotVerified;
    case seal::FileCheck::Damaged:
        return kDamaged;
    case seal::FileCheck::Mismatch:
        break;
    }
    return kMismatch;
}

void say(QIODevice& out, const QString& path, const QString& text) {
    out.write((path + QStringLiteral(": ") + text + u'\n').toUtf8());
}

// A chain of the store: the lines it covers and its last seal, by the record file's name.
struct KnownChain {
    int64_t lines = 0;
    int64_t lastSeal = 0;
};

// Each seal file's first line and its last entries: a chain is told by its header, and what it
// covers by its end, without reading a day's seals whole for a file that is not asked about.
std::map<std::string, KnownChain> chainsOf(const QString& store, std::string_view site) {
    constexpr qint64 kTail = 4096;
    std::map<std::string, KnownChain> chains;
    const QDir files(store + QStringLiteral("/files"));
    for (const QString& name : files.entryList({QStringLiteral("*.seal")}, QDir::Files)) {
        QFile f(files.filePath(name));
        if (!f.open(QIODevice::ReadOnly))
            continue;
        const auto header = seal::parseFileHeader(f.readLine(4096).trimmed().toStdString());
        if (!header || header->first != site)
            continue;
        if (f.size() > kTail + f.pos())
            f.seek(f.size() - kTail);
        const QList<QByteArray> tail = f.readAll().split('\n');
        KnownChain chain;
        for (auto line = tail.crbegin(); line != tail.crend() && !chain.lines; ++line) {
            const auto entry = seal::parseSeal(line->toStdString());
            if (!entry)
                continue;
            if (entry->kind == seal::SealEntry::Kind::Signature)
                chain.lastSeal = chain.lastSeal ? chain.lastSeal : entry->time;
            else
                chain.lines = entry->last;
        }
        chains[header->second] = chain;
    }
    return chains;
}
} // namespace

QString defaultSealStore() {
    return QStringLiteral(SORVANTEL_SEAL_STORE);
}

int verifySeals(const QStringList& paths, const QString& storeFolder, const QString& keyFile,
                QIODevice& out, QIODevice& err) {
    const auto siteLines = fileLines(storeFolder + QStringLiteral("/site"));
    const auto dayLines = fileLines(storeFolder + QStringLiteral("/days"));
    if (!siteLines || siteLines->size() < 3 || siteLines->at(0) != "SORVANTEL-SEALS 1" ||
        !dayLines) {
        err.write(
            QStringLiteral("sorvantel-records: no seal store at %1\n").arg(storeFolder).toUtf8());
        return kUnusable;
    }
    const auto site = seal::fromHex(siteLines->at(1), 16);
    std::optional<std::string> key = seal::fromHex(siteLines->at(2), 32);
    if (!keyFile.isEmpty()) {
        QFile f(keyFile);
        const QString text =
            f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.read(4096)) : QString();
        const QRegularExpressionMatch hex =
            QRegularExpression(QStringLiteral("\\b[0-9a-f]{64}\\b")).match(text);
        key = hex.hasMatch() ? seal::fromHex(hex.captured().toStdString(), 32) : std::nullopt;
        if (!key) {
            err.write(QStringLiteral("sorvantel-records: %1 holds no verification key\n")
                          .arg(keyFile)
                          .toUtf8());
            return kUnusable;
        }
    } else {
        out.write("Checked against the store's own copy of the verification key; give --key "
                  "with the one kept away from the workstation.\n");
    }
    if (!site || !key) {
        err.write(QStringLiteral("sorvantel-records: the seal store at %1 is damaged\n")
                      .arg(storeFolder)
                      .toUtf8());
        return kUnusable;
    }

    int status = kOk;
    const seal::DayChain days = seal::checkDays(*site, *key, *dayLines);
    if (!days.fault.empty()) {
        say(out, QStringLiteral("day keys"), QString::fromStdString(days.fault));
        status = kMismatch;
    }
    std::map<std::string, KnownChain> chains = chainsOf(storeFolder, *site);

    // The record files named, and those below the folders named; the folders that hold them,
    // so that a chain of one of them without its file is named deleted.
    QStringList files;
    QSet<QString> folders;
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (info.isDir()) {
            QDirIterator it(path, kRecordPatterns, QDir::Files, QDirIterator::Subdirectories);
            while (it.hasNext())
                files << it.next();
            folders.insert(info.absoluteFilePath());
            QDirIterator below(path, QDir::Dirs | QDir::NoDotAndDotDot,
                               QDirIterator::Subdirectories);
            while (below.hasNext())
                folders.insert(QFileInfo(below.next()).absoluteFilePath());
        } else {
            files << path;
        }
    }
    files.sort();
    std::set<std::string> seen;
    for (const QString& path : std::as_const(files)) {
        const QFileInfo info(path);
        const std::string name = sealName(info);
        seen.insert(name);
        const auto record = fileLines(path);
        if (!record) {
            say(out, path, QStringLiteral("cannot be read"));
            status = worseStatus(status, kUnusable);
            continue;
        }
        // By the name the store gives its seal file, so that a seal file whose first line was
        // damaged is still found, and named damaged.
        const auto seals = fileLines(storeFolder + QStringLiteral("/files/") +
                                     QString::fromStdString(seal::sealFileName(name)))
                               .value_or(std::vector<std::string>{});
        const seal::FileCheck check = seal::checkFile(*site, days, name, *record, seals);
        if (check.intact) {
            say(out, path,
                QStringLiteral("intact, %1 lines, last sealed %2")
                    .arg(check.lines)
                    .arg(when(check.lastSeal)));
        }
        for (const std::string& finding : check.findings)
            say(out, path, QString::fromStdString(finding));
        status = worseStatus(status, statusOf(check.worst));
    }
    for (const auto& [name, chain] : chains) {
        const QString qname = QString::fromStdString(name);
        const QString folder = qname.section(u'/', 0, 0);
        for (const QString& scanned : std::as_const(folders)) {
            if (QFileInfo(scanned).fileName() != folder || seen.count(name))
                continue;
            say(out, scanned + u'/' + qname.section(u'/', 1),
                QStringLiteral("file deleted (the seal store has %1 line(s) of it, last sealed %2)")
                    .arg(chain.lines)
                    .arg(when(chain.lastSeal)));
            status = worseStatus(status, kMismatch);
            break;
        }
    }
    return status;
}
