#pragma once

#include "CategoryRules.h"

#include "platform/Defaults.h"

// The stored rules, decoded again only when the stored value has changed (written here or
// by another process), so a reader may ask at every tick.
class CategoryRulesCache {
public:
    explicit CategoryRulesCache(const Defaults& defaults)
        : m_defaults(defaults) {}

    const CategoryRules& current() {
        const quint64 stamp = m_defaults.changeStamp();
        if (m_loaded && stamp == m_stamp)
            return m_rules; // nothing at all was written since
        m_stamp = stamp;
        const quint64 revision = m_defaults.revision(CategoryRules::key);
        if (!m_loaded || revision != m_revision) {
            m_rules = CategoryRules::read(m_defaults);
            m_revision = revision;
            m_loaded = true;
        }
        return m_rules;
    }
    // The revision of the value current() last decoded.
    quint64 revision() const { return m_revision; }

private:
    const Defaults& m_defaults;
    CategoryRules m_rules;
    quint64 m_revision = 0;
    quint64 m_stamp = 0;
    bool m_loaded = false;
};
