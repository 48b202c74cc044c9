// The guarded log line: what each level lets through, and that a line held back costs nothing.
#include "log/GuardedLog.h"
#include "doubles/RecordingLogger.h"

#include <QTest>

class GuardedLogTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void levelDecidesWhichLinesAreBuiltAndWritten_data() {
        QTest::addColumn<int>("level");
        QTest::addColumn<int>("lines");
        const int linesByLevel[] = {0, 0, 0, 1, 2, 2, 3, 4, 4};
        for (int level = 0; level <= 8; ++level)
            QTest::addRow("%d", level) << level << linesByLevel[level];
    }

    void levelDecidesWhichLinesAreBuiltAndWritten() {
        QFETCH(int, level);
        QFETCH(int, lines);
        clearRecordedLines();
        setRecordedLevel(level);
        QStringList built;
        const auto line = [&built](const char* severity) {
            return [&built, severity] {
                built << severity;
                return built.last();
            };
        };
        vel::logError(line("error"));
        vel::logWarning(line("warning"));
        vel::logInfo(line("info"));
        vel::logDebug(line("debug"));

        const QStringList all{"error", "warning", "info", "debug"};
        QCOMPARE(built, all.mid(0, lines));
        QStringList expected;
        for (const QString& severity : built)
            expected << severity + ": " + severity;
        QCOMPARE(recordedLines(), expected);
    }
};

QTEST_GUILESS_MAIN(GuardedLogTest)
#include "GuardedLogTest.moc"
