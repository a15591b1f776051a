// The trend configuration file: what the writer puts on each line, and the reading rules on
// damaged files.

#include "displays/trend_file.h"

#include <QTest>

namespace {
// One pen on the process value of controller 0, a span of one hour, as the setup writes it.
TrendConfig onePen() {
    TrendConfig c;
    c.hours = 1;
    c.plotTrend = 4;
    c.tickMs = 1000;
    c.yMin = -10;
    c.ySpan = 12.6;
    c.xSpanDays = 1.0 / 24;
    c.xLabelColor = c.xScaleColor = 255;
    c.xMinorTicks = 3;
    c.yLabelColor = c.yScaleColor = c.legendColor = 16777215;
    c.yMinorTicks = 2;
    c.timeFormat = QStringLiteral("hh:nn:ss");
    c.codes = {0};
    c.channels = {{QStringLiteral("TIC-101"), 65280}};
    return c;
}

QByteArray lines(const QList<QByteArray>& each) {
    QByteArray out;
    for (const QByteArray& line : each)
        out += line + "\r\n";
    return out;
}
} // namespace

class TstTrendFile : public QObject {
    Q_OBJECT
private slots:
    void writesEveryLineInItsPlace();
    void readingRules_data();
    void readingRules();
    void tickRuleOfTheSpan();
};

void TstTrendFile::writesEveryLineInItsPlace() {
    const QByteArray text = trendConfigText(onePen());
    QCOMPARE(text, lines({" 0 ",        " 1 ",        " 0 ",    " 4 ",
                          " 1000 ",     "-10 ",       " 12.6 ", " 0.041666666666666664 ",
                          " 255 ",      " 255 ",      " 3 ",    " 16777215 ",
                          " 16777215 ", " 16777215 ", " 2 ",    " 0 ",
                          "hh:nn:ss",   " 1 ",        " 0 ",    " 1 ",
                          "TIC-101",    " 65280 "}));
    // Read back it is the same configuration, and written again the same bytes.
    const std::optional<TrendConfig> back = parseTrendConfig(text);
    QCOMPARE(back, std::optional(onePen()));
    QCOMPARE(trendConfigText(*back), text);
    // Plain decimal however large or small a value, reading back to the same number.
    TrendConfig wide = onePen();
    wide.yMin = -1.5e-7;
    wide.ySpan = 1e5;
    wide.xSpanDays = 1e-5;
    const QByteArray wideText = trendConfigText(wide);
    QVERIFY(wideText.contains("\r\n-0.00000015 \r\n 100000 \r\n 0.00001 \r\n"));
    QCOMPARE(parseTrendConfig(wideText), std::optional(wide));
    // A trend without pens, and one of twelve: 55 lines, far below the limit.
    TrendConfig twelve = onePen();
    twelve.codes.clear();
    twelve.channels.clear();
    QVERIFY(trendConfigText(twelve).endsWith("hh:nn:ss\r\n 0 \r\n 0 \r\n"));
    for (int i = 0; i < 12; ++i) {
        twelve.codes << qint16(100 + i);
        twelve.channels << TrendPen{QStringLiteral("SP-%1").arg(i), i};
    }
    QCOMPARE(trendConfigText(twelve).count('\n'), 55);
    QCOMPARE(parseTrendConfig(trendConfigText(twelve)), std::optional(twelve));
}

void TstTrendFile::readingRules_data() {
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("seen"); // what was read; empty when the file is refused
    const QByteArray head =
        trendConfigText(onePen()).left(trendConfigText(onePen()).indexOf("hh:nn:ss\r\n") + 10);
    // Lenient lines: the leading number counts, a text is 0.
    QTest::newRow("prefix and text")
        << QByteArray(head).replace(" 0 \r\n 1 \r\n 0 \r\n 4 \r\n",
                                    " 0 \r\none\r\n 0 \r\n7.5 seconds\r\n") +
               lines({" 1 ", " 0 ", " 1 ", "TIC-101", " 255 "})
        << "hours=0 plotTrend=7.5 codes=0 channels=1";
    // The codes are lenient too; a code past the 64 controllers is read as it stands.
    QTest::newRow("codes") << head + lines({" 2 ", "312", "abc", " 2 ", "A", "1", "B", "2"})
                           << "hours=1 plotTrend=4 codes=312,0 channels=2";
    // The channel count is found by counting the codes, not by its value; it may differ.
    QTest::newRow("fewer channels") << head + lines({" 2 ", "1", "2", " 1 ", "A", "1"})
                                    << "hours=1 plotTrend=4 codes=1,2 channels=1";
    QTest::newRow("no lines") << QByteArray() << "";
    // Read leniently, "two" would be no pens and the next line an empty channel list.
    QTest::newRow("text for the pen count") << head + lines({"two", " 0 "}) << "";
    QTest::newRow("negative pen count") << head + lines({"-1", " 0 "}) << "";
    QTest::newRow("channel count missing") << head + lines({" 1 ", " 0 "}) << "";
    QTest::newRow("colour line missing") << head + lines({" 1 ", " 0 ", " 1 ", "TIC"}) << "";
    QTest::newRow("colour is text") << head + lines({" 1 ", " 0 ", " 1 ", "TIC", "red"}) << "";
    QTest::newRow("colour too large") << head + lines({" 0 ", " 1 ", "TIC", "4294967296"}) << "";
    QTest::newRow("code too large") << head + lines({" 1 ", "40000", " 0 "}) << "";
    QTest::newRow("tick beyond a timer")
        << QByteArray(head).replace(" 1000 ", " 70000 ") + lines({" 0 ", " 0 "}) << "";
    // 102 lines are refused whatever they hold; 101 are not.
    const QByteArray full = head + lines({" 0 ", " 41 "}) + lines({"T", " 1 "}).repeated(41);
    QTest::newRow("101 lines") << full << "hours=1 plotTrend=4 codes= channels=41";
    QTest::newRow("102 lines") << full + lines({""}) << "";
}

void TstTrendFile::readingRules() {
    QFETCH(QByteArray, text);
    QFETCH(QString, seen);
    QString why;
    const std::optional<TrendConfig> c = parseTrendConfig(text, &why);
    QCOMPARE(why.isEmpty(), bool(c));
    QStringList codes;
    for (const qint16 code : c.value_or(TrendConfig()).codes)
        codes << QString::number(code);
    QCOMPARE(c ? QStringLiteral("hours=%1 plotTrend=%2 codes=%3 channels=%4")
                     .arg(c->hours)
                     .arg(c->plotTrend)
                     .arg(codes.join(u','))
                     .arg(c->channels.size())
               : QString(),
             seen);
}

void TstTrendFile::tickRuleOfTheSpan() {
    // Days, hours, minutes -> divisor and interval: nothing, exactly a minute (the fast case), a
    // second more than that, two minutes (divisor 0: a point a second), an hour, a day, halves
    // to the even neighbour, and a span before its start.
    const std::tuple<double, double, double, TrendTick> rows[] = {{0, 0, 0, {1, 100}},
                                                                  {0, 0, 1, {1, 100}},
                                                                  {0, 0, 61.0 / 60, {0, 1000}},
                                                                  {0, 0, 2, {0, 1000}},
                                                                  {0, 1, 0, {4, 1000}},
                                                                  {1, 0, 0, {86, 1000}},
                                                                  {0, 0, 2500.0 / 60, {2, 1000}},
                                                                  {0, 0, 3500.0 / 60, {4, 1000}},
                                                                  {0, 0, -17, {1, 1000}}};
    for (const auto& [d, h, m, tick] : rows)
        QCOMPARE(trendTickRule(d, h, m), tick);
}

QTEST_MAIN(TstTrendFile)
#include "tst_trend_file.moc"
