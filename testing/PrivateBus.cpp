// A dbus-daemon with a configuration of its own, or a dbus-broker with a launcher of its own: everything is allowed,
// nothing is started on demand.
#include "testing/PrivateBus.h"

#include <QFile>
#include <QFileInfo>

#include <cstdio>

namespace {

// The limits are those of a desktop's session bus; no service folder, so an absent module stays absent.
const char configuration[] =
    R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:path=%1/bus</listen>
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

} // namespace

bool PrivateBus::isBroker() {
    return qgetenv("VEL_TEST_BROKER") == "dbus-broker";
}

QString PrivateBus::program() {
    // Beside this program; the application object, which would know, does not exist yet.
    const QFileInfo thisProgram(QFile::symLinkTarget(QStringLiteral("/proc/self/exe")));
    return isBroker() ? thisProgram.absolutePath() + QStringLiteral("/broker-launcher") : QStringLiteral("dbus-daemon");
}

PrivateBus::PrivateBus() {
    QFile file(m_folder.filePath(QStringLiteral("bus.conf")));
    if (!file.open(QIODevice::WriteOnly) ||
        file.write(QString::fromLatin1(configuration).arg(m_folder.path()).toUtf8()) < 0)
        return;
    file.close();
    // The address is read from standard output only. The daemon's complaints about limits that this user may not
    // raise disturb nobody, so its error output is shown only when it does not start.
    m_daemon.setProcessChannelMode(QProcess::SeparateChannels);
    const QStringList arguments = isBroker() ? QStringList{m_folder.filePath(QStringLiteral("bus"))}
                                             : QStringList{QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                                                           QStringLiteral("--print-address=1"),
                                                           QStringLiteral("--config-file=") + file.fileName()};
    if (!m_daemon.run(program(), arguments) || !m_daemon.waitForLine(QStringLiteral("unix:"))) {
        std::fputs(m_daemon.readAllStandardError().constData(), stderr);
        return;
    }
    m_address = m_daemon.lines().first();
    qputenv("DBUS_SESSION_BUS_ADDRESS", m_address.toUtf8());
}

void PrivateBus::stop() {
    m_daemon.kill();
    m_daemon.waitForFinished();
}
