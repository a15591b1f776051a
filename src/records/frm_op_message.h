#pragma once

#include <QDialog>

class QLineEdit;

// A remark of the operator for the data file being written: it rides in the next data line.
class FrmOpMessage : public QDialog {
    Q_OBJECT
public:
    explicit FrmOpMessage(QWidget* parent = nullptr);

    QLineEdit* message() const { return m_text; }
    // OK: a fresh login, then the text waits for the next data line.
    void okClicked();
    // Cancel: nothing waits any more, not even a message given before.
    void cancelClicked();

private:
    QLineEdit* m_text;
};

// opMessage, once its right is granted: only while a log runs.
void showOperatorMessage(QWidget* parent);
