#include "platform/indicators.h"

#include <QSignalSpy>
#include <QTest>

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

class TstIndicators : public QObject {
    Q_OBJECT
private slots:
    void digitsShowTheValueAtItsPrecision();
    void repaintOnlyWhenTheShownValueChanges();
};

void TstIndicators::digitsShowTheValueAtItsPrecision() {
    SevenSegmentDisplay d;
    d.setDigitCount(6);
    const auto shown = [&d](double v, int precision) {
        d.setPrecision(precision);
        d.setValue(v);
        return d.shownText();
    };
    QCOMPARE((QStringList{shown(12.345, 1), shown(-0.04, 1), shown(45536, 0), shown(1234567, 0),
                          shown(-1999.9, 1), shown(12.345, 3)}),
             (QStringList{"12.3", "0.0", "45536", "------", "-1999.9", "12.345"}));
    // The K40 family's readings arrive as text; text that is no number shows dashes.
    d.setValueText(QStringLiteral(" 150.0 "));
    QCOMPARE(d.shownText(), QStringLiteral("150.000"));
    d.setValueText(QStringLiteral("12,5"));
    QCOMPARE(d.shownText(), QStringLiteral("------"));
    d.setOn(false);
    QCOMPARE(d.shownText(), QString()); // dark
}

void TstIndicators::repaintOnlyWhenTheShownValueChanges() {
    Counted<SevenSegmentDisplay> d;
    Counted<LedRectangle> light;
    light.setLabel(QStringLiteral("RUN"));
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

QTEST_MAIN(TstIndicators)
#include "tst_indicators.moc"
