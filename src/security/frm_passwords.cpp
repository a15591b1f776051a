#include "frm_passwords.h"

#include "login.h"
#include "platform/settings_keys.h"
#include "platform/settings_store.h"
#include "rights.h"
#include "session.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {
constexpr int kRowCount = 25;

// The right a row of the list grants: the rows stand in table order up to "Quit Program", and
// the rights added later follow, past right 24, which has no row.
int rightOfRow(int row) {
    return row < Right::CloseMainWindow ? row : Right::Publishing + (row - Right::CloseMainWindow);
}

// The list index of UserLevel is the level number.
RightsTable& tableOfLevel(int level) {
    RightsTable* table = rightsOfLevel(level);
    return table ? *table : gOpRights;
}

QPushButton* button(QWidget* parent, const char* name, const QString& text) {
    auto* b = new QPushButton(text, parent);
    b->setObjectName(QString::fromLatin1(name));
    b->setAutoDefault(false);
    return b;
}
} // namespace

const QStringList& rightRowTexts() {
    static const QStringList texts{QStringLiteral("Open Project"),
                                   QStringLiteral("Close Project"),
                                   QStringLiteral("Save Project"),
                                   QStringLiteral("Activate Controls"),
                                   QStringLiteral("Data Logging"),
                                   QStringLiteral("Loop Tuning"),
                                   QStringLiteral("Alarm Setpoints"),
                                   QStringLiteral("Clear Error Log"),
                                   QStringLiteral("Profiler"),
                                   QStringLiteral("Data Viewer"),
                                   QStringLiteral("Sim/Real Mode"),
                                   QStringLiteral("User Access"),
                                   QStringLiteral("Operator Message"),
                                   QStringLiteral("Change Setpoints"),
                                   QStringLiteral("Trending Setup"),
                                   QStringLiteral("Sign Data Files"),
                                   QStringLiteral("Verify Data Files"),
                                   QStringLiteral("Open/Save Files"),
                                   QStringLiteral("Export Data Files"),
                                   QStringLiteral("Audit Trail Viewer"),
                                   QStringLiteral("Acknowledge Alarms"),
                                   QStringLiteral("Clear Alarms"),
                                   QStringLiteral("Single Setpoint Recipes"),
                                   QStringLiteral("Quit Program"),
                                   QStringLiteral("Publishing")};
    return texts;
}

FrmPasswords::FrmPasswords(QWidget* owner) : QDialog(owner) {
    setObjectName(QStringLiteral("frmPasswords"));
    setWindowTitle(QStringLiteral("Configure User Access"));
    setModal(true);
    setWindowFlags(Qt::Dialog | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);

    auto* frame1 = new QGroupBox(QStringLiteral("User Level:"), this);
    frame1->setObjectName(QStringLiteral("Frame1"));
    m_level = new QComboBox(frame1);
    m_level->setObjectName(QStringLiteral("UserLevel"));
    m_level->addItems({QStringLiteral("Operator"), QStringLiteral("Supervisor"),
                       QStringLiteral("Administrator")});
    (new QVBoxLayout(frame1))->addWidget(m_level);

    auto* frame2 = new QGroupBox(QStringLiteral("Select rights for each user level:"), this);
    frame2->setObjectName(QStringLiteral("Frame2"));
    m_rights = new QTreeWidget(frame2);
    m_rights->setObjectName(QStringLiteral("ListView1"));
    m_rights->setColumnCount(1);
    m_rights->setHeaderLabels({QStringLiteral("Program Options")});
    m_rights->setRootIsDecorated(false);
    m_rights->setUniformRowHeights(true);
    m_rights->header()->setStretchLastSection(true);
    for (const QString& text : rightRowTexts()) {
        auto* item = new QTreeWidgetItem(m_rights, {text});
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        item->setCheckState(0, Qt::Unchecked);
    }
    // Tall enough for all rows without a scroll bar.
    m_rights->setMinimumSize(260, m_rights->sizeHintForRow(0) * kRowCount +
                                      m_rights->header()->sizeHint().height() +
                                      2 * m_rights->frameWidth() + 4);
    QPushButton* selectAll = button(frame2, "Command3", QStringLiteral("Select All"));
    QPushButton* removeAll = button(frame2, "Command4", QStringLiteral("Remove All"));
    auto* frame2Layout = new QVBoxLayout(frame2);
    frame2Layout->addWidget(m_rights, 1);
    auto* tickButtons = new QHBoxLayout;
    tickButtons->addWidget(selectAll);
    tickButtons->addWidget(removeAll);
    frame2Layout->addLayout(tickButtons);

    QPushButton* accept = button(this, "Command2", QStringLiteral("Accept"));
    auto* hint =
        new QLabel(QStringLiteral("Click Accept to save changes for each user level."), this);
    hint->setObjectName(QStringLiteral("Label1"));
    hint->setWordWrap(true);
    m_security = new QCheckBox(this);
    m_security->setObjectName(QStringLiteral("Check2"));
    auto* securityLabel = new QLabel(QStringLiteral("Enable/disable 21 CFR security."), this);
    securityLabel->setObjectName(QStringLiteral("Label4"));
    securityLabel->setWordWrap(true);
    QPushButton* doneButton = button(this, "Command1", QStringLiteral("Done"));

    auto* left = new QVBoxLayout;
    left->addWidget(frame1);
    left->addSpacing(8);
    left->addWidget(hint);
    left->addWidget(accept);
    left->addStretch(1);
    auto* security = new QHBoxLayout;
    security->addWidget(m_security, 0, Qt::AlignTop);
    security->addWidget(securityLabel, 1);
    left->addLayout(security);
    left->addSpacing(12);
    left->addWidget(doneButton);
    auto* layout = new QHBoxLayout(this);
    layout->addLayout(left);
    layout->addWidget(frame2, 1);
    setMinimumWidth(520);

    connect(m_level, &QComboBox::currentIndexChanged, this, &FrmPasswords::UserLevel_Click);
    connect(m_level, &QComboBox::activated, this, &FrmPasswords::UserLevel_Click);
    connect(selectAll, &QPushButton::clicked, this, [this] { setAllTicks(true); });
    connect(removeAll, &QPushButton::clicked, this, [this] { setAllTicks(false); });
    connect(accept, &QPushButton::clicked, this, &FrmPasswords::Command2_Click);
    connect(doneButton, &QPushButton::clicked, this, &QDialog::accept);

    m_security->setChecked(g21CFR);
    m_level->setCurrentIndex(0);
    UserLevel_Click();
}

void FrmPasswords::UserLevel_Click() {
    const RightsTable& table = tableOfLevel(m_level->currentIndex());
    for (int i = 0; i < kRowCount; ++i)
        m_rights->topLevelItem(i)->setCheckState(
            0, table[size_t(rightOfRow(i))] != 0 ? Qt::Checked : Qt::Unchecked);
}

void FrmPasswords::Command2_Click() {
    RightsTable& table = tableOfLevel(m_level->currentIndex());
    for (int i = 0; i < kRowCount; ++i)
        table[size_t(rightOfRow(i))] =
            m_rights->topLevelItem(i)->checkState(0) == Qt::Checked ? 1 : 0;
}

void FrmPasswords::setAllTicks(bool ticked) {
    for (int i = 0; i < kRowCount; ++i)
        m_rights->topLevelItem(i)->setCheckState(0, ticked ? Qt::Checked : Qt::Unchecked);
}

void FrmPasswords::done(int result) {
    // Done, the close box and Esc all end here: there is no cancel.
    saveAndApply();
    QDialog::done(result);
}

void FrmPasswords::saveAndApply() {
    if (m_saved)
        return;
    m_saved = true;
    for (int row = 0; row < kRowCount; ++row) {
        const int i = rightOfRow(row);
        saveSetting(Sections::LevelsOp, rightKey(QStringLiteral("op"), i),
                    QString::number(gOpRights[size_t(i)]));
        saveSetting(Sections::LevelsSu, rightKey(QStringLiteral("su"), i),
                    QString::number(gSuRights[size_t(i)]));
        saveSetting(Sections::LevelsAd, rightKey(QStringLiteral("ad"), i),
                    QString::number(gAdRights[size_t(i)]));
    }
    g21CFR = m_security->isChecked();
    saveSetting(Sections::LevelsSecurity, Keys::Security21CFR, boolToSetting(g21CFR));
}

void showUserAccessDialog(QWidget* owner) {
    if (!checkAccessWithLogin(Right::UserAccess, QStringLiteral("Configure users access")))
        return;
    FrmPasswords dialog(owner);
    dialog.adjustSize();
    if (owner) {
        // Centred on the main window.
        const QRect o = owner->frameGeometry();
        dialog.move(o.left() + (o.width() - dialog.width()) / 2,
                    o.top() + (o.height() - dialog.height()) / 2);
    }
    dialog.exec();
}
