#pragma once

#include <QString>
#include <QVariant>

#include <cstdio>

// The TYPE VALUE pair of `mindmeter defaults write KEY TYPE VALUE`, and the values the store
// would take but the program could not use.
class DefaultsValue {
public:
    DefaultsValue() = delete;

    // The value for TYPE (-int, -float, -bool, -string, -data-file) and its text; -data-file
    // reads the file named by the text, or `in` for "-". An invalid variant, with *error
    // saying why, when it is not acceptable.
    static QVariant parse(const QString& type, const QString& text, FILE* in, QString* error);

    // Why storing this value under this key would harm the program; empty when it would not.
    static QString rejectReason(const QString& key, const QVariant& value);
};
