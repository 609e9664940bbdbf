// sample-website: the Vantor website on 127.0.0.1 for running the launcher against real endpoints
// on one machine. Writes the certificate authority of this run and the launcher's configuration
// file into the state folder, prints where they are, and serves until interrupted.

#include "SampleWebsite.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>
#include <cstdio>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

void writeFile(const QString& path, const QByteArray& content) {
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.commit())
        throw std::runtime_error("cannot write " + path.toStdString());
}

int readNumber(const QCommandLineParser& parser, const QCommandLineOption& option) {
    bool isNumber = false;
    const int value = parser.value(option).toInt(&isNumber);
    if (!isNumber || value < 0)
        throw std::runtime_error("--" + option.names().constFirst().toStdString() +
                                 " takes a number");
    return value;
}

// The sample team signs the sample Director; the launcher of the sample run trusts the root.
void issueSigningIdentity(const QString& folder) {
    if (!QDir().mkpath(folder))
        throw std::runtime_error("cannot create " + folder.toStdString());
    const TestCertificateAuthority root(u"Vantor Sample Developer Root"_s);
    const auto team = root.issue({u"Developer ID Application: Vantor Sample Team (SAMPLE0001)"_s,
                                  u"SAMPLE0001"_s,
                                  {},
                                  false,
                                  true});
    const QDir target(folder);
    writeFile(target.filePath(u"developer-root.pem"_s), root.certificatePem());
    writeFile(target.filePath(u"team.pem"_s), team.certificatePem());
    writeFile(target.filePath(u"team-key.pem"_s), team.keyPem());
}

} // namespace

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(u"sample-website"_s);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"The Vantor website on 127.0.0.1, for the launcher's "
                                     u"sample run. Fault switches take PATH=VALUE; PATH \"*\" "
                                     u"means every path."_s);
    parser.addHelpOption();
    const QCommandLineOption port(u"port"_s, u"Port on 127.0.0.1 (0: any free port)."_s, u"port"_s,
                                  u"8443"_s);
    const QCommandLineOption data(u"data"_s, u"Sample data folder."_s, u"folder"_s,
                                  QStringLiteral(LAUNCHER_SAMPLE_WEBSITE_DATA));
    const QCommandLineOption updates(
        u"updates"_s, u"Folder of the update archives (default: the data folder's updates)."_s,
        u"folder"_s);
    const QCommandLineOption state(
        u"state"_s, u"Folder for the CA certificate and the launcher configuration."_s, u"folder"_s,
        QDir::temp().filePath(u"vantor-sample-website"_s));
    const QCommandLineOption tokenLifetime(u"token-lifetime"_s, u"Seconds an access token lasts."_s,
                                           u"seconds"_s, u"3600"_s);
    const QCommandLineOption approve(u"approve-automatically"_s,
                                     u"The sign-in page approves at once."_s);
    const QCommandLineOption fail(u"fail"_s, u"Answer PATH with this HTTP status."_s,
                                  u"path=status"_s);
    const QCommandLineOption delay(u"delay"_s, u"Answer PATH after this many milliseconds."_s,
                                   u"path=ms"_s);
    const QCommandLineOption drop(
        u"drop-after"_s,
        u"Drop every connection of PATH at this byte of the file, so that a resumed download "
        u"gets no further."_s,
        u"path=bytes"_s);
    const QCommandLineOption dropOnce(
        u"drop-once-after"_s,
        u"Drop the next connection of PATH after this many body bytes; later ones are whole. "
        u"Given again for the same PATH, it drops one more."_s,
        u"path=bytes"_s);
    const QCommandLineOption noValidators(
        u"no-validators"_s,
        u"Serve the files of PATH without ETag and Last-Modified, so that a download cannot "
        u"resume."_s,
        u"path"_s);
    const QCommandLineOption wrongDigest(
        u"wrong-digest"_s, u"Publish a wrong digest for this asset id (\"*\": every asset)."_s,
        u"asset"_s);
    const QCommandLineOption expired(u"expired-session"_s,
                                     u"Refuse every access and refresh token."_s);
    const QCommandLineOption signingIdentity(
        u"issue-signing-identity"_s,
        u"Write a sample developer root, and a code-signing certificate and key of the sample "
        u"team under it, into the folder, then exit."_s,
        u"folder"_s);
    const QCommandLineOption anchor(
        u"code-signing-anchor"_s,
        u"A PEM certificate that the launcher's configuration trusts for update signatures."_s,
        u"file"_s);
    const QCommandLineOption rememberSessions(
        u"remember-sessions"_s,
        u"Keep sessions across runs (their refresh tokens' digests, in the state folder)."_s);
    parser.addOptions({port, data, updates, state, tokenLifetime, approve, fail, delay, drop,
                       dropOnce, noValidators, wrongDigest, expired, signingIdentity, anchor,
                       rememberSessions});
    parser.process(application);

    try {
        if (parser.isSet(signingIdentity)) {
            issueSigningIdentity(parser.value(signingIdentity));
            return 0;
        }
        SampleWebsite::Options options;
        options.dataFolder = parser.value(data);
        options.updatesFolder = parser.value(updates);
        options.accessTokenLifetimeSeconds = readNumber(parser, tokenLifetime);
        options.approveAutomatically = parser.isSet(approve);
        const int portNumber = readNumber(parser, port);
        const QDir stateFolder(parser.value(state));
        if (!stateFolder.mkpath(u"."_s))
            throw std::runtime_error("cannot create " + stateFolder.path().toStdString());
        if (parser.isSet(rememberSessions))
            options.sessionsFile = stateFolder.absoluteFilePath(u"sessions.json"_s);

        HttpsTestServer server(portNumber);
        SampleWebsite website(server, options);
        const QStringList unreadable =
            website.faults().applyArguments(parser.values(fail), parser.values(delay),
                                            parser.values(drop), parser.values(dropOnce));
        if (!unreadable.isEmpty())
            throw std::runtime_error("unreadable fault switch: " +
                                     unreadable.constFirst().toStdString());
        for (const QString& path : parser.values(noValidators))
            website.faults().withholdValidators(path);
        for (const QString& asset : parser.values(wrongDigest))
            website.faults().publishWrongDigest(asset);
        website.faults().setSessionExpired(parser.isSet(expired));

        const QString authorityPath = stateFolder.absoluteFilePath(u"sample-website-ca.pem"_s);
        const QString configurationPath =
            stateFolder.absoluteFilePath(u"launcher-configuration.json"_s);
        writeFile(authorityPath, server.authority().certificatePem());
        QJsonObject configuration = website.launcherConfiguration(authorityPath);
        QJsonArray anchors;
        for (const QString& path : parser.values(anchor))
            anchors.append(QFileInfo(path).absoluteFilePath());
        if (!anchors.isEmpty())
            configuration.insert(u"codeSigningAnchors"_s, anchors);
        writeFile(configurationPath, QJsonDocument(configuration).toJson());

        std::printf("Sample website: %s\n", qPrintable(server.url().toString()));
        std::printf("CA certificate: %s\n", qPrintable(authorityPath));
        std::printf("Launcher configuration: %s\n", qPrintable(configurationPath));
        std::fflush(stdout);
        return application.exec();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sample-website: %s\n", error.what());
        return 1;
    }
}
