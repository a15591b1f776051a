#pragma once

#include "fakes.h"
#include "modal_script.h"

#include <QTemporaryDir>

class PollCycle;

// Everything a test of the workstation stands on: doubles of every facade, a fresh store and
// session, and a temporary application directory as the current directory.
class TestEnv {
public:
    TestEnv();
    ~TestEnv();
    TestEnv(const TestEnv&) = delete;
    TestEnv& operator=(const TestEnv&) = delete;

    QString appPath() const { return m_dir.path(); }
    QString path(const QString& relative) const { return m_dir.filePath(relative); }

    // Writes tags.tgn for the given controllers (node address, family), all others disabled.
    struct Controller {
        int node;
        int type;
        bool enabled = true;
        QString tag = {};
        bool logged = false;
    };
    void writeTags(const QList<Controller>& controllers);

    // Timer2 ticks of the poll, each with every reply the link has by then delivered before the
    // next, and the events those replies queue.
    void tickPoll(PollCycle& poll, int ticks = 1);

    ScriptedDialogs* dialogs;
    FakeClock* clock;
    CountingBeeper* beeper;
    MemorySettingsStore* settings;
    FakeInstanceGuard* guard;
    FakeModbusBackend* modbus;
    PdfPrinters* printers;
    FakeAccounts* accounts;
    ModalScript modals;

private:
    QTemporaryDir m_dir;
    QString m_previousDir;
};
