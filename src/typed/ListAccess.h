// What lies in a list of any type: QList, QVector, QSet, std::vector and whatever Qt's type system can look into.
#pragma once

#include <functional>

namespace vel::typed {

/// Result:   the type of the elements; QMetaType::UnknownType for what is no list, or a list that nothing can be put into.
int elementOfList(int type);

/// Visits the elements of a list in their order, until a visit answers false.
///
/// Result:   whether all were visited.
bool forEachElement(int type, const void* list, const std::function<bool(const void* element)>& visit);

/// Puts a copy of an element at the list's end.
void appendElement(int type, void* list, const void* element);

} // namespace vel::typed
