#!/usr/bin/env bash
# Pictures of Velmora for the README: builds it, makes a small tagged library
# (MP3, Ogg, M4A, WAV) and a playlist in a fresh home folder, starts Velmora
# under Xvfb and saves a PNG of each tab, of a conversion under way, of the burn
# and copy sheets and of the Preferences window into docs/screenshots/.
# Usage: scripts/screenshots.sh [output folder]
# VELMORA_BIN=path/to/velmora takes a program already built instead of building one.
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"
out="$(realpath -m "${1:-docs/screenshots}")"
velmora_bin="${VELMORA_BIN:-}"
if [ -z "$velmora_bin" ]; then
  scripts/install-deps.sh
  export CCACHE_BASEDIR="$root"
  cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELMORA_BUILD_TESTS=OFF >/dev/null
  cmake --build build --target velmora
  velmora_bin="$root/build/bin/velmora"
fi
velmora_bin="$(realpath "$velmora_bin")"

home="$(mktemp -d)"
trap 'rm -rf "$home"' EXIT
export HOME="$home" XDG_CONFIG_HOME="$home/.config" XDG_DATA_HOME="$home/.local/share" \
       XDG_CACHE_HOME="$home/.cache" XDG_RUNTIME_DIR="$home/.runtime"
mkdir -p "$XDG_CONFIG_HOME/Velmora" "$XDG_RUNTIME_DIR" && chmod 700 "$XDG_RUNTIME_DIR"
music="$home/Music"
velmora="$home/.local/share/Velmora"  # the application folder of this desktop
mkdir -p "$velmora/Playlists" "$velmora/Media"

# A tone of a given pitch and length as a WAV file.
tone() { sox -n -r 44100 -c 2 -b 16 "$1" synth "$3" pluck "$2" fade 0 "$3" 1; }

album="$music/Ada Lovelace/First Light"
mkdir -p "$album"
n=1
for title in "Morning Engine" "Analytical Waltz" "Punch Cards"; do
  tone "$home/t.wav" $((220 + 40 * n)) $((25 + 7 * n))
  lame --quiet --tt "$title" --ta "Ada Lovelace" --tl "First Light" --tn "$n" --ty 2021 --tg Electronic \
       "$home/t.wav" "$album/0$n $title.mp3"
  n=$((n + 1))
done
album="$music/Nightjar/Field Notes"
mkdir -p "$album"
n=1
for title in "Dusk Chorus" "Moth Light"; do
  tone "$home/t.wav" $((330 + 30 * n)) $((31 + 5 * n))
  oggenc --quiet -t "$title" -a Nightjar -l "Field Notes" -N "$n" -G Ambient -o "$album/0$n $title.ogg" "$home/t.wav"
  n=$((n + 1))
done
album="$music/Quiet Hours"
mkdir -p "$album"
n=1
for title in "Slow Tide" "Harbour Lamps"; do
  tone "$home/t.wav" $((196 + 25 * n)) $((28 + 6 * n))
  ffmpeg -v error -i "$home/t.wav" -c:a aac -b:a 128k -metadata title="$title" -metadata artist="Marin Vale" \
         -metadata album="Quiet Hours" -metadata track="$n" "$album/0$n $title.m4a"
  n=$((n + 1))
done
mkdir -p "$music/Loose Tapes"
tone "$music/Loose Tapes/Rehearsal 2.wav" 262 19
tone "$music/Loose Tapes/Rehearsal 10.wav" 294 23
rm -f "$home/t.wav"

# A playlist with a group, ticked into the media set "CD 1", both selected at start.
cat >"$velmora/Playlists/Road Trip.cd3" <<EOF
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict><key>Group</key><string>OVRoot</string><key>Entries</key><array>
<string>$music/Ada Lovelace/First Light/01 Morning Engine.mp3</string>
<string>$music/Nightjar/Field Notes/02 Moth Light.ogg</string>
<dict><key>Group</key><string>Night Drive</string><key>Entries</key><array>
<string>$music/Quiet Hours/01 Slow Tide.m4a</string>
<string>$music/Quiet Hours/02 Harbour Lamps.m4a</string>
</array></dict></array></dict></plist>
EOF
cat >"$velmora/Media/CD 1.xml" <<EOF
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict><key>playlists</key><array><string>$velmora/Playlists/Road Trip.cd3</string></array></dict></plist>
EOF
: >"$velmora/Media/Flash 1.xml"
cat >"$XDG_CONFIG_HOME/Velmora/defaults.plist" <<EOF
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
<key>mSelectedPlaylistStored</key><string>$velmora/Playlists/Road Trip.cd3</string>
<key>mSelectedMediaSetStored</key><string>$velmora/Media/CD 1.xml</string>
</dict></plist>
EOF

# A flash player for the copy sheet: a folder listed as a removable FAT volume,
# read the way Velmora reads mounts when UDisks2 cannot be reached.
player="$home/media/PLAYER"
mkdir -p "$player" "$home/sys/block/sdz/sdz1"
echo 1 >"$home/sys/block/sdz/removable"
echo "90 30 8:241 / $player rw,relatime - vfat /dev/sdz1 rw" >"$home/mountinfo"
export VELMORA_MOUNTINFO="$home/mountinfo" VELMORA_SYS_BLOCK="$home/sys/block" \
       VELMORA_UDISKS2_BUS="unix:path=$home/no-bus"

# Pictures of an earlier run would mix with these (a tab since renamed or gone).
mkdir -p "$out"
rm -f "$out"/*.png
if command -v xvfb-run >/dev/null; then
  VELMORA_SCREENSHOTS="$out" QT_QPA_PLATFORM=xcb \
    xvfb-run -a -s "-screen 0 1280x800x24" "$velmora_bin"
else
  # No X server at hand: Qt draws the same widgets without one.
  VELMORA_SCREENSHOTS="$out" QT_QPA_PLATFORM=offscreen "$velmora_bin"
fi
ls "$out"
