#pragma once

#include <QString>

#include <exception>

// A run-time failure with a number and a description, the pair every routine that
// traps errors turns into its message ("<number> - <description>").
class AppError final : public std::exception
{
public:
    // Numbers the callers test for or show; chosen to match the host platform's own.
    enum Number : long {
        InvalidProcedureCall = 5,
        SubscriptOutOfRange = 9,
        FileNotFound = 53,
        PermissionDenied = 70,
        PathFileAccess = 75,
        PathNotFound = 76,
        DuplicateKey = 457,
        DataSource = 3000,
        GroupStore = 3100,
        Encoding = 3200,
    };

    AppError(long number, QString description)
        : m_number(number), m_description(std::move(description)),
          m_what(m_description.toUtf8())
    {
    }

    long number() const noexcept { return m_number; }
    const QString& description() const noexcept { return m_description; }
    const char* what() const noexcept override { return m_what.constData(); }

    // "<number> - <description>", the number trimmed as the messages show it.
    QString numberAndDescription() const
    {
        return QString::number(m_number) + QStringLiteral(" - ") + m_description;
    }

private:
    long m_number;
    QString m_description;
    QByteArray m_what;
};
