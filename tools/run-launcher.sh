#!/usr/bin/env bash
# Builds and starts the launcher. Without arguments it is the sample run (tools/sample-run.sh):
# the sample website, a sample home and the sample Vantor Director. With arguments they go to the
# launcher itself (try --demo, --help, --config FILE).
set -euo pipefail
cd "$(dirname "$0")/.."
if [ $# -eq 0 ]; then
    exec tools/sample-run.sh
fi
tools/build.sh
exec build/bin/vantor-launcher "$@"
