// Reads values of a JSON document by their path and collects what is wrong with them.
#pragma once

#include "configuration/JsonDocument.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QMap>
#include <QStringList>

#include <map>

/// Every function leaves its output as it was when the value is missing or wrong.
class ConfigurationReader {
public:
    ConfigurationReader(const QString& fileName, const QByteArray& text);

    const QJsonObject& root() const { return m_root; }

    /// What was found so far, each "FILE:LINE: KEY: what is wrong", from the first line to the last.
    QStringList mistakes() const;

    /// Notes that something is wrong with the key of that path.
    void mistake(const QString& path, const QString& what);

    /// Whether the value is an object that has no other keys than these and all of the required ones.
    [[nodiscard]] bool isObject(const QString& path, const QJsonValue& value, const QStringList& keys,
                                const QStringList& requiredKeys = {});

    void readText(const QString& path, const QJsonValue& value, QString& result);
    void readTexts(const QString& path, const QJsonValue& value, QStringList& result);
    void readVariables(const QString& path, const QJsonValue& value, QMap<QString, QString>& result);

    /// Seconds, with decimals, to milliseconds.
    void readSeconds(const QString& path, const QJsonValue& value, int& milliseconds);

    /// A whole number in that range.
    void readCount(const QString& path, const QJsonValue& value, int& result, int lowest = 0, int highest = 1000);

private:
    void add(int line, const QString& text);

    const QString m_fileName;
    std::multimap<int, QString> m_mistakes; // by line; those of one line stay in their order
    const JsonDocument m_document;
    const QJsonObject m_root;
};
