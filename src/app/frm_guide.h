#pragma once

#include "plant/child_window.h"

#include <QString>
#include <QStringList>

class QMdiArea;
class QTextBrowser;

// "User Guide": the guide shipped inside the workstation, in a window of the main area, opened at
// one section. F1 opens it at the section of the window the operator is working in.
class FrmGuide : public ChildWindow {
    Q_OBJECT
public:
    explicit FrmGuide(QWidget* parent = nullptr);

    void showSection(const QString& anchor);
    QString section() const { return m_section; }
    QTextBrowser* browser() const { return m_browser; }

private:
    QTextBrowser* m_browser;
    QString m_section;
};

// The guide's window, opened once, at the section given.
FrmGuide* showGuide(QMdiArea* area, const QString& anchor);
// The guide's section of a window or dialog of the workstation; the main window's for any other.
QString guideSectionFor(const QWidget* window);
// Every section a window or dialog opens the guide at.
QStringList guideSections();
