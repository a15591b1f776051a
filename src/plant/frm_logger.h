#pragma once

#include <QMdiSubWindow>

class QPlainTextEdit;
class QToolBar;

// "Sorvantel Logger": the quiet record of communication failures. Loaded at start, minimized,
// and kept for the whole run; a close request minimizes it instead.
class FrmLogger : public QMdiSubWindow {
    Q_OBJECT
public:
    explicit FrmLogger(QWidget* parent = nullptr);
    ~FrmLogger() override;

    void appendLine(const QString& line);
    QString text() const;

    // Toolbar1 button 1 and button 2.
    void saveLoggerFile();
    void clearLogger();

    // Lets exit unload the window.
    void allowClose() { m_closeAllowed = true; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    QPlainTextEdit* m_text;
    QToolBar* m_toolbar;
    bool m_closeAllowed = false;
};

FrmLogger* frmLogger();

// The logger's plain text in rich text form, as the save writes it.
QByteArray plainTextToRtf(const QString& text);
