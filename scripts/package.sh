#!/usr/bin/env bash
# Builds the Debian package (build/velmora_VERSION_ARCH.deb) from the same tree
# scripts/run.sh builds. With --check it also unpacks the package into a scratch
# root, validates its desktop entry and metainfo, and runs the unpacked
# velmora-cli: --version and conversions that need the system's lame and the
# package's own mqp, found beside the program.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELMORA_BUILD_TESTS=OFF >/dev/null
cmake --build build
(cd build && cpack -G DEB >/dev/null)
package=$(ls -t build/velmora_*.deb | head -n 1)
echo "$package"
[ "${1:-}" = "--check" ] || exit 0

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
dpkg-deb -x "$package" "$scratch/root"
depends=$(dpkg-deb -f "$package" Depends)
for needed in libqt6widgets6 libtag1v5 libcdio libplist libburn libisofs libmpg123 ffmpeg lame mplayer cd-paranoia; do
    case "$depends" in *"$needed"*) ;; *) echo "package: Depends lacks $needed: $depends" >&2; exit 1 ;; esac
done
for program in "$scratch"/root/usr/bin/* "$scratch"/root/usr/libexec/velmora/*; do
    if strings "$program" | grep -qF "$PWD"; then echo "package: $program holds a path of the build" >&2; exit 1; fi
done
desktop-file-validate "$scratch/root/usr/share/applications/com.dorvane.velmora.desktop"
appstreamcli validate --no-net "$scratch/root/usr/share/metainfo/com.dorvane.velmora.metainfo.xml" >/dev/null
for f in icons/hicolor/scalable/apps/com.dorvane.velmora.svg icons/hicolor/48x48/apps/com.dorvane.velmora.png \
         icons/hicolor/128x128/apps/com.dorvane.velmora.png man/man1/velmora.1.gz man/man1/velmora-cli.1.gz \
         bash-completion/completions/velmora-cli; do
    [ -s "$scratch/root/usr/share/$f" ] || { echo "package: /usr/share/$f is missing" >&2; exit 1; }
done

cli="$scratch/root/usr/bin/velmora-cli"
export HOME="$scratch/home" XDG_RUNTIME_DIR= QT_QPA_PLATFORM=offscreen
mkdir -p "$HOME"
"$cli" --version
sox -n -r 44100 -c 2 -b 16 "$scratch/tone.wav" synth 2 sine 440
"$cli" export --to MP3 "$scratch/tone.wav" "$scratch/tone.mp3" >/dev/null
"$cli" export --to M4A "$scratch/tone.wav" "$scratch/tone.m4a" >/dev/null
for made in tone.mp3 tone.m4a; do
    seconds=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$scratch/$made")
    case "$seconds" in 1.9* | 2.0*) ;; *) echo "package: $made lasts $seconds s, not 2" >&2; exit 1 ;; esac
done
echo "package: $package checked"
