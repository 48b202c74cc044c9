// A dbus-daemon with a configuration of its own, or a dbus-broker with a launcher of its own: everything is allowed,
// nothing is started on demand.
//
// A killed test cannot remove files. So the daemon has none: its socket is an abstract one, and its configuration is in
// memory, as a file descriptor that it inherits.
#include "testing/PrivateBus.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <sys/mman.h>
#include <unistd.h>

namespace vel::testing {

namespace {

// The limits are those of a desktop's session bus; no service folder, so an absent module stays absent.
const char configuration[] =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:abstract=%1</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="auth_timeout">240000</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_incomplete_connections">10000</limit>
  <limit name="max_connections_per_user">100000</limit>
  <limit name="max_names_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
)";

PrivateBus* latest = nullptr;

QStringList daemonOptions(int configurationFile) {
    return {QStringLiteral("--nofork"), QStringLiteral("--nopidfile"), QStringLiteral("--print-address=1"),
            QStringLiteral("--config-file=/proc/self/fd/%1").arg(configurationFile)};
}

} // namespace

PrivateBus* PrivateBus::current() {
    return latest;
}

bool PrivateBus::isBroker() {
    return qgetenv("VEL_TEST_BROKER") == "dbus-broker";
}

PrivateBus::PrivateBus() : m_outer(latest), m_outerAddress(qgetenv("DBUS_SESSION_BUS_ADDRESS")) {
    latest = this;
    QFile configurationFile; // closed as soon as the daemon has read it
    QString program = QStringLiteral("dbus-daemon");
    QStringList options;
    if (isBroker()) {
        // Beside this program; the application object, which would know, does not exist yet.
        const QFileInfo thisProgram(QFile::symLinkTarget(QStringLiteral("/proc/self/exe")));
        program = thisProgram.absolutePath() + QStringLiteral("/broker-launcher");
        m_brokerFolder = std::make_unique<QTemporaryDir>();
        options << m_brokerFolder->filePath(QStringLiteral("bus"));
    } else {
        const QString name = QStringLiteral("vel-test-") + QUuid::createUuid().toString(QUuid::Id128);
        const int inMemory = memfd_create("bus.conf", 0);
        if (!configurationFile.open(inMemory, QIODevice::WriteOnly, QFile::AutoCloseHandle) ||
            configurationFile.write(QString::fromLatin1(configuration).arg(name).toUtf8()) < 0 ||
            !configurationFile.flush()) {
            m_isRunning = Result::failure(QStringLiteral("cannot start a bus: ") + configurationFile.errorString());
            return;
        }
        options = daemonOptions(inMemory);
    }
    // The address is read from standard output only. The daemon's complaints about limits that this user may not
    // raise disturb nobody, so its error output is shown only when it does not start.
    m_daemon.setProcessChannelMode(QProcess::SeparateChannels);
    m_isRunning = m_daemon.run(program, options);
    if (m_isRunning)
        m_isRunning = m_daemon.waitForLine(QStringLiteral("unix:"));
    if (!m_isRunning) {
        m_isRunning = Result::failure(QStringLiteral("cannot start a bus: ") + m_isRunning.message() + '\n' +
                                      QString::fromUtf8(m_daemon.readAllStandardError()));
        return;
    }
    m_address = m_daemon.lines().first();
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());
}

PrivateBus::~PrivateBus() {
    latest = m_outer;
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_outerAddress);
}

void PrivateBus::stop() {
    m_daemon.kill();
    m_daemon.waitForFinished(-1); // nobody survives SIGKILL
}

} // namespace vel::testing
