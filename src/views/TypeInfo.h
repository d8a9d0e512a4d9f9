#pragma once

#include <QObject>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

// The token types as the views see them, by raw value: order, symbol and label.
class TypeInfo : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QStringList allCases READ allCases CONSTANT)
public:
    using QObject::QObject;
    QStringList allCases() const;
    Q_INVOKABLE QString symbol(const QString& raw) const;
    Q_INVOKABLE QString label(const QString& raw) const;
};
