#include "platform/indicators.h"
#include "platform/modctl.h"
#include "platform/page_print.h"
#include "platform/plot.h"
#include "platform/qt_modbus_backend.h"
#include "platform/settings_store.h"
#include "platform/single_instance.h"
#include "support/audit_files.h"
#include "support/fakes.h"

#include <QPrinter>
#include <QProcess>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QSysInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <qcustomplot.h>
#include <unistd.h>

namespace {
// Counts its paints, to see that an unchanged value costs none.
template <typename Widget> struct Counted final : Widget {
    int paints = 0;
    void paintEvent(QPaintEvent* e) override {
        ++paints;
        Widget::paintEvent(e);
    }
};
} // namespace

class TstPlatform : public QObject {
    Q_OBJECT
private slots:
    void settingsFoldCaseAndKeepBlanks();
    void modctlRunsOneTransactionAtATime();
    void lockFileAdmitsOneInstance();
    void digitsShowTheValueAtItsPrecisionAndRepaintOnlyOnChange();
    void plotKeepsRingsTracksAndSavesProgressiveJpeg();
    void plotPrintsOnePageWithHeaderChartAndFooter();
};

void TstPlatform::settingsFoldCaseAndKeepBlanks() {
    QTemporaryDir dir;
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir.path());
    // Written by hand at a site, in the case the site chose.
    const QString ini = dir.filePath("Brenlock/Sorvantel.ini");
    QVERIFY(writeBytes(ini, "[Cstatus]\nCupdateTime=100\n[Link]\nPort=5020\n"));
    {
        QtSettingsStore store;
        QCOMPARE(store.value("CStatus", "CupdateTime", "500"), QStringLiteral("100"));
        QCOMPARE(store.value("link", "port", "502"), QStringLiteral("5020"));
        store.setValue("Cstatus", "CupdateTime", "250");
        QCOMPARE(store.value("CStatus", "cupdatetime", "500"), QStringLiteral("250"));
        store.setValue("Levels\\op", "op 0", "1");
        QCOMPARE(store.value("levels\\OP", "op 0", "0"), QStringLiteral("1"));
        QCOMPARE(store.value("Levels\\op", "op0", "no"), QStringLiteral("no")); // the blank counts
    }
    // The saved value replaced the hand-written one instead of standing beside it.
    QSettings raw(ini, QSettings::IniFormat);
    QVERIFY(!raw.contains("Cstatus/CupdateTime"));
    QCOMPARE(raw.value("cstatus/cupdatetime").toString(), QStringLiteral("250"));

    // The link's: any case of the mode and the parity; a time-out that does not read keeps its
    // default.
    MemorySettingsStore* s = installDouble<MemorySettingsStore>(installSettingsStore);
    for (const QString kv :
         {"Mode=rtu", "SerialPort=/dev/ttyUSB0", "Parity=e", "BaudRate=19200", "Timeout=nonsense"})
        s->setValue("Link", kv.section(u'=', 0, 0), kv.section(u'=', 1));
    const LinkSettings r = QtModbusBackend::settingsFromStore();
    QCOMPARE(std::make_tuple(int(r.mode), r.serialPort, QChar(r.parity), r.baudRate, r.timeoutMs),
             std::make_tuple(int(LinkSettings::Mode::Rtu), QString("/dev/ttyUSB0"), QChar(u'E'),
                             19200, 1000));
}

// The same read asked again joins the one on its way (see tst_poll_cycle); another read abandons
// it, and its late answer raises nothing. A write on its way is kept and still reports. A reply
// shorter than asked fails.
void TstPlatform::modctlRunsOneTransactionAtATime() {
    FakeModbusBackend* fake = installDouble<FakeModbusBackend>(installModbusBackend);
    fake->manual = true;
    fake->setRegisters(1, 2, 129, {5, 5, 5});
    fake->setRegisters(7, 3, 129, {65535, 20000, 32768});
    fake->setRegisters(2, 3, 1, {0});
    Modctl ctl;
    QSignalSpy errors(&ctl, &Modctl::error);
    QSignalSpy reads(&ctl, &Modctl::readComplete);
    QSignalSpy writes(&ctl, &Modctl::writeComplete);
    ctl.prepare(1, 2, 129, 3, 0);
    ctl.start();
    QVERIFY(ctl.busy());
    ctl.prepare(7, 3, 129, 3, 0);
    ctl.start();
    QCOMPARE(fake->deliverAll(), 2);
    QCoreApplication::processEvents();
    QCOMPARE(std::pair(reads.size(), errors.size()), std::pair(qsizetype(1), qsizetype(0)));
    QVERIFY(!ctl.busy());
    // Words are signed, long words not; out of the buffer (200): nothing, not a crash.
    QCOMPARE((QList<int>{ctl.data(0), ctl.longData(0), ctl.data(2), ctl.data(200)}),
             (QList<int>{-1, 65535, -32768, 0}));

    ctl.prepare(2, 3, 1, 1, 1);
    ctl.setLongData(0, 45000); // above 32767: sent as the word it is
    ctl.start();
    ctl.start();
    QVERIFY(errors.wait(1000));
    QCOMPARE(errors.first().first().toInt(), 16);
    fake->deliverAll();
    QCOMPARE(writes.size(), 1);
    QCOMPARE(fake->nodes[2].holding[1], quint16(45000));

    // An answer that finds its control gone is dropped.
    auto* gone = new Modctl;
    gone->prepare(7, 3, 129, 1, 0);
    gone->start();
    delete gone;
    QCOMPARE(fake->deliverAll(), 1);

    // A link that answers fewer words than asked: Qt accepts that, the control must not.
    struct ShortBackend final : ModbusBackend {
        void submit(const ModbusRequest&, Done done) override {
            QTimer::singleShot(0, this, [done] { done(ModbusResult{0, {1, 2}}); });
        }
    };
    installModbusBackend(std::make_unique<ShortBackend>());
    ctl.prepare(1, 3, 0, 5, 0);
    reads.clear();
    ctl.start();
    QVERIFY(errors.wait(1000));
    QCOMPARE(std::pair(errors.last().first().toInt(), reads.size()), std::pair(-2, qsizetype(0)));
}

void TstPlatform::lockFileAdmitsOneInstance() {
    QTemporaryDir dir;
    const QString path = dir.filePath("sorvantel.lock");
    auto first = std::make_unique<LockFileInstanceGuard>(path);
    QVERIFY(first->acquire());
    QVERIFY(first->acquire()); // asking again is harmless
    LockFileInstanceGuard second(path);
    QVERIFY(!second.acquire());
    first.reset();
    QVERIFY(second.acquire());

    // A lock left behind by a process that is gone does not keep the workstation out.
    QProcess gone;
    gone.start("true", {});
    QVERIFY(gone.waitForStarted(5000));
    const qint64 pid = gone.processId();
    QVERIFY(gone.waitForFinished(5000));
    const QString stale = dir.filePath("stale.lock");
    QVERIFY(writeBytes(stale, QByteArray::number(pid) + "\nsorvantel\n" +
                                  QSysInfo::machineHostName().toUtf8() + "\n"));
    QVERIFY(LockFileInstanceGuard(stale).acquire());

    // The lock lies in the user's private runtime folder, else in the user's own cache folder;
    // never in a folder that other users can write.
    qputenv("XDG_RUNTIME_DIR", dir.path().toUtf8());
    QCOMPARE(LockFileInstanceGuard::defaultLockPath(), dir.filePath("sorvantel.lock"));
    qputenv("XDG_CACHE_HOME", dir.filePath("cache").toUtf8());
    const QString cached = dir.filePath("cache/sorvantel/sorvantel.lock");
    QVERIFY(QDir().mkpath(dir.filePath("theirs")));
    if (::geteuid() == 0 && ::chown(dir.filePath("theirs").toUtf8(), 65534, 65534) == 0) {
        qputenv("XDG_RUNTIME_DIR", dir.filePath("theirs").toUtf8()); // another user's, after su
        QCOMPARE(LockFileInstanceGuard::defaultLockPath(), cached);
    }
    qunsetenv("XDG_RUNTIME_DIR");
    QCOMPARE(LockFileInstanceGuard::defaultLockPath(), cached);
    QVERIFY(QFileInfo(dir.filePath("cache/sorvantel")).isDir());
}

void TstPlatform::digitsShowTheValueAtItsPrecisionAndRepaintOnlyOnChange() {
    Counted<SevenSegmentDisplay> d;
    d.setDigitCount(6);
    // The K40 family's readings arrive as text; text that is no number shows dashes.
    const auto shown = [&d](const QVariant& v, int precision) {
        d.setPrecision(precision);
        v.typeId() == QMetaType::QString ? d.setValueText(v.toString()) : d.setValue(v.toDouble());
        return d.shownText();
    };
    QCOMPARE(
        (QStringList{shown(12.345, 1), shown(-0.04, 1), shown(45536, 0), shown(1234567, 0),
                     shown(-1999.9, 1), shown(12.345, 3), shown(" 150.0 ", 3), shown("12,5", 3)}),
        (QStringList{"12.3", "0.0", "45536", "------", "-1999.9", "12.345", "150.000", "------"}));
    d.setOn(false);
    QCOMPARE(d.shownText(), QString()); // dark

    Counted<LedRectangle> light;
    light.setLabel(QStringLiteral("RUN"));
    d.setOn(true);
    d.setPrecision(1);
    d.setValue(20.0);
    d.show();
    light.show();
    QVERIFY(QTest::qWaitForWindowExposed(&d) && QTest::qWaitForWindowExposed(&light));
    QTRY_VERIFY(d.paints > 0 && light.paints > 0);
    d.paints = light.paints = 0;
    // Set on every tick, unchanged: nothing is drawn.
    d.setValue(20.04);
    d.setOn(true);
    light.setActive(false);
    QTest::qWait(50);
    QCOMPARE((std::pair{d.paints, light.paints}), (std::pair{0, 0}));
    d.setValue(20.06);
    light.setActive(true);
    QTRY_VERIFY(d.paints > 0 && light.paints > 0);
    QCOMPARE(d.shownText(), QStringLiteral("20.1"));
    // A light is also a button.
    QSignalSpy clicks(&light, &LedRectangle::clicked);
    QTest::mouseClick(&light, Qt::LeftButton);
    QCOMPARE(clicks.size(), 1);
}

void TstPlatform::plotKeepsRingsTracksAndSavesProgressiveJpeg() {
    Plot plot;
    QCOMPARE((QList<int>{plot.addChannel(), plot.addChannel()}), (QList<int>{0, 1}));
    // Colours are the platform's values, red in the low byte.
    plot.setChannelColor(1, 255);
    plot.setChannelTitle(1, "TIC-101");
    QCOMPARE(Plot::toColor(255), QColor(Qt::red));
    QCOMPARE(Plot::fromColor(QColor(0, 0, 255)), qint32(16711680));
    QCOMPARE(plot.channelColor(1), qint32(255));
    // A ring keeps the newest points only.
    const QDateTime t0(QDate(2026, 3, 14), QTime(10, 0, 0), Qt::UTC);
    plot.setRingBufferSize(0, 3);
    for (int s = 0; s < 5; ++s)
        plot.addPoint(0, t0.addSecs(s), s);
    QCOMPARE(plot.points(0).size(), 3);
    QCOMPARE(plot.points(0).first(), QPointF(Plot::toDays(t0.addSecs(2)), 2));
    plot.setRingBufferSize(0, 2);
    QCOMPARE(plot.points(0).first().y(), 3.0);
    // Points of one moment are dropped oldest first all the same.
    for (int s = 5; s < 9; ++s)
        plot.addPoint(0, t0.addSecs(10), s);
    QCOMPARE(plot.points(0).size(), 2);
    QCOMPARE(plot.points(0).first().y(), 7.0);

    // A span of zero is kept as set (it goes back into the configuration files) while the axis
    // shows the narrowest range it can.
    plot.setYMin(50);
    plot.setYSpan(0);
    plot.setXSpan(0);
    QCOMPARE(std::make_tuple(plot.yMin(), plot.ySpan(), plot.xSpan()),
             std::make_tuple(50., 0., 0.));
    QVERIFY(plot.customPlot()->yAxis->range().lower == 50 &&
            plot.customPlot()->yAxis->range().size() > 0);

    // Tracking keeps the newest point at the right edge; a hand on the axis stops it.
    plot.setXSpan(1.0 / 24);
    plot.setTrackingEnabled(true);
    plot.addPoint(1, t0.addSecs(3600), 1);
    QCOMPARE(plot.xMin() + plot.xSpan(), Plot::toDays(t0.addSecs(3600)));
    QSignalSpy stopped(&plot, &Plot::trackingStopped);
    plot.customPlot()->xAxis->moveRange(-0.01);
    QVERIFY(!plot.trackingEnabled() && stopped.count() == 1);
    plot.addPoint(1, t0.addSecs(7200), 2);
    QVERIFY(plot.xMin() + plot.xSpan() < Plot::toDays(t0.addSecs(3600)));

    // The data cursor names the moment and each pen's newest value at or before it.
    plot.setChannelTitle(0, "FIC-1");
    plot.setDateTimeFormat("hh:nn:ss");
    plot.setDataCursorVisible(true);
    const QDateTime between = t0.addSecs(5000);
    plot.setDataCursorKey(Plot::toDays(between));
    QCOMPARE(plot.dataCursorText(),
             between.toLocalTime().toString("hh:mm:ss") + "\nFIC-1: 8\nTIC-101: 1");
    plot.setDataCursorKey(Plot::toDays(t0.addSecs(5)));
    QVERIFY(plot.dataCursorText().endsWith("\nFIC-1: -\nTIC-101: -"));
    plot.setDataCursorVisible(false);

    // The system's time formats in Qt's terms.
    const QDateTime at(QDate(2026, 3, 4), QTime(15, 5, 9));
    QCOMPARE((QStringList{at.toString(Plot::qtDateTimeFormat("hh:nn:ss.zzz")),
                          at.toString(Plot::qtDateTimeFormat("m/d/yy h:nn:ss am/pm")),
                          at.toString(Plot::qtDateTimeFormat("d mmm h:nn:ss am/pm"))}),
             (QStringList{"15:05:09.000", "3/4/26 3:05:09 PM", "4 Mar 3:05:09 PM"}));

    // JPEG at the quality asked, written progressive (its frame marker is SOF2).
    QTemporaryDir dir;
    plot.resize(400, 300);
    QVERIFY(plot.saveJpeg(dir.filePath("trend.jpg"), 100));
    const QByteArray jpeg = readBytes(dir.filePath("trend.jpg"));
    QVERIFY(jpeg.startsWith("\xFF\xD8") && jpeg.contains("\xFF\xC2"));
    QVERIFY(!plot.saveJpeg(dir.filePath("no such folder/trend.jpg"), 100));
}

// Never shown, as a plot printed from a hidden window is: the chart is still laid out and drawn
// between the page's header and footer.
void TstPlatform::plotPrintsOnePageWithHeaderChartAndFooter() {
    Plot plot;
    for (const char* title : {"FIC-201 Feed", "TIC-101 Jacket"})
        plot.setChannelTitle(plot.addChannel(), title);
    QTemporaryDir dir;
    QPrinter broken;
    broken.setOutputFormat(QPrinter::PdfFormat);
    broken.setOutputFileName(dir.filePath("no/such/folder/out.pdf"));
    QString error;
    QTest::ignoreMessage(QtWarningMsg, "QPainter::begin(): Returned false");
    QVERIFY(!plot.print(broken, {}, &error) && !error.isEmpty());
    if (QStandardPaths::findExecutable("pdftotext").isEmpty())
        QSKIP("pdftotext is not installed");

    // Paper's resolution, not the screen's: the chart must still come out at its own shape.
    QPrinter printer(QPrinter::HighResolution);
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setPageSize(QPageSize(QPageSize::A4));
    printer.setOutputFileName(dir.filePath("plot.pdf"));
    QVERIFY(plot.print(printer, {"Trend", "Reactor 2 trend", "/c/rPage #/p", {}}, &error));
    const QStringList pages = pdfText(dir.filePath("plot.pdf")).split(u'\f', Qt::SkipEmptyParts);
    QCOMPARE(pages.size(), 1);
    QStringList lines = pages.first().split(u'\n');
    lines.removeIf([](const QString& line) { return line.trimmed().isEmpty(); });
    QVERIFY2(lines.size() > 3, qPrintable(pages.first()));
    // The legend lies between the header and the footer, whose page number ends further right
    // than anything else on the page.
    QCOMPARE(lines.first().trimmed(), QStringLiteral("Reactor 2 trend"));
    QCOMPARE(lines.last().trimmed(), QStringLiteral("Page #1"));
    for (const QString& line : std::as_const(lines))
        QVERIFY2(line.size() <= lines.last().size(), qPrintable(line));
    const QString chart = lines.mid(1, lines.size() - 2).join(u'\n');
    QVERIFY2(chart.contains("FIC-201 Feed") && chart.contains("TIC-101 Jacket"), qPrintable(chart));
}

QTEST_MAIN(TstPlatform)
#include "tst_platform.moc"
