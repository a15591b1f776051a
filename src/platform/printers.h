#pragma once

#include <QString>
#include <memory>

class QPrinter;

// The machine's printers as the print commands need them. Windows never ask Qt for printers
// themselves, so a test can print to a PDF file instead.
class Printers {
public:
    virtual ~Printers() = default;
    // False when there is no default printer to print to.
    virtual bool hasDefaultPrinter() = 0;
    // The default printer, set up for a job of this name.
    virtual std::unique_ptr<QPrinter> defaultPrinter(const QString& jobName) = 0;
    // The print dialog on that printer; false when cancelled. *copies gets the number of copies
    // asked for, which the caller prints one by one.
    virtual bool choosePrinter(QPrinter& printer, int* copies) = 0;
};

Printers& printers();
void installPrinters(std::unique_ptr<Printers> printers);

class QtPrinters final : public Printers {
public:
    bool hasDefaultPrinter() override;
    std::unique_ptr<QPrinter> defaultPrinter(const QString& jobName) override;
    bool choosePrinter(QPrinter& printer, int* copies) override;
};
