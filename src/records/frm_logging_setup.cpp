#include "frm_logging_setup.h"

#include "data_logger.h"
#include "file_cipher.h"
#include "plant/comm_errors.h"
#include "plant/plant_store.h"
#include "plant/tag_file.h"
#include "platform/dialogs.h"
#include "platform/file_io.h"
#include "platform/record_grid.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"
#include "platform/window_parts.h"
#include "record_paths.h"
#include "security/login.h"
#include "security/rights.h"

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>
#include <limits>

namespace {
constexpr double kMaxBatch = 99999999999.0;
constexpr double kMaxLot = 9999999999.0;
constexpr int kMaxInterval = 43200;

QPushButton* button(const QString& name, const QString& text, QWidget* parent) {
    auto* b = new QPushButton(text, parent);
    b->setObjectName(name);
    b->setAutoDefault(false);
    return b;
}

bool rowInUse(int row) {
    return gTagTable[static_cast<size_t>(row)][1].trimmed().toInt() != 0;
}

// The start's own failure box, as the logger's start shows it.
void startFailure(int number, const QString& description) {
    msgBox(QStringLiteral("Error number %1. Description is %2.\nError occured during start of "
                          "logger, Please check disk space and\nreport this error to Brenlock.")
               .arg(number)
               .arg(description),
           MsgIcon::Critical);
}
} // namespace

FrmLoggingSetup::FrmLoggingSetup(QWidget* parent) : QDialog(parent) {
    setObjectName(QStringLiteral("frmLoggingSetup"));
    setWindowTitle(QStringLiteral("Data Logger Setup"));
    setModal(true);

    auto* gridLabel =
        new QLabel(QStringLiteral("Use grid to select points for data logging:"), this);
    m_grid = new RecordGrid(this);
    m_grid->setObjectName(QStringLiteral("sDataGrid"));
    m_grid->setColumnCount(3);
    m_grid->setRowCount(kTagRows);
    m_grid->setColumnTitles({QStringLiteral("Control Address"), QStringLiteral("Write On/Off"),
                             QStringLiteral("Data Save Tagname")});
    m_grid->setRowNumbersVisible(true);
    m_grid->setColumnCellType(WriteOnOff, GridCellType::CheckBox, {}, QStringLiteral("On/Off"));
    // Two characters more than it was drawn with, so that the title shows whole.
    m_grid->setColumnWidthUnits(Address, 12);
    m_grid->setColumnWidthUnits(WriteOnOff, 12);
    m_grid->setColumnWidthUnits(Tagname, 34);
    // A click in the grid while a log runs says why nothing changes.
    connect(m_grid, &QAbstractItemView::clicked, this, [this] {
        if (gLogging)
            refusedWhileLogging();
    });

    m_saveInterval = new QSpinBox(this);
    m_saveInterval->setObjectName(QStringLiteral("saveInterval"));
    m_saveInterval->setRange(1, kMaxInterval);
    m_saveInterval->setValue(std::clamp(gSaveInterval, 1, kMaxInterval));
    m_batchNum = new QDoubleSpinBox(this);
    m_batchNum->setObjectName(QStringLiteral("batchNum"));
    m_lotNum = new QDoubleSpinBox(this);
    m_lotNum->setObjectName(QStringLiteral("lotNum"));
    for (auto [box, top] : {std::pair{m_batchNum, kMaxBatch}, std::pair{m_lotNum, kMaxLot}}) {
        box->setDecimals(0);
        box->setRange(0, top);
        box->setGroupSeparatorShown(false);
    }
    m_dtCheck =
        makeOptionBox(QStringLiteral("dtCheck"),
                      QStringLiteral("Generate log file using date/time:"), gAutoLog == 1, this);
    m_slCheck = makeOptionBox(QStringLiteral("SLCheck"),
                              QStringLiteral("Initiate data logging at startup:"),
                              gLogOnStartup == 1, this);
    connect(m_dtCheck, &QCheckBox::clicked, this, &FrmLoggingSetup::dtCheckClicked);
    connect(m_slCheck, &QCheckBox::clicked, this, &FrmLoggingSetup::slCheckClicked);

    auto* frame = new QGroupBox(QStringLiteral("Start/Stop Data Logging"), this);
    frame->setObjectName(QStringLiteral("Frame1"));
    auto* startLog = button(QStringLiteral("StartLog"), QStringLiteral("Start Log"), frame);
    auto* stopLog = button(QStringLiteral("StopLog"), QStringLiteral("Stop Log"), frame);
    m_label4 = new QLabel(QStringLiteral("Inactive"), frame);
    m_label4->setObjectName(QStringLiteral("Label4"));
    auto* fileFrame = new QGroupBox(QStringLiteral("Current File Name Active"), frame);
    m_label5 = new QLabel(fileFrame);
    m_label5->setObjectName(QStringLiteral("Label5"));
    (new QVBoxLayout(fileFrame))->addWidget(m_label5);
    auto* frameLayout = new QGridLayout(frame);
    frameLayout->addWidget(startLog, 0, 0);
    frameLayout->addWidget(stopLog, 0, 1);
    frameLayout->addWidget(new QLabel(QStringLiteral("Current Log Status  = "), frame), 1, 0);
    frameLayout->addWidget(m_label4, 1, 1);
    frameLayout->addWidget(fileFrame, 2, 0, 1, 2);
    connect(startLog, &QPushButton::clicked, this, &FrmLoggingSetup::startLog);
    connect(stopLog, &QPushButton::clicked, this, &FrmLoggingSetup::stopLog);

    auto* command1 = button(QStringLiteral("Command1"), QStringLiteral("Close Window"), this);
    auto* command2 = button(QStringLiteral("Command2"), QStringLiteral("Select All"), this);
    auto* command3 = button(QStringLiteral("Command3"), QStringLiteral("De-Select All"), this);
    connect(command1, &QPushButton::clicked, this, &QDialog::accept);
    connect(command2, &QPushButton::clicked, this, [this] { selectAll(true); });
    connect(command3, &QPushButton::clicked, this, [this] { selectAll(false); });

    auto* entries = new QGridLayout;
    entries->addWidget(new QLabel(QStringLiteral("Data log interval in seconds:"), this), 0, 0);
    entries->addWidget(m_saveInterval, 0, 1);
    entries->addWidget(new QLabel(QStringLiteral("Batch #"), this), 1, 0);
    entries->addWidget(m_batchNum, 1, 1);
    entries->addWidget(new QLabel(QStringLiteral("Lot #"), this), 2, 0);
    entries->addWidget(m_lotNum, 2, 1);
    entries->addWidget(m_dtCheck, 3, 0, 1, 2, Qt::AlignLeft);
    entries->addWidget(m_slCheck, 4, 0, 1, 2, Qt::AlignLeft);
    auto* side = new QVBoxLayout;
    side->addLayout(entries);
    side->addWidget(frame);
    side->addStretch();
    for (QPushButton* b : {command2, command3, command1})
        side->addWidget(b);
    auto* left = new QVBoxLayout;
    left->addWidget(gridLabel);
    left->addWidget(m_grid, 1);
    auto* layout = new QHBoxLayout(this);
    layout->addLayout(left, 1);
    layout->addLayout(side);
    resize(960, 600);

    loadGrid();
    if (gLogging)
        showActiveState();
    else
        showInactiveState();
}

void FrmLoggingSetup::loadGrid() {
    RecordGrid::BulkLoad bulk(*m_grid);
    for (int r = 0; r < kTagRows; ++r) {
        const auto& row = gTagTable[static_cast<size_t>(r)];
        m_grid->setRowFields(r, {QString::number(row[0].trimmed().toInt() + 1),
                                 isLoggedRow(row) ? QStringLiteral("1") : QStringLiteral("0"),
                                 row[2]});
        if (!rowInUse(r)) {
            m_grid->setRowLocked(r, true);
            m_grid->setRowColors(r, QColor(220, 220, 220), QColor(128, 128, 128));
        }
    }
}

int FrmLoggingSetup::storeChoice() {
    int chosen = 0;
    for (int r = 0; r < kTagRows; ++r) {
        const bool on = m_grid->text(r, WriteOnOff) == QLatin1String("1");
        gTagTable[static_cast<size_t>(r)][5] = numberPrintForm(on ? 1 : 0);
        chosen += on ? 1 : 0;
    }
    return chosen;
}

void FrmLoggingSetup::showActiveState() {
    m_grid->setLocked(true);
    for (QWidget* w : {static_cast<QWidget*>(m_saveInterval), static_cast<QWidget*>(m_batchNum),
                       static_cast<QWidget*>(m_lotNum), static_cast<QWidget*>(m_dtCheck),
                       static_cast<QWidget*>(m_slCheck)})
        w->setEnabled(false);
    m_label4->setText(QStringLiteral("Active"));
    m_label5->setText(fileNameOnly(gDataFileName));
    m_batchNum->setValue(gBatchNumber);
    m_lotNum->setValue(gLotNumber);
}

void FrmLoggingSetup::showInactiveState() {
    m_grid->setLocked(false);
    m_grid->setColumnLocked(Address, true);
    m_grid->setColumnLocked(Tagname, true);
    for (QWidget* w : {static_cast<QWidget*>(m_saveInterval), static_cast<QWidget*>(m_batchNum),
                       static_cast<QWidget*>(m_lotNum), static_cast<QWidget*>(m_dtCheck),
                       static_cast<QWidget*>(m_slCheck)})
        w->setEnabled(true);
    // The spelling of the stopped state differs from the one the window opens with.
    m_label4->setText(QStringLiteral("InActive"));
    m_label5->clear();
}

bool FrmLoggingSetup::refusedWhileLogging() {
    if (!gLogging)
        return false;
    msgBox(QStringLiteral("Data save status can not be\nchanged while logging data!"));
    return true;
}

void FrmLoggingSetup::selectAll(bool on) {
    if (refusedWhileLogging())
        return;
    for (int r = 0; r < kTagRows; ++r) {
        if (rowInUse(r))
            m_grid->setText(r, WriteOnOff, on ? QStringLiteral("1") : QStringLiteral("0"));
    }
}

void FrmLoggingSetup::dtCheckClicked() {
    // Logging at start-up has no one to name its file: the clock must.
    if (m_slCheck->isChecked())
        m_dtCheck->setChecked(true);
    gAutoLog = m_dtCheck->isChecked() ? 1 : 0;
}

void FrmLoggingSetup::slCheckClicked() {
    if (m_slCheck->isChecked()) {
        m_dtCheck->setChecked(true);
        gAutoLog = 1;
    }
}

void FrmLoggingSetup::startLog() {
    if (gLogging) {
        msgBox(QStringLiteral(
                   "Data save is active! Please stop logger before starting a new log file."),
               MsgIcon::Information);
        return;
    }
    // The interval and the numbers have always been kept in 16 and 32 bits: an entry beyond
    // them ends the start as an overflow.
    if (m_saveInterval->value() > std::numeric_limits<qint16>::max()) {
        startFailure(6, QStringLiteral("Overflow"));
        return;
    }
    gSaveInterval = m_saveInterval->value();
    if (storeChoice() == 0) {
        msgBox(QStringLiteral("There are no controls enabled for logging!\nPlease select controls "
                              "to log from grid."));
        return;
    }
    const double top = std::numeric_limits<qint32>::max();
    if (m_batchNum->value() > top || m_lotNum->value() > top) {
        startFailure(6, QStringLiteral("Overflow"));
        return;
    }
    gBatchNumber = static_cast<qint32>(m_batchNum->value());
    gLotNumber = static_cast<qint32>(m_lotNum->value());
    if (gAutoLog == 1) {
        makeAutoFileName();
    } else {
        FileDialogRequest request;
        request.title = QStringLiteral("Save log file as?");
        request.filter = QStringLiteral("Log Files(*.slg)|*.slg");
        request.defaultExtension = QStringLiteral(".slg");
        request.initialDirectory = logFilesFolder();
        request.fileName = logFilesFolder() + QStringLiteral("/Default.slg");
        const FileDialogResult chosenFile = dialogs().saveFile(request);
        if (chosenFile.cancelled)
            return;
        // Its signature file counts too: batch7.rerun.slg signs into batch7.sif.
        if (dataFileNameTaken(chosenFile.path)) {
            msgBox(QStringLiteral("File already exists. Please select another filename!"),
                   MsgIcon::Information);
            return;
        }
        gDataFileName = chosenFile.path;
    }
    if (!checkAccessWithLogin(Right::DataLogging,
                              QStringLiteral("Data logging started. ") + gDataFileName))
        return;
    if (startDataFile())
        showActiveState();
}

void FrmLoggingSetup::stopLog() {
    if (!gLogging)
        return;
    if (!checkAccessWithLogin(Right::DataLogging,
                              QStringLiteral("Data logging stopped. ") + gDataFileName))
        return;
    stopDataFile();
    showInactiveState();
}

void FrmLoggingSetup::done(int result) {
    if (!m_closed) {
        m_closed = true;
        storeChoice();
        QString why;
        if (!writeTagFile(gAppPath + QStringLiteral("/tags.tgn"), &why))
            reportError(QStringLiteral("frmLoggingSetup"), lastFileErrorNumber(), why);
        gSaveInterval = m_saveInterval->value();
        gAutoLog = m_dtCheck->isChecked() ? 1 : 0;
        gLogOnStartup = m_slCheck->isChecked() ? 1 : 0;
        saveSetting(Sections::DataSave, Keys::SaveInterval, QString::number(gSaveInterval));
        saveSetting(Sections::DataSave, Keys::AutoLog, QString::number(gAutoLog));
        saveSetting(Sections::DataSave, Keys::LogOnStartup, QString::number(gLogOnStartup));
    }
    QDialog::done(result);
}

void showLoggingSetup(QWidget* parent) {
    FrmLoggingSetup dialog(parent);
    dialog.exec();
}
