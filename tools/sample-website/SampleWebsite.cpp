#include "SampleWebsite.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSaveFile>
#include <QUrlQuery>
#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <sys/stat.h>

using namespace Qt::StringLiterals;
using Request = HttpsTestServer::Request;
using Response = HttpsTestServer::Response;
using Clock = std::chrono::steady_clock;

namespace {

const QString authorizationPath = u"/index.php"_s;

QJsonObject readObject(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error("the sample website cannot read " + path.toStdString());
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll(), &error);
    if (!document.isObject())
        throw std::runtime_error(path.toStdString() + " is not a JSON object");
    return document.object();
}

Response json(int status, const QJsonObject& object) {
    return Response{status, QJsonDocument(object).toJson(QJsonDocument::Compact)};
}

Response refusal(int status, const QString& error) {
    return json(status, {{u"error"_s, error}});
}

// Every "…URL" value that starts with "/" names a path of this website: make it absolute.
QJsonValue withAbsoluteURLs(const QJsonValue& value, const QUrl& base, bool isURLKey = false) {
    if (value.isString() && isURLKey && value.toString().startsWith(u'/'))
        return base.resolved(QUrl(value.toString())).toString();
    if (value.isArray()) {
        QJsonArray array;
        for (const QJsonValue& element : value.toArray())
            array.append(withAbsoluteURLs(element, base));
        return array;
    }
    if (value.isObject()) {
        QJsonObject object = value.toObject();
        for (auto entry = object.begin(); entry != object.end(); ++entry)
            *entry = withAbsoluteURLs(*entry, base, entry.key().endsWith(u"URL"_s));
        return object;
    }
    return value;
}

QString randomToken() {
    QByteArray bytes(32, Qt::Uninitialized);
    QRandomGenerator::system()->fillRange(reinterpret_cast<quint32*>(bytes.data()),
                                          bytes.size() / int(sizeof(quint32)));
    return QString::fromLatin1(
        bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
}

QString bearerToken(const Request& request) {
    const QString header = request.headers.value(u"authorization"_s);
    return header.startsWith(u"Bearer "_s) ? header.mid(7) : QString();
}

QUrlQuery formOrQuery(const Request& request) {
    QString text = request.method == u"POST"_s ? QString::fromUtf8(request.body) : request.query;
    return QUrlQuery(text.replace(u'+', u' '));
}

QString percentEncoded(const QString& text) {
    return QString::fromLatin1(QUrl::toPercentEncoding(text));
}

QByteArray tokenDigest(const QString& token) {
    return QCryptographicHash::hash(token.toUtf8(), QCryptographicHash::Sha256).toHex();
}

struct ByteRange {
    qint64 first = 0;
    qint64 last = 0;
    bool satisfiable = true;
};

// One range of "bytes=FIRST-LAST", "bytes=FIRST-" or "bytes=-SUFFIX" within a file of `size`
// bytes. Anything else (several ranges, an inverted one, another unit) is ignored, as HTTP
// allows: the whole file is sent.
std::optional<ByteRange> singleRange(const QString& header, qint64 size) {
    static const QRegularExpression form(u"^bytes=(\\d{0,18})-(\\d{0,18})$"_s);
    const QRegularExpressionMatch match = form.match(header.trimmed());
    if (!match.hasMatch() || (match.capturedLength(1) == 0 && match.capturedLength(2) == 0))
        return std::nullopt;
    const qint64 first = match.captured(1).toLongLong();
    const qint64 last = match.capturedLength(2) ? match.captured(2).toLongLong() : size - 1;
    if (match.capturedLength(1) == 0) {
        if (last == 0 || size == 0)
            return ByteRange{0, 0, false};
        return ByteRange{std::max<qint64>(size - last, 0), size - 1};
    }
    if (match.capturedLength(2) && last < first)
        return std::nullopt;
    if (first >= size)
        return ByteRange{0, 0, false};
    return ByteRange{first, std::min(last, size - 1)};
}

QByteArray httpDate(const QDateTime& time) {
    return QLocale::c().toString(time.toUTC(), u"ddd, dd MMM yyyy hh:mm:ss 'GMT'"_s).toLatin1();
}

// A downloadable file as a web server sends it: with its validators (unless withheld), and a
// single range when asked for one and If-Range, if any, still names this version of the file.
// The entity tag changes whenever the file is replaced or rewritten.
Response fileAnswer(const QString& filePath, const QByteArray& contentType, const Request& request,
                    bool validators) {
    struct stat status {};
    if (::stat(QFile::encodeName(filePath).constData(), &status) != 0)
        return refusal(404, u"not found"_s);
    const qint64 size = status.st_size;
    Response response{200, {}, contentType, {{"Accept-Ranges", "bytes"}}};
    response.filePath = filePath;
    QByteArray tag;
    QByteArray modified;
    if (validators) {
        const qint64 nanoseconds =
            qint64(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
        tag = '"' + QByteArray::number(qulonglong(status.st_ino), 16) + '-' +
              QByteArray::number(size, 16) + '-' + QByteArray::number(nanoseconds, 16) + '"';
        modified = httpDate(QDateTime::fromSecsSinceEpoch(status.st_mtim.tv_sec, Qt::UTC));
        response.headers.append({"ETag", tag});
        response.headers.append({"Last-Modified", modified});
    }
    const QByteArray ifRange = request.headers.value(u"if-range"_s).toLatin1().trimmed();
    const bool current = ifRange.isEmpty() || (!tag.isEmpty() && ifRange == tag) ||
                         (!modified.isEmpty() && ifRange == modified);
    if (!current)
        return response;
    const auto range = singleRange(request.headers.value(u"range"_s), size);
    if (!range)
        return response;
    if (!range->satisfiable) {
        Response unsatisfiable{416, {}, contentType, response.headers};
        unsatisfiable.headers.append({"Content-Range", "bytes */" + QByteArray::number(size)});
        return unsatisfiable;
    }
    response.status = 206;
    response.fileOffset = range->first;
    response.fileLength = range->last - range->first + 1;
    response.headers.append({"Content-Range", "bytes " + QByteArray::number(range->first) + '-' +
                                                  QByteArray::number(range->last) + '/' +
                                                  QByteArray::number(size)});
    return response;
}

} // namespace

struct SampleWebsite::State {
    // Tokens are kept by their digests only, as a website should; expiry is wall-clock time, so
    // that a remembered session keeps its own.
    struct Session {
        QByteArray refreshDigest;
        qint64 expiresAtMSecs = 0;
    };
    struct PublishedFile {
        QString path;
        qint64 size = 0;
        QString sha256Hex;
    };

    Options options;
    QUrl base;
    WebsiteFaults faults;
    QJsonObject account;
    QJsonObject catalogue;
    QJsonObject packManifest;
    QJsonObject releaseManifest;
    QHash<QString, PublishedFile> files; // by website path

    mutable std::mutex mutex;
    QHash<QString, Clock::time_point> authorizationCodes;
    QHash<QByteArray, Session> sessions;           // by access token digest
    QHash<QByteArray, QByteArray> accessByRefresh; // token digests

    void loadSessions();
    void saveSessions() const;

    std::optional<Response> sessionRefusal(const Request& request) const;
    QJsonObject issueSession();
    QJsonObject creatorBackgrounds() const;
    Response authorizationPage(const Request& request);
    Response decision(const Request& request);
    Response exchangeCode(const Request& request);
    Response refreshSession(const Request& request);
    Response signOut(const Request& request);
};

SampleWebsite::SampleWebsite(HttpsTestServer& server, Options options)
    : m_state(std::make_shared<State>()) {
    State& state = *m_state;
    if (options.updatesFolder.isEmpty())
        options.updatesFolder = options.dataFolder + u"/updates"_s;
    state.options = options;
    state.base = server.url();
    state.loadSessions();
    const QDir data(options.dataFolder);
    state.account = readObject(data.filePath(u"account.json"_s));
    state.catalogue =
        withAbsoluteURLs(readObject(data.filePath(u"catalogue.json"_s)), state.base).toObject();
    state.packManifest = readObject(data.filePath(u"creator-backgrounds.json"_s));
    state.releaseManifest =
        withAbsoluteURLs(readObject(data.filePath(u"updates/macos.json"_s)), state.base).toObject();

    // Faults apply before the endpoint runs (a refused request changes nothing) and shape its
    // answer after.
    const auto route = [&](const QString& method, const QString& path, auto endpoint) {
        server.on(method, path, [weak = std::weak_ptr(m_state), path, endpoint](const Request& r) {
            const auto state = weak.lock();
            if (!state)
                return refusal(503, u"gone"_s);
            Response response;
            if (const auto status = state->faults.statusFor(path))
                response = refusal(*status, u"fault"_s);
            else
                response = endpoint(*state, r);
            response.delayMilliseconds =
                std::max(response.delayMilliseconds, state->faults.delayFor(path));
            if (const qint64 drop = state->faults.takeDropAfterBytes(path, response.fileOffset);
                drop >= 0)
                response.dropAfterBytes = drop;
            return response;
        });
    };
    const auto file = [&](const QString& path, const QString& filePath, QByteArray contentType) {
        route(u"GET"_s, path, [path, filePath, contentType](State& state, const Request& request) {
            return fileAnswer(filePath, contentType, request,
                              !state.faults.withholdsValidators(path));
        });
    };

    route(u"GET"_s, u"/updates/macos.json"_s,
          [](State& state, const Request&) { return json(200, state.releaseManifest); });
    for (const QFileInfo& archive :
         QDir(options.updatesFolder).entryInfoList({u"*.zip"_s}, QDir::Files))
        file(u"/updates/"_s + archive.fileName(), archive.absoluteFilePath(), "application/zip");

    route(u"GET"_s, u"/v1/catalogue"_s,
          [](State& state, const Request&) { return json(200, state.catalogue); });

    const QString filesFolder = data.filePath(u"files"_s);
    QDirIterator walk(filesFolder, QDir::Files, QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        const QString filePath = walk.next();
        QFile content(filePath);
        if (!content.open(QIODevice::ReadOnly))
            throw std::runtime_error("the sample website cannot read " + filePath.toStdString());
        const QString path = u"/files/"_s + QDir(filesFolder).relativeFilePath(filePath);
        // Hashed as it is read: a large asset never sits in memory whole.
        QCryptographicHash digest(QCryptographicHash::Sha256);
        digest.addData(&content);
        state.files.insert(path,
                           {path, content.size(), QString::fromLatin1(digest.result().toHex())});
        const QString suffix = QFileInfo(filePath).suffix();
        file(path, filePath,
             suffix == u"jpg"_s   ? "image/jpeg"
             : suffix == u"mp4"_s ? "video/mp4"
                                  : "application/octet-stream");
    }

    // The website's plain pages that the launcher links to.
    for (const auto& [path, title] : {std::pair{u"/account"_s, u"Your Vantor account"_s},
                                      {u"/downloads"_s, u"Vantor downloads"_s},
                                      {u"/content-packs"_s, u"Content Packs"_s},
                                      {u"/support"_s, u"Vantor support"_s},
                                      {u"/privacy"_s, u"Privacy"_s}}) {
        const QByteArray page = (u"<!doctype html><meta charset=\"utf-8\"><title>%1</title>"
                                 u"<h1>%1</h1><p>A page of the sample website.</p>"_s.arg(title))
                                    .toUtf8();
        route(u"GET"_s, path, [page](State&, const Request&) {
            return Response{200, page, "text/html; charset=utf-8"};
        });
    }
    route(u"GET"_s, authorizationPath,
          [](State& state, const Request& request) { return state.authorizationPage(request); });
    route(u"POST"_s, authorizationPath,
          [](State& state, const Request& request) { return state.decision(request); });
    route(u"POST"_s, u"/v1/launch/token"_s,
          [](State& state, const Request& request) { return state.exchangeCode(request); });
    route(u"POST"_s, u"/v1/launch/token/refresh"_s,
          [](State& state, const Request& request) { return state.refreshSession(request); });
    route(u"POST"_s, u"/v1/launch/sign-out"_s,
          [](State& state, const Request& request) { return state.signOut(request); });
    route(u"GET"_s, u"/v1/launch/account"_s, [](State& state, const Request& request) {
        return state.sessionRefusal(request).value_or(json(200, state.account));
    });
    route(u"GET"_s, u"/v1/launch/creator-backgrounds"_s, [](State& state, const Request& request) {
        if (auto refused = state.sessionRefusal(request))
            return *refused;
        return json(200, state.creatorBackgrounds());
    });
}

SampleWebsite::~SampleWebsite() = default;

WebsiteFaults& SampleWebsite::faults() {
    return m_state->faults;
}

QUrl SampleWebsite::authorizationStartURL() const {
    QUrl url = m_state->base.resolved(QUrl(authorizationPath));
    url.setQuery(u"option=com_vantordirector&task=launch.authorize"_s);
    return url;
}

QUrl SampleWebsite::approvalURL(const QString& state) const {
    QUrl url = m_state->base.resolved(QUrl(authorizationPath));
    QUrlQuery query;
    query.addQueryItem(u"option"_s, u"com_vantordirector"_s);
    query.addQueryItem(u"task"_s, u"launch.decide"_s);
    query.addQueryItem(u"decision"_s, u"approve"_s);
    query.addQueryItem(u"state"_s, percentEncoded(state));
    url.setQuery(query);
    return url;
}

QJsonObject SampleWebsite::launcherConfiguration(const QString& certificateAuthorityPath) const {
    const auto at = [this](const QString& path) {
        return m_state->base.resolved(QUrl(path)).toString();
    };
    return {
        {u"authenticationStartURL"_s, authorizationStartURL().toString()},
        {u"authenticationCallbackScheme"_s, u"vantor-launch"_s},
        {u"accountAPIBaseURL"_s, m_state->base.toString()},
        {u"releaseMetadataURL"_s, at(u"/updates/macos.json"_s)},
        {u"catalogueURL"_s, at(u"/v1/catalogue"_s)},
        {u"accountSettingsURL"_s, at(u"/account"_s)},
        {u"downloadsURL"_s, at(u"/downloads"_s)},
        {u"contentDetailsURL"_s, at(u"/content-packs"_s)},
        {u"supportURL"_s, at(u"/support"_s)},
        {u"privacyURL"_s, at(u"/privacy"_s)},
        {u"trustedCertificateAuthorities"_s, QJsonArray{certificateAuthorityPath}},
        // Sessions of this website never replace the user's real one in the secret store.
        {u"secretStoreService"_s, u"nz.co.halvex.VantorLaunch.sample-website-session"_s},
    };
}

void SampleWebsite::endAllSessions() {
    const std::lock_guard lock(m_state->mutex);
    m_state->sessions.clear();
    m_state->accessByRefresh.clear();
    m_state->saveSessions();
}

int SampleWebsite::sessionCount() const {
    const std::lock_guard lock(m_state->mutex);
    return int(m_state->sessions.size());
}

std::optional<Response> SampleWebsite::State::sessionRefusal(const Request& request) const {
    const QString token = bearerToken(request);
    const std::lock_guard lock(mutex);
    const auto session = sessions.constFind(tokenDigest(token));
    if (faults.sessionExpired() || token.isEmpty() || session == sessions.cend() ||
        session->expiresAtMSecs <= QDateTime::currentMSecsSinceEpoch())
        return refusal(401, u"session_expired"_s);
    return std::nullopt;
}

// Called with the mutex held.
QJsonObject SampleWebsite::State::issueSession() {
    const QString accessToken = randomToken();
    const QString refreshToken = randomToken();
    const qint64 expiresAt =
        QDateTime::currentMSecsSinceEpoch() + qint64(options.accessTokenLifetimeSeconds) * 1000;
    sessions.insert(tokenDigest(accessToken), {tokenDigest(refreshToken), expiresAt});
    accessByRefresh.insert(tokenDigest(refreshToken), tokenDigest(accessToken));
    saveSessions();
    return {{u"accessToken"_s, accessToken},
            {u"refreshToken"_s, refreshToken},
            {u"expiresIn"_s, options.accessTokenLifetimeSeconds}};
}

// The pack manifest with each asset's digest and size taken from the file it names.
QJsonObject SampleWebsite::State::creatorBackgrounds() const {
    QJsonObject manifest = packManifest;
    QJsonArray assets;
    for (const QJsonValue& value : packManifest.value(u"assets"_s).toArray()) {
        QJsonObject asset = value.toObject();
        const auto file = files.constFind(asset.value(u"remoteProtectedAssetURL"_s).toString());
        if (file != files.cend() && !asset.contains(u"protectedSHA256Hex"_s)) {
            QString digest = file->sha256Hex;
            if (faults.publishesWrongDigest(asset.value(u"id"_s).toString()))
                digest.replace(0, 1, digest.startsWith(u'0') ? u"1"_s : u"0"_s);
            asset.insert(u"protectedSHA256Hex"_s, digest);
            if (!asset.contains(u"fileSizeBytes"_s))
                asset.insert(u"fileSizeBytes"_s, file->size);
        }
        assets.append(asset);
    }
    manifest.insert(u"assets"_s, assets);
    return withAbsoluteURLs(manifest, base).toObject();
}

Response SampleWebsite::State::authorizationPage(const Request& request) {
    const QUrlQuery query = formOrQuery(request);
    if (query.queryItemValue(u"task"_s) == u"launch.decide"_s)
        return decision(request);
    const QString launchState = query.queryItemValue(u"state"_s, QUrl::FullyDecoded);
    if (query.queryItemValue(u"task"_s) != u"launch.authorize"_s || launchState.isEmpty())
        return Response{400, "<p>This sign-in link is incomplete.</p>", "text/html; charset=utf-8"};
    if (options.approveAutomatically) {
        Request approval = request;
        approval.method = u"GET"_s;
        approval.query = u"decision=approve&state="_s + percentEncoded(launchState);
        return decision(approval);
    }
    const QString name = account.value(u"displayName"_s).toString().toHtmlEscaped();
    const QString email = account.value(u"email"_s).toString().toHtmlEscaped();
    const QString page =
        u"<!doctype html><html><head><meta charset=\"utf-8\"><title>Sign in to Vantor</title>"
        u"<style>body{font-family:sans-serif;background:#07111f;color:#f4f7fa;max-width:32em;"
        u"margin:4em auto}button{font-size:1em;padding:.5em 1.5em;margin-right:1em}</style>"
        u"</head><body><h1>Sign in to Vantor</h1>"
        u"<p>Vantor Launcher would like to use your Vantor account, %1 (%2), to show your "
        u"account and install your Content Packs.</p>"
        u"<form method=\"post\" action=\"/index.php\">"
        u"<input type=\"hidden\" name=\"state\" value=\"%3\">"
        u"<button name=\"decision\" value=\"approve\">Allow</button>"
        u"<button name=\"decision\" value=\"deny\">Deny</button>"
        u"</form><p>This is the sample website on your own computer.</p></body></html>"_s.arg(
            name, email, launchState.toHtmlEscaped());
    return Response{200, page.toUtf8(), "text/html; charset=utf-8"};
}

// Hands the user back to the launcher: a code bound to the state, or an error.
Response SampleWebsite::State::decision(const Request& request) {
    const QUrlQuery query = formOrQuery(request);
    const QString launchState = query.queryItemValue(u"state"_s, QUrl::FullyDecoded);
    if (launchState.isEmpty())
        return Response{400, "<p>This sign-in link is incomplete.</p>", "text/html; charset=utf-8"};
    QString callback;
    if (query.queryItemValue(u"decision"_s) == u"approve"_s) {
        const QString code = randomToken();
        {
            const std::lock_guard lock(mutex);
            authorizationCodes.insert(
                code,
                Clock::now() + std::chrono::seconds(options.authorizationCodeLifetimeSeconds));
        }
        callback = callbackURL + u"?code="_s + percentEncoded(code);
    } else {
        callback = callbackURL + u"?error=access_denied"_s;
    }
    callback += u"&state="_s + percentEncoded(launchState);
    return Response{302,
                    "<p>Returning to Vantor Launcher…</p>",
                    "text/html; charset=utf-8",
                    {{"Location", callback.toUtf8()}}};
}

Response SampleWebsite::State::exchangeCode(const Request& request) {
    const QJsonObject body = QJsonDocument::fromJson(request.body).object();
    const QString code = body.value(u"authorizationCode"_s).toString();
    if (body.value(u"redirectURI"_s).toString() != callbackURL)
        return refusal(400, u"invalid_redirect_uri"_s);
    const std::lock_guard lock(mutex);
    // A code is good for one exchange, whatever its outcome.
    const auto expiresAt = authorizationCodes.take(code);
    if (code.isEmpty() || expiresAt <= Clock::now())
        return refusal(400, u"invalid_grant"_s);
    return json(200, issueSession());
}

// Rotates the pair: the old access and refresh tokens stop working.
Response SampleWebsite::State::refreshSession(const Request& request) {
    const QString refreshToken =
        QJsonDocument::fromJson(request.body).object().value(u"refreshToken"_s).toString();
    const std::lock_guard lock(mutex);
    if (faults.sessionExpired() || !accessByRefresh.contains(tokenDigest(refreshToken)))
        return refusal(401, u"session_expired"_s);
    sessions.remove(accessByRefresh.take(tokenDigest(refreshToken)));
    return json(200, issueSession());
}

Response SampleWebsite::State::signOut(const Request& request) {
    if (auto refused = sessionRefusal(request))
        return *refused;
    const std::lock_guard lock(mutex);
    const Session session = sessions.take(tokenDigest(bearerToken(request)));
    accessByRefresh.remove(session.refreshDigest);
    saveSessions();
    return json(200, {{u"ok"_s, true}});
}

void SampleWebsite::State::loadSessions() {
    QFile file(options.sessionsFile);
    if (options.sessionsFile.isEmpty() || !file.open(QIODevice::ReadOnly))
        return;
    // The website's own file, read with a bound all the same.
    const QJsonArray saved = QJsonDocument::fromJson(file.read(4 * 1024 * 1024)).array();
    for (const QJsonValue& value : saved) {
        const QJsonObject session = value.toObject();
        const QByteArray access = session.value(u"access"_s).toString().toLatin1();
        const QByteArray refresh = session.value(u"refresh"_s).toString().toLatin1();
        if (access.isEmpty() || refresh.isEmpty())
            continue;
        sessions.insert(access, {refresh, qint64(session.value(u"expiresAt"_s).toDouble())});
        accessByRefresh.insert(refresh, access);
    }
}

// Called with the mutex held.
void SampleWebsite::State::saveSessions() const {
    if (options.sessionsFile.isEmpty())
        return;
    QJsonArray saved;
    for (auto session = sessions.cbegin(); session != sessions.cend(); ++session)
        saved.append(QJsonObject{{u"access"_s, QString::fromLatin1(session.key())},
                                 {u"refresh"_s, QString::fromLatin1(session->refreshDigest)},
                                 {u"expiresAt"_s, double(session->expiresAtMSecs)}});
    QSaveFile file(options.sessionsFile);
    if (file.open(QIODevice::WriteOnly)) {
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        file.write(QJsonDocument(saved).toJson(QJsonDocument::Compact));
        file.commit();
    }
}
