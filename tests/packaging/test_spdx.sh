#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Checks that every tracked source file names the project's licence in an
# SPDX comment among its first lines, where licence scanners look for it.
# Skipped (exit 77) outside a git checkout, for example in a source tarball.
#
# Usage: test_spdx.sh SOURCE_DIR
set -euo pipefail
cd "$1"
git rev-parse --is-inside-work-tree >/dev/null 2>&1 || exit 77

missing=0
while IFS= read -r -d '' file; do
    if ! head -n 5 "$file" | grep -q 'SPDX-License-Identifier: GPL-3.0-or-later'; then
        echo "no SPDX-License-Identifier: GPL-3.0-or-later line: $file" >&2
        missing=$((missing + 1))
    fi
done < <(git ls-files -z '*.cpp' '*.h' '*CMakeLists.txt' '*.cmake' '*.sh')
((missing == 0)) || {
    echo "$missing file(s) without the licence identifier" >&2
    exit 1
}
echo "every source file names its licence"
