#include "frm_main_display.h"

#include "controller_io.h"
#include "plant_store.h"
#include "platform/indicators.h"
#include "platform/window_parts.h"
#include "register_codec.h"
#include "security/login.h"
#include "security/rights.h"
#include "tag_file.h"

#include <QCoreApplication>
#include <QDoubleSpinBox>
#include <QFrame>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QVBoxLayout>
#include <cmath>
#include <utility>

namespace {
constexpr int kProfileCommandRegister = 1082;
constexpr int kProfileEnd = 17;

QString named(const char* name, int index) {
    return QString::fromLatin1(name) + QString::number(index);
}
} // namespace

QString FrmMainDisplay::placementSection(int firstRow) {
    return QStringLiteral("ControlBanks\\Bank") + numberPrintForm(firstRow).chopped(1);
}

FrmMainDisplay::FrmMainDisplay(int firstRow, const QString& bankText, QWidget* parent)
    : ChildWindow(Life::Display, placementSection(firstRow), parent),
      controllerBank(static_cast<qint16>(firstRow)) {
    setAttribute(Qt::WA_DeleteOnClose);
    keepPositionOnly();
    QVBoxLayout* layout = makeWindowBody(this, QStringLiteral("frmMainDisplay"),
                                         QStringLiteral("Controls - Bank ") + bankText);
    auto* faces = new QHBoxLayout;
    layout->addLayout(faces);
    for (int i = 0; i < 4; ++i) {
        Position& p = m_pos[static_cast<size_t>(i)];
        p.Cface = new QFrame(widget());
        p.Cface->setObjectName(named("Cface", i));
        p.Cface->setFrameShape(QFrame::StyledPanel);
        p.Cface->setStyleSheet(
            QStringLiteral("#%1 { background: #2b2f36; }").arg(named("Cface", i)));
        auto* grid = new QGridLayout(p.Cface);
        p.Clabel = new QLabel(p.Cface);
        p.Clabel->setObjectName(named("Clabel", i));
        p.Clabel->setStyleSheet(QStringLiteral("color: white; font-weight: bold;"));
        p.Clabel->setAlignment(Qt::AlignCenter);
        auto caption = [&p](const QString& text) {
            auto* l = new QLabel(text, p.Cface);
            l->setStyleSheet(QStringLiteral("color: #c8c8c8;"));
            return l;
        };
        p.CPV = new SevenSegmentDisplay(p.Cface);
        p.CPV->setObjectName(named("CPV", i));
        p.CPV->setToolTip(QStringLiteral("PV Display"));
        p.CSP = new SevenSegmentDisplay(p.Cface);
        p.CSP->setObjectName(named("CSP", i));
        p.CSP->setColours(QColor(40, 230, 60), QColor(8, 50, 12), Qt::black);
        p.SPwrite = new QDoubleSpinBox(p.Cface);
        p.SPwrite->setObjectName(named("SPwrite", i));
        p.SPwrite->setToolTip(QStringLiteral("SP Entry"));
        p.SPwrite->setKeyboardTracking(false);
        p.SPwrite->installEventFilter(this);
        p.SPwrite->hide();
        p.AlarmLEDX1 = new LedRectangle(QStringLiteral("AL"), p.Cface);
        p.AlarmLEDX1->setObjectName(named("AlarmLEDX1", i));
        p.AlarmLEDX1->hide();
        p.segCaption = caption(QStringLiteral("Curr Segment ="));
        p.segCaption->setObjectName(named("segCaption", i));
        p.currSeg = caption({});
        p.currSeg->setObjectName(named("currSeg", i));
        p.ProfStop = new LedRectangle(QStringLiteral("STOP"), p.Cface);
        p.ProfStop->setObjectName(named("ProfStop", i));
        p.ProfHold = new LedRectangle(QStringLiteral("HOLD"), p.Cface);
        p.ProfHold->setObjectName(named("ProfHold", i));
        p.ProfHold->setColours(QColor(250, 220, 0), QColor(80, 70, 0));
        p.ProfRun = new LedRectangle(QStringLiteral("RUN"), p.Cface);
        p.ProfRun->setObjectName(named("ProfRun", i));
        p.ProfRun->setColours(QColor(40, 230, 60), QColor(8, 60, 12));

        grid->addWidget(p.Clabel, 0, 0, 1, 3);
        grid->addWidget(caption(QStringLiteral("PV")), 1, 0, 1, 3);
        grid->addWidget(p.CPV, 2, 0, 1, 3);
        grid->addWidget(caption(QStringLiteral("SP")), 3, 0, 1, 3);
        grid->addWidget(p.CSP, 4, 0, 1, 3);
        grid->addWidget(p.SPwrite, 5, 0, 1, 3);
        grid->addWidget(p.AlarmLEDX1, 6, 0);
        grid->addWidget(p.segCaption, 7, 0, 1, 2);
        grid->addWidget(p.currSeg, 7, 2);
        grid->addWidget(p.ProfStop, 8, 0);
        grid->addWidget(p.ProfHold, 8, 1);
        grid->addWidget(p.ProfRun, 8, 2);
        grid->setRowStretch(9, 1);
        // The entry, the alarm light and the profile lights come and go; their places stay, so
        // that the faces keep one size and nothing is squeezed when the entry opens.
        for (QWidget* w : QList<QWidget*>{p.SPwrite, p.AlarmLEDX1, p.segCaption, p.currSeg,
                                          p.ProfStop, p.ProfHold, p.ProfRun}) {
            QSizePolicy policy = w->sizePolicy();
            policy.setRetainSizeWhenHidden(true);
            w->setSizePolicy(policy);
        }
        faces->addWidget(p.Cface);

        connect(p.CSP, &SevenSegmentDisplay::clicked, this, [this, i] { beginSetpointEntry(i); });
        for (const auto& [light, command] : {std::pair{p.ProfRun, ProfileCommand::Run},
                                             std::pair{p.ProfHold, ProfileCommand::Hold},
                                             std::pair{p.ProfStop, ProfileCommand::Stop}})
            connect(light, &Indicator::clicked, this,
                    [this, i, command = command] { profileCommand(i, command); });
        const int row = controllerBank + i;
        p.CPV->setOn(validRow(row) && gControlEnabled[row]);
        p.CSP->setOn(validRow(row) && gControlEnabled[row]);
    }
    showProfileControls();
    adjustSize();
}

void FrmMainDisplay::refresh() {
    updateBankValues();
    updateBankAlarms();
    updateBankProfile();
}

void FrmMainDisplay::setReading(SevenSegmentDisplay* display, int row, bool pv) {
    const PlantValue& v = pv ? gPV[row] : gSP[row];
    display->setOn(true);
    const bool held = !isFresh(row);
    if (held != display->isHeld()) {
        display->setHeld(held);
        display->setToolTip(held ? gPvTag[row] + QStringLiteral(": ") + heldNote(row) +
                                       QStringLiteral(", the value shown is held")
                                 : QString());
    }
    if (v.isText())
        display->setValueText(v.toText());
    else
        display->setValue(v.asNumber().value_or(0));
}

void FrmMainDisplay::updateBankValues() {
    for (int i = 0; i < 4; ++i) {
        const int row = controllerBank + i;
        if (!validRow(row))
            continue;
        Position& p = m_pos[static_cast<size_t>(i)];
        p.Clabel->setText(gPvTag[row]);
        if (!gControlEnabled[row]) {
            p.SPwrite->hide();
            p.CPV->setOn(false);
            p.CSP->setOn(false);
            continue;
        }
        setReading(p.CPV, row, true);
        setReading(p.CSP, row, false);
        QCoreApplication::processEvents();
        for (SevenSegmentDisplay* d : {p.CPV, p.CSP})
            d->setPrecision(gDecimal[row]);
        // A spin box given its own precision or range again rewrites its text, which would
        // wipe what the operator is typing at every tick: only a change is passed on.
        const auto range = gFixedTenth[row]
                               ? std::pair{-1128.0, 2512.0}
                               : std::pair{gScale[row] * -19990.0, gScale[row] * 45530.0};
        if (p.SPwrite->decimals() != gDecimal[row])
            p.SPwrite->setDecimals(gDecimal[row]);
        if (range != p.entryRange) {
            p.entryRange = range;
            p.SPwrite->setRange(range.first, range.second);
        }
        QCoreApplication::processEvents();
    }
}

void FrmMainDisplay::updateBankAlarms() {
    for (int i = 0; i < 4; ++i) {
        const int row = controllerBank + i;
        if (!validRow(row))
            continue;
        LedRectangle* led = m_pos[static_cast<size_t>(i)].AlarmLEDX1;
        if (!bitIsSet(gAlarmState[row], 0) && !bitIsSet(gAlarmState[row], 1)) {
            led->hide();
            continue;
        }
        led->show();
        led->setActive(!led->isActive()); // a blink of one second a cycle
    }
}

void FrmMainDisplay::updateBankProfile() {
    // Only a bank whose first controller is a K20; the others get no profile update at all.
    if (!validRow(controllerBank) || gControlType[controllerBank] != K20RampProfiler)
        return;
    for (int i = 0; i < 4; ++i) {
        const int row = controllerBank + i;
        if (!validRow(row))
            continue;
        Position& p = m_pos[static_cast<size_t>(i)];
        const int state = gProfState[row];
        if (state >= 1 && state <= 16) {
            p.ProfRun->setActive(true);
            p.ProfStop->setActive(false);
            p.currSeg->setText(QString::number(state));
        } else if (state == kProfileEnd || state == 0) {
            // At the end of a profile the system stops it itself, at every tick it is reported.
            if (state == kProfileEnd)
                controllerIo().writeToControllerProcedure(row + 1, kProfileCommandRegister, 0);
            p.ProfRun->setActive(false);
            p.ProfHold->setActive(false);
            p.ProfStop->setActive(true);
            p.currSeg->setText(QStringLiteral("End"));
        }
    }
}

void FrmMainDisplay::showProfileControls() {
    for (int i = 0; i < 4; ++i) {
        const int row = controllerBank + i;
        const bool profiler = validRow(row) && gControlType[row] != K40Series;
        const Position& p = m_pos[static_cast<size_t>(i)];
        for (QWidget* w :
             QList<QWidget*>{p.ProfRun, p.ProfHold, p.ProfStop, p.segCaption, p.currSeg})
            w->setVisible(profiler);
    }
}

void FrmMainDisplay::changeEvent(QEvent* event) {
    ChildWindow::changeEvent(event);
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        showProfileControls();
}

void FrmMainDisplay::beginSetpointEntry(int index) {
    const int row = controllerBank + index;
    if (index < 0 || index > 3 || !validRow(row) || !gControlEnabled[row])
        return;
    Position& p = m_pos[static_cast<size_t>(index)];
    p.SPwrite->setValue(p.CSP->value());
    m_oldSetpoint = static_cast<qint32>(std::lround(p.SPwrite->value()));
    p.SPwrite->show();
    p.SPwrite->setFocus();
    p.SPwrite->selectAll();
}

void FrmMainDisplay::acceptSetpoint(int index) {
    if (index < 0 || index > 3)
        return;
    QDoubleSpinBox* entry = m_pos[static_cast<size_t>(index)].SPwrite;
    const double value = entry->value();
    // The tag is the one of row "index", not of the bank's own row: the text has always
    // named it so.
    const QString text = QStringLiteral("SP change ") + gPvTag[index] + QStringLiteral(" from ") +
                         QString::number(m_oldSetpoint) + QStringLiteral(" to ") +
                         QString::number(value);
    if (!checkAccessWithLogin(Right::ChangeSetpoints, text)) {
        entry->hide();
        return;
    }
    const int row = controllerBank + index;
    const SetpointWrite write = setpointWrite(row, value);
    controllerIo().writeToControllerProcedure(row + 1, write.registerNumber, write.raw);
    entry->hide();
}

void FrmMainDisplay::profileCommand(int index, ProfileCommand command) {
    if (index < 0 || index > 3)
        return;
    Position& p = m_pos[static_cast<size_t>(index)];
    // The words of a setpoint change, though a profile command is what is done.
    const QString text = QStringLiteral("SP change ") + gPvTag[index] + QStringLiteral(" from ") +
                         QString::number(m_oldSetpoint) + QStringLiteral(" to ") +
                         QString::number(p.SPwrite->value());
    if (!checkAccessWithLogin(Right::SignDataFiles, text)) {
        p.SPwrite->hide();
        return;
    }
    const int row = controllerBank + index;
    controllerIo().writeToControllerProcedure(row + 1, kProfileCommandRegister,
                                              static_cast<qint32>(command));
    // Shown at once, without waiting for the controller; the next poll corrects the state.
    switch (command) {
    case ProfileCommand::Run:
        p.ProfRun->setActive(true);
        p.ProfHold->setActive(false);
        p.ProfStop->setActive(false);
        gProfState[row] = 1;
        break;
    case ProfileCommand::Hold:
        p.ProfHold->setActive(true);
        p.ProfStop->setActive(false);
        break;
    case ProfileCommand::Stop:
        p.ProfRun->setActive(false);
        p.ProfHold->setActive(false);
        p.ProfStop->setActive(true);
        gProfState[row] = 0;
        break;
    }
}

bool FrmMainDisplay::eventFilter(QObject* watched, QEvent* event) {
    for (int i = 0; i < 4; ++i) {
        QDoubleSpinBox* entry = m_pos[static_cast<size_t>(i)].SPwrite;
        if (watched != entry)
            continue;
        if (event->type() == QEvent::KeyPress) {
            const int key = static_cast<QKeyEvent*>(event)->key();
            if (key == Qt::Key_Return || key == Qt::Key_Enter) {
                entry->interpretText();
                acceptSetpoint(i);
                return true;
            }
            if (key == Qt::Key_Escape) {
                entry->hide();
                return true;
            }
        } else if (event->type() == QEvent::FocusOut && entry->isVisible()) {
            entry->hide(); // leaving the entry writes nothing
        }
    }
    return ChildWindow::eventFilter(watched, event);
}
