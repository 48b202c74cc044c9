// What the commands that read recordings share.
#pragma once

#include "Commands.h"

#include "recording/Reader.h"

#include <functional>

namespace velctl {

/// Reads the recording that is the request's first argument, and calls `use` for each message; false ends that. Says what
/// of it could not be read. Throws a Failure when none of it can: "cannot VERB 'FILE': REASON".
void readRecording(const Request& request, const QString& verb,
                   const std::function<bool(const recording::Reader::Packet&)>& use);

/// The value of an option that is a positive number, with a unit or not; `otherwise` when it is not given. Throws a Failure
/// with Usage for anything else.
double numberOption(const Request& request, const char* name, double otherwise, bool isSize = false);

inline QString textOf(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

/// "4.2 ms", "31 s".
QString timeText(recording::Time nanoseconds);

/// "36.5 kB", "1.2 GB".
QString sizeText(std::uint64_t bytes);

} // namespace velctl
