#pragma once

#include <QString>

// Picking a field in the advanced SQL dialog writes a reference to it into the statement at
// the caret: "Table.Field " or "[Order Details].[Unit Price]". The plain form carries one
// trailing blank and the bracketed form none, and a comma is put only after a bracketed
// reference; both are long-standing behaviour that users' habits rely on.

// The reference to fieldName of tableName (both trimmed; an empty table gives ".Field ").
QString FieldReference(const QString& tableName, const QString& fieldName);

// text with the reference inserted at caret (a position in text). Returns the new text and
// sets newCaret to the position just after the reference.
QString InsertFieldReference(const QString& text, int caret, const QString& reference,
                             int& newCaret);
