#pragma once

#include "store/LaunchStore.h"

#include <QPointer>

// Clears a busy marker or running flag of the store on every way out of a flow: its normal end,
// an early return, an exception, or a stale ticket. Set the marker, then make one of these on
// the next line:
//     setIsSigningOut(true);
//     const ClearOnExit signingOut(*this, [](LaunchStore& store) { store.setIsSigningOut(false);
//     });
// Nothing is cleared when the store itself is gone by then.
template <typename Clear>
class [[nodiscard]] ClearOnExit {
public:
    ClearOnExit(LaunchStore& store, Clear clear)
        : m_store(&store)
        , m_clear(std::move(clear)) {}
    ~ClearOnExit() {
        if (m_store)
            m_clear(*m_store);
    }
    ClearOnExit(const ClearOnExit&) = delete;
    ClearOnExit& operator=(const ClearOnExit&) = delete;

private:
    QPointer<LaunchStore> m_store;
    Clear m_clear;
};
