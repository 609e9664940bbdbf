#pragma once

#include "store/LaunchStore.h"

#include <QPointer>

// Taken before a wait, asked after it: does the result still belong to the store's current mode
// (or account context)? A start(), a demo switch or a newer account flow makes it stale.
class GenerationTicket {
public:
    // For the results of real work (discovery, release check, catalogue): they never apply while
    // demo mode is on, whenever it was switched on.
    static GenerationTicket forMode(const LaunchStore& store) {
        return GenerationTicket(store, store.m_modeGeneration, &LaunchStore::m_modeGeneration,
                                false);
    }
    // For account calls, which run in either mode but only apply in the mode they began in.
    static GenerationTicket forAccount(const LaunchStore& store) {
        return GenerationTicket(store, store.m_accountGeneration, &LaunchStore::m_accountGeneration,
                                store.m_demoEnabled);
    }

    bool stillApplies() const {
        return m_store && (m_store->*m_counter) == m_generation &&
               m_store->m_demoEnabled == m_demoEnabled;
    }

private:
    GenerationTicket(const LaunchStore& store, qint64 generation, qint64 LaunchStore::*counter,
                     bool demoEnabled)
        : m_store(&store)
        , m_generation(generation)
        , m_counter(counter)
        , m_demoEnabled(demoEnabled) {}

    QPointer<const LaunchStore> m_store;
    qint64 m_generation;
    qint64 LaunchStore::*m_counter;
    bool m_demoEnabled;
};
