// Values by path, each with the mistakes that its type allows.
#include "configuration/ConfigurationReader.h"

#include "wire/Shown.h"

#include <QJsonArray>

namespace {

constexpr double longestSeconds = 24 * 60 * 60;

bool isWholeNumber(double number) {
    return number == static_cast<double>(static_cast<qint64>(number));
}

// JSON can also write zeros and halves of surrogate pairs. A program would be given another text.
bool canBePassed(const QString& text) {
    return text.isValidUtf16() && !text.contains(QChar(0));
}

const char notPassable[] = "has a character in it that cannot be given to a program";

} // namespace

ConfigurationReader::ConfigurationReader(const QString& fileName, const QByteArray& text)
    : m_fileName(fileName), m_document(text), m_root(m_document.root().toObject()) {
    for (const JsonDocument::Mistake& one : m_document.mistakes())
        add(one.line, one.text);
    if (!m_document.root().isUndefined() && !m_document.root().isObject())
        add(1, "must be an object");
}

QStringList ConfigurationReader::mistakes() const {
    QStringList texts;
    for (const auto& [line, text] : m_mistakes)
        texts += text;
    return texts;
}

void ConfigurationReader::mistake(const QString& path, const QString& what) {
    add(m_document.lineOf(path), path.isEmpty() ? what : path + ": " + what);
}

void ConfigurationReader::add(int line, const QString& text) {
    m_mistakes.emplace(line, shown(QString("%1:%2: %3").arg(m_fileName).arg(line).arg(text)));
}

bool ConfigurationReader::isObject(const QString& path, const QJsonValue& value, const QStringList& keys,
                                   const QStringList& requiredKeys) {
    if (!value.isObject()) {
        mistake(path, "must be an object");
        return false;
    }
    const QJsonObject object = value.toObject();
    for (const QString& key : object.keys()) {
        if (!keys.contains(key))
            mistake(JsonDocument::memberPath(path, key), "unknown key; known are " + keys.join(", "));
    }
    bool isComplete = true;
    for (const QString& key : requiredKeys) {
        if (!object.contains(key)) {
            mistake(path, QString("the key '%1' is missing").arg(key));
            isComplete = false;
        }
    }
    return isComplete;
}

void ConfigurationReader::readText(const QString& path, const QJsonValue& value, QString& result) {
    if (value.isUndefined())
        return;
    if (!value.isString())
        mistake(path, "must be a text");
    else if (value.toString().isEmpty())
        mistake(path, "must not be empty");
    else if (!canBePassed(value.toString()))
        mistake(path, notPassable);
    else
        result = value.toString();
}

void ConfigurationReader::readTexts(const QString& path, const QJsonValue& value, QStringList& result) {
    if (value.isUndefined())
        return;
    if (!value.isArray())
        return mistake(path, "must be an array of texts");
    const QJsonArray array = value.toArray();
    for (int index = 0; index < array.size(); ++index) {
        const QString element = JsonDocument::elementPath(path, index);
        if (!array.at(index).isString())
            mistake(element, "must be a text");
        else if (!canBePassed(array.at(index).toString()))
            mistake(element, notPassable);
        else
            result += array.at(index).toString();
    }
}

void ConfigurationReader::readVariables(const QString& path, const QJsonValue& value, QMap<QString, QString>& result) {
    if (value.isUndefined())
        return;
    if (!value.isObject())
        return mistake(path, "must be an object of texts");
    const QJsonObject object = value.toObject();
    for (auto variable = object.begin(); variable != object.end(); ++variable) {
        const QString member = JsonDocument::memberPath(path, variable.key());
        if (variable.key().isEmpty() || variable.key().contains('=') || !canBePassed(variable.key()))
            mistake(member, "is no name that a variable can have");
        else if (!variable.value().isString())
            mistake(member, "must be a text");
        else if (!canBePassed(variable.value().toString()))
            mistake(member, notPassable);
        else
            result.insert(variable.key(), variable.value().toString());
    }
}

void ConfigurationReader::readSeconds(const QString& path, const QJsonValue& value, int& milliseconds) {
    if (value.isUndefined())
        return;
    const double seconds = value.toDouble(-1);
    if (seconds < 0.001 || seconds > longestSeconds)
        mistake(path, QString("must be a number of seconds between 0.001 and %1").arg(longestSeconds));
    else
        milliseconds = static_cast<int>(seconds * 1000);
}

void ConfigurationReader::readCount(const QString& path, const QJsonValue& value, int& result, int lowest,
                                    int highest) {
    if (value.isUndefined())
        return;
    const double number = value.toDouble(-1);
    if (number < lowest || number > highest || !isWholeNumber(number))
        mistake(path, QString("must be a whole number between %1 and %2").arg(lowest).arg(highest));
    else
        result = static_cast<int>(number);
}
