#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Builds the Debian package from a build tree with CPack, unpacks it into a
# staging folder and checks what a technician gets from installing it: the
# files, the menu entry, the command the entry runs, the dependencies apt
# must pull in, and what a distribution asks of a package: lintian's verdict,
# the AppStream metadata, the copyright file, the changelog and a manual page
# per program.
#
# Usage: test_package.sh BUILD_DIR VERSION WITH_SIMULATE_LISTENER(0|1)
set -euo pipefail
build=$1
version=$2
with_tool=$3

work=$(mktemp -d "${TMPDIR:-/tmp}/veltrane-package.XXXXXX")
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

if ! cpack --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1; then
    cat "$work/cpack.log" >&2
    echo "FAIL: cpack could not build the package" >&2
    exit 1
fi
shopt -s nullglob
debs=("$work"/out/*.deb)
if ((${#debs[@]} != 1)); then
    echo "FAIL: expected one .deb, cpack made ${#debs[@]}" >&2
    exit 1
fi
deb=${debs[0]}
root=$work/root
dpkg-deb -x "$deb" "$root"

field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = veltrane ] || fail "package name is '$(field Package)'"
[ "$(field Version)" = "$version" ] || fail "version is '$(field Version)', expected $version"
[ "$(field Section)" = science ] || fail "section is '$(field Section)'"
[ "$(field Architecture)" = "$(dpkg --print-architecture)" ] ||
    fail "architecture is '$(field Architecture)'"
[[ "$(field Maintainer)" =~ ^[^\<]+\ \<[^@\>]+@[^\>]+\>$ ]] ||
    fail "maintainer '$(field Maintainer)' is not 'Name <e-mail>'"
[ -n "$(field Description)" ] || fail "no description"

# Exactly these files, so that a stray install rule shows up here.
id=invalid.quorvan_lab.veltrane
expected=(
    usr/bin/veltrane
    usr/share/applications/$id.desktop
    usr/share/metainfo/$id.metainfo.xml
    usr/share/doc/veltrane/copyright
    usr/share/doc/veltrane/changelog.gz
    usr/share/man/man1/veltrane.1.gz
    usr/share/icons/hicolor/256x256/apps/veltrane.png
    usr/share/icons/hicolor/48x48/apps/veltrane.png
    usr/share/icons/hicolor/scalable/apps/veltrane.svg
)
[ "$with_tool" = 1 ] && expected+=(usr/bin/simulate-listener usr/share/man/man1/simulate-listener.1.gz
    usr/bin/veltrane-summary usr/share/man/man1/veltrane-summary.1.gz)
if ! diff -u <(printf '%s\n' "${expected[@]}" | sort) \
    <(cd "$root" && find . ! -type d | sed 's|^\./||' | sort) >"$work/files.diff"; then
    cat "$work/files.diff" >&2
    fail "file list differs (- expected, + packaged)"
fi

for bin in "$root"/usr/bin/*; do
    name=${bin#"$root"/}
    [ -x "$bin" ] || fail "$name is not executable"
    # A run path into the build tree would work here and break on every
    # other machine.
    if readelf -d "$bin" | grep -Eq 'R(UN)?PATH'; then
        fail "$name carries a run path: $(readelf -d "$bin" | grep -E 'R(UN)?PATH')"
    fi
    if ldd "$bin" | grep -q 'not found'; then
        fail "$name needs libraries that are missing: $(ldd "$bin" | grep 'not found')"
    fi
done

# The menu entry: valid, runs the packaged program, shows the packaged icon.
entry=$root/usr/share/applications/$id.desktop
if [ -f "$entry" ]; then
    desktop-file-validate "$entry" >"$work/validate.log" 2>&1 || fail "desktop-file-validate failed"
    if grep -Eq '(error|warning):' "$work/validate.log"; then
        fail "desktop-file-validate complains"
    fi
    cat "$work/validate.log" >&2
    key() { sed -n "s/^$1=//p" "$entry"; }
    grep -qx 'Type=Application' "$entry" || fail "entry is not of type Application"
    for category in Science Education; do
        [[ ";$(key Categories)" == *";$category;"* ]] || fail "entry is not in category $category"
    done
    command=$(key Exec)
    command=${command%% *}
    case "$command" in
        /*) program=$command ;;
        *) program=/usr/bin/$command ;;
    esac
    [ -x "$root$program" ] || fail "Exec= runs '$command', which the package does not install"
    [ "$program" = /usr/bin/veltrane ] || fail "Exec= runs '$command' instead of the program"
    icon=$(key Icon)
    [ -f "$root/usr/share/icons/hicolor/scalable/apps/$icon.svg" ] ||
        fail "Icon=$icon has no scalable icon in the package"
    [ -f "$root/usr/share/icons/hicolor/48x48/apps/$icon.png" ] ||
        fail "Icon=$icon has no 48x48 icon in the package"
fi

# The Qt modules the program links, the plugin package that holds the
# PulseAudio back end Qt loads at run time, and the sound server's client
# library.
depends=$(field Depends)
echo "Depends: $depends"
for package in libqt5widgets5 libqt5charts5 libqt5multimedia5 libqt5multimedia5-plugins libpulse0; do
    [[ ", $depends," =~ ,\ $package(\ \([^\)]*\))?, ]] || fail "Depends lacks $package"
done
# Build-time packages and the sanitizer runtime must never be needed to run.
if grep -Eq -- '-dev\b|libasan|libubsan' <<<"$depends"; then
    fail "Depends names a development or sanitizer package"
fi
# Every dependency must be satisfiable here, where the program was built and
# runs: apt resolves the package against the installed system without
# installing anything.
if command -v apt-get >/dev/null; then
    if ! apt-get install --simulate --no-install-recommends -o Debug::NoLocking=1 "$deb" \
        >"$work/apt.log" 2>&1; then
        cat "$work/apt.log" >&2
        fail "apt cannot satisfy the package's dependencies"
    elif grep -E '^Inst ' "$work/apt.log" | grep -vq '^Inst veltrane '; then
        grep -E '^Inst ' "$work/apt.log" >&2
        fail "installing the package would pull in packages the build machine lacks"
    fi
fi

# Every program has a manual page that renders without warnings, has the
# sections a user looks for, and names every option the program's --help
# lists (the program itself takes Qt's options only).
for bin in "$root"/usr/bin/*; do
    name=$(basename "$bin")
    page=$root/usr/share/man/man1/$name.1.gz
    [ -f "$page" ] || continue
    text=$(MANWIDTH=80 man --warnings -l "$page" 2>"$work/man.log")
    [ -s "$work/man.log" ] && fail "man page of $name: $(cat "$work/man.log")"
    for section in NAME SYNOPSIS DESCRIPTION OPTIONS FILES EXAMPLES; do
        grep -q "^$section" <<<"$text" || fail "man page of $name lacks $section"
    done
    [ "$name" = veltrane ] && continue
    for option in $("$bin" --help 2>/dev/null | grep -oE -- '--[a-z][a-z-]+' | sort -u); do
        grep -qF -- "$option" <<<"$text" || fail "man page of $name lacks $option"
    done
done

# Machine-readable copyright naming the licence of every file, icons included.
copyright=$root/usr/share/doc/veltrane/copyright
if [ -f "$copyright" ]; then
    head -1 "$copyright" | grep -q 'copyright-format/1.0' || fail "copyright is not machine-readable"
    grep -q '^Files:.*veltrane\.svg' "$copyright" || fail "copyright does not cover the icons"
    grep -q '^License: GPL-3+$' "$copyright" || fail "copyright lacks the GPL-3+ licence"
fi
changelog=$root/usr/share/doc/veltrane/changelog.gz
if [ -f "$changelog" ]; then
    head -1 < <(gzip -cd "$changelog") | grep -q "^veltrane ($version) " ||
        fail "changelog does not start with version $version"
fi

# AppStream: valid, and tied to the packaged menu entry by its id.
metainfo=$root/usr/share/metainfo/$id.metainfo.xml
if [ -f "$metainfo" ]; then
    appstreamcli validate --no-net "$metainfo" >"$work/appstream.log" 2>&1 ||
        fail "appstreamcli validate: $(cat "$work/appstream.log")"
    grep -q "<id>$id</id>" "$metainfo" || fail "metainfo id is not $id"
    grep -q "<launchable type=\"desktop-id\">$id.desktop</launchable>" "$metainfo" ||
        fail "metainfo does not launch $id.desktop"
fi

# lintian, Debian's package checker: no error and no warning.
command -v lintian >/dev/null || fail "lintian is not installed"
lintian --allow-root "$deb" >"$work/lintian.log" 2>&1 || true
cat "$work/lintian.log" >&2
grep -Eq '^[EW]: ' "$work/lintian.log" && fail "lintian reports errors or warnings"

((failures == 0)) || {
    echo "$failures check(s) failed" >&2
    exit 1
}
echo "package $(basename "$deb") passed"
