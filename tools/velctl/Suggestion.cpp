// What somebody may have meant.
#include "Suggestion.h"

#include <QVector>

#include <algorithm>
#include <numeric>

namespace velctl {

namespace {

// How many letters have to be changed, put in or taken out.
int distance(const QString& one, const QString& other) {
    QVector<int> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (int i = 0; i < one.size(); ++i) {
        int diagonal = row[0];
        row[0] = i + 1;
        for (int j = 0; j < other.size(); ++j) {
            const int replaced = diagonal + (one.at(i).toLower() == other.at(j).toLower() ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, diagonal + 1, row[j] + 1});
        }
    }
    return row.last();
}

} // namespace

QString suggestion(const QString& written, const QStringList& known) {
    if (known.isEmpty())
        return "there is none at all";
    const QString nearest =
        *std::min_element(known.begin(), known.end(), [&](const QString& one, const QString& other) {
            return distance(written, one) < distance(written, other);
        });
    if (distance(written, nearest) <= 1 + written.size() / 4)
        return QString("did you mean '%1'").arg(nearest);
    return "there are " + known.join(", ");
}

} // namespace velctl
