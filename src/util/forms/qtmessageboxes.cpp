#include "qtmessageboxes.h"

#include "util/appglobals.h"

#include <QApplication>
#include <QMessageBox>

namespace {

QMessageBox::Icon qtIcon(MessageBoxes::Icon icon)
{
    switch (icon) {
    case MessageBoxes::Icon::Information:
        return QMessageBox::Information;
    case MessageBoxes::Icon::Exclamation:
        return QMessageBox::Warning;
    case MessageBoxes::Icon::Critical:
        return QMessageBox::Critical;
    case MessageBoxes::Icon::Question:
        return QMessageBox::Question;
    }
    return QMessageBox::NoIcon;
}

QWidget* boxParent()
{
    if (QWidget* modal = QApplication::activeModalWidget())
        return modal;
    return QApplication::activeWindow();
}

// The messages carry Windows line breaks; a label shows a lone CR as a stray glyph.
QString displayText(QString text)
{
    text.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    return text;
}

QString boxTitle(const QString& title)
{
    return title.isEmpty() ? AppTitle() : title;
}

} // namespace

void QtMessageBoxes::show(Icon icon, const QString& text, const QString& title)
{
    QMessageBox box(qtIcon(icon), boxTitle(title), displayText(text), QMessageBox::Ok, boxParent());
    box.setObjectName(QStringLiteral("messageBox"));
    box.setTextFormat(Qt::PlainText);
    box.exec();
}

bool QtMessageBoxes::ask(const QString& text, bool defaultYes, const QString& title)
{
    QMessageBox box(QMessageBox::Question, boxTitle(title), displayText(text),
                    QMessageBox::Yes | QMessageBox::No, boxParent());
    box.setObjectName(QStringLiteral("messageBox"));
    box.setTextFormat(Qt::PlainText);
    box.setDefaultButton(defaultYes ? QMessageBox::Yes : QMessageBox::No);
    box.setEscapeButton(QMessageBox::No);
    return box.exec() == QMessageBox::Yes;
}

void QtMessageBoxes::beep()
{
    QApplication::beep();
}
