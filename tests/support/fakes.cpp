#include "fakes.h"

#include <QPageSize>
#include <QPrinter>
#include <QProcess>
#include <QTimer>

MsgAnswer ScriptedDialogs::messageBox(MsgIcon icon, MsgButtons buttons, const QString& title,
                                      const QString& text) {
    boxes.append(ShownBox{icon, buttons, title, text});
    if (!answers.empty()) {
        const MsgAnswer a = answers.front();
        answers.pop_front();
        return a;
    }
    switch (buttons) {
    case MsgButtons::YesNo:
    case MsgButtons::YesNoCancel:
        return MsgAnswer::Yes;
    case MsgButtons::RetryCancel:
        return MsgAnswer::Retry;
    default:
        return MsgAnswer::Ok;
    }
}

FileDialogResult ScriptedDialogs::openFile(const FileDialogRequest& request) {
    fileRequests.append(request);
    if (fileAnswers.empty())
        return {};
    const FileDialogResult r = fileAnswers.front();
    fileAnswers.pop_front();
    return r;
}

std::optional<QString> ScriptedDialogs::inputBox(const QString&, const QString&, const QString&) {
    if (inputs.empty())
        return std::nullopt;
    const QString answer = inputs.front();
    inputs.pop_front();
    return answer;
}

FileDialogResult ScriptedDialogs::saveFile(const FileDialogRequest& request) {
    return openFile(request);
}

QStringList ScriptedDialogs::texts() const {
    QStringList out;
    for (const auto& b : boxes)
        out << b.text;
    return out;
}

void FakeModbusBackend::setRegisters(int node, int dataArea, int first,
                                     const QList<quint16>& values) {
    Node& n = nodes[node];
    auto& map = dataArea == 2 ? n.input : n.holding;
    for (int i = 0; i < values.size(); ++i)
        map[first + i] = values[i];
}

ModbusResult FakeModbusBackend::answer(const ModbusRequest& request) {
    if (!nodes.contains(request.node) || nodes[request.node].dead)
        return {ModbusCode::NoResponse, {}};
    Node& n = nodes[request.node];
    if (n.failureCode != 0)
        return {n.failureCode, {}};
    auto& map = request.dataArea == 2 ? n.input : n.holding;
    ModbusResult result;
    for (int i = 0; i < request.count; ++i) {
        const int address = request.firstRegister + i;
        if (request.direction == 1) {
            map[address] = request.values.value(i);
        } else {
            if (!map.contains(address))
                return {ModbusCode::IllegalAddress, {}};
            result.values.append(map.value(address));
        }
    }
    return result;
}

void FakeModbusBackend::submit(const ModbusRequest& request, Done done) {
    requests.append(request);
    if (manual) {
        m_pending.emplace_back(request, std::move(done));
        return;
    }
    QTimer::singleShot(0, this, [this, request, done = std::move(done)] { done(answer(request)); });
}

int FakeModbusBackend::deliverAll() {
    int n = 0;
    while (!m_pending.empty()) {
        auto [request, done] = std::move(m_pending.front());
        m_pending.pop_front();
        done(answer(request));
        ++n;
    }
    return n;
}

std::unique_ptr<QPrinter> PdfPrinters::defaultPrinter(const QString& jobName) {
    auto printer = std::make_unique<QPrinter>(QPrinter::HighResolution);
    printer->setOutputFormat(QPrinter::PdfFormat);
    printer->setPageSize(QPageSize(QPageSize::A4));
    const QString path = outputFolder + QStringLiteral("/printout-%1.pdf").arg(outputs.size() + 1);
    printer->setOutputFileName(path);
    printer->setDocName(jobName);
    outputs << path;
    jobNames << jobName;
    return printer;
}

QString pdfText(const QString& path) {
    QProcess p;
    p.start(QStringLiteral("pdftotext"), {QStringLiteral("-layout"), path, QStringLiteral("-")});
    if (!p.waitForFinished(30000) || p.exitCode() != 0)
        return {};
    // Compatibility form, so that ligatures such as "fi" read as their letters.
    return QString::fromUtf8(p.readAllStandardOutput()).normalized(QString::NormalizationForm_KC);
}

void FakeAccounts::addUser(const QString& name, const QString& password, const QStringList& groups,
                           const QString& fullName, const QString& comment) {
    users.insert(name, User{password, groups, AccountRecord{name, fullName, comment, {}}});
}

PasswordCheck FakeAccounts::checkPassword(const QString& user, const QString& password) {
    checkedUsers << user;
    if (serviceDown)
        return PasswordCheck::Unavailable;
    const auto it = users.constFind(user);
    return it != users.constEnd() && it->password == password ? PasswordCheck::Accepted
                                                              : PasswordCheck::Refused;
}

std::optional<AccountRecord> FakeAccounts::account(const QString& user) {
    const auto it = users.constFind(user);
    if (it == users.constEnd())
        return std::nullopt;
    return it->record;
}
