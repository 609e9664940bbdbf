#include "foundation/SemanticVersion.h"

#include <QTest>

using namespace Qt::StringLiterals;

class SemanticVersionTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void parsesOnlyWhatTheFormatAllows_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QList<qint64>>("numbers");
        QTest::addColumn<QStringList>("prerelease");

        QTest::newRow("plain") << u"2.4.1"_s << true << QList<qint64>{2, 4, 1} << QStringList{};
        QTest::newRow("prerelease")
            << u"3.0-beta.2"_s << true << QList<qint64>{3, 0} << QStringList{u"beta"_s, u"2"_s};
        QTest::newRow("dash inside prerelease")
            << u"1.0-rc-1"_s << true << QList<qint64>{1, 0} << QStringList{u"rc-1"_s};
        QTest::newRow("only dots after dash")
            << u"1.0-.."_s << true << QList<qint64>{1, 0} << QStringList{};
        QTest::newRow("plus sign") << u"1.+2"_s << true << QList<qint64>{1, 2} << QStringList{};
        QTest::newRow("largest") << u"9223372036854775807"_s << true
                                 << QList<qint64>{std::numeric_limits<qint64>::max()}
                                 << QStringList{};
        for (const QString& invalid : {u"1..2"_s, u"1.2a"_s, QString(), u"1.2.3+45"_s, u"v1.2"_s,
                                       u" 1.2"_s, u"9223372036854775808"_s, u"1.+"_s, u"-1.2"_s})
            QTest::addRow("invalid: \"%s\"", qPrintable(invalid))
                << invalid << false << QList<qint64>{} << QStringList{};
    }

    void parsesOnlyWhatTheFormatAllows() {
        QFETCH(QString, text);
        QFETCH(bool, valid);
        const auto version = SemanticVersion::parse(text);
        QCOMPARE(version.has_value(), valid);
        if (!version)
            return;
        QFETCH(QList<qint64>, numbers);
        QFETCH(QStringList, prerelease);
        QCOMPARE(version->numbers, numbers);
        QStringList identifiers;
        for (const auto& identifier : version->prerelease)
            identifiers.append(identifier.text);
        QCOMPARE(identifiers, prerelease);
    }

    void ordersVersions_data() {
        QTest::addColumn<QString>("smaller");
        QTest::addColumn<QString>("larger");
        QTest::newRow("extra position") << u"1.2"_s << u"1.2.0.1"_s;
        QTest::newRow("numeric, not textual") << u"1.9"_s << u"1.10"_s;
        QTest::newRow("prerelease before release") << u"1.0.0-alpha"_s << u"1.0.0"_s;
        QTest::newRow("shorter prerelease first") << u"1.0.0-alpha"_s << u"1.0.0-alpha.1"_s;
        QTest::newRow("number before word") << u"1.0.0-alpha.1"_s << u"1.0.0-alpha.beta"_s;
        QTest::newRow("numeric identifiers") << u"1.0.0-beta.2"_s << u"1.0.0-beta.11"_s;
        QTest::newRow("embedded digits by value") << u"1.0-build9"_s << u"1.0-build10"_s;
        QTest::newRow("words ignore case") << u"1.0-alpha"_s << u"1.0-Beta"_s;
        QTest::newRow("negative identifier is numeric") << u"1.0--3"_s << u"1.0-2"_s;
    }

    void ordersVersions() {
        QFETCH(QString, smaller);
        QFETCH(QString, larger);
        const auto a = SemanticVersion::parse(smaller);
        const auto b = SemanticVersion::parse(larger);
        QVERIFY(a && b);
        QVERIFY(*a < *b);
        QVERIFY(!(*b < *a));
        QVERIFY(*a != *b);
    }

    void treatsMissingPositionsAsZero() {
        QCOMPARE(*SemanticVersion::parse(u"1.2"_s), *SemanticVersion::parse(u"1.2.0"_s));
        QCOMPARE(*SemanticVersion::parse(u"1.2-beta"_s),
                 *SemanticVersion::parse(u"1.2.0.0-beta"_s));
    }

    void decidesWhetherAnUpdateIsAvailable_data() {
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("installedBuild");
        QTest::addColumn<QString>("available");
        QTest::addColumn<QString>("availableBuild");
        QTest::addColumn<int>("expected"); // 1 true, 0 false, -1 unknown

        const QString none = u"<none>"_s;
        QTest::newRow("newer version") << u"2.4.1"_s << none << u"2.5.0"_s << none << 1;
        QTest::newRow("older version") << u"2.5.0"_s << none << u"2.4.1"_s << u"1"_s << 0;
        QTest::newRow("newer build") << u"2.0"_s << u"120"_s << u"2.0"_s << u"121"_s << 1;
        QTest::newRow("same build") << u"2.0"_s << u"121"_s << u"2.0.0"_s << u"121"_s << 0;
        QTest::newRow("no available build") << u"2.0"_s << u"120"_s << u"2.0"_s << none << 0;
        QTest::newRow("no installed build") << u"2.0"_s << none << u"2.0"_s << u"121"_s << -1;
        QTest::newRow("empty installed build")
            << u"2.0"_s << QString() << u"2.0"_s << u"121"_s << -1;
        QTest::newRow("unparsable build")
            << u"2.5.0"_s << u"25a"_s << u"2.5.0"_s << u"2501"_s << -1;
        QTest::newRow("signed builds") << u"2.0"_s << u"-5"_s << u"2.0"_s << u"+3"_s << 1;
        QTest::newRow("word for version") << u"2.0"_s << none << u"latest"_s << none << -1;
        QTest::newRow("installed not a version") << u"beta"_s << none << u"2.0"_s << none << -1;
    }

    void decidesWhetherAnUpdateIsAvailable() {
        QFETCH(QString, installed);
        QFETCH(QString, installedBuild);
        QFETCH(QString, available);
        QFETCH(QString, availableBuild);
        QFETCH(int, expected);
        const auto optional = [](const QString& text) {
            return text == u"<none>"_s ? std::nullopt : std::optional<QString>(text);
        };
        const auto answer =
            isUpdate(installed, optional(installedBuild), available, optional(availableBuild));
        QCOMPARE(answer.has_value() ? int(*answer) : -1, expected);
    }
};

QTEST_GUILESS_MAIN(SemanticVersionTest)
#include "SemanticVersionTest.moc"
