#pragma once

#include <QRegularExpression>
#include <QSyntaxHighlighter>
#include <QTextCharFormat>

// Colours a SQL statement as it is typed: keywords, quoted strings (which may run over
// several lines) and bracketed names such as [Order Details], so that a missing quote or
// bracket shows before the statement is sent.
class SqlHighlighter final : public QSyntaxHighlighter
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SqlHighlighter)

public:
    explicit SqlHighlighter(QTextDocument* document);

protected:
    void highlightBlock(const QString& text) override;

private:
    enum State
    {
        Normal = 0,
        InString = 1,
        InBrackets = 2
    };
    QRegularExpression m_keywords;
    QTextCharFormat m_keywordFormat;
    QTextCharFormat m_stringFormat;
    QTextCharFormat m_nameFormat;
};
