// The one that all callers call: an ordinary module, which answers with what it was sent.
#include "support/Measure.h"

#include <VelApplication>
#include <VelModule>

#include <QDBusAbstractAdaptor>

class EchoModule : public VelModule {
public:
    EchoModule();

    bool run() override {
        measure::say("ready");
        return true;
    }
};

class EchoAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.vel.module.VelInterface")
public:
    explicit EchoAdaptor(EchoModule* module) : QDBusAbstractAdaptor(module) {}

public Q_SLOTS:
    QString text(const QString& said) { return said; }
    QVariantMap map(const QVariantMap& said) { return said; }
};

EchoModule::EchoModule() : VelModule("Echo") {
    new EchoAdaptor(this);
}

int main(int argc, char** argv) {
    VelApplication application(argc, argv);
    EchoModule echo;
    return application.exec();
}

#include "EchoModule.moc"
