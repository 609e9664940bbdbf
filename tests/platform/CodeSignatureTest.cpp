#include "BundleBuilder.h"
#include "SigningFixture.h"
#include "platform/linux/BundleSeal.h"
#include "platform/linux/CmsCodeSignature.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <functional>

using namespace Qt::StringLiterals;

using BundleChange = std::function<void(const QDir& bundle)>;
Q_DECLARE_METATYPE(BundleChange)

namespace {

const QString identifier = u"nz.co.halvex.VantorDirector"_s;

} // namespace

// A bundle's signature holds only while every sealed file is as it was signed, and only when a
// trusted code-signing certificate made it.
class CodeSignatureTest : public QObject {
    Q_OBJECT

private:
    SigningFixture m_signing;
    QTemporaryDir m_folder;
    QUrl m_bundle;

    CmsCodeSignature trustingTestAuthority() const {
        return CmsCodeSignature({m_signing.authority.certificatePem()}, false);
    }

private Q_SLOTS:
    void init() {
        m_bundle = writeBundle(m_folder.path(), u"Vantor Director.app"_s,
                               {identifier, u"2.5.0"_s, u"2500"_s});
        const QDir contents(m_bundle.toLocalFile() + u"/Contents"_s);
        QVERIFY(contents.mkpath(u"Frameworks/Kit.framework/Versions/A"_s));
        writeFile(contents.filePath(u"Frameworks/Kit.framework/Versions/A/Kit"_s), "library");
        QVERIFY(
            QFile::link(u"A"_s, contents.filePath(u"Frameworks/Kit.framework/Versions/Current"_s)));
        writeFile(contents.filePath(u"Resources.dat"_s), QByteArray(3 << 20, 'r'));
    }

    void anyChangeAfterSigningInvalidates_data() {
        QTest::addColumn<BundleChange>("change");
        QTest::newRow("changed file") << BundleChange([](const QDir& bundle) {
            writeFile(bundle.filePath(u"Contents/Resources.dat"_s), QByteArray(3 << 20, 's'));
        });
        QTest::newRow("added file") << BundleChange([](const QDir& bundle) {
            writeFile(bundle.filePath(u"Contents/MacOS/extra"_s), "#!/bin/sh\n");
        });
        QTest::newRow("added file beside the signature") << BundleChange([](const QDir& bundle) {
            writeFile(bundle.filePath(u"Contents/_CodeSignature/notes"_s), "x");
        });
        QTest::newRow("missing file") << BundleChange([](const QDir& bundle) {
            QFile::remove(bundle.filePath(u"Contents/Frameworks/Kit.framework/Versions/A/Kit"_s));
        });
        QTest::newRow("executable bit taken away") << BundleChange([](const QDir& bundle) {
            QFile::setPermissions(bundle.filePath(u"Contents/MacOS/launcher-test-app"_s),
                                  QFile::ReadOwner | QFile::WriteOwner);
        });
        QTest::newRow("link pointed elsewhere") << BundleChange([](const QDir& bundle) {
            const QString link =
                bundle.filePath(u"Contents/Frameworks/Kit.framework/Versions/Current"_s);
            QFile::remove(link);
            QFile::link(u"/usr/lib"_s, link);
        });
        QTest::newRow("seal rewritten") << BundleChange([](const QDir& bundle) {
            auto seal = BundleSeal::ofBundle(bundle.path(), identifier);
            seal->items.erase("Contents/Resources.dat");
            writeFile(bundle.filePath(QLatin1String(BundleSeal::sealPath)), seal->serialize());
        });
        QTest::newRow("signature missing") << BundleChange([](const QDir& bundle) {
            QFile::remove(bundle.filePath(QLatin1String(BundleSeal::signaturePath)));
        });
        QTest::newRow("signature damaged") << BundleChange([](const QDir& bundle) {
            QFile file(bundle.filePath(QLatin1String(BundleSeal::signaturePath)));
            QVERIFY(file.open(QIODevice::ReadWrite));
            QByteArray bytes = file.readAll();
            bytes[bytes.size() / 2] = char(bytes[bytes.size() / 2] ^ 0x55);
            file.seek(0);
            file.write(bytes);
        });
    }

    void anyChangeAfterSigningInvalidates() {
        QFETCH(BundleChange, change);
        SigningFixture::sign(m_bundle, identifier, m_signing.developerA);
        change(QDir(m_bundle.toLocalFile()));
        QCOMPARE(trustingTestAuthority().signingIdentity(m_bundle.toLocalFile()), std::nullopt);
    }

    void identifiesOnlyTrustedSigners() {
        QCOMPARE(trustingTestAuthority().signingIdentity(m_bundle.toLocalFile()), std::nullopt);

        const TestCertificateAuthority stranger(u"Unknown Root"_s);
        SigningFixture::sign(
            m_bundle, identifier,
            stranger.issue({u"Developer"_s, SigningFixture::teamA, {}, false, true}));
        QCOMPARE(trustingTestAuthority().signingIdentity(m_bundle.toLocalFile()), std::nullopt);

        SigningFixture::sign(m_bundle, identifier, m_signing.developerA);
        QCOMPARE(trustingTestAuthority().signingIdentity(m_bundle.toLocalFile()),
                 (SigningIdentity{identifier, SigningFixture::teamA}));
        // The system's authorities alone do not know the test root; added to them, it counts.
        QCOMPARE(CmsCodeSignature().signingIdentity(m_bundle.toLocalFile()), std::nullopt);
        QVERIFY(CmsCodeSignature({m_signing.authority.certificatePem()})
                    .signingIdentity(m_bundle.toLocalFile()));

        SigningFixture::sign(m_bundle, u"nz.co.halvex.Other"_s, m_signing.developerB);
        QCOMPARE(trustingTestAuthority().signingIdentity(m_bundle.toLocalFile()),
                 (SigningIdentity{u"nz.co.halvex.Other"_s, SigningFixture::teamB}));
    }

    void sealsReadOnlyTheirOwnShape_data() {
        QTest::addColumn<QByteArray>("bytes");
        BundleSeal seal;
        seal.identifier = identifier;
        seal.items["Contents/Info.plist"] = {QByteArray(32, 'h'), false, std::nullopt};
        seal.items["Contents/MacOS/app"] = {QByteArray(32, 'e'), true, std::nullopt};
        seal.items["Contents/Current"] = {{}, false, QByteArray("A")};
        const QByteArray good = seal.serialize();
        QVERIFY(BundleSeal::parse(good) == seal);

        QByteArray shortHash = good;
        shortHash.replace(QByteArray(32, 'h').toBase64(), QByteArray(31, 'h').toBase64());
        QTest::newRow("short digest") << shortHash;
        QTest::newRow("binary form") << QByteArray("bplist00\xd1\x01\x02", 10);
        QTest::newRow("nested too deep")
            << QByteArray("<?xml version=\"1.0\"?><plist><dict><key>files</key><dict><key>a</key>"
                          "<dict><key>b</key><array><dict/></array></dict></dict></dict></plist>");
        QTest::newRow("not a property list") << QByteArray("<html></html>");
        QTest::newRow("empty") << QByteArray();
        QByteArray unknownKey = good;
        unknownKey.replace("<key>executable</key>", "<key>setuid</key>");
        QTest::newRow("unknown item key") << unknownKey;
        // libplist aborts the process on such a string unless it is refused first.
        QByteArray nul = good;
        nul.replace("nz.co.halvex", QByteArray("nz.co\0halvex", 12));
        QTest::newRow("NUL inside a string") << nul;
    }

    void sealsReadOnlyTheirOwnShape() {
        QFETCH(QByteArray, bytes);
        QCOMPARE(BundleSeal::parse(bytes), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(CodeSignatureTest)
#include "CodeSignatureTest.moc"
