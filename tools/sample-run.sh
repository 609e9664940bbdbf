#!/usr/bin/env bash
# The launcher's sample run: the sample website on 127.0.0.1 and the launcher configured against
# it, with the sample Vantor Director 2.4.1 installed in a sample home. Everything the launcher
# keeps (applications, settings, content store, account snapshot) lies in that home; the website
# session goes to a secret-store item of its own. The user's real ones are never touched.
#
#   tools/sample-run.sh [--reset] [sample-website switches, e.g. --fail /v1/catalogue=503]
#
# --reset starts from an empty sample home. Every start puts Director 2.4.1 back, so that the
# update can be seen again.
set -euo pipefail
cd "$(dirname "$0")/.."
repository=$(pwd)

reset=0
website_switches=()
for argument in "$@"; do
    if [ "$argument" = --reset ]; then reset=1; else website_switches+=("$argument"); fi
done

tools/build.sh
cmake --build build --target sample-director-bundles >/dev/null

run="$repository/build/sample-run"
home="$run/home"
director="$home/Applications/Vantor Director.app"
service=nz.co.halvex.VantorLaunch.sample-website-session

launch() {
    # X11 finds its cookie under HOME unless told where it is.
    if [ -z "${XAUTHORITY:-}" ] && [ -f "$HOME/.Xauthority" ]; then
        export XAUTHORITY="$HOME/.Xauthority"
    fi
    HOME="$home" XDG_CONFIG_HOME="$home/.config" XDG_DATA_HOME="$home/.local/share" \
        XDG_STATE_HOME="$home/.local/state" XDG_CACHE_HOME="$home/.cache" \
        "$repository/build/bin/vantor-launcher" --config "$run/website/launcher-configuration.json"
}

# A sample run that is still going keeps its website and Director: its window comes forward.
if pgrep -f "^$repository/build/bin/vantor-launcher --config $run/website/" >/dev/null; then
    echo "The sample run is already going; its window comes forward."
    launch
    exit 0
fi

# A sample Director left running by an earlier run is ours to close before its bundle goes.
stop_sample_director() {
    pkill -TERM -f "^$home/Applications/[^/]*\.app/Contents/MacOS/" 2>/dev/null || true
    for _ in 1 2 3 4 5 6 7 8 9 10; do
        pgrep -f "^$home/Applications/[^/]*\.app/Contents/MacOS/" >/dev/null || return 0
        sleep 0.5
    done
    pkill -KILL -f "^$home/Applications/[^/]*\.app/Contents/MacOS/" 2>/dev/null || true
}
stop_sample_director

if [ "$reset" = 1 ]; then
    rm -rf "$home" "$run/website"
    if command -v secret-tool >/dev/null; then
        secret-tool clear server "$service" user current 2>/dev/null || true
    fi
fi
mkdir -p "$home/Applications" "$home/.config" "$home/.local/share" "$home/.local/state" \
    "$home/.cache"
chmod 700 "$home"
rm -rf "$director" "$home/Applications"/.vantor-launch-replacing-*
cp -a "$run/director/2.4.1/Vantor Director.app" "$director"

# The website runs as long as the launcher does; its first lines say where its files are.
website_log="$run/website.log"
build/tools/sample-website/sample-website --port 0 --state "$run/website" --remember-sessions \
    --updates "$run/director/updates" \
    --code-signing-anchor "$run/director/signing/developer-root.pem" \
    ${website_switches[@]+"${website_switches[@]}"} >"$website_log" 2>&1 &
website=$!
trap 'kill "$website" 2>/dev/null || true' EXIT
for _ in $(seq 1 100); do
    grep -q '^Launcher configuration:' "$website_log" 2>/dev/null && break
    kill -0 "$website" 2>/dev/null || { cat "$website_log" >&2; exit 1; }
    sleep 0.1
done
address=$(sed -n 's/^Sample website: //p' "$website_log")

cat <<EOF

Vantor Launcher, sample run
  Website:  $address (the sample website on this computer; its log: $website_log)
  Home:     $home
            Vantor Director 2.4.1 is installed in its Applications folder; the launcher's
            settings, content store and account snapshot live here too, never in your own home.
  Session:  kept in your keyring as "$service", apart from any real one.
  Try:      open Director from Overview, then Update to 2.5.0 (Director closes and reopens);
            Sign In (your browser opens the sample website: accept its certificate, which is
            this run's own, then Allow); install a pack from Content Packs.
  Demo data instead: tools/run-launcher.sh --demo

EOF

launch
