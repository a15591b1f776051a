#pragma once

#include <QDialog>

class QCheckBox;
class QComboBox;
class QTreeWidget;

// The texts of the rights rows, in the order of the right numbers. Right 24 has no row.
const QStringList& rightRowTexts();

// "Configure User Access": the rights of each level and the security switch. Accepted ticks
// count at once; everything is written to the settings when the dialog closes, by any route.
class FrmPasswords : public QDialog {
    Q_OBJECT
public:
    explicit FrmPasswords(QWidget* owner);

    // Shows the ticks of the level chosen in UserLevel; ticks not accepted are dropped.
    void UserLevel_Click();
    void Command2_Click();
    void setAllTicks(bool ticked);

    QTreeWidget* rightsList() const { return m_rights; }
    QComboBox* userLevel() const { return m_level; }
    QCheckBox* securityCheck() const { return m_security; }

    void done(int result) override;

private:
    void saveAndApply();

    QComboBox* m_level = nullptr;
    QTreeWidget* m_rights = nullptr;
    QCheckBox* m_security = nullptr;
    bool m_saved = false;
};

// Opens the dialog after a signed "Configure users access", centred on the owner.
void showUserAccessDialog(QWidget* owner);
