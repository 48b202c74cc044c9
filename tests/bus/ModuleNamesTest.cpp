// Names that no module can have on the bus: nothing that is made from them may reach Qt D-Bus or libdbus unchecked.
#include "testing/BusTest.h"
#include "testing/EventListener.h"

#include "bus/VelDBusInterface.h"
#include "module/VelModule.h"

#include <QRegularExpression>
#include <QTest>

class ModuleNamesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nothingIsCalledUnderAnImpossibleName_data() { names(); }
    void nothingIsCalledUnderAnImpossibleName() {
        QFETCH(QString, name);
        const VelDBusInterface proxy(name, QDBusConnection::sessionBus(), nullptr);
        QVERIFY(!proxy.isValid());
        QVERIFY(!VelDBusInterface(proxy, nullptr).isValid());
        QVERIFY(!m_module.isModuleConnected(name));
        const QString method = "echo";
        const QString expected = QString("Invalid interface: is module '%1' started ?").arg(name);
        const auto thrownBy = [](const std::function<void()>& call) {
            try {
                call();
            } catch (const QString& text) {
                return text;
            }
            return QString();
        };
        QCOMPARE(thrownBy([&] { m_module.syncRemoteCall(name, method); }), expected);
        QCOMPARE(thrownBy([&] { m_module.asyncRemoteCall(name, method); }), expected);
        QCOMPARE(thrownBy([&] { m_module.remoteCallWithCallback(name, method, &m_module, SLOT(x()), SLOT(y())); }),
                 expected);
        QVERIFY(!m_module.unsubscribeEvent(name, "anything", &m_module, SLOT(resetToDefault())));
    }

    void wholeModuleLivesUnderAnImpossibleName_data() { names(); }
    void wholeModuleLivesUnderAnImpossibleName() {
        QFETCH(QString, name);
        if (name.contains(QChar(0)))
            QSKIP("a command line cannot carry a zero");
        ChildProcess module;
        module.setVariable("VEL_TEST_LOG", "1");
        QVERIFY(module.run(bustest::program("scripted-module"), {QString("--moduleName=") + name, "--run=exit"}));
        QCOMPARE(module.waitForStatus(), 1);
        QVERIFY(module.lines().contains("hook stop"));
        const QStringList told{
            QString("LOG error: cannot put module '%1' on the bus: its name must consist of letters, "
                    "digits and underscores, not beginning with a digit; it runs, but nobody can "
                    "call or stop it")
                .arg(name.size() > 200 ? name.left(200) + "..." : name)};
        if (!name.isEmpty()) // else it is called "Default"
            QCOMPARE(module.lines().filter(QRegularExpression("^(LOG error|QDBus)")), told);
    }

    void impossibleEventNamesAreRefused_data() {
        QTest::addColumn<QString>("event");
        QTest::addColumn<bool>("meansEveryEvent");
        for (const char* event : {"stop_module_\u00e9", "a-b", "a.b", "9x"})
            QTest::newRow(event) << QString::fromUtf8(event) << false;
        QTest::newRow("too long") << QString(256, 'a') << false;
        QTest::newRow("zero inside") << QString(QString("a") + QChar(0) + "b") << false;
        QTest::newRow("empty") << QString() << true;
    }

    void impossibleEventNamesAreRefused() {
        QFETCH(QString, event);
        QFETCH(bool, meansEveryEvent);
        EventListener listener;
        QVERIFY(!m_module.notifyEvent(event));
        QCOMPARE(m_module.subscribeEvent(event, &listener, SLOT(heard(VelEvent))), meansEveryEvent);
        QCOMPARE(m_module.unsubscribeEvent(event, &listener, SLOT(heard(VelEvent))), meansEveryEvent);

        // The connection still works: what was refused left nothing behind.
        QVERIFY(m_module.subscribeEvent("good", &listener, SLOT(heard(VelEvent))));
        QVERIFY(m_module.notifyEvent("good"));
        QVERIFY(listener.waitForEvents(1));
        QVERIFY(m_module.unsubscribeEvent("good", &listener, SLOT(heard(VelEvent))));
    }

    void impossibleMethodNamesThrow_data() {
        QTest::addColumn<QString>("method");
        for (const char* method : {"f%3", "", "a b", "\u00e9"})
            QTest::newRow(method) << QString::fromUtf8(method);
    }

    void impossibleMethodNamesThrow() {
        QFETCH(QString, method);
        ChildProcess scripted;
        QVERIFY(scripted.run(bustest::program("scripted-module")));
        QVERIFY(scripted.waitForLine("hook run"));

        const QString peer = "Scripted";
        QVERIFY_EXCEPTION_THROWN(m_module.syncRemoteCall(peer, method), QString);
        QVERIFY_EXCEPTION_THROWN(m_module.asyncRemoteCall(peer, method, {1}), QString);
        QVERIFY(
            !m_module.remoteCallWithCallback(peer, method, &m_module, SLOT(resetToDefault()), SLOT(resetToDefault())));
        const QDBusMessage reply = m_module.syncRemoteCall(peer, "echo", {"still here"});
        QCOMPARE(reply.arguments(), QVariantList{"still here"});
    }

    void impossibleInterfaceGivesAnInvalidProxy() {
        for (const char* interface : {"x", "a..b", "a.\u00e9"}) {
            const VelDBusInterface proxy("Display", QString::fromUtf8(interface), QDBusConnection::sessionBus(),
                                         nullptr);
            QVERIFY(!proxy.isValid());
        }
    }

    void proxyAddressesWhatTheModuleNameSays() {
        for (const char* name : {"Media", "media", "", "a_1"}) {
            QString path, service, interface;
            QVERIFY(m_module.getDBusServiceInfos(QLatin1String(name), path, service, interface));
            const VelDBusInterface proxy(QLatin1String(name), QDBusConnection::sessionBus(), nullptr);
            QCOMPARE(service, QString("org.vel.module.%1Service").arg(QLatin1String(name)));
            QCOMPARE(path, '/' + QLatin1String(name));
            QCOMPARE(interface, "org.vel.module.VelInterface");
            QCOMPARE(proxy.service(), service);
            QCOMPARE(proxy.path(), path);
            QCOMPARE(proxy.interface(), interface);
        }
        QObject first, second;
        VelDBusInterface target(&first);
        const VelDBusInterface other("Media", QDBusConnection::sessionBus(), &second);
        target = other;
        QCOMPARE(target.parent(), &second);
        QCOMPARE(target.service(), "org.vel.module.DefaultService");
        QCOMPARE(target.path(), "/Default");
    }

private:
    void names() {
        QTest::addColumn<QString>("name");
        for (const char* name : {"A-B", "A B", "a.b", "\u00e9", "9x", "", "a/b"})
            QTest::newRow(name) << QString::fromUtf8(name);
        QTest::newRow("too long") << QString(300, 'a');
        QTest::newRow("zero inside") << QString(QString("A") + QChar(0) + "B");
    }

    VelModule m_module{"Display"};
};

VEL_TEST_MAIN(ModuleNamesTest)
#include "ModuleNamesTest.moc"
