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
// The guide over a dialog that holds the input: a window of the dialog's own, so that the
// operator can read it while the dialog stays open. One per dialog, at the section given.
QTextBrowser* showGuideOver(QWidget* dialog, const QString& anchor);
// Opens the guide over the modal dialog F1 is pressed in (the main window's key cannot reach
// past one). Lives as a child of the object that installs it on the application.
class GuideKeyOverDialogs : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
};
// The guide's section of a window or dialog of the workstation; the main window's for any other.
QString guideSectionFor(const QWidget* window);
// Every section a window or dialog opens the guide at.
QStringList guideSections();
