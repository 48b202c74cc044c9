// What a module tells about itself: the properties at /vel/info, and nothing else there.
#include "testing/BusTest.h"

#include <QDBusArgument>
#include <QDBusVariant>
#include <QDateTime>
#include <QTest>

class ModuleInfoTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void propertiesFollowTheModule() {
        ChildProcess module;
        module.setVariable("VEL_LOG_LEVEL", "4");
        QVERIFY(module.run(bustest::program("scripted-module"), {"--run=std", "--signals=stop"}));
        QVERIFY(module.waitForLine("hook run"));
        const QVariantMap info = all();
        QCOMPARE(info.keys(), (QStringList{"LastError", "LastErrorTime", "LogLevel", "PendingStatus", "State",
                                           "Subscriptions", "Version"}));
        QCOMPARE(info["State"], QVariant("RUN"));
        QCOMPARE(info["PendingStatus"], QVariant(4));
        QCOMPARE(info["LastError"], QVariant("cannot finish run() of module 'Scripted': it threw std::runtime_error "
                                             "'thrown what'; the module goes on and will end with RUN_ERROR [4]"));
        const qint64 age = QDateTime::currentMSecsSinceEpoch() - info["LastErrorTime"].toLongLong();
        QVERIFY(age >= 0 && age < 3'600'000);
        QCOMPARE(info["LogLevel"], QVariant(4));
        const QStringList events = info["Subscriptions"].toStringList();
        for (const char* event : {"log_level_changed", "mtrace_off", "mtrace_on", "presentationLoaded",
                                  "reset_data_default", "reset_data_factory", "stop_module_Scripted", "test_save"})
            QVERIFY2(events.contains(event), event);
        const auto stamp = qdbus_cast<QVariantMap>(info["Version"]);
        QCOMPARE(stamp.keys(), (QStringList{"VersionAppmode", "VersionBuild", "VersionDate", "VersionRange",
                                            "VersionRelease", "VersionSoft"}));
        module.terminate();
        QCOMPARE(module.waitForStatus(), 4);
    }

    void subscriptionsComeAndGo() {
        ChildProcess module;
        QVERIFY(module.run(bustest::program("scripted-module"), {"--signals=stop"}));
        QVERIFY(module.waitForLine("hook run"));
        const auto isSubscribed = [&] { return all()["Subscriptions"].toStringList().contains("topic"); };
        const auto say = [&](const char* method) { bustest::call(m_other, "Scripted", method); };
        QVERIFY(!isSubscribed());
        say("listen");
        say("listen"); // the same one
        QVERIFY(isSubscribed());
        say("listenNoMore");
        QVERIFY(!isSubscribed());
        say("listenShortly"); // with a receiver that is destroyed
        QVERIFY(!isSubscribed());
    }

    void nothingElseIsThere() {
        ChildProcess module;
        QVERIFY(module.run(bustest::program("scripted-module")));
        QVERIFY(module.waitForLine("hook run"));
        const QString info = described("/vel/info");
        const int begin = info.indexOf("<interface name=\"org.vel.module.ModuleInfo\">");
        QVERIFY2(begin >= 0, qPrintable(info));
        const QString own = info.mid(begin, info.indexOf("</interface>", begin) - begin);
        QCOMPARE(own.count("<property "), 7);
        QCOMPARE(own.count("access=\"read\""), 7);
        QVERIFY2(!own.contains("<method") && !own.contains("<signal"), qPrintable(own));
        QVERIFY(!described("/Scripted").contains("ModuleInfo"));
        const QDBusMessage one =
            ask("/vel/info", "org.freedesktop.DBus.Properties", "Get", {"org.vel.module.ModuleInfo", "PendingStatus"});
        QCOMPARE(one.arguments().value(0).value<QDBusVariant>().variant(), QVariant(1));
        const QDBusMessage refused =
            ask("/vel/info", "org.freedesktop.DBus.Properties", "Set",
                {"org.vel.module.ModuleInfo", "State", QVariant::fromValue(QDBusVariant("STOP"))});
        QCOMPARE(refused.type(), QDBusMessage::ErrorMessage);
    }

private:
    QDBusMessage ask(const QString& path, const QString& interface, const QString& method,
                     const QVariantList& arguments = {}) {
        QDBusMessage question =
            QDBusMessage::createMethodCall("org.vel.module.ScriptedService", path, interface, method);
        question.setArguments(arguments);
        return m_other.call(question);
    }

    QVariantMap all() {
        return qdbus_cast<QVariantMap>(
            ask("/vel/info", "org.freedesktop.DBus.Properties", "GetAll", {"org.vel.module.ModuleInfo"})
                .arguments()
                .value(0));
    }

    QString described(const QString& path) {
        return ask(path, "org.freedesktop.DBus.Introspectable", "Introspect").arguments().value(0).toString();
    }

    QDBusConnection m_other = bustest::connectAs("other");
};

VEL_TEST_MAIN(ModuleInfoTest)
#include "ModuleInfoTest.moc"
