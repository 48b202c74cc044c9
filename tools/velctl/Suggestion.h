// What somebody may have meant.
#pragma once

#include <QStringList>

namespace velctl {

/// "did you mean 'Tuner'", or else what there is: "there are Media, Tuner".
QString suggestion(const QString& written, const QStringList& known);

} // namespace velctl
