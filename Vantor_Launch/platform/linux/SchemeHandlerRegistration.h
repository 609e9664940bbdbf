#pragma once

#include <QString>

// Makes the desktop open this launcher for addresses of a URL scheme: a desktop entry in the
// user's applications folder and the scheme's default handler in the user's "mimeapps.list".
// For a launcher run from its build folder (development, the sample run); an installed launcher's
// own desktop entry registers the scheme.
namespace SchemeHandlerRegistration {

// Not the installed entry's name, so that it never hides the installed launcher's entry.
inline const QString desktopEntryName = QStringLiteral("vantor-launcher.desktop");

// The user's XDG folders by default. Does nothing for an installed launcher, whose desktop entry
// lies beside it. Best effort: a folder that cannot be written leaves the desktop's own choice in
// place.
void registerForUser(const QString& scheme, const QString& executable, const QString& dataHome = {},
                     const QString& configHome = {});

// The program of the entry's Exec line: quoted and escaped only when the path needs it.
QString execProgram(QString executable);

// "mimeapps.list" with the scheme's default handler set to the entry, everything else kept.
QString withDefaultHandler(const QString& mimeapps, const QString& scheme);

} // namespace SchemeHandlerRegistration
