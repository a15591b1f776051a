#include "placement.h"

#include "settings_keys.h"
#include "settings_store.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace {
int readTwips(const QString& section, const QString& key, int defaultValue) {
    bool ok = false;
    const double v =
        getSetting(section, key, QString::number(defaultValue)).trimmed().toDouble(&ok);
    return ok ? static_cast<int>(v) : defaultValue;
}
} // namespace

double twipsPerPixel(const QWidget* widget) {
    const QScreen* screen = widget ? widget->screen() : QGuiApplication::primaryScreen();
    const double dpi = screen ? screen->logicalDotsPerInchX() : 96.0;
    return 1440.0 / (dpi > 0 ? dpi : 96.0);
}

QRect placementRect(const QWidget* window, const QString& section, const PlacementTwips& defaults) {
    const double tpp = twipsPerPixel(window);
    const int left = readTwips(section, Keys::MainLeft, defaults.left);
    const int top = readTwips(section, Keys::MainTop, defaults.top);
    const int width = readTwips(section, Keys::MainWidth, defaults.width);
    const int height = readTwips(section, Keys::MainHeight, defaults.height);
    return QRect(qRound(left / tpp), qRound(top / tpp), qMax(80, qRound(width / tpp)),
                 qMax(60, qRound(height / tpp)));
}

void restorePlacement(QWidget* window, const QString& section, const PlacementTwips& defaults,
                      bool withSize) {
    QRect r = placementRect(window, section, defaults);
    if (window->isWindow()) {
        bool visible = false;
        for (const QScreen* s : QGuiApplication::screens())
            visible = visible || s->availableGeometry().intersects(r.adjusted(0, 0, -40, -40));
        if (!visible && QGuiApplication::primaryScreen()) {
            r.moveCenter(QGuiApplication::primaryScreen()->availableGeometry().center());
        }
    }
    window->move(r.topLeft());
    if (withSize)
        window->resize(r.size());
}

void savePlacement(const QWidget* window, const QString& section, const QRect& r, bool withSize) {
    const double tpp = twipsPerPixel(window);
    saveSetting(section, Keys::MainLeft, QString::number(qRound(r.x() * tpp)));
    saveSetting(section, Keys::MainTop, QString::number(qRound(r.y() * tpp)));
    if (!withSize)
        return;
    saveSetting(section, Keys::MainWidth, QString::number(qRound(r.width() * tpp)));
    saveSetting(section, Keys::MainHeight, QString::number(qRound(r.height() * tpp)));
}

void savePlacement(const QWidget* window, const QString& section, bool withSize) {
    if (window->isMinimized())
        return;
    // A maximized window keeps the placement it will return to.
    savePlacement(window, section,
                  window->isMaximized() && window->isWindow()
                      ? window->normalGeometry()
                      : QRect(window->pos(), window->size()),
                  withSize);
}
