#pragma once

#include <QTest>

// One row of a data-driven test on one line: DataRow("name", a, b, c) is
// QTest::newRow("name") << a << b << c (text literals become QString, as with <<).
template <typename... Values>
void DataRow(const char* name, const Values&... values)
{
    (QTest::newRow(name) << ... << values);
}
