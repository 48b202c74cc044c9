// The module's own object: calls to it are delivered inside of the call.
#pragma once

class QObject;
class QString;

namespace vel::bus {

/// Tells where the module's object is; null when it is no longer there.
void setOwnObject(QObject* object, const QString& path);

/// That object, when `path` is its path and this thread is its own; else null. A look at the connection's tree of
/// objects would say the same, and cost every call a thousand instructions.
QObject* ownObjectAt(const QString& path);

} // namespace vel::bus
