#include "fakes.h"

#include <QPageSize>
#include <QPrinter>
#include <QProcess>
#include <QTimer>

MsgAnswer ScriptedDialogs::messageBox(MsgIcon icon, MsgButtons buttons, const QString& title,
                                      const QString& text) {
    boxes.append(ShownBox{icon, buttons, title, text});
    if (whileOpen)
        whileOpen();
    if (const auto a = takeNext(answers))
        return *a;
    if (buttons == MsgButtons::YesNo || buttons == MsgButtons::YesNoCancel)
        return MsgAnswer::Yes;
    return buttons == MsgButtons::RetryCancel ? MsgAnswer::Retry : MsgAnswer::Ok;
}

ModbusResult FakeModbusBackend::answer(const ModbusRequest& request) {
    if (!nodes.contains(request.node) || nodes[request.node].dead)
        return {ModbusCode::NoResponse, {}};
    Node& n = nodes[request.node];
    if (n.failureCode != 0)
        return {n.failureCode, {}};
    auto& map = request.dataArea == 2 ? n.input : n.holding;
    ModbusResult result;
    for (int address = request.firstRegister; address < request.firstRegister + request.count;
         ++address) {
        if (request.direction == 1)
            map[address] = request.values.value(address - request.firstRegister);
        else if (!map.contains(address))
            return {ModbusCode::IllegalAddress, {}};
        else
            result.values.append(map.value(address));
    }
    return result;
}

void FakeModbusBackend::submit(const ModbusRequest& request, Done done) {
    requests.append(request);
    if (manual)
        m_pending.emplace_back(request, std::move(done));
    else
        QTimer::singleShot(0, this,
                           [this, request, done = std::move(done)] { done(answer(request)); });
}

bool FakeModbusBackend::deliverOne() {
    if (m_pending.empty())
        return false;
    auto [request, done] = std::move(m_pending.front());
    m_pending.pop_front();
    done(answer(request));
    return true;
}

int FakeModbusBackend::deliverAll() {
    int n = 0;
    for (; !m_pending.empty(); ++n) {
        auto [request, done] = std::move(m_pending.front());
        m_pending.pop_front();
        done(answer(request));
    }
    return n;
}

std::unique_ptr<QPrinter> PdfPrinters::defaultPrinter(const QString& jobName) {
    auto printer = std::make_unique<QPrinter>(QPrinter::HighResolution);
    printer->setOutputFormat(QPrinter::PdfFormat);
    printer->setPageSize(QPageSize(QPageSize::A4));
    outputs << outputFolder + QStringLiteral("/printout-%1.pdf").arg(outputs.size() + 1);
    printer->setOutputFileName(outputs.last());
    printer->setDocName(jobName);
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

PasswordCheck FakeAccounts::checkPassword(const QString& user, const QString& password) {
    checkedUsers << user;
    if (serviceDown)
        return PasswordCheck::Unavailable;
    const auto it = users.constFind(user);
    return it != users.constEnd() && it->password == password ? PasswordCheck::Accepted
                                                              : PasswordCheck::Refused;
}
