#include "record_paths.h"

#include <QDir>
#include <QFileInfo>

namespace {
bool isSeparator(QChar c) {
    return c == u'\\' || c == u'/';
}

qsizetype lastSeparator(const QString& path) {
    for (qsizetype i = path.size() - 1; i >= 0; --i) {
        if (isSeparator(path[i]))
            return i;
    }
    return -1;
}

QString upToFirstDot(const QString& name) {
    const qsizetype dot = name.indexOf(u'.');
    return dot < 0 ? name : name.left(dot);
}
} // namespace

bool fileExists(const QString& path) {
    const QString native = QString(path).replace(u'\\', u'/');
    const qsizetype sep = lastSeparator(native);
    const QString name = native.mid(sep + 1);
    if (name.isEmpty())
        return false;
    if (name.contains(u'*') || name.contains(u'?')) {
        const QString folder = sep < 0 ? QStringLiteral(".") : native.left(sep + 1);
        return !QDir(folder).entryList({name}, QDir::Files | QDir::Hidden).isEmpty();
    }
    const QFileInfo info(native);
    return info.exists() && !info.isDir();
}

QString fileBaseName(const QString& path) {
    return upToFirstDot(path.mid(lastSeparator(path) + 1));
}

QString pathWithoutExtension(const QString& path) {
    const qsizetype sep = lastSeparator(path);
    return path.left(sep + 1) + upToFirstDot(path.mid(sep + 1));
}

QString fileNameOnly(const QString& path) {
    auto firstSeparator = [](const QString& text, qsizetype from) -> qsizetype {
        for (qsizetype i = from; i < text.size(); ++i) {
            if (isSeparator(text[i]))
                return i;
        }
        return -1;
    };
    QString s = path.trimmed();
    for (qsizetype p = firstSeparator(s, s.startsWith(u'/') ? 1 : 0); p >= 1;
         p = firstSeparator(s, 0))
        s = s.mid(p + 1);
    return s;
}
