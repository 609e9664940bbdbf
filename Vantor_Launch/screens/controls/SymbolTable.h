#pragma once

#include <QString>
#include <QStringList>

// The one table from the symbol and logo names that records and views use to the artwork that
// ships with the launcher (SVG files in the module's resources).
namespace SymbolTable {

// The resource path of the artwork, or an empty string for an unknown name.
QString resourcePath(const QString& name);
QStringList symbolNames();
QStringList logoNames();
// Logos keep their own colours; symbols are drawn in the colour of their view.
bool isLogo(const QString& name);

} // namespace SymbolTable
