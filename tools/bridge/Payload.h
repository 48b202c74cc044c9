// What stands in the messages between machines: the JSON of wire/Json.h, made for clients that know nothing of D-Bus.
//
//     event     as `velctl watch --json` writes it, and `velctl publish --json` takes it
//     call      {"body":[{"type":"s","value":"x"},...]}; "interface" when it is not the modules' common one, "path" when it
//               is not the module's own
//     answer    {"body":[...]}, or {"body":[...],"error":NAME}
//
// Thread: any. Errors: what comes from another machine and cannot be a message of the bus ends in a wire::Error.
#pragma once

#include "wire/Message.h"

const char eventContentType[] = "application/vnd.vel.event+json";
const char callContentType[] = "application/vnd.vel.call+json";
const char answerContentType[] = "application/vnd.vel.answer+json";

/// Why a message cannot leave the machine; empty when it can.
QString whyNotToSend(DBusMessage* message);

QByteArray eventPayload(DBusMessage* event);

/// The event of a payload, from the path of that module. The payload may name both, but not others.
wire::Message eventIn(const QByteArray& payload, const QString& module, const QString& name);

/// `module` is whose service was called.
QByteArray callPayload(DBusMessage* call, const QString& module);

/// The call for the module's service on this machine.
wire::Message callIn(const QByteArray& payload, const QString& module, const QString& method);

QByteArray answerPayload(DBusMessage* answer);
QByteArray errorPayload(const QByteArray& name, const QString& text);

/// The answer to `call`.
wire::Message answerIn(const QByteArray& payload, DBusMessage* call);
