#include "printers.h"

#include "facade_slot.h"

#include <QApplication>
#include <QPrintDialog>
#include <QPrinter>
#include <QPrinterInfo>

Printers& printers() {
    return FacadeSlot<Printers>::get([] { return std::make_unique<QtPrinters>(); });
}

void installPrinters(std::unique_ptr<Printers> p) {
    FacadeSlot<Printers>::install(std::move(p));
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
