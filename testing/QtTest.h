// Results for Qt Test.
#pragma once

#include "testing/Main.h"
#include "testing/Result.h"

#include <QTest>

/// Fails the test function and leaves it when the Result is a failure, and shows its message.
#define VEL_VERIFY(result)                                                                                             \
    do {                                                                                                               \
        const ::vel::testing::Result velResult = (result);                                                             \
        const QByteArray velText = '\n' + velResult.text();                                                            \
        if (!QTest::qVerify(velResult, #result, velText.constData(), __FILE__, __LINE__))                              \
            return;                                                                                                    \
    } while (false)

/// main() of a program of one test class, on a bus of its own.
#define VEL_TEST_MAIN(TestClass)                                                                                       \
    int main(int argc, char** argv) {                                                                                  \
        return ::vel::testing::runOnPrivateBus(argc, argv, [](int count, char** arguments) {                           \
            TestClass test;                                                                                            \
            return QTest::qExec(&test, count, arguments);                                                              \
        });                                                                                                            \
    }
