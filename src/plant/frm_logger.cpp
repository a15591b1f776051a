#include "frm_logger.h"

#include "comm_errors.h"
#include "plant_notices.h"
#include "plant_store.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/window_parts.h"
#include "security/rights.h"

#include <QCloseEvent>
#include <QPlainTextEdit>
#include <QPointer>
#include <QScrollBar>
#include <QStyle>
#include <QTextCursor>
#include <QToolBar>
#include <QVBoxLayout>

namespace {
QPointer<FrmLogger> gLoggerInstance;
}

FrmLogger* frmLogger() {
    return gLoggerInstance.data();
}

QByteArray plainTextToRtf(const QString& text) {
    QByteArray out = "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fmodern Courier New;}}\r\n"
                     "\\f0\\fs20 ";
    for (const QChar ch : text) {
        const char16_t u = ch.unicode();
        if (u == '\r')
            continue;
        if (u == '\n') {
            out += "\\par\r\n";
        } else if (u == '\\' || u == '{' || u == '}') {
            out += '\\';
            out += static_cast<char>(u);
        } else if (u < 0x80) {
            out += static_cast<char>(u);
        } else {
            // \uN takes a signed 16-bit number, followed by a fallback for old readers.
            out += "\\u" + QByteArray::number(static_cast<qint16>(u)) + '?';
        }
    }
    out += "\r\n}\r\n";
    return out;
}

FrmLogger::FrmLogger(QWidget* parent) : ChildWindow(Life::Resident, {}, parent) {
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("frmLogger"), QStringLiteral("Sorvantel Logger"));
    QWidget* body = widget();
    m_toolbar = makeToolbar(body, Qt::ToolButtonTextBesideIcon);
    QAction* save = addToolButton(m_toolbar, QStyle::SP_DialogSaveButton,
                                  QStringLiteral("Save Logger File"), {});
    QAction* clear =
        addToolButton(m_toolbar, QStyle::SP_TrashIcon, QStringLiteral("Clear Logger"), {});
    connect(save, &QAction::triggered, this, &FrmLogger::saveLoggerFile);
    connect(clear, &QAction::triggered, this, &FrmLogger::clearLogger);
    m_text = new QPlainTextEdit(body);
    m_text->setObjectName(QStringLiteral("RichTextBox1"));
    m_text->setReadOnly(true);
    m_text->setLineWrapMode(QPlainTextEdit::NoWrap);
    QFont mono = m_text->font();
    mono.setStyleHint(QFont::Monospace);
    mono.setFamily(QStringLiteral("Monospace"));
    m_text->setFont(mono);
    layout->addWidget(m_toolbar);
    layout->addWidget(m_text);
    resize(520, 300);
    gLoggerInstance = this;
}

FrmLogger::~FrmLogger() {
    if (gLoggerInstance == this)
        gLoggerInstance = nullptr;
}

void FrmLogger::appendLine(const QString& line) {
    // Every line goes after a line break, the first one too. Appended rather than rewritten
    // whole, since the log grows all day long.
    QScrollBar* bar = m_text->verticalScrollBar();
    const bool atEnd = bar->value() == bar->maximum();
    QTextCursor cursor(m_text->document());
    cursor.movePosition(QTextCursor::End);
    cursor.insertBlock();
    cursor.insertText(line);
    if (atEnd)
        bar->setValue(bar->maximum());
}

QString FrmLogger::text() const {
    return m_text->toPlainText();
}

void FrmLogger::saveLoggerFile() {
    if (!checkAccess(Right::AuditTrailViewer))
        return;
    FileDialogRequest request;
    request.title = QStringLiteral("Save .rtf Recipe file as?");
    request.filter = QStringLiteral("Logger Files(*.rtf)|*.rtf");
    request.initialDirectory = gAppPath;
    request.fileName = QStringLiteral("logger.rtf");
    request.defaultExtension = QStringLiteral(".rtf");
    request.overwritePrompt = true;
    const FileDialogResult chosen = dialogs().saveFile(request);
    if (chosen.cancelled)
        return;
    if (!writeFileAtomically(chosen.path, plainTextToRtf(text())))
        msgBox(QStringLiteral("Logger file can not be saved. Check filename or disk space"),
               MsgIcon::Critical);
}

void FrmLogger::clearLogger() {
    if (!checkAccess(Right::ClearErrorLog))
        return;
    if (dialogs().messageBox(MsgIcon::Question, MsgButtons::YesNo, QStringLiteral("Clear Logger?"),
                             QStringLiteral("Are you sure you want to clear the logger?")) ==
        MsgAnswer::Yes)
        m_text->clear();
}

void FrmLogger::changeEvent(QEvent* event) {
    ChildWindow::changeEvent(event);
    if (event->type() == QEvent::WindowStateChange && isMinimized()) {
        // Looking at the logger and putting it away is how the operator clears the status.
        emit plantNotices().statusText(kStatusNormal);
    }
}
