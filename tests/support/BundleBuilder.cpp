#include "BundleBuilder.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <cstdlib>
#include <plist/plist.h>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

QByteArray propertyList(const BundleSpec& spec) {
    plist_t root = plist_new_dict();
    const auto set = [&](const char* key, const std::optional<QString>& value) {
        if (value)
            plist_dict_set_item(root, key, plist_new_string(value->toUtf8().constData()));
    };
    set("CFBundleIdentifier", spec.identifier);
    set("CFBundleShortVersionString", spec.version);
    set("CFBundleVersion", spec.build);
    plist_dict_set_item(root, "CFBundleExecutable",
                        plist_new_string(spec.executable.toUtf8().constData()));

    char* data = nullptr;
    uint32_t length = 0;
    if (spec.binaryPropertyList)
        plist_to_bin(root, &data, &length);
    else
        plist_to_xml(root, &data, &length);
    QByteArray bytes(data, qsizetype(length));
    std::free(data);
    plist_free(root);
    return bytes;
}

} // namespace

void writeFile(const QString& path, const QByteArray& bytes) {
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        throw std::runtime_error("could not write " + path.toStdString());
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QMap<QString, QByteArray> filesUnder(const QString& folder) {
    QMap<QString, QByteArray> files;
    QDirIterator items(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (items.hasNext()) {
        const QString path = items.next();
        files.insert(QDir(folder).relativeFilePath(path), readFile(path));
    }
    return files;
}

QUrl writeBundle(const QString& folder, const QString& name, const BundleSpec& spec) {
    const QString bundle = QDir(folder).filePath(name);
    QDir(bundle).removeRecursively();
    if (!QDir().mkpath(bundle + u"/Contents/MacOS"_s))
        throw std::runtime_error("could not create a test bundle");
    writeFile(bundle + u"/Contents/Info.plist"_s, propertyList(spec));

    const QString executable = bundle + u"/Contents/MacOS/"_s + spec.executable;
    writeFile(executable, "#!/bin/sh\n" + spec.script.toUtf8());
    QFile::setPermissions(executable, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                          QFile::ReadGroup | QFile::ExeGroup);
    return QUrl::fromLocalFile(bundle);
}
