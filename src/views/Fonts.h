#pragma once

#include <QObject>
#include <QtQml/qqmlregistration.h>

// The desktop's fonts for the views.
class Fonts : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QString monospace READ monospace CONSTANT)
public:
    using QObject::QObject;
    QString monospace() const;
};
