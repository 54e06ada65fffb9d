// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <cstdio>

// Everything vorn prints goes through here, so that the two formats stay
// consistent:
// - human (default): a headline "operation: CodeName (N)" and the payload as
//   indented JSON, notes as plain lines;
// - --json: exactly one JSON object on standard output per run, holding
//   "operation", "code", "codeName" and "result" (or "error" and
//   "exitStatus" when vorn itself refused), nothing else on standard output.
// Error messages always also go to standard error, in both formats.
class Output {
public:
    enum class Format { Human, Json };

    explicit Output(Format format = Format::Human, FILE* out = stdout, FILE* err = stderr);

    bool json() const { return m_format == Format::Json; }
    FILE* stream() const { return m_out; }

    // The answer of one helper call. extra entries are added to the JSON
    // object and printed as "key: value" lines in human form.
    void answer(const QString& operation, int code, const QVariant& payload, const QVariantMap& extra = {});

    // A failure found by vorn itself (no cloud, bad argument, ...). Returns
    // exitStatus, so commands can write `return out.fail(...)`.
    int fail(int exitStatus, const QString& message, const QVariantMap& extra = {});

    // A line for people; dropped in JSON form.
    void note(const QString& text);

    // A whole JSON object as the run's one document (JSON form only).
    void document(const QVariantMap& object);

    // Payload as JSON text; scalars and lists are written as they are.
    static QString toJsonText(const QVariant& value, bool indented);

private:
    void writeOut(const QString& text);

    Format m_format;
    FILE* m_out;
    FILE* m_err;
};
