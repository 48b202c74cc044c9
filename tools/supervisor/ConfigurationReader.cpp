// Values by path, each with the mistakes that its type allows.
#include "ConfigurationReader.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

constexpr double longestSeconds = 24 * 60 * 60;
constexpr int highestCount = 1000;

bool isWholeNumber(double number) {
    return number == static_cast<double>(static_cast<qint64>(number));
}

// JSON can also write zeros and halves of surrogate pairs. A program would be given another text.
bool canBePassed(const QString& text) {
    return text.isValidUtf16() && !text.contains(QChar(0));
}

const char notPassable[] = "has a character in it that cannot be given to a program";

} // namespace

ConfigurationReader::ConfigurationReader(const QString& fileName, const QByteArray& text) : m_fileName(fileName) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError) {
        add(JsonLines::lineAt(text, error.offset), error.errorString());
        return;
    }
    if (!document.isObject()) {
        add(1, "must be an object");
        return;
    }
    m_root = document.object();
    m_lines = JsonLines(text);
    for (const JsonLines::Repeated& key : m_lines.repeated())
        add(key.line, key.path + ": is given twice");
}

QStringList ConfigurationReader::mistakes() const {
    QStringList texts;
    for (const auto& [line, text] : m_mistakes)
        texts += text;
    return texts;
}

void ConfigurationReader::mistake(const QString& path, const QString& what) {
    add(m_lines.lineOf(path), path.isEmpty() ? what : path + ": " + what);
}

void ConfigurationReader::add(int line, const QString& text) {
    QString visible = text; // a zero would end all that is shown
    visible.replace(QChar(0), "\\u0000");
    m_mistakes.emplace(line, QString("%1:%2: %3").arg(m_fileName).arg(line).arg(visible));
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
            mistake(JsonLines::memberPath(path, key), "unknown key; known are " + keys.join(", "));
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
        const QString element = JsonLines::elementPath(path, index);
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
        const QString member = JsonLines::memberPath(path, variable.key());
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

void ConfigurationReader::readCount(const QString& path, const QJsonValue& value, int& result) {
    if (value.isUndefined())
        return;
    const double number = value.toDouble(-1);
    if (number < 0 || number > highestCount || !isWholeNumber(number))
        mistake(path, QString("must be a whole number between 0 and %1").arg(highestCount));
    else
        result = static_cast<int>(number);
}
