#include "LauncherInfo.h"

#include <QTest>

using namespace Qt::StringLiterals;

// What the shell itself shows: Help's version and build.
class PresentationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void helpSaysWhenTheBuildLeftAValueOut() {
        QCOMPARE(LauncherInfo::shownValue(u"2.4.1"_s), u"2.4.1"_s);
        QCOMPARE(LauncherInfo::shownValue(u" "_s), u"Not provided"_s);
        QVERIFY(!LauncherInfo().version().isEmpty());
    }
};

QTEST_GUILESS_MAIN(PresentationTest)
#include "PresentationTest.moc"
