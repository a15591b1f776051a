#pragma once

#include <QObject>
#include <QString>

// What the plant layer has to tell the main window, which connects to these at its start: the
// plant never reaches up into the window itself.
class PlantNotices : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

signals:
    // Panel 1 of the status bar: the communication error text, or the normal one again.
    void statusText(const QString& text);
};

PlantNotices& plantNotices();
