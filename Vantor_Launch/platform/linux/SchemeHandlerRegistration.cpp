#include "platform/linux/SchemeHandlerRegistration.h"

#include "foundation/BuildSettings.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace SchemeHandlerRegistration {

namespace {

QString readText(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // The file is the user's own; a huge one is left alone rather than read.
    return QString::fromUtf8(file.read(1024 * 1024));
}

void writeIfChanged(const QString& path, const QString& text) {
    if (readText(path) == text)
        return;
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(text.toUtf8());
        file.commit();
    }
}

bool isInstalled(const QString& executable) {
    return QFileInfo(QDir::cleanPath(QFileInfo(executable).path() + u'/' +
                                     QStringLiteral(LAUNCHER_INSTALLED_DESKTOP_ENTRY)))
        .isFile();
}

} // namespace

QString execProgram(QString executable) {
    // xdg-open without a desktop environment does not unquote, so a plain path stays plain.
    static const QRegularExpression plain(u"^[A-Za-z0-9/._+-]+$"_s);
    if (plain.match(executable).hasMatch())
        return executable;
    // Desktop entries quote arguments with double quotes and escape these characters inside.
    for (const QChar special : {u'\\', u'"', u'`', u'$'})
        executable.replace(special, u'\\' + QString(special));
    return u'"' + executable + u'"';
}

QString withDefaultHandler(const QString& mimeapps, const QString& scheme) {
    const QString key = u"x-scheme-handler/"_s + scheme;
    const QString line = key + u'=' + desktopEntryName;
    QStringList lines = mimeapps.split(u'\n');
    if (!lines.isEmpty() && lines.last().isEmpty())
        lines.removeLast();

    qsizetype section = -1;
    for (qsizetype i = 0; i < lines.size(); ++i) {
        if (lines[i].trimmed() == u"[Default Applications]"_s) {
            section = i;
            break;
        }
    }
    if (section < 0) {
        lines << u"[Default Applications]"_s << line;
        return lines.join(u'\n') + u'\n';
    }
    for (qsizetype i = section + 1; i < lines.size() && !lines[i].trimmed().startsWith(u'['); ++i) {
        if (lines[i].section(u'=', 0, 0).trimmed() == key) {
            lines[i] = line;
            return lines.join(u'\n') + u'\n';
        }
    }
    lines.insert(section + 1, line);
    return lines.join(u'\n') + u'\n';
}

void registerForUser(const QString& scheme, const QString& executable, const QString& dataHome,
                     const QString& configHome) {
    if (isInstalled(executable))
        return;
    const QString data = dataHome.isEmpty()
                             ? QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
                             : dataHome;
    const QString config =
        configHome.isEmpty()
            ? QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
            : configHome;
    if (data.isEmpty() || config.isEmpty() || executable.isEmpty())
        return;

    const QString handOver = QFileInfo(executable).absolutePath() + u'/' + handOverProgramName;
    const QString entry = u"[Desktop Entry]\n"
                          u"Type=Application\n"
                          u"Name=Vantor Launcher\n"
                          u"Comment=Companion for Vantor Director and Vantor Creator\n"
                          u"Exec="_s +
                          execProgram(handOver) +
                          u" %u\n"
                          u"DBusActivatable=true\n"
                          u"Terminal=false\n"
                          u"NoDisplay=true\n"
                          u"MimeType=x-scheme-handler/"_s +
                          scheme + u";\n"_s;
    writeIfChanged(data + u"/applications/"_s + desktopEntryName, entry);
    // The entry of earlier versions ran the launcher itself with the address.
    QFile::remove(data + u"/applications/vantor-launcher.desktop"_s);

    // Only a launcher that runs can have a sign-in waiting; this starts one for an activation
    // that finds none, so that the desktop's call is answered. The bus reads the same quoting.
    const QString service = u"[D-BUS Service]\nName="_s + applicationID + u"\nExec="_s +
                            execProgram(executable) + u'\n';
    writeIfChanged(data + u"/dbus-1/services/"_s + applicationID + u".service"_s, service);

    const QString mimeappsPath = config + u"/mimeapps.list"_s;
    writeIfChanged(mimeappsPath, withDefaultHandler(readText(mimeappsPath), scheme));
}

} // namespace SchemeHandlerRegistration
