#include "frm_scanning.h"

#include <QLabel>
#include <QProgressBar>
#include <QTimer>
#include <QVBoxLayout>

FrmScanning::FrmScanning(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmScanning"));
    setWindowTitle(QStringLiteral("Scanning Active Controls"));
    setWindowFlags(Qt::Dialog | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                   Qt::MSWindowsFixedSizeDialogHint);
    setModal(false);
    auto* layout = new QVBoxLayout(this);
    m_label = new QLabel(
        QStringLiteral(
            "Sorvantel is scanning active controllers for default settings.  Please wait!"),
        this);
    m_label->setObjectName(QStringLiteral("Label1"));
    m_label->setWordWrap(true);
    m_label->setMinimumWidth(320);
    m_bar = new QProgressBar(this);
    m_bar->setObjectName(QStringLiteral("pBar"));
    m_bar->setTextVisible(false);
    layout->addWidget(m_label);
    layout->addWidget(m_bar);
    m_timer1 = new QTimer(this);
    m_timer1->setObjectName(QStringLiteral("Timer1"));
    m_timer1->setSingleShot(true);
    m_timer1->setInterval(500);
    connect(m_timer1, &QTimer::timeout, this, &FrmScanning::timer1Fired);
    layout->setSizeConstraint(QLayout::SetFixedSize);
}

void FrmScanning::setRange(int maximum) {
    m_bar->setRange(0, maximum);
    m_bar->setValue(0);
}

void FrmScanning::setProgress(int value) {
    m_bar->setValue(value);
}

int FrmScanning::progress() const {
    return m_bar->value();
}

void FrmScanning::startTimer1() {
    m_timer1->start();
}
