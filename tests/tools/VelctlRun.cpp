// Runs velctl as an operator would, and the modules that it works on.
#include "VelctlRun.h"

#include "testing/BusTest.h"

#include <QFile>
#include <QJsonDocument>
#include <QTest>

#include <csignal>
#include <sys/syscall.h>

namespace {

constexpr int longestWaitMs = 60000;

Outcome outcomeOf(QProcess& process, const QString& earlierErrors) {
    if (process.state() != QProcess::NotRunning && !process.waitForFinished(longestWaitMs)) {
        process.kill();
        process.waitForFinished();
        return {-2, {}, "velctl did not end"};
    }
    const QString out = QString::fromUtf8(process.readAllStandardOutput());
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, out.split('\n', Qt::SkipEmptyParts),
            earlierErrors + QString::fromUtf8(process.readAllStandardError())};
}

} // namespace

QList<QJsonObject> Outcome::objects() const {
    QList<QJsonObject> objects;
    for (const QString& line : out)
        objects += QJsonDocument::fromJson(line.toUtf8()).object();
    return objects;
}

Outcome velctl(const QStringList& arguments, const QByteArray& input) {
    QProcess process;
    process.start(bustest::program("velctl"), arguments);
    process.write(input);
    process.closeWriteChannel();
    return outcomeOf(process, QString());
}

Background::Background(const QStringList& arguments) {
    m_process.setReadChannel(QProcess::StandardError);
    m_process.start(bustest::program("velctl"), arguments);
    while (!m_err.endsWith('\n') && m_process.waitForReadyRead(longestWaitMs))
        m_err += QString::fromUtf8(m_process.readAllStandardError());
}

Outcome Background::outcome() {
    return outcomeOf(m_process, m_err);
}

void Background::interrupt() {
    kill(static_cast<pid_t>(m_process.processId()), SIGINT);
}

std::unique_ptr<ChildProcess> startPeer(const QString& name, const QStringList& options, const QString& variable,
                                        const QString& value) {
    auto peer = std::make_unique<ChildProcess>();
    if (!variable.isEmpty())
        peer->setVariable(variable, value);
    const auto waitUntil = [&name](const char* what) {
        const Outcome outcome = velctl({"wait", what, name, "--timeout", "60"});
        if (outcome.status != 0)
            qWarning("velctl wait %s %s: %d %s", what, qPrintable(name), outcome.status, qPrintable(outcome.err));
        return outcome.status == 0;
    };
    // An earlier one of that name may have ended without the bus having noticed.
    if (!waitUntil("--gone") ||
        !peer->run(bustest::program("tool-peer"), QStringList("--moduleName=" + name) + options) ||
        !waitUntil("--running"))
        return nullptr;
    return peer;
}

bool save(const ChildProcess& peer, const QString& name) {
    const Outcome published = velctl({"publish", "test_save", "ModulesPidsList=" + name, "Save=true"});
    return published.status == 0 && QTest::qWaitFor([&] { return peer.processState() == 'T'; }, longestWaitMs);
}

bool stopFromOutside(const ChildProcess& peer) {
    kill(static_cast<pid_t>(peer.processId()), SIGSTOP);
    return QTest::qWaitFor([&] { return peer.processState() == 'T'; }, longestWaitMs);
}

bool makeBusy(ChildProcess& peer, const QString& name) {
    const QDBusMessage call = QDBusMessage::createMethodCall("org.vel.module." + name + "Service", '/' + name,
                                                             "org.vel.module.VelInterface", "block");
    return QDBusConnection::sessionBus().send(call) && peer.waitForLine("blocking");
}

bool tellsSystemCalls(const ChildProcess& peer) {
    const auto callOf = [](const QString& process) {
        QFile file("/proc/" + process + "/syscall");
        return file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ? file.readAll().split(' ').first()
                                                                      : QByteArray();
    };
    return !callOf(QString::number(peer.processId())).isEmpty() && callOf("self") == QByteArray::number(SYS_read);
}

void resume(const ChildProcess& peer) {
    kill(static_cast<pid_t>(peer.processId()), SIGCONT);
}

void release(ChildProcess& peer) {
    peer.write("\n");
    peer.waitForBytesWritten();
}
