#pragma once

#include "platform/DistributedNotifier.h"

// Posts a signal on the session bus that any application of the suite can listen for.
class LinuxDistributedNotifier : public DistributedNotifier {
public:
    static constexpr const char* objectPath = "/nz/co/halvex/Vantor";
    static constexpr const char* interfaceName = "nz.co.halvex.Vantor.Notifications";
    static constexpr const char* signalName = "Posted";

    void post(const QString& name) override;
};
