// Runs a fuzz target where there is no libFuzzer: each seed as it is, then as many mutations of them as asked for, the
// same ones in every run.
//
//     TARGET RUNS FOLDER-OF-SEEDS      before a run, the input is kept in TARGET.input, for when it ends the process
//     TARGET FILE...                   these inputs alone, once each
#include "Target.h"

#include <QDir>
#include <QFile>
#include <QStringList>

#include <algorithm>
#include <random>
#include <vector>

namespace {

QByteArray contentOf(const QString& fileName) {
    QFile file(fileName);
    fuzz::require(file.open(QIODevice::ReadOnly), "every named input can be read");
    return file.readAll();
}

class Mutator {
public:
    explicit Mutator(std::vector<QByteArray> seeds) : m_seeds(std::move(seeds)) {}

    QByteArray next() {
        QByteArray input = anySeed();
        for (int changes = 1 + below(8); changes > 0; --changes)
            change(input);
        return input;
    }

private:
    int below(int end) { return static_cast<int>(m_random() % static_cast<unsigned>(end)); }
    const QByteArray& anySeed() { return m_seeds[m_random() % m_seeds.size()]; }

    void change(QByteArray& input) {
        static const char telling[] = {'\0', '\1', '\x7f', '\x80', '\xff', '"', '[',
                                       '{',  '<',  '(',    'v',    ':',    '=', '\n'};
        const int at = below(input.size() + 1);
        const int length = 1 + below(16);
        switch (below(7)) {
        case 0:
            if (at < input.size())
                input[at] = static_cast<char>(input.at(at) ^ (1 << below(8)));
            break;
        case 1:
            if (at < input.size())
                input[at] = telling[below(sizeof telling)];
            break;
        case 2:
            input.insert(at, telling[below(sizeof telling)]);
            break;
        case 3:
            input.remove(at, length);
            break;
        case 4:
            input.insert(at, input.mid(below(input.size() + 1), length));
            break;
        case 5: // the beginning of one and the end of another
            input = input.left(at) + anySeed().mid(at);
            break;
        case 6:
            input.insert(at, anySeed().mid(at, length));
            break;
        }
    }

    const std::vector<QByteArray> m_seeds;
    std::mt19937 m_random; // the default seed: the point is that it never changes
};

void run(const QByteArray& input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.constData()),
                           static_cast<std::size_t>(input.size()));
}

// What a crash leaves behind is what was written last.
void keep(QFile& file, const QByteArray& input) {
    fuzz::require(file.resize(0) && file.seek(0) && file.write(input) == input.size() && file.flush(),
                  "the input can be kept");
}

} // namespace

int main(int argc, char** argv) {
    bool isCount = false;
    const int runs = argc == 3 ? QByteArray(argv[1]).toInt(&isCount) : 0;
    if (!isCount) {
        for (int argument = 1; argument < argc; ++argument)
            run(contentOf(QString::fromLocal8Bit(argv[argument])));
        return argc > 1 ? EXIT_SUCCESS : EXIT_FAILURE;
    }
    std::vector<QByteArray> seeds;
    const QDir folder(QString::fromLocal8Bit(argv[2]));
    for (const QString& name : folder.entryList(QDir::Files, QDir::Name))
        seeds.push_back(contentOf(folder.filePath(name)));
    fuzz::require(!seeds.empty(), "there is a seed");

    QFile last(QString::fromLocal8Bit(argv[0]) + ".input");
    fuzz::require(last.open(QIODevice::WriteOnly), "the input can be kept");
    const auto runKept = [&last](const QByteArray& input) {
        keep(last, input);
        run(input);
    };
    std::for_each(seeds.begin(), seeds.end(), runKept);
    Mutator mutator(std::move(seeds));
    for (int number = 0; number < runs; ++number)
        runKept(mutator.next());
    last.remove();
    std::printf("%d runs, each as it was to be\n", runs);
    return EXIT_SUCCESS;
}
