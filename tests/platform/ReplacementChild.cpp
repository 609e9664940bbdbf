// Replaces a bundle and, after each step, says which on its output and pauses, so that the test
// can kill it anywhere in between; with "@<step>" after the pause, it pauses after that step only.
//   replacement_child <installed> <replacement> <pause milliseconds>[@<step>] [two-renames]

#include "platform/linux/RenameExchangeReplacement.h"

#include <QCoreApplication>
#include <QThread>
#include <cstdio>

int main(int argc, char* argv[]) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 4 && arguments.size() != 5)
        return 2;
    const int pause = arguments[3].section(u'@', 0, 0).toInt();
    const QString only = arguments[3].section(u'@', 1);
    const auto exchange = arguments.size() == 5
                              ? RenameExchangeReplacement::Exchange::never
                              : RenameExchangeReplacement::Exchange::whenSupported;
    RenameExchangeReplacement replacement(
        [pause, only](RenameExchangeReplacement::Step step) {
            std::printf("%d\n", int(step));
            std::fflush(stdout);
            if (only.isEmpty() || only.toInt() == int(step))
                QThread::msleep(pause);
        },
        exchange);
    replacement.replace(arguments[1], arguments[2], QStringLiteral("Backup.app"));
    return 0;
}
