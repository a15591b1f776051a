#include "frm_alarm_settings.h"

#include "control/read_fields.h"
#include "plant/paced_sequence.h"
#include "plant/plant_store.h"
#include "plant/register_codec.h"
#include "platform/dialogs.h"
#include "platform/modctl.h"
#include "platform/window_parts.h"
#include "security/login.h"
#include "security/rights.h"

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMdiArea>
#include <QPushButton>
#include <QVBoxLayout>

namespace {
constexpr int kFieldCount = 4;
// Codes of -5 and below pass without a word, as they always have.
constexpr int kQuietCodes = -5;

const char* const kFieldNames[] = {"Alm1Set", "Alm1Dev", "Alm2Set", "Alm2Dev"};
const char* const kFrameCaptions[] = {"Alarm1 Setpoint", "Alarm1 Dev Setpoint", "Alarm2 Setpoint",
                                      "Alarm2 Dev Setpoint"};
const QString kWriteFailed =
    QStringLiteral("Error during write of alarm values.\n\nMake sure write value is within\n"
                   "upper/lower setpoint limits.");
} // namespace

bool controllersEnabledOrSay() {
    if (gActiveList.value(0) > 0)
        return true;
    msgBox(QStringLiteral("There are no controllers enabled in system!\nEnable controllers from "
                          "the Setup menu."),
           MsgIcon::Information);
    return false;
}

FrmAlarmSettings::FrmAlarmSettings(QWidget* parent)
    : ChildWindow(Life::Closes, {}, parent), m_readFields(new ReadFields(this)) {
    setAttribute(Qt::WA_DeleteOnClose);
    QVBoxLayout* layout =
        makeWindowBody(this, QStringLiteral("frmAlarmSettings"), QStringLiteral("Alarm Settings"));
    QWidget* body = widget();
    layout->setContentsMargins(8, 8, 8, 8);

    auto* selectFrame = new QGroupBox(QStringLiteral("Select Controller"), body);
    auto* selectRow = new QHBoxLayout(selectFrame);
    selectRow->addWidget(new QLabel(QStringLiteral("Select Controller:"), selectFrame));
    m_select = new QComboBox(selectFrame);
    m_select->setObjectName(QStringLiteral("ControlAlmSelect"));
    m_select->setMinimumContentsLength(16);
    selectRow->addWidget(m_select, 1);
    layout->addWidget(selectFrame);

    auto* fields = new QGridLayout;
    for (int f = 0; f < kFieldCount; ++f) {
        auto* frame = new QGroupBox(QString::fromLatin1(kFrameCaptions[f]), body);
        auto* inFrame = new QVBoxLayout(frame);
        m_fields[f] = new QDoubleSpinBox(frame);
        m_fields[f]->setObjectName(QString::fromLatin1(kFieldNames[f]));
        m_fields[f]->setAlignment(Qt::AlignRight);
        m_fields[f]->setMinimumWidth(m_fields[f]->fontMetrics().horizontalAdvance(u'0') * 12);
        inFrame->addWidget(m_fields[f]);
        m_readFields->add(m_fields[f], QString::fromLatin1(kFrameCaptions[f]));
        // Alarm 1 on the left, alarm 2 on the right; setpoints above, deviations below.
        fields->addWidget(frame, f % 2, f / 2);
    }
    layout->addLayout(fields);

    auto* statusFrame =
        new QGroupBox(QStringLiteral("Current read/write status of alarms settings:"), body);
    auto* inStatus = new QVBoxLayout(statusFrame);
    m_status = new QLabel(statusFrame);
    m_status->setObjectName(QStringLiteral("AlmStatusLabel"));
    inStatus->addWidget(m_status);
    layout->addWidget(statusFrame);

    auto* buttons = new QHBoxLayout;
    const std::tuple<const char*, const char*, void (FrmAlarmSettings::*)()> commands[] = {
        {"CmdReadTune", "Read Values", &FrmAlarmSettings::readValues},
        {"CmdWriteTune", "Write Values", &FrmAlarmSettings::writeValues},
        {"CmdTuneDone", "Done", nullptr}};
    for (const auto& [name, caption, handler] : commands) {
        auto* button = new QPushButton(QString::fromLatin1(caption), body);
        button->setObjectName(QString::fromLatin1(name));
        if (handler)
            connect(button, &QPushButton::clicked, this, handler);
        else
            connect(button, &QPushButton::clicked, this, &QWidget::close);
        buttons->addWidget(button);
    }
    layout->addLayout(buttons);

    m_read = new PacedSequence(QStringLiteral("ModAlmRead"), QStringLiteral("readTimer"), this);
    m_write = new PacedSequence(QStringLiteral("ModAlmWrite"), QStringLiteral("writeTimer"), this);
    connect(m_read, &PacedSequence::blockRead, this,
            [this](int, const QVector<quint16>& words) { showBlock(words); });
    connect(m_read, &PacedSequence::failed, this, [](int code) {
        if (code > kQuietCodes)
            msgBox(QStringLiteral("Error during read of alarm values.\nPlease check control and "
                                  "try again."),
                   MsgIcon::Critical);
    });
    connect(m_write, &PacedSequence::writesSent, this, [this] {
        if (!m_writeRefused)
            m_status->setText(QStringLiteral("Alarm values written to controller"));
    });
    // The sequence has stopped by itself: the rest is dropped, the status keeps "Writing".
    connect(m_write, &PacedSequence::failed, this, [](int code) {
        if (code > kQuietCodes)
            msgBox(kWriteFailed, MsgIcon::Critical);
    });

    for (int row = 0; row < kControllerCount; ++row) {
        if (gControlEnabled[static_cast<size_t>(row)])
            m_select->addItem(gPvTag[static_cast<size_t>(row)], row);
    }
    m_select->setCurrentIndex(m_select->count() > 0 ? 0 : -1);
    // The limits stay those of the first controller; only the decimals follow a new choice.
    const int first = selectedRow();
    const double scale = validRow(first) ? double(gScale[static_cast<size_t>(first)]) : 1.0;
    for (QDoubleSpinBox* box : m_fields)
        box->setRange(-19000.0 * scale, 45000.0 * scale);
    setDecimals(first);
    connect(m_select, &QComboBox::currentIndexChanged, this,
            [this] { setDecimals(selectedRow()); });
}

QString FrmAlarmSettings::statusText() const {
    return m_status->text();
}

int FrmAlarmSettings::selectedRow() const {
    const QVariant row = m_select->currentData();
    return row.isValid() ? row.toInt() : -1;
}

void FrmAlarmSettings::setDecimals(int row) {
    if (!validRow(row))
        return;
    for (QDoubleSpinBox* box : m_fields)
        box->setDecimals(std::clamp<int>(gDecimal[static_cast<size_t>(row)], 0, 3));
}

void FrmAlarmSettings::centreInArea() {
    // Its size is known once it stands, polished, in the area.
    adjustSize();
    if (QMdiArea* area = mdiArea()) {
        const QSize client = area->viewport()->size();
        placeAt(QRect(QPoint((client.width() - width()) / 2, (client.height() - height()) / 2),
                      size()));
    }
}

void FrmAlarmSettings::readValues() {
    const int row = selectedRow();
    if (gSimMode || !validRow(row))
        return;
    m_read->readBlock(row + 1, kFirstRegister, kFieldCount);
}

void FrmAlarmSettings::showBlock(const QVector<quint16>& words) {
    const int row = selectedRow();
    const double scale = validRow(row) ? double(gScale[static_cast<size_t>(row)]) : 1.0;
    // A word of 32768 or more cannot pass the subtraction, done in 16 bits as it always has
    // been: that field keeps what it showed, and is marked like one whose limits are too narrow.
    for (int f = 0; f < kFieldCount && f < words.size(); ++f)
        m_readFields->show(m_fields[f], offsetValue16(words[f], scale));
    m_status->setText(QStringLiteral("Alarm values read from control."));
    m_readFields->sayMarked();
}

std::optional<quint16> FrmAlarmSettings::rawValue(Field f, int row) const {
    return offsetWord(m_fields[f]->value(), rawMultiplier(row));
}

void FrmAlarmSettings::writeValues() {
    const int row = selectedRow();
    if (gSimMode || !validRow(row))
        return;
    // A value the register cannot hold, or a field that does not show what was read and has
    // not been typed since, is refused before anything is signed for or written.
    for (int f = 0; f < kFieldCount; ++f) {
        if (!rawValue(Field(f), row)) {
            msgBox(kWriteFailed, MsgIcon::Critical);
            return;
        }
    }
    if (!m_readFields->allReadOrTyped())
        return;
    if (!checkAccessWithLogin(Right::AlarmSetpoints, QStringLiteral("Alarm Setpoint Change")))
        return;
    m_status->setText(QStringLiteral("Writing alarm values to controller"));
    m_writeRefused = false;
    // Node, multiplier and value are taken at each register's turn: a new choice of controller
    // during the writes sends the remaining registers to it.
    m_write->startWrites(kFieldCount, [this](int stage) -> std::optional<RegisterWrite> {
        const int target = selectedRow();
        const std::optional<quint16> raw =
            validRow(target) ? rawValue(Field(stage), target) : std::nullopt;
        if (!raw) {
            m_writeRefused = true;
            msgBox(kWriteFailed, MsgIcon::Critical);
            return std::nullopt;
        }
        return RegisterWrite{target + 1, kFirstRegister + stage, *raw};
    });
}
