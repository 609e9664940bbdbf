#pragma once

#include <utility>

// Stores a property's new value and notifies only on a real change.
template <typename Owner, typename Value, typename Signal>
void assignProperty(Owner* owner, Value& field, Value value, Signal signal) {
    if (field == value)
        return;
    field = std::move(value);
    Q_EMIT(owner->*signal)();
}
