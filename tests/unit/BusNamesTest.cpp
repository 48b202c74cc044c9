// The naming scheme: every module of a system must make the same names, and only possible ones.
#include "bus/BusNames.h"

#include <QTest>

using namespace vel::bus;

class BusNamesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void namesFollowFromTheModulesName_data();
    void namesFollowFromTheModulesName();
    void onlyPossibleNamesAreReachable_data();
    void onlyPossibleNamesAreReachable();
    void validatorsFollowTheBus_data();
    void validatorsFollowTheBus();
};

void BusNamesTest::namesFollowFromTheModulesName_data() {
    QTest::addColumn<QString>("module");
    QTest::addColumn<QString>("service");
    QTest::addColumn<QString>("path");
    const QString prefix = commonInterface().section(QLatin1Char('.'), 0, 2);
    for (const char* name : {"Tuner", "tuner", "", "%1", "a.b"})
        QTest::newRow(name) << QString::fromLatin1(name)
                            << QString(prefix + QLatin1Char('.') + QLatin1String(name) + QStringLiteral("Service"))
                            << QString(QLatin1Char('/') + QLatin1String(name));
}

void BusNamesTest::namesFollowFromTheModulesName() {
    QFETCH(QString, module);
    QFETCH(QString, path);
    QTEST(serviceName(module), "service");
    QCOMPARE(objectPath(module), path);
    QCOMPARE(moduleNameOfPath(path), module);
    QVERIFY(commonInterface().endsWith(QStringLiteral(".VelInterface")));
    QCOMPARE(commonInterface().count(QLatin1Char('.')), 3);
}

void BusNamesTest::onlyPossibleNamesAreReachable_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("reachable");
    for (const char* name : {"Tuner", "a_1", "_", "A1"})
        QTest::newRow(name) << QString::fromUtf8(name) << true;
    for (const char* name : {"A-B", "A B", "a.b", "a/b", "/", "é", "%1", "9x"})
        QTest::newRow(name) << QString::fromUtf8(name) << false;
    QTest::newRow("zero inside") << QString(QStringLiteral("A") + QChar(0) + QStringLiteral("B")) << false;
    // A bus name has at most 255 bytes; ours has "Service" and a dot around the module's.
    const int longest = 255 - serviceName(QString()).size();
    QTest::newRow("longest") << QString(longest, QLatin1Char('a')) << true;
    QTest::newRow("too long") << QString(longest + 1, QLatin1Char('a')) << false;
}

void BusNamesTest::onlyPossibleNamesAreReachable() {
    QFETCH(QString, name);
    QTEST(isReachable(name), "reachable");
}

void BusNamesTest::validatorsFollowTheBus_data() {
    QTest::addColumn<bool>("service");
    QTest::addColumn<bool>("path");
    QTest::addColumn<bool>("interface");
    QTest::addColumn<bool>("member");
    QTest::newRow("a.b") << true << false << true << false;
    QTest::newRow("a-b.c") << true << false << false << false;
    QTest::newRow(":1.5") << true << false << false << false;
    QTest::newRow("a.9") << false << false << false << false;
    QTest::newRow("tuned_2") << false << false << false << true;
    QTest::newRow("2tuned") << false << false << false << false;
    QTest::newRow("/") << false << true << false << false;
    QTest::newRow("/a/b_9") << false << true << false << false;
    QTest::newRow("/9") << false << true << false << false;
    QTest::newRow("/a/") << false << false << false << false;
    QTest::newRow("") << false << false << false << false;
}

void BusNamesTest::validatorsFollowTheBus() {
    const QString name = QString::fromLatin1(QTest::currentDataTag());
    QTEST(isValidServiceName(name), "service");
    QTEST(isValidObjectPath(name), "path");
    QTEST(isValidInterfaceName(name), "interface");
    QTEST(isValidMemberName(name), "member");
    // libdbus reads up to a zero; what follows it must not be overlooked.
    const QString zeroInside = name + QChar(0) + QStringLiteral("...");
    QVERIFY(!isValidServiceName(zeroInside) && !isValidObjectPath(zeroInside) && !isValidInterfaceName(zeroInside) &&
            !isValidMemberName(zeroInside));
}

QTEST_GUILESS_MAIN(BusNamesTest)
#include "BusNamesTest.moc"
