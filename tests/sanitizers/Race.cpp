// Two of Qt's threads add to one number: with the argument "guarded" one after the other, else as it happens. Under
// ThreadSanitizer the one must be silent and the other must be reported, or all other tests' silence means nothing.
#include <QMutex>
#include <QThread>

namespace {

QMutex mutex;
int number = 0;

class Adding : public QThread {
public:
    explicit Adding(bool isGuarded) : m_isGuarded(isGuarded) {}

private:
    void run() override {
        if (m_isGuarded)
            mutex.lock();
        ++number;
        if (m_isGuarded)
            mutex.unlock();
    }

    const bool m_isGuarded;
};

} // namespace

int main(int argc, char** argv) {
    const bool isGuarded = argc == 2 && qstrcmp(argv[1], "guarded") == 0;
    Adding one(isGuarded);
    Adding other(isGuarded);
    one.start();
    other.start();
    one.wait();
    other.wait();
    return 0;
}
