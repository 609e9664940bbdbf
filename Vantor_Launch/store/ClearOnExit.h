#pragma once

#include <QObject>
#include <QPointer>

// Clears a busy marker or running flag of the store or one of its flows on every way out of a
// flow: its normal end, an early return, an exception, or a stale ticket. Set the marker, then
// make one of these on the next line:
//     setIsSigningOut(true);
//     const ClearOnExit signingOut(*this, [](AccountFlows& flows) { flows.setIsSigningOut(false);
//     });
// Nothing is cleared when the owner itself is gone by then.
template <typename Owner, typename Clear>
class [[nodiscard]] ClearOnExit {
public:
    ClearOnExit(Owner& owner, Clear clear)
        : m_owner(&owner)
        , m_clear(std::move(clear)) {}
    ~ClearOnExit() {
        if (m_owner)
            m_clear(*m_owner);
    }
    ClearOnExit(const ClearOnExit&) = delete;
    ClearOnExit& operator=(const ClearOnExit&) = delete;

private:
    QPointer<Owner> m_owner;
    Clear m_clear;
};
