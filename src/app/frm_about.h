#pragma once

#include <QDialog>

// The About window: the version, and a way to the platform's system information tool.
class FrmAbout : public QDialog {
    Q_OBJECT
public:
    explicit FrmAbout(QWidget* parent = nullptr);

    static QString versionText();
};
