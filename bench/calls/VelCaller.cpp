// Calls as a module makes them.
//
//     name     syncRemoteCall(), which keeps the proxy
//     proxy    a VelDBusInterface that the module keeps itself
//     NUMBER   asyncRemoteCall(): so many calls are sent, then their answers are waited for
#include "calls/QtPayload.h"

#include <VelApplication>
#include <VelDBusInterface>
#include <VelModule>

#include <QTimer>
#include <QVector>

#include <memory>

namespace {

const QString echo = QStringLiteral("Echo");

} // namespace

class VelCaller : public VelModule {
public:
    VelCaller() : VelModule("Caller") {}

    bool run() override {
        QTimer::singleShot(0, this, [this] {
            measure::serveCalls([this](const std::string& way, bool isText) { return turn(way, isText); });
        });
        return true;
    }

private:
    measure::Turn turn(const std::string& way, bool isText);

    void callMany(int calls, bool isText, const QVariant& value) {
        QVector<QDBusPendingCall> pending;
        pending.reserve(calls);
        while (pending.size() < calls)
            pending.append(asyncRemoteCall(echo, method(isText), {value}));
        for (QDBusPendingCall& call : pending) {
            call.waitForFinished();
            checkReply(call.reply(), isText);
        }
    }
};

measure::Turn VelCaller::turn(const std::string& way, bool isText) {
    const QVariant value = payload(isText);
    if (way == "name")
        return {[=] { checkReply(syncRemoteCall(echo, method(isText), {value}), isText); }};
    if (way == "proxy") {
        const auto proxy = std::make_shared<VelDBusInterface>(echo, m_connection, nullptr);
        return {[=] { checkReply(proxy->call(method(isText), {value}), isText); }};
    }
    if (const int calls = QByteArray::fromStdString(way).toInt())
        return {[=] { callMany(calls, isText, value); }, calls};
    return {};
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    VelCaller caller;
    return application.exec();
}
