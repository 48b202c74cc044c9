// Reading, showing and comparing what programs say of themselves. They may say anything: what is no description is refused
// with the place in it that is none.
#include "Description.h"

#include "ModuleNames.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace velctl {

namespace {

constexpr int deepest = 16; // structs in structs

QJsonArray arrayIn(const QJsonObject& object, const char* key, const QString& place) {
    const QJsonValue value = object.value(QLatin1String(key));
    if (!value.isUndefined() && !value.isArray())
        throw QString("'%1' of %2 is no list").arg(key, place);
    return value.toArray();
}

QStringList textsIn(const QJsonObject& object, const char* key, const QString& place) {
    QStringList texts;
    for (const QJsonValue& text : arrayIn(object, key, place)) {
        if (!text.isString())
            throw QString("'%1' of %2 is no list of texts").arg(key, place);
        texts << text.toString();
    }
    return texts;
}

QString textIn(const QJsonObject& object, const char* key, const QString& place) {
    const QString text = object.value(QLatin1String(key)).toString();
    if (text.isEmpty())
        throw QString("%1 has no '%2'").arg(place, key);
    return text;
}

DescribedFields fieldsIn(const QJsonObject& object, const QString& place, int depth) {
    if (depth > deepest)
        throw QString("it has more than %1 structs inside each other").arg(deepest);
    DescribedFields fields;
    for (const QJsonValue& value : arrayIn(object, "fields", place)) {
        const QJsonObject json = value.toObject();
        DescribedField field;
        field.name = textIn(json, "name", "a field of " + place);
        const QString where = QString("field '%1' of %2").arg(field.name, place);
        if (!isValidName(field.name))
            throw QString("%1 cannot have this name").arg(where);
        field.type = textIn(json, "type", where);
        field.isOptional = json.value("optional").toBool();
        field.keys = textsIn(json, "keys", where);
        field.fields = fieldsIn(json, where, depth + 1);
        fields << field;
    }
    return fields;
}

QVector<DescribedEvent> eventsIn(const QJsonObject& all, const char* list) {
    QVector<DescribedEvent> events;
    for (const QJsonValue& value : arrayIn(all, list, "it")) {
        const QJsonObject json = value.toObject();
        const QString name = textIn(json, "name", QString("an event that it %1").arg(list));
        if (!isValidName(name))
            throw QString("no event can be called '%1'").arg(name);
        const QString place = QString("the event '%1'").arg(name);
        events << DescribedEvent{name, fieldsIn(json, place, 1), json.value("problem").toString()};
    }
    return events;
}

// What is around the innermost type: "QList<" of QList<Lamp::Mode>.
QString containerOf(const QString& type) {
    QString container = type.left(std::max(type.lastIndexOf('<'), type.lastIndexOf(',')) + 1);
    return container.replace("QVector<", "QList<"); // the same on the bus
}

// Names of structs and enumerations are each program's own affair: their fields and keys are what is sent.
bool haveSameType(const DescribedField& one, const DescribedField& other) {
    const bool isNamed =
        (!one.keys.isEmpty() && !other.keys.isEmpty()) || (!one.fields.isEmpty() && !other.fields.isEmpty());
    const auto plain = [](QString type) { return type.replace("QVector<", "QList<"); };
    return isNamed ? containerOf(one.type) == containerOf(other.type) : plain(one.type) == plain(other.type);
}

} // namespace

bool DescribedField::operator==(const DescribedField& other) const {
    return name == other.name && type == other.type && isOptional == other.isOptional && keys == other.keys &&
           fields == other.fields;
}

Description readDescription(const QByteArray& json) {
    if (json.trimmed().isEmpty())
        throw QString("it prints nothing");
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (!document.isObject())
        throw error.error == QJsonParseError::NoError
            ? QString("what it prints is no JSON object")
            : QString("what it prints is no JSON object: %1 at byte %2").arg(error.errorString()).arg(error.offset);
    const QJsonObject all = document.object();
    Description description;
    description.program = textIn(all, "program", "what it prints");
    description.publishes = eventsIn(all, "publishes");
    description.hears = eventsIn(all, "hears");
    for (const QJsonValue& value : arrayIn(all, "calls", "it")) {
        const QJsonObject call = value.toObject();
        const QString name = textIn(call, "name", "a call");
        description.calls << DescribedCall{name, textsIn(call, "arguments", name), textsIn(call, "answers", name)};
    }
    description.namesAtRunTime = textsIn(all, "namesAtRunTime", "it");
    return description;
}

QString textOf(const DescribedFields& fields) {
    QStringList texts;
    for (const DescribedField& field : fields) {
        QString text = field.name + (field.isOptional ? " optional " : " ") + field.type;
        if (!field.keys.isEmpty())
            text += " (" + field.keys.join(" | ") + ')';
        if (!field.fields.isEmpty())
            text += " {" + textOf(field.fields) + '}';
        texts << text;
    }
    return texts.join(", ");
}

QStringList differences(const DescribedFields& published, const QString& publisher, const DescribedFields& heard,
                        const QString& subscriber) {
    QStringList found;
    for (const DescribedField& wanted : heard) {
        const auto sent = std::find_if(published.begin(), published.end(),
                                       [&](const DescribedField& one) { return one.name == wanted.name; });
        if (sent == published.end()) {
            if (!wanted.isOptional)
                found << QString("%1 wants the field '%2', which %3 does not publish")
                             .arg(subscriber, wanted.name, publisher);
            continue;
        }
        if (sent->isOptional && !wanted.isOptional)
            found << QString("%1 wants the field '%2', which %3 may leave out").arg(subscriber, wanted.name, publisher);
        if (!haveSameType(*sent, wanted))
            found << QString("field '%1' is %2 in %3 and %4 in %5")
                         .arg(wanted.name, sent->type, publisher, wanted.type, subscriber);
        for (const QString& key : sent->keys) {
            if (!wanted.keys.isEmpty() && !wanted.keys.contains(key))
                found << QString("field '%1' of %2 can be '%3', which %4 does not know")
                             .arg(wanted.name, publisher, key, subscriber);
        }
        for (QString inside : differences(sent->fields, publisher, wanted.fields, subscriber))
            found << QString("in '%1': ").arg(wanted.name) + inside;
    }
    return found;
}

} // namespace velctl
