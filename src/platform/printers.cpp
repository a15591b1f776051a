#include "printers.h"

#include <QApplication>
#include <QPrintDialog>
#include <QPrinter>
#include <QPrinterInfo>

namespace {
std::unique_ptr<Printers>& printersSlot() {
    static std::unique_ptr<Printers> p;
    return p;
}
} // namespace

Printers& printers() {
    auto& slot = printersSlot();
    if (!slot)
        slot = std::make_unique<QtPrinters>();
    return *slot;
}

void installPrinters(std::unique_ptr<Printers> p) {
    printersSlot() = std::move(p);
}

bool QtPrinters::hasDefaultPrinter() {
    return !QPrinterInfo::defaultPrinter().isNull();
}

std::unique_ptr<QPrinter> QtPrinters::defaultPrinter(const QString& jobName) {
    auto printer = std::make_unique<QPrinter>(QPrinterInfo::defaultPrinter());
    printer->setDocName(jobName);
    return printer;
}

bool QtPrinters::choosePrinter(QPrinter& printer, int* copies) {
    QPrintDialog dialog(&printer, QApplication::activeWindow());
    if (dialog.exec() != QDialog::Accepted)
        return false;
    if (copies) {
        // The copies are printed one by one, so the printer itself makes one of each.
        *copies = qMax(1, printer.copyCount());
        printer.setCopyCount(1);
    }
    return true;
}
