// Qt 5 and Qt 6 look into containers in different ways: Qt 5 with an iterator that has the container, Qt 6 with functions
// that are given it.
#include "typed/ListAccess.h"

#include "platform/QtMetaTypes.h"

#include <QSequentialIterable>

namespace vel::typed {

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)

namespace {

QMetaSequence sequenceOf(int type, const void* list) {
    if (type == QMetaType::QString || type == QMetaType::QByteArray) // for Qt 6 these are lists of characters
        return QMetaSequence();
    QSequentialIterable iterable(QMetaSequence(), nullptr);
    const bool isList =
        list && QMetaType::convert(QMetaType(type), list, QMetaType::fromType<QSequentialIterable>(), &iterable);
    return isList ? iterable.metaContainer() : QMetaSequence();
}

} // namespace

int elementOfList(int type) {
    const QVariant list = metatypes::makeValue(type);
    const QMetaSequence sequence = sequenceOf(type, list.constData());
    return sequence.canAddValue() ? sequence.valueMetaType().id() : int(QMetaType::UnknownType);
}

bool forEachElement(int type, const void* list, const std::function<bool(const void* element)>& visit) {
    const QMetaSequence sequence = sequenceOf(type, list);
    QVariant element(sequence.valueMetaType());
    void* const value = element.metaType() == QMetaType::fromType<QVariant>() ? &element : element.data();
    void* const position = sequence.constBegin(list);
    void* const end = sequence.constEnd(list);
    bool goesOn = true;
    for (; goesOn && !sequence.compareConstIterator(position, end); sequence.advanceConstIterator(position, 1)) {
        sequence.valueAtConstIterator(position, value);
        goesOn = visit(value);
    }
    sequence.destroyConstIterator(position);
    sequence.destroyConstIterator(end);
    return goesOn;
}

void appendElement(int type, void* list, const void* element) {
    sequenceOf(type, list).addValue(list, element);
}

#else

namespace {

using QtMetaTypePrivate::QSequentialIterableImpl;

bool look(QSequentialIterableImpl& access, int type, const void* list) {
    const int accessType = qMetaTypeId<QSequentialIterableImpl>();
    return list && QMetaType::hasRegisteredConverterFunction(type, accessType) &&
           QMetaType::convert(list, type, &access, accessType);
}

} // namespace

int elementOfList(int type) {
    const QVariant list = metatypes::makeValue(type);
    QSequentialIterableImpl access;
    const bool isList = look(access, type, list.constData()) &&
                        (access.containerCapabilities() & QtMetaTypePrivate::ContainerIsAppendable);
    return isList ? int(access._metaType_id) : int(QMetaType::UnknownType);
}

bool forEachElement(int type, const void* list, const std::function<bool(const void* element)>& visit) {
    QSequentialIterableImpl position;
    look(position, type, list);
    position.moveToBegin();
    QSequentialIterableImpl end = position;
    end.moveToEnd();
    bool goesOn = true;
    for (; goesOn && !position.equal(end); position.advance(1))
        goesOn = visit(position.getCurrent().data);
    position.destroyIter();
    end.destroyIter();
    return goesOn;
}

void appendElement(int type, void* list, const void* element) {
    QSequentialIterableImpl access;
    look(access, type, list);
    access.append(element);
}

#endif

} // namespace vel::typed
