#pragma once

#include <QString>

// What stands between a statement the user saved or typed and a data source that must never
// change. Three layers, each enough on its own for some drivers and none for all:
//
// - CheckReadOnlyStatement: the text itself. One statement only, and no word that writes
//   or ends the transaction, read as each dialect the program talks to would read it
//   (backslash escapes, nested and executable comments, dollar quotes, "#" comments), so
//   that no quoting trick hides a second statement from one reading but not from another.
// - MakeSessionReadOnly (SourceConnection::open): the server's own read-only mode for the
//   connection and the transaction, where the server has one.
// - the transaction SourceConnection rolls back when it closes.

// False with a message when sql could do more than read: a second statement after ';', or
// a word that writes, creates, grants, runs a procedure or ends the transaction.
bool CheckReadOnlyStatement(const QString& sql, QString& message);
