#pragma once

#include "foundation/ContentPack.h"
#include "foundation/DomainEnums.h"
#include "foundation/InstalledApp.h"
#include "foundation/LaunchAccountSnapshot.h"

#include <QDateTime>
#include <QList>

// The fixed, illustrative data of demo mode. Pure functions of their arguments.
namespace DemoData {

// 2026-10-26T10:00:00Z: every last-checked and last-synced time of the demo.
QDateTime referenceDate();
QList<InstalledApp> applications(Launch::DemoScenario scenario);
const QList<ContentPack>& packs();
WebsiteAccount account();
LaunchAccountSnapshot snapshot(Launch::DemoScenario scenario);

} // namespace DemoData
