// Writes the seed inputs of the fuzz targets: files as the workstation writes them and the
// argument vectors of each records tool command. Run once by hand with the seed root (this
// folder) as its argument; a seed found by a fuzzer is added beside them.

#include "displays/project_file.h"
#include "fuzz_support.h"
#include "plant/tag_file.h"
#include "platform/line_cipher.h"
#include "records/data_logger.h"

namespace {
QString root;

void put(const QString& name, QByteArrayView bytes) {
    writeBytes(root + u'/' + name, bytes);
}

QByteArray words(std::initializer_list<int> list, uint8_t head) {
    QByteArray out(1, char(head));
    for (int w : list) {
        const auto v = static_cast<quint16>(w);
        out.append(char(v & 0xFF)).append(char(v >> 8));
    }
    return out;
}
} // namespace

int main(int argc, char* argv[]) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s SEED-ROOT\n", argv[0]);
        return 2;
    }
    root = QString::fromLocal8Bit(argv[1]);

    // A plant of both families as the controller setup writes it, and the same file cut short.
    enableSamplePlant({0, 1, 2, 7});
    gControlEnabled[2] = false;
    tagTableFromStore();
    gTagTable[0][5] = gTagTable[3][5] = numberPrintForm(1);
    QDir().mkpath(root + QStringLiteral("/tag_file"));
    writeTagFile(root + QStringLiteral("/tag_file/tags.tgn"));
    const QByteArray tagBytes = readBytes(root + QStringLiteral("/tag_file/tags.tgn"));
    put(QStringLiteral("tag_file/short.tgn"), tagBytes.left(600));
    put(QStringLiteral("tag_file/empty.tgn"), {});
    put(QStringLiteral("tag_file/one-line-short.tgn"),
        tagBytes.left(tagBytes.lastIndexOf("\r\n", tagBytes.size() - 3) + 2));
    put(QStringLiteral("tag_file/flag-not-a-number.tgn"),
        QByteArray(tagBytes).replace(5, 3, "yes"));

    // A project of that plant, and the same without its last line.
    gSaveInterval = 5;
    gAlmLogging = true;
    const QByteArray project = projectFileText(gTagTable, currentProjectOptions());
    put(QStringLiteral("project_file/plant.svt"), project);
    put(QStringLiteral("project_file/one-line-short.svt"),
        project.left(project.lastIndexOf("\r\n", project.size() - 3) + 2));

    // A run with its signature and a torn copy, an audit trail and an alarm log.
    writeSampleRun(root + QStringLiteral("/record_file"));
    put(QStringLiteral("record_file/trail.atr"),
        enciphered({"3/14/26,10:00:00 AM,jsmith,John Smith,Operator,Logged In,None"}));
    put(QStringLiteral("record_file/alarms.alf"),
        enciphered({"3/14/26,10:02:00 AM,TIC-101,High Alarm,130.0"}));
    // A good line, then the ways a line is damaged: none of them may decipher.
    const QByteArray good = encryptText(kSampleRun[1]).toLatin1();
    const auto changed = [&good](qsizetype at, const QByteArray& by) {
        return QByteArray(good).replace(at, by.size(), by == good.mid(at, by.size()) ? "1" : by);
    };
    const QByteArray crlf = "\r\n";
    put(QStringLiteral("record_file/damaged.atr"),
        good + crlf + changed(3, "0") + crlf + changed(2 * LineCipher::kNonceBytes + 5, "0") +
            crlf + changed(good.size() - 1, "0") + crlf + good.chopped(2) + crlf + good.chopped(1) +
            crlf + good + '7' + crlf + changed(10, "ZZ") + crlf + good.left(40) + crlf + crlf +
            kSampleRun[1].toLatin1() + crlf + good + good + crlf + good.toLower() + crlf);

    const QList<QStringList> commands = {{"print", "Log Files/run.slg", "trail.atr"},
                                         {"print", "Log Files/cut.slg"},
                                         {"verify", "Log Files/run.slg"},
                                         {"verify", "Log Files/cut.slg", "Log Files/run.sif"},
                                         {"export", "Log Files/run.slg"},
                                         {"export", "--force", "trail.atr", "old.csv"},
                                         {"search", "jsmith"},
                                         {"search", "--batch", "42", "--lot", "7"},
                                         {"search", "--folder", "Log Files", "TIC"},
                                         {"--help"},
                                         {"--version"},
                                         {"list", "--fast"}};
    for (qsizetype i = 0; i < commands.size(); ++i)
        put(QStringLiteral("records_cli/%1-%2").arg(i).arg(QString(commands[i][0]).remove(u'-')),
            commands[i].join(QChar(0)).toUtf8());

    put(QStringLiteral("register_codec/k40-code2"), words({20999, 19999, -100, 0, 0x1200}, 10));
    put(QStringLiteral("register_codec/k40-tenths-code3"), words({20004, 0, 5000, 0, 0x0301}, 4));
    put(QStringLiteral("register_codec/k40-code0"), words({65535, 0, 10000, 0, 0x1000}, 0));
    put(QStringLiteral("register_codec/profiler"), words({-5, 1234, 999, 5000, 0, 0, 3, 0, 17}, 3));

    QByteArray plain;
    for (const QString& line : kSampleRun)
        plain += line.toLatin1() + "\r\n";
    put(QStringLiteral("grid_text/history.csv"), '\0' + plain);
    put(QStringLiteral("grid_text/tabs.txt"), "\x02\"a\"\t\"b\"\n\"\"\t\"c\t\"d\"\n");
    return 0;
}
