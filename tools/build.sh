#!/usr/bin/env bash
# Installs what the build needs (when missing), configures and builds into build/.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
build_type=${BUILD_TYPE:-RelWithDebInfo}
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE="$build_type" -DLAUNCHER_WARNINGS_AS_ERRORS=ON >/dev/null
cmake --build build --parallel "$(nproc)"
