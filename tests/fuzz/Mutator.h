// Inputs made of seeds, the same ones in every run: the point of the generator's default seed is that it never changes.
#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <random>
#include <vector>

namespace fuzz {

/// The content of each file of a folder, in the order of their names; none when there is no such folder.
inline std::vector<QByteArray> seedsIn(const QString& folderName) {
    std::vector<QByteArray> seeds;
    const QDir folder(folderName);
    for (const QString& name : folder.entryList(QDir::Files, QDir::Name)) {
        QFile file(folder.filePath(name));
        if (file.open(QIODevice::ReadOnly))
            seeds.push_back(file.readAll());
    }
    return seeds;
}

class Mutator {
public:
    /// `seeds`: at least one.
    explicit Mutator(std::vector<QByteArray> seeds) : m_seeds(std::move(seeds)) {}

    QByteArray next() {
        QByteArray input = anySeed();
        for (int changes = below(6); changes > 0; --changes)
            change(input);
        return input;
    }

    /// A number from 0 on, below `end`.
    int below(int end) { return static_cast<int>(m_random() % static_cast<unsigned>(end)); }

private:
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
    std::mt19937 m_random;
};

} // namespace fuzz
