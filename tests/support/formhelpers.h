#pragma once

// Reaching a form's controls by object name, and answering the modal window it opens next.

#include <QApplication>
#include <QComboBox>
#include <QTest>
#include <QTimer>

#include <functional>

template <class T> T* control(const QWidget* form, const char* name)
{
    T* widget = form->findChild<T*>(QString::fromLatin1(name));
    if (!widget)
        qFatal("the form has no %s named %s", T::staticMetaObject.className(), name);
    return widget;
}

inline QStringList items(const QComboBox* combo)
{
    QStringList texts;
    for (int i = 0; i < combo->count(); ++i)
        texts << combo->itemText(i);
    return texts;
}

// Runs action on the modal window named objectName that the caller opens next.
inline void whenModal(const QString& objectName, std::function<void(QWidget*)> action)
{
    QTimer::singleShot(0, qApp, [=] {
        QWidget* modal = QApplication::activeModalWidget();
        if (modal && modal->objectName() == objectName)
            return action(modal);
        if (modal) // whatever else is open would keep the test waiting for ever
            modal->close();
        QTest::qFail(qPrintable(objectName + " did not open"), __FILE__, __LINE__);
    });
}

inline void verifyNothingOpen()
{
    for (QWidget* widget : QApplication::topLevelWidgets())
        QVERIFY2(!widget->isVisible(), qPrintable(widget->objectName() + " left open"));
}
