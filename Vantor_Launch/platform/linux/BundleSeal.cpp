#include "platform/linux/BundleSeal.h"

#include "platform/BoundedPropertyList.h"

#include <QFile>
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <openssl/evp.h>
#include <plist/plist.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace fs = std::filesystem;

namespace {

std::optional<QByteArray> stringValue(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    // Not plist_get_string_val: libplist aborts on a string with a NUL inside.
    uint64_t length = 0;
    const char* text = plist_get_string_ptr(node, &length);
    if (!text || length > uint64_t(BundleSeal::maximumSealBytes))
        return std::nullopt;
    QByteArray value(text, qsizetype(length));
    if (value.contains('\0'))
        return std::nullopt;
    return value;
}

std::optional<BundleSeal::Item> parseItem(plist_t node) {
    if (plist_get_node_type(node) != PLIST_DICT)
        return std::nullopt;
    BundleSeal::Item item;
    if (plist_t link = plist_dict_get_item(node, "symlink")) {
        item.linkTarget = stringValue(link);
        if (!item.linkTarget || item.linkTarget->isEmpty() || plist_dict_get_size(node) != 1)
            return std::nullopt;
        return item;
    }
    plist_t hash = plist_dict_get_item(node, "hash");
    if (!hash || plist_get_node_type(hash) != PLIST_DATA)
        return std::nullopt;
    char* data = nullptr;
    uint64_t length = 0;
    plist_get_data_val(hash, &data, &length);
    item.sha256 = QByteArray(data, qsizetype(length));
    std::free(data);
    if (item.sha256.size() != 32)
        return std::nullopt;
    uint32_t expectedKeys = 1;
    if (plist_t executable = plist_dict_get_item(node, "executable")) {
        if (plist_get_node_type(executable) != PLIST_BOOLEAN)
            return std::nullopt;
        uint8_t flag = 0;
        plist_get_bool_val(executable, &flag);
        item.executable = flag != 0;
        ++expectedKeys;
    }
    if (plist_dict_get_size(node) != expectedKeys)
        return std::nullopt;
    return item;
}

std::optional<QByteArray> sha256Of(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0)
        return std::nullopt;
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          &EVP_MD_CTX_free);
    bool ok = context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
    std::vector<unsigned char> buffer(1 << 20);
    while (ok) {
        const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            ok = count == 0;
            break;
        }
        ok = EVP_DigestUpdate(context.get(), buffer.data(), size_t(count)) == 1;
    }
    ::close(descriptor);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (!ok || EVP_DigestFinal_ex(context.get(), digest, &length) != 1)
        return std::nullopt;
    return QByteArray(reinterpret_cast<const char*>(digest), qsizetype(length));
}

bool isValidUtf8(const std::string& text) {
    const QByteArray bytes = QByteArray::fromStdString(text);
    return QString::fromUtf8(bytes).toUtf8() == bytes;
}

} // namespace

std::optional<BundleSeal> BundleSeal::parse(const QByteArray& bytes) {
    // XML never holds a NUL byte; libplist would take it for the end of a name.
    if (bytes.size() > maximumSealBytes || bytes.contains('\0'))
        return std::nullopt;
    const auto root = BoundedPropertyList::parse(bytes, BoundedPropertyList::Formats::xmlOnly);
    plist_t parsed = root.get();
    if (!root || plist_get_node_type(parsed) != PLIST_DICT || plist_dict_get_size(parsed) != 2)
        return std::nullopt;

    BundleSeal seal;
    const auto identifier = stringValue(plist_dict_get_item(parsed, "identifier"));
    plist_t files = plist_dict_get_item(parsed, "files");
    if (!identifier || identifier->isEmpty() || !files || plist_get_node_type(files) != PLIST_DICT)
        return std::nullopt;
    seal.identifier = QString::fromUtf8(*identifier);

    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(files, &iterator);
    bool ok = iterator != nullptr;
    while (ok) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(files, iterator, &key, &value);
        if (!value) {
            std::free(key);
            break;
        }
        const QByteArray path(key ? key : "");
        std::free(key);
        auto item = parseItem(value);
        ok = item && !path.isEmpty();
        if (ok)
            seal.items[path] = std::move(*item);
    }
    std::free(iterator);
    if (!ok)
        return std::nullopt;
    return seal;
}

QByteArray BundleSeal::serialize() const {
    plist_t root = plist_new_dict();
    const BoundedPropertyList::Pointer owner(root);
    plist_dict_set_item(root, "identifier", plist_new_string(identifier.toUtf8().constData()));
    plist_t files = plist_new_dict();
    for (const auto& [path, item] : items) {
        plist_t entry = plist_new_dict();
        if (item.linkTarget) {
            plist_dict_set_item(entry, "symlink", plist_new_string(item.linkTarget->constData()));
        } else {
            plist_dict_set_item(
                entry, "hash",
                plist_new_data(item.sha256.constData(), uint64_t(item.sha256.size())));
            if (item.executable)
                plist_dict_set_item(entry, "executable", plist_new_bool(1));
        }
        plist_dict_set_item(files, path.constData(), entry);
    }
    plist_dict_set_item(root, "files", files);
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root, &xml, &length);
    QByteArray bytes(xml, qsizetype(length));
    plist_to_xml_free(xml);
    return bytes;
}

std::optional<BundleSeal> BundleSeal::ofBundle(const QString& bundle, const QString& identifier) {
    BundleSeal seal;
    seal.identifier = identifier;
    const fs::path root(QFile::encodeName(bundle).toStdString());
    std::vector<std::pair<QByteArray, std::string>> regularFiles; // relative, absolute

    std::error_code error;
    fs::recursive_directory_iterator walk(root, error);
    if (error)
        return std::nullopt;
    for (const fs::recursive_directory_iterator end; walk != end; walk.increment(error)) {
        if (error)
            return std::nullopt;
        const fs::path& path = walk->path();
        const std::string relative = path.lexically_relative(root).generic_string();
        if (!isValidUtf8(relative))
            return std::nullopt;
        const QByteArray key = QByteArray::fromStdString(relative);
        if (key == sealPath || key == signaturePath)
            continue;
        const fs::file_status status = walk->symlink_status(error);
        if (error)
            return std::nullopt;
        if (fs::is_directory(status))
            continue;
        if (fs::is_symlink(status)) {
            const fs::path target = fs::read_symlink(path, error);
            if (error)
                return std::nullopt;
            seal.items[key].linkTarget = QByteArray::fromStdString(target.string());
        } else if (fs::is_regular_file(status)) {
            seal.items[key].executable =
                (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
            regularFiles.emplace_back(key, path.string());
        } else {
            return std::nullopt;
        }
    }
    if (error)
        return std::nullopt;

    // Large bundles are mostly a few big files and many small ones: a few threads taking files
    // in turn keep every core busy without a pool.
    std::atomic<size_t> next = 0;
    std::atomic<bool> failed = false;
    std::vector<QByteArray> digests(regularFiles.size());
    const auto work = [&] {
        for (size_t index = next++; index < regularFiles.size() && !failed; index = next++) {
            auto digest = sha256Of(regularFiles[index].second);
            if (!digest)
                failed = true;
            else
                digests[index] = std::move(*digest);
        }
    };
    const unsigned threadCount = std::clamp<unsigned>(std::thread::hardware_concurrency(), 1u, 4u);
    std::vector<std::thread> threads;
    for (unsigned index = 1; index < std::min<size_t>(threadCount, regularFiles.size()); ++index)
        threads.emplace_back(work);
    work();
    for (std::thread& thread : threads)
        thread.join();
    if (failed)
        return std::nullopt;
    for (size_t index = 0; index < regularFiles.size(); ++index)
        seal.items[regularFiles[index].first].sha256 = std::move(digests[index]);
    return seal;
}
