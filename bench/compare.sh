#!/usr/bin/env bash
# Installs the same payloads with qlux and with its peers, in one run on this
# machine, and prints one table: time and peak memory of installing,
# uninstalling, upgrading and packing, beside `tar xzf`/`tar czf`, makeself,
# and NSIS under the same Wine; then the sizes of the stripped stubs.
#
#   bash bench/compare.sh [--quick] [--keep]
#
# The payloads: a generated one of 128 MB in 1,536 files (half text, half
# random bytes), a real tree of many small files (this machine's Python
# library and /usr/share/doc), a generated 1 GB one (mostly text, so that
# it packs in reasonable time) for peak memory, and a generated 4 GiB one,
# past what one solid block holds, packed and installed beside tar.
# --quick leaves out the 1 GB and 4 GiB payloads and Wine. Each time is the best of three runs, since other
# work on the machine only ever slows a run down; memory is the peak
# resident set of that run (/usr/bin/time -v).
#
# Everything happens in a fresh directory under $TMPDIR (or /tmp), removed
# at the end unless --keep; every installer runs with QLUX_ROOT and TMPDIR
# there, and Wine in a prefix of the benchmark's own.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
quick=0
keep=0
for option in "$@"; do
  case "$option" in
    --quick) quick=1 ;;
    --keep) keep=1 ;;
    *) echo "usage: bash bench/compare.sh [--quick] [--keep]" >&2; exit 2 ;;
  esac
done

# --- tools ------------------------------------------------------------------------
need=()
for p in time makeself nsis; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
  echo "compare: installing ${need[*]}" >&2
  sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null
fi
wine=/usr/lib/wine/wine64
[ -x "$wine" ] || quick=1

echo "compare: building" >&2
(cd "$top" && ninja -C build -j2 qlux-setup qlux-pack qlux-bench-payload >/dev/null)
pack=$top/build/bin/qlux-pack
if [ "$quick" -eq 0 ]; then
  if [ -f "$top/build-win/build.ninja" ]; then
    (cd "$top" && ninja -C build-win -j2 qlux-setup >/dev/null)
  else
    echo "compare: no build-win/ (run scripts/build.sh): Wine is left out" >&2
    quick=1
  fi
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/qlux-compare.XXXXXX")
cleanup() {
  if [ -n "${WINEPREFIX:-}" ]; then WINEPREFIX=$WINEPREFIX /usr/lib/wine/wineserver -k 2>/dev/null || true; fi
  [ "$keep" -eq 1 ] && { echo "compare: kept $work" >&2; return; }
  case "$work" in */qlux-compare.*) rm -rf -- "$work" ;; esac
}
trap cleanup EXIT
export TMPDIR=$work/tmp
mkdir -p "$TMPDIR"

# The stubs as a user downloads them: stripped.
setup=$work/qlux-setup
strip -o "$setup" "$top/build/bin/qlux-setup"
if [ "$quick" -eq 0 ]; then
  setup_exe=$work/qlux-setup.exe
  x86_64-w64-mingw32-strip -o "$setup_exe" "$top/build-win/bin/qlux-setup.exe"
fi

# --- measuring ----------------------------------------------------------------------
# measure NAME COMMAND...: runs the command `repeat` times (3 unless the
# caller sets it), each after `reset` (a function the caller defines to undo
# the last run), and keeps the best time and that run's peak memory in
# seconds[NAME] and memory[NAME] (MB).
declare -A seconds memory
repeat=3
measure() {
  local name=$1
  shift
  local best="" best_mem="" run
  for run in $(seq 1 "$repeat"); do
    reset
    # The disk takes the previous step's writes now, not during this one:
    # otherwise a removal right after an extraction races their writeback.
    sync
    local report=$work/time.txt
    if ! /usr/bin/time -v -o "$report" "$@" >"$work/out.txt" 2>&1; then
      echo "compare: $name failed:" >&2
      tail -20 "$work/out.txt" >&2
      exit 1
    fi
    local wall mem
    wall=$(awk -F': ' '/Elapsed \(wall clock\)/ { n = split($2, p, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + p[i]; print s }' "$report")
    mem=$(awk -F': ' '/Maximum resident set size/ { printf "%.1f", $2 / 1024 }' "$report")
    if [ -z "$best" ] || awk -v a="$wall" -v b="$best" 'BEGIN { exit !(a < b) }'; then
      best=$wall
      best_mem=$mem
    fi
  done
  seconds[$name]=$best
  memory[$name]=$best_mem
  echo "compare: $name ${best}s ${best_mem}MB" >&2
}
reset() { :; }

# --- payloads -----------------------------------------------------------------------
# A template that installs every file of a tree under ROOT, registers the
# product, and removes an older version first; each file under an alias,
# since two paths can give one key without their separators.
write_template() {  # write_template TREE VERSION OUTPUT
  local tree=$1 version=$2 out=$3
  {
    cat <<EOF
<HalvoWorksInstallation>
  <ProductDesc>
    <Fullname>Bench Product</Fullname>
    <MajorVersion>$version</MajorVersion><MinorVersion>0</MinorVersion><MinestVersion>0</MinestVersion>
    <Website>https://bench.example.org</Website>
  </ProductDesc>
  <Dialogs>
    <Welcome><Text x="10" y="10">Bench</Text></Welcome>
    <Uninstall Special="AutoNext" Condition="[PREVIOUSINSTALLATION]==1,[SHOULDUNINSTALL]==1"/>
    <CopyProgress Special="AutoNext"><Progress Name="Overall" x="10" y="40" w="-10" h="20"/></CopyProgress>
    <RevertInstallation Special="AutoNext" Condition="[INSTALL_ERROR]==1"/>
    <RegisterApplication Special="AutoNext" Condition="[INSTALL_ERROR]==0"/>
    <Finish Special="Finish" Condition="[INSTALL_ERROR]==0"><Text x="10" y="10">Done.</Text></Finish>
    <BadFinish Special="Finish" Condition="[INSTALL_ERROR]==1"><Text x="10" y="10">Failed.</Text></BadFinish>
  </Dialogs>
  <UninstallDialogs>
    <CopyProgress Special="AutoNext"><Progress Name="Overall" x="10" y="40" w="-10" h="20"/></CopyProgress>
    <UnregisterApplication Special="AutoNext"/>
    <Finish Special="Finish"><Text x="10" y="10">Removed.</Text></Finish>
  </UninstallDialogs>
  <Installation>
    <Uninstall>
      <InstallLogFile>[ROOT]/uninstall/install.log</InstallLogFile>
      <InstallBackupFile>[ROOT]/uninstall/backup.bin</InstallBackupFile>
      <UninstallXmlFile>[ROOT]/uninstall/install.xml</UninstallXmlFile>
      <UninstallCmd>[ROOT]/uninstall/qlux-uninstall</UninstallCmd>
    </Uninstall>
    <InstallerControlVariables>
      <PreviousInstallation>PREVIOUSINSTALLATION</PreviousInstallation>
      <ShouldUninstall>SHOULDUNINSTALL</ShouldUninstall>
      <InstallError>INSTALL_ERROR</InstallError>
      <UninstallError>UNINSTALL_ERROR</UninstallError>
    </InstallerControlVariables>
    <DefValues>
      <Value Name="PROGRAMFILES" DataType="registry" UseOld="1" RegPlace="HKEY_LOCAL_MACHINE"
             RegKey="SOFTWARE/Microsoft/Windows/CurrentVersion">ProgramFilesDir</Value>
      <Value Name="ROOT" DataType="value" UseOld="1">\$PROGRAMFILES/Bench</Value>
      <Value Name="PREVIOUSINSTALLATION" DataType="value">0</Value>
      <Value Name="SHOULDUNINSTALL" DataType="value">1</Value>
      <Value Name="INSTALL_ERROR" DataType="value">0</Value>
      <Value Name="UNINSTALL_ERROR" DataType="value">0</Value>
    </DefValues>
    <FileSet Name="Main">
      <FN Dest="[ROOT]/uninstall" Alias="uninstaller" Executable="1" StripExeExt="1">qlux-uninstall.exe</FN>
      <FN Dest="[ROOT]/uninstall">install.xml</FN>
EOF
    (cd "$tree" && find . -type f -printf '%P\n' | LC_ALL=C sort) | awk '
      function escape(s) { gsub(/&/, "\\&amp;", s); gsub(/</, "\\&lt;", s); gsub(/>/, "\\&gt;", s); gsub(/"/, "\\&quot;", s); return s }
      {
        dir = $0; sub(/\/?[^\/]*$/, "", dir)
        dest = dir == "" ? "[ROOT]" : "[ROOT]/" dir
        printf "      <FN Dest=\"%s\" Alias=\"p%d\">payload/%s</FN>\n", escape(dest), NR, escape($0)
      }'
    cat <<EOF
    </FileSet>
    <UninstallWildcards><Files Dest="[ROOT]/uninstall">*</Files></UninstallWildcards>
  </Installation>
</HalvoWorksInstallation>
EOF
  } >"$out"
}

# stage NAME TREE: the source directory that qlux-pack reads for a payload:
# the tree as payload/ and the uninstaller program; the two versions'
# templates beside it.
stage() {
  local name=$1 tree=$2 stage=$work/stage/$1
  mkdir -p "$stage"
  mkdir -p "$stage/v1" "$stage/v2"
  ln -s "$tree" "$stage/payload"
  cp "$setup" "$stage/qlux-uninstall.exe"
  # The templates stand outside the source tree, as install.xml each.
  write_template "$tree" 1 "$stage/v1/install.xml"
  write_template "$tree" 2 "$stage/v2/install.xml"
}

echo "compare: making the payloads" >&2
"$top/build/bin/qlux-bench-payload" "$work/gen128" 128 1536 50
# The real tree: regular files only, as a product would ship them.
mkdir -p "$work/real"
for source in /usr/lib/python3.11 /usr/share/doc; do
  (cd "$(dirname "$source")" && find "$(basename "$source")" -type f -readable -print0 |
    tar --null -T - -cf - 2>/dev/null | tar -xf - -C "$work/real")
done
payloads=(gen128 real)
if [ "$quick" -eq 0 ]; then
  # 954 MiB: 1 GB, which with its records stays below the 1 GiB that a
  # solid package holds.
  "$top/build/bin/qlux-bench-payload" "$work/gen1g" 954 3072 90
  # 4 GiB: several solid blocks.
  "$top/build/bin/qlux-bench-payload" "$work/gen4g" 4096 4096 90
  payloads+=(gen1g gen4g)
fi
for p in "${payloads[@]}"; do stage "$p" "$work/$p"; done

describe() {  # describe TREE: "N MB, M files, largest L MB"
  local tree=$1
  echo "$(du -sm --apparent-size "$tree" | cut -f1) MB, $(find "$tree" -type f | wc -l) files," \
       "largest $(find "$tree" -type f -printf '%s\n' | sort -n | tail -1 | awk '{ printf "%.1f", $1 / 1048576 }') MB"
}

# --- packing ------------------------------------------------------------------------
for p in "${payloads[@]}"; do
  s=$work/stage/$p
  reset() { rm -f "$work/$p-v1"; }
  # The 1 GB and 4 GiB payloads are there for peak memory and for what one
  # solid block can't hold: one run of each step.
  case "$p" in gen1g | gen4g) repeat=1 ;; esac
  measure "pack_$p" "$pack" --stub "$setup" --template "$s/v1/install.xml" --source "$s" -o "$work/$p-v1"
  reset() { rm -f "$work/$p.tar.gz"; }
  if [ "$p" = gen4g ]; then
    measure "tarczf_$p" tar czf "$work/$p.tar.gz" -C "$work/$p" .
    repeat=3
    continue
  fi
  repeat=3
  reset() { :; }
  "$pack" --stub "$setup" --template "$s/v2/install.xml" --source "$s" -o "$work/$p-v2" >/dev/null
  [ "$p" = gen1g ] && continue
  reset() { rm -f "$work/$p.tar.gz"; }
  measure "tarczf_$p" tar czf "$work/$p.tar.gz" -C "$work/$p" .
  reset() { rm -f "$work/$p.run"; }
  # makeself packs slowly and is no target: one run.
  repeat=1
  measure "makeself_pack_$p" makeself --quiet --nox11 --notemp "$work/$p" "$work/$p.run" "bench" true
  repeat=3
done

# --- installing, uninstalling, upgrading ------------------------------------------------
# Trees that a step made are moved into a graveyard, not deleted, before the
# next timed step. ext4 without a journal (the root file system of the
# machines this runs on) doesn't hand out an inode freed within the last
# minute (six, while its table block waits to be written) while it finds
# another: making thousands of files just after
# deleting thousands walks past every freed one. Measured on the real tree:
# an installation took 2.3 s right after a removal, 1.1 s otherwise, and
# 0.4 s on a journaled ext4, where nothing of the kind happens. A step would
# pay for the removal before it. The graveyard is emptied between payloads,
# and the next payload waits until what was freed counts as old.
grave=$work/grave
buried=0
mkdir -p "$grave"
bury() {  # bury PATH...: moves each PATH that is there into the graveyard
  local path
  for path; do
    [ -e "$path" ] || continue
    buried=$((buried + 1))
    mv -- "$path" "$grave/$buried"
  done
}
empty_grave() {
  [ "$buried" -gt 0 ] || return 0
  rm -rf -- "$grave"
  mkdir -p "$grave"
  buried=0
  sync
  sleep 61
}
# A sandbox for one installer run: QLUX_ROOT with its program directory.
sandbox() {
  case "$work" in */qlux-compare.*) ;; *) exit 1 ;; esac
  bury "$work/root" "$work/tmp"
  mkdir -p "$work/root/opt" "$work/tmp"
}
export QLUX_ROOT=$work/root
installed=$work/root/opt/Bench
uninstall_command() {
  awk -F'\t' '$1 == "UninstallString" { print $3 }' \
    "$QLUX_ROOT/var/lib/qlux/registry/HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/Bench Product/.values"
}

for p in "${payloads[@]}"; do
  empty_grave
  reset() { sandbox; }
  case "$p" in gen1g | gen4g) repeat=1 ;; esac
  measure "install_$p" "$work/$p-v1" -gui=0 -auto
  repeat=3
  [ "$(find "$installed" -type f | wc -l)" -gt "$(find "$work/$p" -type f | wc -l)" ] ||
    { echo "compare: $p did not install" >&2; exit 1; }
  if [ "$p" = gen4g ]; then
    sandbox
    reset() { bury "$work/tar"; mkdir -p "$work/tar"; }
    repeat=1
    measure "tarxzf_$p" tar xzf "$work/$p.tar.gz" -C "$work/tar"
    repeat=3
    bury "$work/tar" "$work/$p.tar.gz"
    continue
  fi
  if [ "$p" = gen1g ]; then
    sandbox
    continue
  fi
  reset() { sandbox; "$work/$p-v1" -gui=0 -auto >/dev/null; }
  # The upgrade goes before the uninstallation, which frees as many files as
  # the upgrade makes.
  measure "upgrade_$p" "$work/$p-v2" -gui=0 -auto
  reset
  # The uninstaller's second stage goes on after the first one ends; reading
  # its output to the end waits for it.
  measure "uninstall_$p" sh -c "$(uninstall_command) -gui=0 </dev/null | cat >/dev/null"
  [ ! -e "$installed/uninstall" ] || { echo "compare: $p did not uninstall" >&2; exit 1; }
  reset() { bury "$work/tar"; mkdir -p "$work/tar"; }
  measure "tarxzf_$p" tar xzf "$work/$p.tar.gz" -C "$work/tar"
  reset() { bury "$work/mks"; }
  measure "makeself_$p" "$work/$p.run" --quiet --noexec --target "$work/mks"
  # Last, since it frees what the steps above would find in the way.
  reset() { bury "$work/tar"; mkdir -p "$work/tar"; tar xzf "$work/$p.tar.gz" -C "$work/tar"; }
  measure "rm_$p" rm -rf -- "$work/tar"
  bury "$work/mks"
  sandbox
done

# --- under Wine ---------------------------------------------------------------------
if [ "$quick" -eq 0 ]; then
  empty_grave
  echo "compare: making a Wine prefix" >&2
  export WINEPREFIX=$work/wine WINEDEBUG=-all
  "$wine" wineboot -i >/dev/null 2>&1
  # A server that stays, as on a machine that is up: no run pays for its
  # start or waits for its end. The one that wineboot started goes first.
  /usr/lib/wine/wineserver -w
  /usr/lib/wine/wineserver -p
  s=$work/stage/gen128
  cp "$setup_exe" "$s/qlux-uninstall.exe"
  "$pack" --stub "$setup_exe" --template "$s/v1/install.xml" --source "$s" -o "$work/gen128-setup.exe" >/dev/null
  cat >"$work/bench.nsi" <<EOF
Unicode true
Target amd64-unicode
SetCompressor zlib
Name "Bench"
OutFile "$work/gen128-nsis.exe"
InstallDir "\$PROGRAMFILES64\\BenchNSIS"
RequestExecutionLevel admin
SilentInstall silent
Section
  SetOutPath \$INSTDIR
  File /r "$work/gen128/*"
SectionEnd
EOF
  reset() { rm -f "$work/gen128-nsis.exe"; }
  measure makensis_gen128 makensis -V1 "$work/bench.nsi"
  programs="$WINEPREFIX/drive_c/Program Files"
  case "$programs" in "$work"/*) ;; *) exit 1 ;; esac
  # files_in DIR COUNT: waits (up to 10 s) until DIR holds at least COUNT
  # files: Wine may show a program's last writes a moment after it ended.
  files_in() {
    for _ in $(seq 1 100); do
      [ "$(find "$1" -type f 2>/dev/null | wc -l)" -ge "$2" ] && return 0
      sleep 0.1
    done
    return 1
  }
  reset() { bury "$programs/Bench" "$programs/BenchNSIS"; "$wine" reg delete \
    'HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\Bench Product' /f >/dev/null 2>&1 || true; }
  measure wine_qlux_gen128 "$wine" "$work/gen128-setup.exe" -gui=0 -auto
  files_in "$programs/Bench" 1537 || { echo "compare: the Windows installer failed under Wine" >&2; exit 1; }
  measure wine_nsis_gen128 "$wine" "$work/gen128-nsis.exe" /S "/D=C:\\Program Files\\BenchNSIS"
  files_in "$programs/BenchNSIS" 1536 || { echo "compare: the NSIS installer failed under Wine" >&2; exit 1; }
  reset
fi

# --- the table ----------------------------------------------------------------------
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { if (a > 0) printf "%.2f", b / a; else print "-" }'; }
cell() { [ -n "${seconds[$1]:-}" ] && printf '%s s, %s MB' "${seconds[$1]}" "${memory[$1]}" || printf '%s' '-'; }
echo
echo "Machine: $(nproc) cores, $(awk '/MemTotal/ { printf "%.0f GB", $2 / 1048576 }' /proc/meminfo)," \
     "$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//'); load average at the end" \
     "$(cut -d' ' -f1-3 /proc/loadavg)"
for p in "${payloads[@]}"; do [ "$p" = gen4g ] || echo "Payload $p: $(describe "$work/$p")"; done
echo
printf '| %-34s | %-22s | %-22s | %-22s |\n' "Step" "gen128" "real" "gen1g"
printf '|%s|%s|%s|%s|\n' "$(printf -- '-%.0s' {1..36})" "$(printf -- '-%.0s' {1..24})" "$(printf -- '-%.0s' {1..24})" "$(printf -- '-%.0s' {1..24})"
row() {  # row LABEL KEY
  printf '| %-34s | %-22s | %-22s | %-22s |\n' "$1" "$(cell "$2_gen128")" "$(cell "$2_real")" "$(cell "$2_gen1g")"
}
row "qlux install" install
row "tar xzf" tarxzf
row "makeself (extract)" makeself
row "qlux uninstall" uninstall
row "rm -rf" rm
row "qlux upgrade (v2 over v1)" upgrade
row "qlux-pack" pack
row "tar czf" tarczf
row "makeself (pack)" makeself_pack
if [ "$quick" -eq 0 ]; then
  printf '| %-34s | %-22s | %-22s | %-22s |\n' "qlux under Wine" "$(cell wine_qlux_gen128)" "-" "-"
  printf '| %-34s | %-22s | %-22s | %-22s |\n' "NSIS under Wine" "$(cell wine_nsis_gen128)" "-" "-"
  printf '| %-34s | %-22s | %-22s | %-22s |\n' "makensis" "$(cell makensis_gen128)" "-" "-"
fi
if [ "$quick" -eq 0 ]; then
  echo
  echo "Past one solid block (gen4g: $(describe "$work/gen4g")):"
  printf '| %-34s | %-22s | %-22s |\n' "Step" "qlux" "tar"
  printf '|%s|%s|%s|\n' "$(printf -- '-%.0s' {1..36})" "$(printf -- '-%.0s' {1..24})" "$(printf -- '-%.0s' {1..24})"
  printf '| %-34s | %-22s | %-22s |\n' "install (tar xzf)" "$(cell install_gen4g)" "$(cell tarxzf_gen4g)"
  printf '| %-34s | %-22s | %-22s |\n' "pack (tar czf)" "$(cell pack_gen4g)" "$(cell tarczf_gen4g)"
fi
echo
echo "Speed-ups (the peer's time over qlux's; above 1 is faster):"
for p in gen128 real; do
  echo "  $p: install vs tar xzf $(ratio "${seconds[install_$p]}" "${seconds[tarxzf_$p]}")," \
       "pack vs tar czf $(ratio "${seconds[pack_$p]}" "${seconds[tarczf_$p]}")," \
       "uninstall / rm -rf $(ratio "${seconds[rm_$p]}" "${seconds[uninstall_$p]}")," \
       "upgrade / install $(ratio "${seconds[install_$p]}" "${seconds[upgrade_$p]}")"
done
if [ "$quick" -eq 0 ]; then
  echo "  gen128 under Wine: install vs NSIS $(ratio "${seconds[wine_qlux_gen128]}" "${seconds[wine_nsis_gen128]}")"
fi
echo
echo "Stubs, stripped: Linux $(stat -c %s "$setup") bytes$([ "$quick" -eq 0 ] && echo ", Windows $(stat -c %s "$setup_exe") bytes")"
