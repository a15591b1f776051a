#pragma once

#include <QColor>
#include <QString>
#include <QStringList>
#include <memory>
#include <optional>

class QWidget;

enum class MsgIcon { None, Information, Question, Warning, Critical };
enum class MsgButtons { Ok, OkCancel, YesNo, YesNoCancel, RetryCancel };
enum class MsgAnswer { Ok, Cancel, Yes, No, Retry };

// Options of the one common file dialog, as the commands set them.
struct FileDialogRequest {
    QString title;
    QString filter; // "Description (*.ext)|*.ext" pairs as the system writes them
    QString initialDirectory;
    QString fileName;         // proposed name
    QString defaultExtension; // ".rtf"
    bool overwritePrompt = false;
    bool fileMustExist = false;
};

// Cancel of a file dialog is its own result: the command ends without a message.
struct FileDialogResult {
    bool cancelled = true;
    QString path;
};

// Message boxes, input boxes and the common dialogs. Windows never call Qt's static dialogs
// directly, so a test can script every answer.
class Dialogs {
public:
    virtual ~Dialogs() = default;
    virtual MsgAnswer messageBox(MsgIcon icon, MsgButtons buttons, const QString& title,
                                 const QString& text) = 0;
    // nullopt when cancelled.
    virtual std::optional<QString> inputBox(const QString& title, const QString& prompt,
                                            const QString& defaultText) = 0;
    virtual FileDialogResult openFile(const FileDialogRequest& request) = 0;
    virtual FileDialogResult saveFile(const FileDialogRequest& request) = 0;
    virtual std::optional<QColor> chooseColour(const QColor& initial) = 0;
    // Shows a document with the desktop's viewer; false when it cannot.
    virtual bool openDocument(const QString& path) = 0;
};

Dialogs& dialogs();
void installDialogs(std::unique_ptr<Dialogs> dialogs);

// The title every message box of the system carries.
inline const QString kMsgTitle = QStringLiteral("Sorvantel");

// Shorthand for the common case: a box titled "Sorvantel".
MsgAnswer msgBox(const QString& text, MsgIcon icon = MsgIcon::None,
                 MsgButtons buttons = MsgButtons::Ok, const QString& title = kMsgTitle);

// "Logger Files(*.rtf)|*.rtf" into Qt's "Logger Files(*.rtf);;..." form.
QString toQtFilter(const QString& systemFilter);

class QtDialogs final : public Dialogs {
public:
    MsgAnswer messageBox(MsgIcon icon, MsgButtons buttons, const QString& title,
                         const QString& text) override;
    std::optional<QString> inputBox(const QString& title, const QString& prompt,
                                    const QString& defaultText) override;
    FileDialogResult openFile(const FileDialogRequest& request) override;
    FileDialogResult saveFile(const FileDialogRequest& request) override;
    std::optional<QColor> chooseColour(const QColor& initial) override;
    bool openDocument(const QString& path) override;
};
