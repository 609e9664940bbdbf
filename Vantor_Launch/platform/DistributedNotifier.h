#pragma once

#include <QString>

// Tells other applications of the user's session that something happened.
class DistributedNotifier {
public:
    virtual ~DistributedNotifier() = default;
    virtual void post(const QString& name) = 0;
};
