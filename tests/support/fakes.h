#pragma once

// Test doubles of the platform facades: every answer scripted, every call recorded.

#include "platform/accounts.h"
#include "platform/beep.h"
#include "platform/clock.h"
#include "platform/dialogs.h"
#include "platform/modctl.h"
#include "platform/printers.h"
#include "platform/settings_store.h"
#include "platform/single_instance.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <deque>
#include <functional>

// The next answer of a script, taken from it; nothing once the script has run out.
template <typename T> std::optional<T> takeNext(std::deque<T>& script) {
    if (script.empty())
        return std::nullopt;
    T next = std::move(script.front());
    script.pop_front();
    return next;
}

struct ShownBox {
    MsgIcon icon;
    MsgButtons buttons;
    QString title, text;
};

class ScriptedDialogs final : public Dialogs {
public:
    QList<ShownBox> boxes;
    std::deque<MsgAnswer> answers; // taken in order; when empty the first button is the answer
    // Runs while a message box stands open, as the timers of a real box's loop would.
    std::function<void()> whileOpen;
    QList<FileDialogRequest> fileRequests;
    std::deque<FileDialogResult> fileAnswers; // when empty: cancelled
    std::deque<QString> inputs;               // input box answers; when empty: cancelled
    QStringList openedDocuments;              // none opens: the help file cannot be shown
    std::deque<QColor> colours;               // colour dialog answers; when empty: cancelled
    QList<QColor> colourSeeds;                // the colour each colour dialog opened with

    MsgAnswer messageBox(MsgIcon icon, MsgButtons buttons, const QString& title,
                         const QString& text) override;
    std::optional<QString> inputBox(const QString&, const QString&, const QString&) override {
        return takeNext(inputs);
    }
    FileDialogResult openFile(const FileDialogRequest& request) override {
        fileRequests.append(request);
        return takeNext(fileAnswers).value_or(FileDialogResult{});
    }
    FileDialogResult saveFile(const FileDialogRequest& request) override {
        return openFile(request);
    }
    std::optional<QColor> chooseColour(const QColor& initial) override {
        colourSeeds << initial;
        return takeNext(colours);
    }
    bool openDocument(const QString& path) override {
        openedDocuments << path;
        return false;
    }

    QStringList texts() const {
        QStringList out;
        for (const auto& b : boxes)
            out << b.text;
        return out;
    }
    void answerNext(MsgAnswer a) { answers.push_back(a); }
    void chooseFile(const QString& path) { fileAnswers.push_back(FileDialogResult{false, path}); }
};

class FakeClock final : public Clock {
public:
    QDateTime time = QDateTime(QDate(2026, 3, 14), QTime(10, 0, 0));
    QDateTime now() const override { return time; }
    // Below 0 the steady time is the machine's own; a test that paces the link sets it.
    qint64 steady = -1;
    qint64 steadyMicros() const override { return steady < 0 ? machineSteadyMicros() : steady; }
};

class CountingBeeper final : public Beeper {
public:
    int count = 0;
    void beep() override { ++count; }
};

class MemorySettingsStore final : public SettingsStore {
public:
    QMap<QString, QString> values; // folded "section/key"
    QString value(const QString& section, const QString& key, const QString& def) const override {
        return values.value(QtSettingsStore::foldedKey(section, key), def);
    }
    void setValue(const QString& section, const QString& key, const QString& value) override {
        values.insert(QtSettingsStore::foldedKey(section, key), value);
    }
};

class FakeInstanceGuard final : public InstanceGuard {
public:
    bool otherRunning = false;
    bool acquire() override { return !otherRunning; }
};

// A link answering from register maps in memory. Replies come from the event loop, or, in manual
// mode, only when the test calls deliverAll().
class FakeModbusBackend final : public ModbusBackend {
public:
    struct Node {
        QMap<int, quint16> holding;
        QMap<int, quint16> input;
        int failureCode = 0; // every request of this node fails with it
        bool dead = false;   // answers with the time-out code
    };
    QMap<int, Node> nodes;
    QList<ModbusRequest> requests;
    // The writes asked for, in order: node, register and first word each.
    QList<QList<int>> writes() const {
        QList<QList<int>> out;
        for (const ModbusRequest& r : requests) {
            if (r.direction == 1)
                out.append({r.node, r.firstRegister, r.values.value(0)});
        }
        return out;
    }
    bool manual = false;

    void submit(const ModbusRequest& request, Done done) override;
    ModbusResult answer(const ModbusRequest& request);
    int deliverAll();
    // The oldest waiting answer only; false when none waits. A paced line sends its next request
    // from inside an answer, so deliverAll would never run dry.
    bool deliverOne();

    void setRegisters(int node, int dataArea, int first, const QList<quint16>& values) {
        auto& map = dataArea == 2 ? nodes[node].input : nodes[node].holding;
        for (int i = 0; i < values.size(); ++i)
            map[first + i] = values[i];
    }

private:
    std::deque<std::pair<ModbusRequest, Done>> m_pending;
};

// Printers that print to PDF files, one file a job: printout-1.pdf, printout-2.pdf... in
// outputFolder, A4, so that a test reads the pages back with pdftotext.
class PdfPrinters final : public Printers {
public:
    bool available = true;
    QString outputFolder;
    QStringList outputs; // every file a job was given, in order
    QStringList jobNames;
    bool printDialogAnswered = false; // OK with one copy; else the print dialog is cancelled

    bool hasDefaultPrinter() override { return available; }
    std::unique_ptr<QPrinter> defaultPrinter(const QString& jobName) override;
    bool choosePrinter(QPrinter&, int* copies) override {
        *copies = 1;
        return printDialogAnswered;
    }
};

// The machine's accounts as a table of users.
class FakeAccounts final : public Accounts {
public:
    struct User {
        QString password;
        QStringList groups;
        // Missing: the account information cannot be read although the password passes.
        std::optional<AccountRecord> record;
    };
    QMap<QString, User> users;
    // Fifteen characters: every name of up to fifteen shares a bit with it.
    QString computer = QStringLiteral("SORVANTEL-WS-01");
    bool backendPresent = true;
    bool serviceDown = false; // every check could not run
    QStringList checkedUsers;

    // A user with full name and comment; the logon name is the key.
    void addUser(const QString& name, const QString& password, const QStringList& groups,
                 const QString& fullName = {}, const QString& comment = {}) {
        users.insert(name, User{password, groups, AccountRecord{name, fullName, comment, {}}});
    }

    bool present() const override { return backendPresent; }
    PasswordCheck checkPassword(const QString& user, const QString& password) override;
    QStringList groupsOf(const QString& user) override { return users.value(user).groups; }
    std::optional<AccountRecord> account(const QString& user) override {
        const auto it = users.constFind(user);
        return it == users.constEnd() ? std::nullopt : it->record;
    }
    QString computerName() override { return computer; }
};

// The text of a PDF file, its layout kept; empty when pdftotext is missing.
QString pdfText(const QString& path);

// Makes a double, puts it in place of its facade and hands back the double for scripting.
template <typename Double, typename Facade>
Double* installDouble(void (*install)(std::unique_ptr<Facade>)) {
    auto made = std::make_unique<Double>();
    Double* double_ = made.get();
    install(std::move(made));
    return double_;
}
