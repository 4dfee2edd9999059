#pragma once

#include <QString>
#include <QStringList>

#include <array>

// "Match by name" on the mapping step: source columns whose names, compared without case,
// blanks, '_', '-' and '.', are a usual spelling of a Group field.

// The name as compared: lower case, without blanks, '_', '-' and '.'.
QString NormalisedFieldName(const QString& name);

// mapping holds the source column chosen for each of the 21 host fields (kHostFields
// order), empty when unmapped. Fills unmapped fields from columns not mapped yet, never
// touching a field that has a column, and returns how many it filled. The full name is
// matched only while no name part is mapped, and the name parts only while it is not.
int MatchFieldsByName(const QStringList& columns, std::array<QString, 21>& mapping);
