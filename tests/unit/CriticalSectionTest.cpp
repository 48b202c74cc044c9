// The critical section: one thread at a time, and only the holder leaves it.
#include "doubles/RecordingLogger.h"
#include "module/VelModule.h"

#include <QTest>

#include <atomic>
#include <thread>

namespace {

const QString entering = "debug: Entering critical section";
const QString leaving = "debug: Leaving critical section";

class Module : public VelModule {
public:
    Module() : VelModule("Tuner") {}

    bool sectionIsFree() {
        if (!m_criticalSectionMutex.tryLock())
            return false;
        m_criticalSectionMutex.unlock();
        return true;
    }
};

} // namespace

class CriticalSectionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        setRecordedLevel(7);
        clearRecordedLines();
    }

    void secondThreadWaitsUntilTheFirstLeaves() {
        std::atomic<bool> firstHasLeft{false};
        bool secondCameAfterwards = false;
        m_module.beginCriticalSection();
        std::thread second([&] {
            m_module.beginCriticalSection();
            secondCameAfterwards = firstHasLeft;
            m_module.endCriticalSection();
        });
        // Its line is written before it waits, so it is at the door now.
        const bool secondIsAtTheDoor = QTest::qWaitFor([] { return recordedLines().count(entering) == 2; });
        firstHasLeft = true;
        m_module.endCriticalSection();
        second.join();
        QVERIFY(secondIsAtTheDoor);
        QVERIFY(secondCameAfterwards);
        QCOMPARE(recordedLines(), (QStringList{entering, entering, leaving, leaving}));
        QVERIFY(m_module.sectionIsFree());
    }

    void onlyTheHolderLeaves() {
        m_module.endCriticalSection(); // nobody is inside
        m_module.beginCriticalSection();
        std::thread([&] { m_module.endCriticalSection(); }).join();
        const bool stillHeld = !m_module.sectionIsFree();
        m_module.endCriticalSection();
        m_module.endCriticalSection();
        QVERIFY(stillHeld);
        QVERIFY(m_module.sectionIsFree());
        QCOMPARE(recordedLines(), (QStringList{entering, leaving}));

        // Its line is about the log level, its effect is not.
        setRecordedLevel(6);
        m_module.beginCriticalSection();
        QVERIFY(!m_module.sectionIsFree());
        m_module.endCriticalSection();
        QVERIFY(m_module.sectionIsFree());
        QCOMPARE(recordedLines().size(), 2);
    }

private:
    Module m_module;
};

QTEST_GUILESS_MAIN(CriticalSectionTest)
#include "CriticalSectionTest.moc"
