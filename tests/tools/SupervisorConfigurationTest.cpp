// Every mistake in a configuration is named by file, line and key before anything is started.
#include "Configuration.h"
#include "testing/BuiltProgram.h"
#include "testing/ChildProcess.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <ctime>

namespace {

const int goodStatus = 0;
const int badStatus = 3;

// What a row needs around the module keys it is about, each on a line of its own; the keys begin in line 3.
QByteArray withModule(const QByteArray& keys) {
    return "{\n\"modules\": [{\n" + keys + "\n}]}\n";
}

QByteArray withGoodModule(const QByteArray& keys) {
    return withModule("\"name\": \"A\", \"command\": \"sh\",\n" + keys); // the keys begin in line 4
}

QByteArray withModules(const QByteArray& first, const QByteArray& second, const QByteArray& third = QByteArray()) {
    QByteArray text = "{ \"modules\": [\n";
    text += "{\"command\": \"sh\", " + first + "},\n{\"command\": \"sh\", " + second + "}";
    if (!third.isEmpty())
        text += ",\n{\"command\": \"sh\", " + third + "}";
    return text + "\n]}\n";
}

} // namespace

class SupervisorConfigurationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void mistakeIsNamedByLineAndKey_data();
    void mistakeIsNamedByLineAndKey();
    void allMistakesAreNamedFromTheFirstLineToTheLast();
    void goodConfigurationHasNoMistake();
    void checkTakesTimeInProportionToTheFile();
    void commandLineMistakeIsRefused_data();
    void commandLineMistakeIsRefused();
    void withoutABusNothingIsStarted();

private:
    /// The mistakes in a configuration of that text.
    QStringList mistakesIn(const QByteArray& text) const;

    QTemporaryDir m_folder;
};

QStringList SupervisorConfigurationTest::mistakesIn(const QByteArray& text) const {
    QFile file("c.json");
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size())
        return {"the test cannot write its file"};
    file.close();
    QStringList mistakes;
    Configuration::read(file.fileName(), mistakes);
    return mistakes;
}

void SupervisorConfigurationTest::initTestCase() {
    QDir::setCurrent(m_folder.path());
    QDir().mkpath("data/x");
}

void SupervisorConfigurationTest::mistakeIsNamedByLineAndKey_data() {
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("mistake");
    const auto row = [](const char* name, const QByteArray& text, const QString& mistake) {
        QTest::newRow(name) << text << "c.json:" + mistake;
    };
    row("no JSON", "{\n\n\"modules\": [}", "3: is no JSON: Invalid value.");
    row("zero byte", QByteArray("{\n\0}", 4), "2: is no JSON: there is a zero byte in it");
    row("deep nesting", QByteArray(100000, '['), "1: is nested deeper than 64 levels");
    row("byte-order mark and a key twice",
        "\xEF\xBB\xBF{\n\"modules\": [{\"name\": \"A\", \"command\": \"sh\"}],\n\"save\": {\"command\": "
        "\"sh\",\n\"command\": \"sh\"}}",
        "4: save.command: is given twice");
    row("terminal's commands", "{\"modules\": [{\"name\": \"A\", \"command\": \"sh\"}],\n\"\\u001b[2J\\n\": 1}",
        "2: \\u001b[2J\\n: unknown key; known are modules, save, restore, answerLimit, launch, launcher");
    row("no object", "[]", "1: must be an object");
    row("no modules", "{}", "1: the key 'modules' is missing");
    row("modules of another type", "{\n\"modules\": 5}", "2: modules: must be an array of at least one module");
    row("no module", "{\n\"modules\": []}", "2: modules: must be an array of at least one module");
    row("module of another type", "{\"modules\": [\n5]}", "2: modules[0]: must be an object");
    row("unknown key", withGoodModule("\"neme\": 1"),
        "4: modules[0].neme: unknown key; known are name, command, arguments, environment, waitsFor, startLimit, "
        "stopLimit, restart, alive, dataFolder, launch");
    row("start of another kind", withGoodModule("\"launch\": \"thread\""),
        "4: modules[0].launch: must be \"fork\" or \"exec\"");
    row("key twice", withGoodModule("\"startLimit\": 1,\n\"startLimit\": 2"),
        "5: modules[0].startLimit: is given twice");
    row("escaped key twice", withGoodModule("\"startLimit\": 1,\n\"st\\u0061rtLimit\": 2"),
        "5: modules[0].startLimit: is given twice");

    row("name missing", withModule("\"command\": \"sh\""), "2: modules[0]: the key 'name' is missing");
    row("name of another type", withModule("\"command\": \"sh\",\n\"name\": 5"), "4: modules[0].name: must be a text");
    row("empty name", withModule("\"name\": \"\", \"command\": \"sh\""), "3: modules[0].name: must not be empty");
    for (const char* name : {"A-B", "a.b", "9x", "é"})
        row(name, withModule(QByteArray("\"command\": \"sh\", \"name\": \"") + name + '"'),
            QString("3: modules[0].name: no module can be called '%1': only letters, digits and underscores, not "
                    "beginning with a digit, make a name on the bus")
                .arg(QString::fromUtf8(name)));
    row("long name", withModule("\"command\": \"sh\", \"name\": \"" + QByteArray(250, 'a') + '"'),
        "3: modules[0].name: is too long for a name on the bus");
    row("supervisor's name", withModule("\"command\": \"sh\", \"name\": \"ApplicationManager\""),
        "3: modules[0].name: is the name of the supervisor itself");
    row("name twice", withModules("\"name\": \"A\"", "\"name\": \"A\""),
        "3: modules[1].name: 'A' is the name of modules[0], too");

    row("command missing", withModule("\"name\": \"A\""), "2: modules[0]: the key 'command' is missing");
    row("no such program", withModule("\"name\": \"A\",\n\"command\": \"no-such-program\""),
        "4: modules[0].command: there is no program 'no-such-program'");
    row("program is a folder", withModule("\"name\": \"A\",\n\"command\": \"./\""),
        "4: modules[0].command: there is no program './'");
    row("arguments of another type", withGoodModule("\"arguments\": \"-x\""),
        "4: modules[0].arguments: must be an array of texts");
    row("argument of another type", withGoodModule("\"arguments\": [\"-x\",\n7]"),
        "5: modules[0].arguments[1]: must be a text");
    row("name among the arguments", withGoodModule("\"arguments\": [\"--moduleName=B\"]"),
        "4: modules[0].arguments[0]: the supervisor itself tells each module its name");
    row("environment of another type", withGoodModule("\"environment\": []"),
        "4: modules[0].environment: must be an object of texts");
    row("variable of another type", withGoodModule("\"environment\": {\n\"X\": 6}"),
        "5: modules[0].environment.X: must be a text");
    row("variable's name", withGoodModule("\"environment\": {\"X=Y\": \"\"}"),
        "4: modules[0].environment.X=Y: is no name that a variable can have");
    for (const char* limit : {"0", "-1", "100000", "\"5\"", "null"})
        row(limit, withGoodModule(QByteArray("\"stopLimit\": ") + limit),
            "4: modules[0].stopLimit: must be a number of seconds between 0.001 and 86400");

    row("limit of an answer", withGoodModule("\"alive\": {\"limit\": 0}"),
        "4: modules[0].alive.limit: must be a number of seconds between 0.001 and 86400");
    row("restart of another type", withGoodModule("\"restart\": true"), "4: modules[0].restart: must be an object");
    row("restart causes of another type", withGoodModule("\"restart\": {\"on\": 4}"),
        "4: modules[0].restart.on: must be an array");
    for (const char* cause : {"256", "-1", "1.5", "\"RUN\"", "\"[42]\"", "true"})
        row(cause, withGoodModule(QByteArray("\"restart\": {\"on\": [\"signal\",\n") + cause + "]}"),
            "5: modules[0].restart.on[1]: must be an exit status, as a number from 0 to 255 or by name, or \"signal\", "
            "\"slowStart\", \"failedStart\", \"unresponsive\"");
    row("attempts with decimals", withGoodModule("\"restart\": {\"attempts\": 1.5}"),
        "4: modules[0].restart.attempts: must be a whole number between 0 and 1000");
    row("delays the wrong way round", withGoodModule("\"restart\": {\"delay\": 5, \"longestDelay\": 2}"),
        "4: modules[0].restart: 'longestDelay' is shorter than 'delay'");

    row("waiting for a stranger", withGoodModule("\"waitsFor\": [\"B\"]"),
        "4: modules[0].waitsFor[0]: there is no module 'B'");
    row("waiting twice", withModules("\"name\": \"A\"", "\"name\": \"B\", \"waitsFor\": [\"A\",\n\"A\"]"),
        "4: modules[1].waitsFor[1]: 'A' is named twice");
    row("waiting for itself", withGoodModule("\"waitsFor\": [\"A\"]"),
        "4: modules[0].waitsFor: nobody could start first: A waits for A");
    row("cycle",
        withModules("\"name\": \"A\", \"waitsFor\": [\"B\"]", "\"name\": \"B\", \"waitsFor\": [\"C\"]",
                    "\"name\": \"C\", \"waitsFor\": [\"B\"]"),
        "3: modules[1].waitsFor: nobody could start first: B waits for C waits for B");

    row("no such folder", withGoodModule("\"dataFolder\": \"no/such\""),
        "4: modules[0].dataFolder: there is no folder '%1/no/such'");
    row("folder inside of the root",
        withModules("\"name\": \"A\", \"dataFolder\": \"/\"", "\"name\": \"B\", \"dataFolder\": \"data\""),
        "3: modules[1].dataFolder: '%1/data' belongs to modules[0]");
    row("root around a folder",
        withModules("\"name\": \"A\", \"dataFolder\": \"data\"", "\"name\": \"B\", \"dataFolder\": \"/\""),
        "3: modules[1].dataFolder: '/' has the folder of modules[0] in it");
    row("folder of another",
        withModules("\"name\": \"A\", \"dataFolder\": \"data\"", "\"name\": \"B\", \"dataFolder\": \"data/x\""),
        "3: modules[1].dataFolder: '%1/data/x' belongs to modules[0]");
    row("folder around another's",
        withModules("\"name\": \"A\", \"dataFolder\": \"data/x\"", "\"name\": \"B\", \"dataFolder\": \"./data\""),
        "3: modules[1].dataFolder: '%1/data' has the folder of modules[0] in it");
    row("save without command", "{\"modules\": [{\"name\": \"A\", \"command\": \"sh\"}],\n\"save\": {}}",
        "2: save: the key 'command' is missing");
    row("answer limit", "{\"modules\": [{\"name\": \"A\", \"command\": \"sh\"}],\n\"answerLimit\": true}",
        "2: answerLimit: must be a number of seconds between 0.001 and 86400");
}

void SupervisorConfigurationTest::mistakeIsNamedByLineAndKey() {
    QFETCH(QByteArray, text);
    QFETCH(QString, mistake);
    QCOMPARE(mistakesIn(text), QStringList{mistake.replace("%1", QDir::currentPath())}); // folders are named in full
}

void SupervisorConfigurationTest::allMistakesAreNamedFromTheFirstLineToTheLast() {
    const QString known = ": unknown key; known are modules, save, restore, answerLimit, launch, launcher";
    QCOMPARE(
        mistakesIn("{ \"x\": 1,\n\"modules\": [{ \"name\": 1,\n\"command\": 2,\n\"waitsFor\": [\"Z\"] }],\n\"y\": 1 }"),
        (QStringList{"c.json:1: x" + known, "c.json:2: modules[0].name: must be a text",
                     "c.json:3: modules[0].command: must be a text",
                     "c.json:4: modules[0].waitsFor[0]: there is no module 'Z'", "c.json:5: y" + known}));
}

void SupervisorConfigurationTest::goodConfigurationHasNoMistake() {
    const QByteArray text = R"({ "modules": [
        { "name": "A", "command": "sh", "arguments": [], "environment": { "X": "" }, "dataFolder": "data",
          "startLimit": 0.5, "stopLimit": 5, "alive": { "every": 1, "limit": 2, "dump": { "command": "sh" } },
          "restart": { "on": [0, 255, "RUN_ERROR", "signal", "slowStart", "failedStart", "unresponsive"],
                       "attempts": 0, "delay": 1, "longestDelay": 1, "steady": 0.001 } },
        { "name": "_b9", "command": "/bin/sh", "waitsFor": ["A"] } ],
        "answerLimit": 1, "save": { "command": "sh", "arguments": ["-c"], "limit": 1 }, "restore": { "command": "sh" } })";
    QCOMPARE(mistakesIn(text), QStringList());
    QCOMPARE(mistakesIn("\xEF\xBB\xBF" + text), QStringList()); // with a byte-order mark
}

// Twenty thousand modules are no configuration, but a file of that length can be given; its check must end.
void SupervisorConfigurationTest::checkTakesTimeInProportionToTheFile() {
    const auto secondsFor = [this](int count) {
        QByteArray text = "{\"modules\":[\n";
        for (int index = 0; index < count; ++index) {
            const QByteArray number = QByteArray::number(index);
            const QByteArray next = QByteArray::number((index + 1) % count);
            text += "{\"name\":\"M" + number + "\",\"command\":\"/bin/sh\",\"waitsFor\":[\"M" + next +
                    "\"],\"dataFolder\":\"data\"},\n";
        }
        text.chop(2);
        const std::clock_t start = std::clock();
        mistakesIn(text + "]}");
        return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    };
    const double one = secondsFor(3000);
    QVERIFY2(secondsFor(24000) < 24 * one, "eight times the modules take many times as long as that");
}

void SupervisorConfigurationTest::commandLineMistakeIsRefused_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("text");
    QTest::newRow("no file") << QStringList{} << badStatus
                             << "cannot read the command line: one configuration file is needed; nothing was started";
    QTest::newRow("unknown option") << QStringList{"--chek", "x"} << badStatus
                                    << "cannot read the command line: Unknown option 'chek'.; nothing was started";
    QTest::newRow("absent file") << QStringList{"absent.json"} << badStatus
                                 << "cannot read 'absent.json': No such file or directory; nothing was started";
    QTest::newRow("another name") << QStringList{"--moduleName=Other", "x"} << badStatus
                                  << "cannot run as 'Other': modules know their supervisor as 'ApplicationManager'; "
                                     "nothing was started";
    QTest::newRow("mistaken file") << QStringList{"--check", "mistaken.json"} << badStatus
                                   << "mistaken.json:1: must be an object";
    QTest::newRow("file without an end")
        << QStringList{"--check", "/dev/zero"} << badStatus
        << "cannot read '/dev/zero': it is longer than 16777216 bytes; nothing was started";
    QTest::newRow("help") << QStringList{"--help"} << goodStatus << "Usage: ";
    QTest::newRow("version") << QStringList{"--version"} << goodStatus << "vel-supervisor ";
}

void SupervisorConfigurationTest::commandLineMistakeIsRefused() {
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, text);
    QFile file("mistaken.json");
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[]");
    file.close();
    vel::testing::ChildProcess process;
    QVERIFY(process.run(builtProgram("vel-supervisor"), arguments));
    QCOMPARE(process.waitForStatus(), status);
    QVERIFY2(process.lines().value(0).startsWith(text), qPrintable(process.lines().value(0)));
}

void SupervisorConfigurationTest::withoutABusNothingIsStarted() {
    QFile file(QString("alone.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(withGoodModule("\"startLimit\": 60"));
    file.close();
    vel::testing::ChildProcess process; // ctest gives every test the address of a bus that is not there
    QVERIFY(process.run(builtProgram("vel-supervisor"), {file.fileName()}));
    QCOMPARE(process.waitForStatus(), badStatus);
    QVERIFY(process.lines().filter("cannot supervise: there is no session bus; nothing was started").size() == 1);
}

QTEST_GUILESS_MAIN(SupervisorConfigurationTest)

#include "SupervisorConfigurationTest.moc"
