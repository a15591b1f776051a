#include "page_print.h"

#include <QPrinter>
#include <QProgressDialog>
#include <QWidget>

QList<FooterLine> expandFooterCodes(const QString& footer, int page) {
    QList<FooterLine> lines(1);
    int section = 0; // left, centre, right
    auto text = [&]() -> QString& {
        FooterLine& line = lines.last();
        return section == 0 ? line.left : section == 1 ? line.centre : line.right;
    };
    for (qsizetype i = 0; i < footer.size(); ++i) {
        const QChar ch = footer.at(i);
        if (ch != u'/' || i + 1 == footer.size()) {
            text().append(ch);
            continue;
        }
        const QChar code = footer.at(++i);
        switch (code.unicode()) {
        case u'l':
            section = 0;
            break;
        case u'c':
            section = 1;
            break;
        case u'r':
            section = 2;
            break;
        case u'p':
            text().append(QString::number(page));
            break;
        case u'n':
            lines.emplaceBack(); // the text goes on in the same section
            break;
        case u'/':
            text().append(u'/');
            break;
        default:
            text().append(ch);
            text().append(code);
            break;
        }
    }
    return lines;
}

PagePrinter::PagePrinter(QPrinter& printer, const PrintJob& job, QWidget& owner)
    : m_printer(printer), m_job(job), m_owner(owner) {}

PagePrinter::~PagePrinter() {
    if (m_painter.isActive())
        m_painter.end();
}

bool PagePrinter::fail(QString* error, const QString& text) {
    if (m_painter.isActive())
        m_painter.end();
    if (error)
        *error = text;
    return false;
}

bool PagePrinter::begin(QString* error) {
    m_printer.setDocName(m_job.jobName);
    if (!m_painter.begin(&m_printer))
        return fail(error, tr("The printer could not be started."));
    // The font keeps its size in points on paper; one given in pixels is turned into points.
    QFont font = m_owner.font();
    if (font.pixelSize() > 0)
        font.setPointSizeF(font.pixelSize() * 72.0 / m_owner.logicalDpiY());
    m_painter.setFont(font);
    m_metrics.emplace(font, &m_printer);
    m_spacing = m_metrics->height() / 2;
    if (!m_job.header.isEmpty()) {
        m_headerTextHeight = m_metrics
                                 ->boundingRect(QRect(0, 0, pageWidth(), pageHeight() / 4),
                                                Qt::AlignLeft | Qt::TextWordWrap, m_job.header)
                                 .height();
    }
    if (!m_job.footer.isEmpty())
        m_footerLines = static_cast<int>(expandFooterCodes(m_job.footer, 1).size());
    return true;
}

int PagePrinter::pageWidth() const {
    return m_printer.width();
}

int PagePrinter::pageHeight() const {
    return m_printer.height();
}

int PagePrinter::headerHeight() const {
    return m_job.header.isEmpty() ? 0 : m_headerTextHeight + m_spacing;
}

int PagePrinter::footerHeight() const {
    return m_job.footer.isEmpty() ? 0 : m_footerLines * m_metrics->height() + m_spacing;
}

QRect PagePrinter::body() const {
    return QRect(0, headerHeight(), pageWidth(), pageHeight() - headerHeight() - footerHeight());
}

void PagePrinter::showProgress(int pageCount) {
    m_progress = std::make_unique<QProgressDialog>(m_job.abortText.isEmpty() ? tr("Printing...")
                                                                             : m_job.abortText,
                                                   tr("Cancel"), 0, pageCount, &m_owner);
    m_progress->setWindowTitle(m_job.jobName);
    m_progress->setWindowModality(Qt::WindowModal);
    m_progress->setMinimumDuration(0);
    m_progress->setAutoClose(false);
    m_progress->setValue(0);
}

bool PagePrinter::beginPage(QString* error) {
    if (m_page > 0 && !m_printer.newPage())
        return fail(error, tr("The printer did not take another page."));
    ++m_page;
    m_painter.setPen(Qt::black);
    if (!m_job.header.isEmpty()) {
        m_painter.drawText(QRect(0, 0, pageWidth(), headerHeight()),
                           Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap, m_job.header);
    }
    return true;
}

bool PagePrinter::endPage(QString* error) {
    if (!m_job.footer.isEmpty()) {
        const QList<FooterLine> lines = expandFooterCodes(m_job.footer, m_page);
        const int lineHeight = m_metrics->height();
        int top = pageHeight() - lineHeight * static_cast<int>(lines.size());
        m_painter.setPen(Qt::black);
        for (const FooterLine& line : lines) {
            const QRect area(0, top, pageWidth(), lineHeight);
            m_painter.drawText(area, Qt::AlignLeft | Qt::AlignVCenter, line.left);
            m_painter.drawText(area, Qt::AlignHCenter | Qt::AlignVCenter, line.centre);
            m_painter.drawText(area, Qt::AlignRight | Qt::AlignVCenter, line.right);
            top += lineHeight;
        }
    }
    if (!m_progress)
        return true;
    m_progress->setValue(m_page);
    QCoreApplication::processEvents();
    if (m_progress->wasCanceled()) {
        m_printer.abort();
        // The user's own choice: nothing to report.
        if (error)
            error->clear();
        return false;
    }
    return true;
}
