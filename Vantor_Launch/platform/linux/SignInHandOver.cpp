// vantor-launch-handover: the Exec line of the launcher's desktop entry, for desktops that start a
// program for a "vantor-launch:" address instead of asking the running launcher over D-Bus.
//
// The address carries a sign-in code and state, and every user of the machine can read a
// process's command line. So the address is copied out and wiped from the command line before
// main() runs, in a program linked statically and using nothing but the C library, so that there
// is next to nothing to load first. The launcher beside this program then takes over this process
// with the address on its standard input.
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// As long as an address the launcher accepts, and far below a pipe's capacity.
constexpr size_t maximumAddressBytes = 16 * 1024;

char address[maximumAddressBytes];
size_t addressBytes = 0;

// Run by the C library with the program's arguments before main(), ahead of anything of ours.
void takeAddress(int argc, char** argv, char**) {
    if (argc > 1) {
        const size_t length = strnlen(argv[1], maximumAddressBytes + 1);
        // A longer one is no callback; it is wiped all the same and not passed on.
        if (length <= maximumAddressBytes) {
            memcpy(address, argv[1], length);
            addressBytes = length;
        }
    }
    for (int index = 1; index < argc; ++index)
        explicit_bzero(argv[index], strlen(argv[index]));
}

[[gnu::section(".init_array"), gnu::used]] void (*const wipeCommandLine)(int, char**,
                                                                         char**) = takeAddress;

bool writeAll(int descriptor, const char* bytes, size_t size) {
    while (size > 0) {
        const ssize_t written = write(descriptor, bytes, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        bytes += written;
        size -= size_t(written);
    }
    return true;
}

} // namespace

int main() {
    char launcher[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", launcher, sizeof launcher - 1);
    if (length <= 0)
        return 127;
    launcher[length] = '\0';
    char* folderEnd = strrchr(launcher, '/');
    static const char launcherName[] = "/vantor-launcher";
    if (!folderEnd || size_t(folderEnd - launcher) + sizeof launcherName > sizeof launcher)
        return 127;
    memcpy(folderEnd, launcherName, sizeof launcherName);

    if (addressBytes == 0) {
        // Started from a menu, not for an address: simply the launcher.
        execl(launcher, launcher, static_cast<char*>(nullptr));
        return 127;
    }

    // The whole address fits into the pipe, so it is written before the reader exists.
    int channel[2];
    if (pipe2(channel, O_CLOEXEC) != 0)
        return 127;
    const bool written =
        writeAll(channel[1], address, addressBytes) && writeAll(channel[1], "\n", 1);
    explicit_bzero(address, sizeof address);
    close(channel[1]);
    // dup2 leaves the copy open across exec; the original closes with it.
    if (!written || dup2(channel[0], STDIN_FILENO) < 0)
        return 127;
    execl(launcher, launcher, "--handover", static_cast<char*>(nullptr));
    return 127;
}
