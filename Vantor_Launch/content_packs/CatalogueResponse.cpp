#include "content_packs/CatalogueResponse.h"

#include "content_packs/PackJson.h"
#include "foundation/StrictJson.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace {

struct CatalogueProduct {
    QString description;
    bool sellsContentPacks = false;
    QStringList includedContentPackIDs;
};

CatalogueProduct decodeProduct(const JsonObject& object) {
    object.requiredString("displayName");
    CatalogueProduct product;
    product.description = object.requiredString("description");
    product.sellsContentPacks = object.requiredString("commercialType") == u"contentPack"_s;
    product.includedContentPackIDs = object.requiredStrings("includedContentPackIDs");
    object.requiredObject("availability").requiredBool("isAvailable");
    return product;
}

// Artwork is decoration: any text that parses as a URL is taken (a relative one is read against
// the catalogue's own address), and one that does not leaves the pack without artwork rather than
// the catalogue without packs.
std::optional<QUrl> artworkURL(const JsonObject& object, const QUrl& base) {
    const auto text = object.optionalString("thumbnailURL");
    if (!text || text->trimmed().isEmpty())
        return std::nullopt;
    const QUrl url(*text, QUrl::TolerantMode);
    if (!url.isValid())
        return std::nullopt;
    return url.isRelative() && base.isValid() ? base.resolved(url) : url;
}

std::optional<ContentPack> decodePack(const JsonObject& object, const QUrl& base) {
    ContentPack pack;
    pack.id = object.requiredString("id");
    pack.name = object.requiredString("displayName");
    pack.version = object.optionalString("version");
    pack.contentCount = object.optionalInteger("contentCount");
    pack.artworkURL = artworkURL(object, base);
    pack.detail =
        u"This is the public catalogue. Sign in with your Vantor account to see the details of "
        u"the packs it owns."_s;
    pack.installation = Launch::PackInstallation::unavailable;
    pack.requiresCreator = true;
    if (!object.requiredBool("active"))
        return std::nullopt;
    return pack;
}

} // namespace

QList<ContentPack> decodeCatalogueResponse(const QByteArray& document, const QUrl& base) {
    const JsonObject response = JsonObject::parse(document);
    std::vector<ContentPack> active;
    for (const JsonObject& object : response.requiredObjects("contentPacks")) {
        if (auto pack = decodePack(object, base))
            active.push_back(std::move(*pack));
    }
    std::vector<CatalogueProduct> products;
    for (const JsonObject& object : response.requiredObjects("products"))
        products.push_back(decodeProduct(object));

    QList<ContentPack> catalogue;
    for (ContentPack& pack : active) {
        const auto product =
            std::find_if(products.begin(), products.end(), [&](const CatalogueProduct& candidate) {
                return candidate.sellsContentPacks &&
                       candidate.includedContentPackIDs.contains(pack.id);
            });
        pack.summary = product != products.end()
                           ? product->description
                           : QCoreApplication::translate(
                                 "CatalogueResponse",
                                 "Content Pack details are available from Vantor Director.");
        catalogue.append(std::move(pack));
    }
    return catalogue;
}
