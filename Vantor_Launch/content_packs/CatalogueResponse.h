#pragma once

#include "foundation/ContentPack.h"

#include <QByteArray>
#include <QList>
#include <QUrl>

// The public catalogue's JSON document: the active packs in the order received, each with the
// description of the first product that includes it. Throws a decoding LaunchError for a document
// of the wrong shape, whatever part of it is wrong. A relative artwork address is read against
// base, the catalogue's own address.
QList<ContentPack> decodeCatalogueResponse(const QByteArray& document, const QUrl& base = {});
