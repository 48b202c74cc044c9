// A module for velctl to work on: it answers with values of many types, refuses, blocks and vanishes as it is told.
#include <Vel>

#include <QDBusAbstractAdaptor>

#include <iostream>
#include <string>
#include <unistd.h>

namespace {

// Until the test writes a line: as long as it likes, and not a moment longer.
void blockEventLoop(const VelModule& module) {
    if (module.property("tells").toBool())
        std::cout << "blocking" << std::endl;
    std::string line;
    std::getline(std::cin, line);
}

} // namespace

class ToolPeer : public VelModule {
    Q_OBJECT
public:
    ToolPeer();

    bool init() override { return subscribeEvent("test_save", this, SLOT(stopForSaveRestore(VelEvent))); }

    bool stop() override {
        follow("stop");
        return true;
    }

    bool restoreDataToDefault() override {
        follow("reset");
        return false;
    }

private:
    // What the option of that name says: --reset=throw, --stop=hang.
    void follow(const char* hook) {
        const QString order = getParameters().value(hook);
        if (order == "throw")
            throw QString("told to");
        if (order == "hang")
            blockEventLoop(*this);
    }
};

class ToolPeerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit ToolPeerAdaptor(ToolPeer* peer) : QDBusAbstractAdaptor(peer), m_peer(*peer) {}

public Q_SLOTS:
    int add(int one, int other) { return one + other; }
    QString add(const QString& one, const QString& other) { return one + other; }
    qlonglong twice(qlonglong number) { return 2 * number; }
    double half(double number) { return number / 2; }
    bool negated(bool truth) { return !truth; }
    QString joined(const QStringList& texts) { return texts.join('+'); }
    QStringList split(const QString& text) { return text.split('+'); }
    QVariantMap sameMap(const QVariantMap& map) { return map; }
    QVariantList sameList(const QVariantList& list) { return list; }
    void nothing() {}
    int logLevel() { return moduleLogLevel; }

    QString refuse(const QString& text) {
        velGuarded([&] { throw new VelException(&m_peer, VelException::AccessDenied, text); });
        return QString();
    }

    void block() { blockEventLoop(m_peer); }
    void vanish() { _exit(0); }

private:
    ToolPeer& m_peer;
};

ToolPeer::ToolPeer() : VelModule("Peer") {
    new ToolPeerAdaptor(this);
    setProperty("tells", getParameters().contains("tells"));
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    ToolPeer peer;
    return application.exec();
}

#include "ToolPeer.moc"
