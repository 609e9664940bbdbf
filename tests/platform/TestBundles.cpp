#include "TestBundles.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <cstdlib>
#include <memory>
#include <plist/plist.h>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

void writeFile(const QString& path, const QByteArray& contents, bool executable) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
        throw std::runtime_error("cannot write " + path.toStdString());
    if (executable)
        file.setPermissions(file.permissions() | QFileDevice::ExeOwner | QFileDevice::ExeUser);
}

QByteArray propertyList(const TestBundle& bundle) {
    plist_t dictionary = plist_new_dict();
    const std::unique_ptr<void, decltype(&plist_free)> owner(dictionary, &plist_free);
    const auto set = [&](const char* key, const std::optional<QString>& value) {
        if (value)
            plist_dict_set_item(dictionary, key, plist_new_string(value->toUtf8().constData()));
    };
    set("CFBundleIdentifier", bundle.identifier);
    set("CFBundleShortVersionString", bundle.version);
    set("CFBundleVersion", bundle.build);
    set("CFBundleExecutable", bundle.executableName);

    char* data = nullptr;
    uint32_t length = 0;
    if (bundle.format == TestBundle::PropertyListFormat::binary)
        plist_to_bin(dictionary, &data, &length);
    else
        plist_to_xml(dictionary, &data, &length);
    QByteArray bytes(data, qsizetype(length));
    std::free(data);
    return bytes;
}

} // namespace

QByteArray TestBundle::waitingScript() {
    return "#!/bin/sh\n"
           "printf '%s\\n' \"$@\" > \"$0.arguments\"\n"
           "while :; do sleep 1; done\n";
}

QByteArray TestBundle::sleepProgram() {
    QFile program(QStandardPaths::findExecutable(u"sleep"_s));
    if (!program.open(QIODevice::ReadOnly))
        throw std::runtime_error("no sleep program");
    return program.readAll();
}

QString TestBundle::writeTo(const QString& folder, const QString& name) const {
    const QString path = QDir(folder).filePath(name);
    if (!QDir().mkpath(path + u"/Contents/MacOS"_s))
        throw std::runtime_error("cannot create " + path.toStdString());
    writeFile(path + u"/Contents/Info.plist"_s, propertyList(*this), false);
    writeFile(path + u"/Contents/MacOS/"_s + executableName, executable, true);
    return path;
}
