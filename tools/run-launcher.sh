#!/usr/bin/env bash
# Builds and starts the launcher; arguments go to the launcher (try --demo, --help).
set -euo pipefail
cd "$(dirname "$0")/.."
tools/build.sh
exec build/bin/vantor-launcher "$@"
