#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

// The version shown in the views.
class AppInfo : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QString versionNumber READ versionNumber CONSTANT)
    Q_PROPERTY(QString versionDate READ versionDate CONSTANT)
public:
    using QObject::QObject;
    QString versionNumber() const;
    QString versionDate() const;
};
