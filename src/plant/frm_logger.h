#pragma once

#include "child_window.h"

class QPlainTextEdit;
class QToolBar;

// "Sorvantel Logger": the quiet record of communication failures. Loaded at start, minimized,
// and kept for the whole run; a close request minimizes it instead.
class FrmLogger : public ChildWindow {
    Q_OBJECT
public:
    explicit FrmLogger(QWidget* parent = nullptr);
    ~FrmLogger() override;

    void appendLine(const QString& line);
    QString text() const;

    // Toolbar1 button 1 and button 2.
    void saveLoggerFile();
    void clearLogger();

protected:
    void changeEvent(QEvent* event) override;

private:
    QPlainTextEdit* m_text;
    QToolBar* m_toolbar;
};

FrmLogger* frmLogger();

// The logger's plain text in rich text form, as the save writes it.
QByteArray plainTextToRtf(const QString& text);
