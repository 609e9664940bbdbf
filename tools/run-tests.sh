#!/usr/bin/env bash
# Builds and runs every test. GUI tests run offscreen; tests that need a session bus or a secret
# service start their own private ones.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/build.sh
export QT_QPA_PLATFORM=offscreen
export XDG_RUNTIME_DIR=${XDG_RUNTIME_DIR:-$(mktemp -d)}
ctest --test-dir build --output-on-failure --parallel "$(nproc)" "$@"
