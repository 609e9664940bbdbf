#!/usr/bin/env bash
# The Debian package as a user gets it: made by cpack from this build, checked file by file and
# field by field, unpacked into a throwaway root where its desktop entry and metainfo validate, the
# launcher starts and the desktop's lookup sends "vantor-launch:" addresses to its entry.
#
#   package_test.sh BUILD_DIR APP_ID
set -euo pipefail
build=$1
id=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
    echo "FAIL: $*" >&2
    exit 1
}

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log"; fail "cpack could not make the package"; }
deb=$(echo "$work"/out/vantor-launcher_*_*.deb)
[ -f "$deb" ] || fail "no package in $work/out"

# Exactly these files: the views are compiled in, and nothing of the build or the tests comes along.
expected=$(
    printf '%s\n' ./usr/bin/vantor-launcher ./usr/bin/vantor-launch-handover \
        "./usr/share/applications/$id.desktop" "./usr/share/dbus-1/services/$id.service" \
        "./usr/share/metainfo/$id.metainfo.xml" ./usr/share/man/man1/vantor-launcher.1.gz \
        "./usr/share/icons/hicolor/scalable/apps/$id.svg"
    for size in 16 22 24 32 48 64 128 256 512; do
        echo "./usr/share/icons/hicolor/${size}x$size/apps/$id.png"
    done
)
actual=$(dpkg-deb --contents "$deb" | awk '$6 !~ /\/$/ { print $6 }')
[ "$(sort <<<"$expected")" = "$(sort <<<"$actual")" ] ||
    { diff <(sort <<<"$expected") <(sort <<<"$actual") || true; fail "the package's files"; }

# No maintainer scripts: the desktop's caches are refreshed by the triggers of the packages that own them.
control=$(dpkg-deb --ctrl-tarfile "$deb" | tar -t | grep -v '/$' | sort | xargs)
[ "$control" = "./control ./md5sums" ] || fail "control members: $control"
[ "$(dpkg-deb --field "$deb" Section)" = utils ] || fail "section"
[ -n "$(dpkg-deb --field "$deb" Description | sed -n 2p)" ] || fail "no long description"
depends=$(dpkg-deb --field "$deb" Depends)
# A linked library (dpkg-shlibdeps) and QML modules that only the views' imports name.
for package in libqt6quick6 qml6-module-qtquick-controls qml6-module-qtquick-layouts \
    qml6-module-qt-labs-platform; do
    grep -Eq "(^|, )$package( |,|$)" <<<"$depends" || fail "Depends lacks $package: $depends"
done

root=$work/root
dpkg-deb --extract "$deb" "$root"
entry=$root/usr/share/applications/$id.desktop
key() { sed -n "s/^$1=//p" "$entry"; }
[ "$(key Exec)" = "vantor-launch-handover %u" ] || fail "Exec=$(key Exec)"
[ "$(key DBusActivatable)" = true ] || fail "DBusActivatable=$(key DBusActivatable)"
grep -qx "Name=$id" "$root/usr/share/dbus-1/services/$id.service" || fail "the D-Bus service's name"
grep -qx "Exec=/usr/bin/vantor-launcher" "$root/usr/share/dbus-1/services/$id.service" ||
    fail "the D-Bus service starts $(grep Exec= "$root/usr/share/dbus-1/services/$id.service")"
[ "$(key Icon)" = "$id" ] || fail "Icon=$(key Icon)"
[ "$(key StartupWMClass)" = "$id" ] || fail "StartupWMClass=$(key StartupWMClass)"
[[ "$(key MimeType)" == *"x-scheme-handler/vantor-launch;"* ]] || fail "MimeType=$(key MimeType)"
desktop-file-validate "$entry" || fail "desktop-file-validate"
# Also checks that the metainfo's launchable names a desktop entry of the package.
HOME=$work appstreamcli validate-tree --no-net "$root" || fail "appstreamcli validate-tree"

# What the desktop sees: a throwaway home, and the unpacked root as the only system data folder.
mkdir -m 700 "$work/home" "$work/runtime"
desktop_env=(env -i "PATH=$PATH" "HOME=$work/home" "XDG_RUNTIME_DIR=$work/runtime"
    "XDG_DATA_HOME=$work/home/.local/share" "XDG_CONFIG_HOME=$work/home/.config"
    "XDG_DATA_DIRS=$root/usr/share" "XDG_CONFIG_DIRS=$root/etc/xdg" QT_QPA_PLATFORM=offscreen)

# dpkg's trigger of desktop-file-utils does this on a real installation.
update-desktop-database "$root/usr/share/applications"
handler=$("${desktop_env[@]}" xdg-mime query default x-scheme-handler/vantor-launch)
[ "$handler" = "$id.desktop" ] || fail "xdg-mime names '$handler'"

launcher=$root/usr/bin/vantor-launcher
help=$("${desktop_env[@]}" "$launcher" --help)
manual=$(gzip -dc "$root/usr/share/man/man1/vantor-launcher.1.gz" | sed 's/\\-/-/g')
for option in $(grep -oE -- '--[a-z][a-z-]*' <<<"$help" | sort -u); do
    grep -qF -- "$option" <<<"$manual" || fail "the manual page lacks $option"
done

# Still running after a few seconds: the views loaded from the binary and the system's QML modules.
status=0
"${desktop_env[@]}" timeout 4 "$launcher" --demo >"$work/demo.log" 2>&1 || status=$?
[ "$status" = 124 ] || { cat "$work/demo.log"; fail "the launcher ended with $status"; }
