#include "LauncherInfo.h"

#include "foundation/BuildSettings.h"

using namespace Qt::StringLiterals;

QString LauncherInfo::shownValue(const QString& value) {
    return value.trimmed().isEmpty() ? u"Not provided"_s : value;
}

QString LauncherInfo::version() const {
    return shownValue(QStringLiteral(LAUNCHER_VERSION));
}

QString LauncherInfo::build() const {
    return shownValue(QStringLiteral(LAUNCHER_BUILD));
}
