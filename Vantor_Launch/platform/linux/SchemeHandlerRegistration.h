#pragma once

#include <QString>

// Makes the desktop open this launcher for addresses of a URL scheme: a desktop entry in the
// user's applications folder, the scheme's default handler in the user's "mimeapps.list", and
// the D-Bus service that starts the launcher when the desktop activates the entry. For a launcher
// run from its build folder (development, the sample run); an installed launcher's own desktop
// entry registers the scheme.
//
// A callback address carries a sign-in code, and any user of the machine can read a process's
// command line. The entry is therefore D-Bus activatable: a desktop that honours that calls Open
// on the running launcher and starts no process. Its Exec line, for the others, runs the
// hand-over program, which wipes the address from its command line before anything else and
// gives it to the launcher on standard input.
namespace SchemeHandlerRegistration {

// The launcher's name on the session bus and its desktop entry's name.
inline const QString applicationID = QStringLiteral("nz.co.halvex.VantorLaunch");
inline const QString desktopEntryName = applicationID + QStringLiteral(".desktop");
// The program of the Exec line, installed beside the launcher.
inline const QString handOverProgramName = QStringLiteral("vantor-launch-handover");

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
