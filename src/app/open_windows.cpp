#include "open_windows.h"

#include "app/frm_main.h"
#include "displays/bar_graph.h"
#include "displays/digital_values.h"
#include "displays/trend_window.h"
#include "plant/frm_main_display.h"
#include "plant/plant_store.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"

#include <QAction>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QRegularExpression>

namespace {
const QString kKey = QStringLiteral("OpenWindows");
// A record that says nothing was open, told from no record at all.
const QString kNoRecord = QStringLiteral("-");

QString menuItemOf(QMdiSubWindow* window) {
    if (auto* bank = qobject_cast<FrmMainDisplay*>(window))
        return QStringLiteral("mnuAddBank%1").arg(bank->controllerBank / 4 + 1);
    if (auto* trend = qobject_cast<Ctrend1*>(window))
        return QStringLiteral("mnuTrend%1").arg(trend->formNumber);
    if (auto* bars = qobject_cast<FrmBarGraph*>(window))
        return QStringLiteral("mnuBarGraph%1").arg(bars->barNumber / 16 + 1);
    if (qobject_cast<DigitalValues*>(window))
        return QStringLiteral("mnuDigValues");
    return {};
}

// Only windows that need no right open again: at start nobody is logged on.
bool reopens(const QString& item) {
    static const QRegularExpression kDisplays(
        QStringLiteral("^(mnuAddBank([1-9]|1[0-6])|mnuTrend[1-8]|mnuBarGraph[1-4]|mnuDigValues)$"));
    return kDisplays.match(item).hasMatch();
}
} // namespace

QStringList openDisplayWindows(QMdiArea* area) {
    QStringList items;
    for (QMdiSubWindow* window : area->subWindowList(QMdiArea::StackingOrder)) {
        const QString item = menuItemOf(window);
        if (!item.isEmpty() && !items.contains(item))
            items << item;
    }
    return items;
}

void saveOpenWindows(QMdiArea* area) {
    saveSetting(Sections::Settings, kKey, openDisplayWindows(area).join(u' '));
}

void reopenWindows(FrmMain& main) {
    const QString record = getSetting(Sections::Settings, kKey, kNoRecord);
    QStringList items;
    if (record == kNoRecord) {
        for (int row = 0; row < kControllerCount && items.isEmpty(); ++row)
            if (gControlEnabled[size_t(row)])
                items << QStringLiteral("mnuAddBank%1").arg(row / 4 + 1);
    } else {
        items = record.split(u' ', Qt::SkipEmptyParts);
    }
    for (const QString& item : std::as_const(items)) {
        QAction* action = reopens(item) ? main.menuItem(item) : nullptr;
        if (action && action->isEnabled())
            action->trigger();
    }
}
