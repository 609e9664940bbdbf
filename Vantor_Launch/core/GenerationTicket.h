#pragma once

#include "core/LaunchStore.h"

#include <QPointer>

// Taken before a wait, asked after it: does the result still belong to the store's current mode
// (or account context)? A start(), a demo switch or a newer account flow makes it stale.
class GenerationTicket {
public:
    static GenerationTicket forMode(const LaunchStore& store) {
        return GenerationTicket(store, store.m_modeGeneration, &LaunchStore::m_modeGeneration);
    }
    static GenerationTicket forAccount(const LaunchStore& store) {
        return GenerationTicket(store, store.m_accountGeneration,
                                &LaunchStore::m_accountGeneration);
    }

    bool stillApplies() const {
        return m_store && (m_store->*m_counter) == m_generation &&
               m_store->m_demoEnabled == m_demoEnabled;
    }

private:
    GenerationTicket(const LaunchStore& store, qint64 generation, qint64 LaunchStore::*counter)
        : m_store(&store)
        , m_generation(generation)
        , m_counter(counter)
        , m_demoEnabled(store.m_demoEnabled) {}

    QPointer<const LaunchStore> m_store;
    qint64 m_generation;
    qint64 LaunchStore::*m_counter;
    bool m_demoEnabled;
};
