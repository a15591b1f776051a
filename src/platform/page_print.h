#pragma once

#include <QCoreApplication>
#include <QFontMetrics>
#include <QList>
#include <QPainter>
#include <QRect>
#include <QString>
#include <memory>
#include <optional>

class QPrinter;
class QProgressDialog;
class QWidget;

// The page layer: what every print command of the workstation, grid or plot, puts on its pages.

struct PrintJob {
    QString jobName;   // the printer's document name and the title of the progress window
    QString header;    // printed as it stands at the top of each page
    QString footer;    // with the codes of expandFooterCodes()
    QString abortText; // the text of the progress window
};

// One line of a page footer, in its three sections.
struct FooterLine {
    QString left;
    QString centre;
    QString right;
    bool operator==(const FooterLine&) const = default;
};

// Expands a footer for one page: "/l", "/c" and "/r" switch to the left, centre or right
// section, "/p" is the page number, "/n" starts a new line and "//" is a slash. Text starts in
// the left section; anything else, a lone trailing slash included, is literal.
QList<FooterLine> expandFooterCodes(const QString& footer, int page);

// One print job on one printer: starts the printer, draws the job's header at the top and its
// footer at the bottom of each page, and shows the progress window whose Cancel stops the job.
// The caller draws each page's body with painter() inside body(), between beginPage() and
// endPage(). A false return ends the job with the reason in *error, or no reason when the user
// cancelled it; the job ends, at the latest, with this.
class PagePrinter {
    Q_DECLARE_TR_FUNCTIONS(PagePrinter)
public:
    // The owner lends its font and is the parent of the progress window.
    PagePrinter(QPrinter& printer, const PrintJob& job, QWidget& owner);
    ~PagePrinter();
    PagePrinter(const PagePrinter&) = delete;
    PagePrinter& operator=(const PagePrinter&) = delete;

    // Starts the printer under the job's name, in the owner's font at its size in points.
    bool begin(QString* error);
    QPainter& painter() { return m_painter; }
    // The font as it measures on paper; only after begin().
    const QFontMetrics& metrics() const { return *m_metrics; }
    // The gap between the header, the body and the footer; half a text line unless set.
    void setSpacing(int pixels) { m_spacing = pixels; }

    int pageWidth() const;
    int pageHeight() const;
    int headerHeight() const;
    int footerHeight() const;
    // What lies between the header and the footer, in printer pixels.
    QRect body() const;

    // The progress window, counting to pageCount pages. Without it a job cannot be cancelled.
    void showProgress(int pageCount);
    // A new sheet after the first, with the header.
    bool beginPage(QString* error);
    // The footer with this page's number; then the user may cancel.
    bool endPage(QString* error);

private:
    bool fail(QString* error, const QString& text);

    QPrinter& m_printer;
    QPainter m_painter;
    const PrintJob& m_job;
    QWidget& m_owner;
    std::optional<QFontMetrics> m_metrics;
    int m_headerTextHeight = 0;
    int m_footerLines = 0;
    int m_spacing = 0;
    int m_page = 0;
    std::unique_ptr<QProgressDialog> m_progress;
};
