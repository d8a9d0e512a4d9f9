#pragma once

#include "platform/Clock.h"
#include "platform/Defaults.h"

#include <QObject>
#include <QStringList>
#include <QVariantList>

// The user's own categories for the preferences window: the applications seen in the last
// 30 days with the category each now gets, the rules made so far, and the writes behind a
// click. The rules follow every change of the stored value, made here or elsewhere.
class CategoriesModel : public QObject {
    Q_OBJECT
    // Each: bundleID, name, category (a display name, or a type and rate), ruled (bool).
    Q_PROPERTY(QVariantList applications READ applications NOTIFY changed)
    // Each: site (bool), match, target.
    Q_PROPERTY(QVariantList rules READ rules NOTIFY changed)
    Q_PROPERTY(QStringList categoryNames READ categoryNames CONSTANT)
    Q_PROPERTY(bool rulesUnreadable READ rulesUnreadable NOTIFY changed)

public:
    CategoriesModel(Defaults& defaults, const Clock& clock, QObject* parent = nullptr);

    QVariantList applications() const;
    QVariantList rules() const;
    QStringList categoryNames() const;
    bool rulesUnreadable() const;

    // Reads the stored days (when the window is shown; not at construction, which is part
    // of the app's start-up).
    Q_INVOKABLE void refresh();
    // Reassigns the application (its identifier as a prefix) to a category. False, writing
    // nothing, when the stored rules are unreadable or the category is unknown.
    Q_INVOKABLE bool assign(const QString& bundleID, const QString& categoryName);
    Q_INVOKABLE bool removeRule(bool site, const QString& match);
    // Removes a stored value that cannot be read, so new rules can be made.
    Q_INVOKABLE bool removeUnreadableRules();

signals:
    void changed();

private:
    struct Seen {
        QString bundleID;
        QString name;
    };

    Defaults& m_defaults;
    const Clock& m_clock;
    QList<Seen> m_seen;
    quint64 m_rulesRevision = 0;
};
