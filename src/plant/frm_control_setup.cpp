#include "frm_control_setup.h"

#include "comm_errors.h"
#include "plant_store.h"
#include "platform/dialogs.h"
#include "platform/modbus_line.h"
#include "platform/record_grid.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"
#include "platform/window_parts.h"
#include "records/data_logger.h"
#include "scan_controller.h"
#include "security/login.h"
#include "security/rights.h"
#include "tag_file.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QTimer>
#include <QVBoxLayout>

namespace {
constexpr int kMinScanTime = 60;
constexpr int kMaxScanTime = 5000;

} // namespace

FrmControlSetup::FrmControlSetup(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmControlSetup"));
    setWindowTitle(QStringLiteral("Controller Labels\\Enable Status"));
    setModal(true);

    auto* intro = new QLabel(
        QStringLiteral(
            "Enter a tagname for each of the column headings below.  Select the \"type\" "
            "of control using the drop down listBox.  Click on the controller status "
            "checkbox to enable or disable scanning of the controller:"),
        this);
    intro->setObjectName(QStringLiteral("Label1"));
    intro->setWordWrap(true);

    m_cdata = new RecordGrid(this);
    m_cdata->setObjectName(QStringLiteral("cdata"));
    m_cdata->setColumnCount(5);
    m_cdata->setRowCount(kControllerCount);
    m_cdata->setColumnTitles({QStringLiteral("Status"), QStringLiteral("PV Tag"),
                              QStringLiteral("SP Tag"), QStringLiteral("% Out Tag"),
                              QStringLiteral("Control Type")});
    m_cdata->setRowNumbersVisible(true);
    m_cdata->verticalHeader()->setMinimumWidth(m_cdata->fontMetrics().averageCharWidth() * 5);
    m_cdata->setColumnCellType(Status, GridCellType::CheckBox, {}, QStringLiteral("On/Off"));
    m_cdata->setColumnCellType(ControlType, GridCellType::ComboBox,
                               {QStringLiteral("K40 Series Controls"),
                                QStringLiteral("K8 Ramp Profiler"),
                                QStringLiteral("K20 Ramp Profiler")});
    // The status column is wider than the 7 characters it was drawn with: the check box and
    // its "On/Off" must both show.
    const double widths[] = {10, 16, 16, 13, 15};
    for (int c = 0; c < 5; ++c)
        m_cdata->setColumnWidthUnits(c, widths[c]);
    m_cdata->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                             QAbstractItemView::AnyKeyPressed);
    // The PV and SP tags open for typing at the first click; the output tag, on purpose, not.
    connect(m_cdata, &QAbstractItemView::clicked, this, [this](const QModelIndex& index) {
        if (index.column() == PvTag || index.column() == SpTag)
            m_cdata->edit(index);
    });

    auto* frame2 = new QGroupBox(QStringLiteral("System Alarms"), this);
    frame2->setObjectName(QStringLiteral("Frame2"));
    m_beepAckChk = makeOptionBox(QStringLiteral("beepAckChk"),
                                 QStringLiteral("Beep until any alarm is acknowledged :"),
                                 gBeepUntilAck, frame2);
    m_beepAlmChk =
        makeOptionBox(QStringLiteral("beepAlmChk"),
                      QStringLiteral("Enable single beep on new alarm :"), gBeepOnAlarm, frame2);
    m_check1 = makeOptionBox(QStringLiteral("Check1"), QStringLiteral("Enable alarm logging :"),
                             gAlmLogging, frame2);
    auto* alarms = new QVBoxLayout(frame2);
    for (QCheckBox* box : {m_beepAckChk, m_beepAlmChk, m_check1})
        alarms->addWidget(box, 0, Qt::AlignRight);
    // One beep on a new alarm or a beep until acknowledged, never both.
    connect(m_beepAlmChk, &QCheckBox::toggled, this, [this](bool on) {
        if (on)
            m_beepAckChk->setChecked(false);
    });
    connect(m_beepAckChk, &QCheckBox::toggled, this, [this](bool on) {
        if (on)
            m_beepAlmChk->setChecked(false);
    });

    auto* frame1 = new QGroupBox(QStringLiteral("Communications"), this);
    frame1->setObjectName(QStringLiteral("Frame1"));
    m_cupdateTime = new QSpinBox(frame1);
    m_cupdateTime->setObjectName(QStringLiteral("CupdateTime"));
    m_cupdateTime->setRange(kMinScanTime, kMaxScanTime);
    m_check2 = makeOptionBox(QStringLiteral("Check2"),
                             QStringLiteral("Enable beep on comms error :"), gComBeep, frame1);
    auto* comms = new QGridLayout(frame1);
    comms->addWidget(new QLabel(QStringLiteral("Scan each controller every"), frame1), 0, 0);
    comms->addWidget(m_cupdateTime, 0, 1);
    comms->addWidget(new QLabel(QStringLiteral("msecs"), frame1), 0, 2);
    comms->addWidget(m_check2, 1, 0, 1, 3, Qt::AlignRight);
    addLinePacing(frame1, comms);

    auto* note = new QLabel(
        QStringLiteral("Note: Controllers are not scanned while this dialog is active. "), this);
    note->setObjectName(QStringLiteral("Label2"));
    auto* command1 = new QPushButton(QStringLiteral("Done"), this);
    command1->setObjectName(QStringLiteral("Command1"));
    auto* command2 = new QPushButton(QStringLiteral("Cancel"), this);
    command2->setObjectName(QStringLiteral("Command2"));
    // Return in the grid finishes an edit, not the dialog.
    command1->setAutoDefault(false);
    command2->setAutoDefault(false);
    connect(command1, &QPushButton::clicked, this, &FrmControlSetup::assignChannelsControlSetup);
    connect(command2, &QPushButton::clicked, this, &QDialog::reject);

    auto* bottom = new QHBoxLayout;
    bottom->addWidget(frame2);
    bottom->addWidget(frame1);
    auto* buttons = new QVBoxLayout;
    buttons->addStretch();
    buttons->addWidget(command1);
    buttons->addWidget(command2);
    bottom->addLayout(buttons);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(intro);
    layout->addWidget(m_cdata, 1);
    layout->addWidget(note);
    layout->addLayout(bottom);
    resize(720, 620);

    loadGrid();
    ScanController* scan = scanController();
    if (scan) {
        scan->suspend();
        m_cupdateTime->setValue(scan->timer2()->interval());
    }
}

void FrmControlSetup::addLinePacing(QWidget* frame, QGridLayout* grid) {
    m_linePaced = new QCheckBox(QStringLiteral("As fast as the line allows"), frame);
    m_linePaced->setObjectName(QStringLiteral("chkLinePaced"));
    m_linePaced->setToolTip(QStringLiteral(
        "Each read goes out as soon as the one before it has ended and the line's silence\n"
        "(3.5 characters, 1.75 ms above 19,200 baud) and the guard have passed.\n"
        "Writes take their turn between reads. A controller that stops answering is\n"
        "asked less and less often until it answers again. The scan time above then\n"
        "only paces simulation and the retries after the link was lost."));
    m_lineGuard = new QSpinBox(frame);
    m_lineGuard->setObjectName(QStringLiteral("LineGuard"));
    m_lineGuard->setRange(0, StoredLinePacing::kMaxGuardMs);
    m_lineGuard->setToolTip(
        QStringLiteral("Extra silence between requests, for slow converters and controllers."));
    // What the poll does now, as the scan time shows the running Timer2's interval.
    const ScanController* scan = scanController();
    const bool paced = scan ? scan->linePaced() : storedLinePacing().paced;
    m_linePaced->setChecked(paced);
    m_lineGuard->setValue(scan ? modbusLine().pacing().guardMicros / 1000
                               : storedLinePacing().guardMs);
    m_lineGuard->setEnabled(paced);
    connect(m_linePaced, &QCheckBox::toggled, m_lineGuard, &QWidget::setEnabled);
    grid->addWidget(m_linePaced, 2, 0, 1, 3);
    grid->addWidget(new QLabel(QStringLiteral("Guard between requests"), frame), 3, 0);
    grid->addWidget(m_lineGuard, 3, 1);
    grid->addWidget(new QLabel(QStringLiteral("msecs"), frame), 3, 2);
}

void FrmControlSetup::loadGrid() {
    RecordGrid::BulkLoad bulk(*m_cdata);
    for (int c = 0; c < kControllerCount; ++c)
        m_cdata->setRowFields(c,
                              {gControlEnabled[c] ? QStringLiteral("1") : QStringLiteral("0"),
                               gPvTag[c], gSpTag[c], gOutTag[c], QString::number(gControlType[c])});
}

void FrmControlSetup::assignChannelsControlSetup() {
    if (!checkAccessWithLogin(Right::ActivateControls,
                              QStringLiteral("Controller Activation/Tags Modified")))
        return;
    hide();
    // The new plant is made aside and goes into the store only once its file is on the disk:
    // the plant that is scanned is always the one the file describes.
    const auto keptTable = gTagTable;
    const auto keptEnabled = gControlEnabled;
    const auto keptType = gControlType;
    const auto keptTags = std::array{gPvTag, gSpTag, gOutTag};
    for (int c = 0; c < kControllerCount; ++c) {
        gControlEnabled[c] = m_cdata->text(c, Status) == QLatin1String("1");
        gPvTag[c] = m_cdata->text(c, PvTag);
        gSpTag[c] = m_cdata->text(c, SpTag);
        gOutTag[c] = m_cdata->text(c, OutTag);
        gControlType[c] = static_cast<qint16>(m_cdata->text(c, ControlType).toShort());
    }
    tagTableFromStore();
    QString why;
    if (!writeTagFile(gAppPath + QStringLiteral("/tags.tgn"), &why)) {
        gTagTable = keptTable;
        gControlEnabled = keptEnabled;
        gControlType = keptType;
        gPvTag = keptTags[0];
        gSpTag = keptTags[1];
        gOutTag = keptTags[2];
        reportError(QStringLiteral("AssignChannelsControlSetup"), 75, why);
        show();
        return;
    }
    buildActiveList();
    ScanController* scan = scanController();
    if (scan) {
        scan->timer2()->setInterval(m_cupdateTime->value());
        scan->setLinePacing(m_linePaced->isChecked(), m_lineGuard->value());
    }
    done(Accepted);
    if (scan)
        scan->startScan();
}

void FrmControlSetup::done(int result) {
    if (!m_closed) {
        m_closed = true;
        saveOptions();
    }
    QDialog::done(result);
}

void FrmControlSetup::saveOptions() {
    gAlmLogging = m_check1->isChecked();
    gComBeep = m_check2->isChecked();
    gBeepOnAlarm = m_beepAlmChk->isChecked();
    gBeepUntilAck = m_beepAckChk->isChecked();
    saveSetting(Sections::CStatus, Keys::AlmLogging, boolToSetting(gAlmLogging));
    saveSetting(Sections::Cstatus, Keys::ComBeep, boolToSetting(gComBeep));
    saveSetting(Sections::CStatus, Keys::BeepOnAlarm, boolToSetting(gBeepOnAlarm));
    saveSetting(Sections::CStatus, Keys::BeepUntilAck, boolToSetting(gBeepUntilAck));
    saveSetting(Sections::CStatus, Keys::CupdateTime, QString::number(m_cupdateTime->value()));
    // The pacing goes into the store only once it differs from the fixed tick's own defaults
    // or from what is there, so a site that never touches it keeps the store it had.
    const StoredLinePacing stored = storedLinePacing();
    if (stored.paced != m_linePaced->isChecked() || stored.guardMs != m_lineGuard->value()) {
        saveSetting(Sections::CStatus, Keys::LinePaced, boolToSetting(m_linePaced->isChecked()));
        saveSetting(Sections::CStatus, Keys::LineGuard, QString::number(m_lineGuard->value()));
    }
    if (ScanController* scan = scanController())
        scan->resume();
}

void showControlSetup(QWidget* parent) {
    if (gLogging) {
        msgBox(QStringLiteral("Label setup not available when datalog is running!\nPlease stop "
                              "the profiler and datalogger first."),
               MsgIcon::Warning);
        return;
    }
    FrmControlSetup dialog(parent);
    dialog.exec();
}
