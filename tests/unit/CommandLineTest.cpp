// The module's command line.
#include "module/CommandLine.h"

#include <QTest>

using Options = QMap<QString, QString>;
Q_DECLARE_METATYPE(Options)

class CommandLineTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void argumentsBecomeOptions_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<Options>("expected");
        const QString name = "moduleName";
        const auto row = [](const char* title, const QStringList& arguments, const Options& expected) {
            QTest::newRow(title) << arguments << expected;
        };
        row("the program's name is no option", {}, {});
        row("two dashes", {"--moduleName=Tuner"}, {{name, "Tuner"}});
        row("one dash", {"-moduleName=Tuner"}, {{name, "Tuner"}});
        row("no dash", {"moduleName=Tuner"}, {{name, "Tuner"}});
        row("dashes inside", {"--module-Name--=Tuner"}, {{name, "Tuner"}});
        row("dashes in the value stay", {"--file=-a--b-"}, {{"file", "-a--b-"}});
        row("only the first = separates", {"--rule=a=b=c"}, {{"rule", "a=b=c"}});
        row("empty value", {"--rule="}, {{"rule", ""}});
        row("no value", {"--verbose", "file"}, {{"verbose", ""}, {"file", ""}});
        row("the last one counts", {"--a=1", "--b=2", "-a=3"}, {{"a", "3"}, {"b", "2"}});
        row("the last one counts without a value", {"--a=1", "--a"}, {{"a", ""}});
        row("nothing but dashes", {"--", "-"}, {{"", ""}});
        row("nothing before the =", {"--=x"}, {{"", "x"}});
        row("case counts", {"--modulename=x"}, {{"modulename", "x"}});
        row("text beyond ASCII", {"--größe=20 €"}, {{"größe", "20 €"}});
    }

    void argumentsBecomeOptions() {
        QFETCH(QStringList, arguments);
        QTEST(vel::readCommandLine(QStringList{"--program=x"} + arguments), "expected");
    }
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "CommandLineTest.moc"
