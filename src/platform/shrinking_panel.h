#pragma once

#include <QLabel>

// A sunken panel of a status bar that gives way when the bar is short of room: it asks for its
// whole text but takes down to a few characters, its text cut with "..." at the end. One that
// is told to hold its whole text (a warning) gives way no more.
class ShrinkingPanel : public QLabel {
public:
    explicit ShrinkingPanel(QWidget* parent = nullptr);
    QSize minimumSizeHint() const override;
    void setHoldsWholeText(bool whole);

protected:
    void paintEvent(QPaintEvent* event) override;
    // A cut text without a tip of its own shows itself whole on hover.
    bool event(QEvent* event) override;

private:
    bool isCut() const;
    bool m_whole = false;
};
