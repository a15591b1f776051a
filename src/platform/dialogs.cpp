#include "dialogs.h"

#include "facade_slot.h"

#include <QApplication>
#include <QColorDialog>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QMessageBox>
#include <QUrl>

namespace {
QWidget* dialogParent() {
    QWidget* w = QApplication::activeModalWidget();
    if (!w)
        w = QApplication::activeWindow();
    return w;
}
} // namespace

Dialogs& dialogs() {
    return FacadeSlot<Dialogs>::get([] { return std::make_unique<QtDialogs>(); });
}

void installDialogs(std::unique_ptr<Dialogs> d) {
    FacadeSlot<Dialogs>::install(std::move(d));
}

MsgAnswer msgBox(const QString& text, MsgIcon icon, MsgButtons buttons, const QString& title) {
    return dialogs().messageBox(icon, buttons, title, text);
}

QString toQtFilter(const QString& systemFilter) {
    const QStringList parts = systemFilter.split(QLatin1Char('|'));
    QStringList out;
    for (qsizetype i = 0; i + 1 < parts.size(); i += 2) {
        QString description = parts[i];
        // Qt takes the patterns from the parentheses of the description.
        if (!description.contains(QLatin1Char('(')))
            description += QStringLiteral(" (") + parts[i + 1] + QLatin1Char(')');
        out << description;
    }
    return out.join(QStringLiteral(";;"));
}

MsgAnswer QtDialogs::messageBox(MsgIcon icon, MsgButtons buttons, const QString& title,
                                const QString& text) {
    QMessageBox box(dialogParent());
    box.setWindowTitle(title);
    box.setText(text);
    switch (icon) {
    case MsgIcon::None:
        box.setIcon(QMessageBox::NoIcon);
        break;
    case MsgIcon::Information:
        box.setIcon(QMessageBox::Information);
        break;
    case MsgIcon::Question:
        box.setIcon(QMessageBox::Question);
        break;
    case MsgIcon::Warning:
        box.setIcon(QMessageBox::Warning);
        break;
    case MsgIcon::Critical:
        box.setIcon(QMessageBox::Critical);
        break;
    }
    switch (buttons) {
    case MsgButtons::Ok:
        box.setStandardButtons(QMessageBox::Ok);
        break;
    case MsgButtons::OkCancel:
        box.setStandardButtons(QMessageBox::Ok | QMessageBox::Cancel);
        break;
    case MsgButtons::YesNo:
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No);
        break;
    case MsgButtons::YesNoCancel:
        box.setStandardButtons(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel);
        break;
    case MsgButtons::RetryCancel:
        box.setStandardButtons(QMessageBox::Retry | QMessageBox::Cancel);
        break;
    }
    switch (box.exec()) {
    case QMessageBox::Yes:
        return MsgAnswer::Yes;
    case QMessageBox::No:
        return MsgAnswer::No;
    case QMessageBox::Cancel:
        return MsgAnswer::Cancel;
    case QMessageBox::Retry:
        return MsgAnswer::Retry;
    default:
        return MsgAnswer::Ok;
    }
}

std::optional<QString> QtDialogs::inputBox(const QString& title, const QString& prompt,
                                           const QString& defaultText) {
    bool ok = false;
    const QString text =
        QInputDialog::getText(dialogParent(), title, prompt, QLineEdit::Normal, defaultText, &ok);
    if (!ok)
        return std::nullopt;
    return text;
}

namespace {
FileDialogResult runFileDialog(const FileDialogRequest& r, QFileDialog::AcceptMode mode) {
    QFileDialog dlg(dialogParent(), r.title, r.initialDirectory, toQtFilter(r.filter));
    dlg.setAcceptMode(mode);
    dlg.setFileMode(mode == QFileDialog::AcceptOpen && r.fileMustExist ? QFileDialog::ExistingFile
                                                                       : QFileDialog::AnyFile);
    if (!r.overwritePrompt)
        dlg.setOption(QFileDialog::DontConfirmOverwrite);
    QString suffix = r.defaultExtension;
    if (suffix.startsWith(QLatin1Char('.')))
        suffix.remove(0, 1);
    dlg.setDefaultSuffix(suffix);
    if (!r.fileName.isEmpty())
        dlg.selectFile(r.fileName);
    FileDialogResult result;
    if (dlg.exec() == QDialog::Accepted && !dlg.selectedFiles().isEmpty()) {
        result.cancelled = false;
        result.path = dlg.selectedFiles().constFirst();
    }
    return result;
}
} // namespace

FileDialogResult QtDialogs::openFile(const FileDialogRequest& request) {
    return runFileDialog(request, QFileDialog::AcceptOpen);
}

FileDialogResult QtDialogs::saveFile(const FileDialogRequest& request) {
    return runFileDialog(request, QFileDialog::AcceptSave);
}

std::optional<QColor> QtDialogs::chooseColour(const QColor& initial) {
    const QColor c = QColorDialog::getColor(initial, dialogParent());
    if (!c.isValid())
        return std::nullopt;
    return c;
}

bool QtDialogs::openDocument(const QString& path) {
    if (!QFileInfo::exists(path))
        return false;
    return QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}
