// Whether a test can run is decided by looking for what it needs, never by the kind of machine: on a board whose Qt was
// built with unwind tables nothing of this is skipped.
//
// Not listed, since they find it out by trying: the tests that debug another process, and those that preload a library.
#include "SkipList.h"

#include <QCoreApplication>

#include <cstring>
#include <link.h>

namespace {

// Looks at the library, not at the processor: the exception index table of 32-bit ARM, or the frame tables elsewhere.
int hasUnwindTables(dl_phdr_info* info, size_t, void* found) {
    if (!std::strstr(info->dlpi_name, "libQt" QT_STRINGIFY(QT_VERSION_MAJOR) "DBus"))
        return 0;
    for (int header = 0; header < info->dlpi_phnum; ++header) {
#ifdef PT_ARM_EXIDX
        constexpr ElfW(Word) unwindTables = sizeof(void*) == 4 ? PT_ARM_EXIDX : PT_GNU_EH_FRAME;
#else
        constexpr ElfW(Word) unwindTables = PT_GNU_EH_FRAME;
#endif
        // An index of one entry (8 bytes) is the linker's "cannot unwind".
        if (info->dlpi_phdr[header].p_type == unwindTables && info->dlpi_phdr[header].p_memsz > 8)
            *static_cast<bool*>(found) = true;
    }
    return 1;
}

bool exceptionsCrossQtDBus() {
    bool found = false;
    dl_iterate_phdr(hasUnwindTables, &found);
    return found;
}

struct Need {
    bool (*isMet)();
    const char* whatIsMissing;
};

const Need throwThroughQtDBus{exceptionsCrossQtDBus,
                              "QtDBus was built without unwind tables: no exception can cross it"};

struct Row {
    const char* test; // CLASS::FUNCTION, or CLASS::FUNCTION(ROW)
    const Need& need;
};

const Row list[] = {
    {"CallContextTest::callerIsToldAndContextIsBack", throwThroughQtDBus},
    {"CallContextTest::innerCallThrowsAndOuterStillAnswers", throwThroughQtDBus},
    {"CallContextTest::exceptionFromAnEventsSlotAnswersNobody", throwThroughQtDBus},
    {"CallContextTest::throwingSlotDoesNotDisturbTheOthers", throwThroughQtDBus},
    {"CallContextTest::callToItselfThrowsTextAndLeavesNoContext", throwThroughQtDBus},
    {"RemoteCallsTest::failureOfTheModulesOwnIsThrown", throwThroughQtDBus},
    {"ResetTest::throwingHookIsNotAnswered", throwThroughQtDBus},
    {"SaveRestoreTest::throwingPreSaveIsNeitherAnsweredNorStopped", throwThroughQtDBus},
    {"SupervisorSaveTest::moduleThatTakesNoPartIsNamed(failing preparation)", throwThroughQtDBus},
};

} // namespace

const char* whatIsMissing() {
    const QByteArray function = QCoreApplication::applicationName().toLocal8Bit() + "::" + QTest::currentTestFunction();
    const QByteArray row = function + '(' + QTest::currentDataTag() + ')';
    for (const Row& one : list) {
        if ((function == one.test || row == one.test) && !one.need.isMet())
            return one.need.whatIsMissing;
    }
    return nullptr;
}
