#include "frm_guide.h"

#include "platform/window_parts.h"

#include <QApplication>
#include <QDialog>
#include <QHash>
#include <QKeyEvent>
#include <QMdiArea>
#include <QPointer>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace {
QPointer<FrmGuide> gGuide;
constexpr int kWidthTwips = 9000;
constexpr int kHeightTwips = 7500;
} // namespace

FrmGuide::FrmGuide(QWidget* parent) : ChildWindow(Life::Closes, QStringLiteral("Guide"), parent) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("frmGuide"), QStringLiteral("User Guide"));
    m_browser = new QTextBrowser(widget());
    m_browser->setObjectName(QStringLiteral("guideText"));
    m_browser->setOpenExternalLinks(true);
    m_browser->setSource(QUrl(QStringLiteral("qrc:/guide/guide.html")));
    layout->addWidget(m_browser, 1);
}

void FrmGuide::showSection(const QString& anchor) {
    m_section = anchor;
    m_browser->scrollToAnchor(anchor);
}

FrmGuide* showGuide(QMdiArea* area, const QString& anchor) {
    FrmGuide* guide = gGuide.data();
    if (!guide) {
        guide = new FrmGuide;
        gGuide = guide;
        area->addSubWindow(guide);
        const double tpp = twipsPerPixel(area);
        const QSize client = area->viewport()->size();
        guide->restorePlacement(
            {qRound(client.width() * tpp - kWidthTwips), 0, kWidthTwips, kHeightTwips});
    }
    guide->show();
    guide->showNormal();
    area->setActiveSubWindow(guide);
    guide->raise();
    guide->showSection(anchor);
    return guide;
}

QTextBrowser* showGuideOver(QWidget* dialog, const QString& anchor) {
    auto* over =
        dialog->findChild<QDialog*>(QStringLiteral("frmGuideOver"), Qt::FindDirectChildrenOnly);
    if (!over) {
        over = new QDialog(dialog, Qt::Window);
        over->setObjectName(QStringLiteral("frmGuideOver"));
        over->setWindowTitle(QStringLiteral("User Guide"));
        auto* browser = new QTextBrowser(over);
        browser->setObjectName(QStringLiteral("guideText"));
        browser->setOpenExternalLinks(true);
        browser->setSource(QUrl(QStringLiteral("qrc:/guide/guide.html")));
        auto* layout = new QVBoxLayout(over);
        layout->setContentsMargins(0, 0, 0, 0);
        layout->addWidget(browser);
        over->resize(600, 500);
    }
    auto* browser = over->findChild<QTextBrowser*>(QStringLiteral("guideText"));
    over->show();
    over->raise();
    over->activateWindow();
    browser->scrollToAnchor(anchor);
    return browser;
}

bool GuideKeyOverDialogs::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        QWidget* modal = QApplication::activeModalWidget();
        if (modal && key->key() == Qt::Key_F1 && key->modifiers() == Qt::NoModifier) {
            showGuideOver(modal, guideSectionFor(modal));
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

namespace {
const QHash<QString, QString>& sectionsByClass() {
    static const QHash<QString, QString> sections{
        {QStringLiteral("FrmMainDisplay"), QStringLiteral("bank")},
        {QStringLiteral("FrmLogger"), QStringLiteral("logger")},
        {QStringLiteral("AlarmLog"), QStringLiteral("alarm-log")},
        {QStringLiteral("FrmHistory"), QStringLiteral("data-file-viewer")},
        {QStringLiteral("FrmAuditView"), QStringLiteral("audit-trail")},
        {QStringLiteral("FrmHistoryPlot"), QStringLiteral("historical-plot")},
        {QStringLiteral("AlmLogViewer"), QStringLiteral("alarm-log-viewer")},
        {QStringLiteral("Ctrend1"), QStringLiteral("trends")},
        {QStringLiteral("TrendSetup"), QStringLiteral("trends")},
        {QStringLiteral("DigitalValues"), QStringLiteral("digital-values")},
        {QStringLiteral("FrmBarGraph"), QStringLiteral("bar-graphs")},
        {QStringLiteral("FrmTuneSettings"), QStringLiteral("loop-tuning")},
        {QStringLiteral("FrmProfile"), QStringLiteral("profiler")},
        {QStringLiteral("FrmSingleSP"), QStringLiteral("setpoint-recipes")},
        {QStringLiteral("FrmAlarmSettings"), QStringLiteral("alarm-setpoints")},
        {QStringLiteral("FrmControlSetup"), QStringLiteral("controller-setup")},
        {QStringLiteral("FrmLinkStatistics"), QStringLiteral("link-statistics")},
        {QStringLiteral("FrmLoggingSetup"), QStringLiteral("data-logging")},
        {QStringLiteral("FrmOpMessage"), QStringLiteral("data-logging")},
        {QStringLiteral("FrmLogin"), QStringLiteral("security")},
        {QStringLiteral("FrmPasswords"), QStringLiteral("security")},
        {QStringLiteral("FrmPublishing"), QStringLiteral("publishing")},
        {QStringLiteral("FrmGuide"), QStringLiteral("help")},
    };
    return sections;
}
} // namespace

QStringList guideSections() {
    QStringList all = sectionsByClass().values();
    all << QStringLiteral("main-window") << QStringLiteral("start");
    all.removeDuplicates();
    return all;
}

QString guideSectionFor(const QWidget* window) {
    return window ? sectionsByClass().value(QString::fromLatin1(window->metaObject()->className()),
                                            QStringLiteral("main-window"))
                  : QStringLiteral("main-window");
}
