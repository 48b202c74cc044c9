// Runs a fuzz target where there is no libFuzzer: each seed as it is, then as many mutations of them as asked for, the
// same ones in every run.
//
//     TARGET RUNS FOLDER-OF-SEEDS      before a run, the input is kept in TARGET.input, for when it ends the process
//     TARGET FILE...                   these inputs alone, once each
#include "Mutator.h"
#include "Target.h"

#include <QFile>
#include <QStringList>

#include <algorithm>
#include <vector>

namespace {

QByteArray contentOf(const QString& fileName) {
    QFile file(fileName);
    fuzz::require(file.open(QIODevice::ReadOnly), "every named input can be read");
    return file.readAll();
}

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
    std::vector<QByteArray> seeds = fuzz::seedsIn(QString::fromLocal8Bit(argv[2]));
    fuzz::require(!seeds.empty(), "there is a seed");

    QFile last(QString::fromLocal8Bit(argv[0]) + ".input");
    fuzz::require(last.open(QIODevice::WriteOnly), "the input can be kept");
    const auto runKept = [&last](const QByteArray& input) {
        keep(last, input);
        run(input);
    };
    std::for_each(seeds.begin(), seeds.end(), runKept);
    fuzz::Mutator mutator(std::move(seeds));
    for (int number = 0; number < runs; ++number)
        runKept(mutator.next());
    last.remove();
    std::printf("%d runs, each as it was to be\n", runs);
    return EXIT_SUCCESS;
}
