# Shared helpers of the end-to-end tests of the Windows program under Wine.
# Source after lib.sh, with WINEPREFIX set to a prefix that wineboot made.
#
# Wine keeps its server's socket under $TMPDIR: every Wine command runs with
# the TMPDIR that the prefix was made with (wine_tmp), or a second server
# would start on the same prefix.
wine_tmp=${wine_tmp:-${TMPDIR:-/tmp}}
uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall'

# Planted DLLs. The Windows program takes every system DLL from the system
# folder: its import table names KnownDLLs only, and the others are
# delay-loaded after its start has restricted the search
# (cmake/delay_load.cmake). Every run here asks Wine to prefer, for the
# names below, a DLL found on the search path, the program's own folder
# first, as Windows does for a DLL that isn't a KnownDLL; plant_dlls puts
# tests/planted_dll.c under those names where a downloaded installer and the
# uninstaller's copy run, and check_planted fails if one of them was loaded.
#
# Three names keep Wine's own order, because Wine loads them for itself
# where Windows wouldn't look in the program's folder:
# - version.dll and zlib1.dll: Wine's user32.dll imports both, so it would
#   take a planted copy (or fail to load, with zlib1 switched off) while the
#   process starts, before any code of the program has run; Windows finds a
#   KnownDLL's own imports in the system folder. That the program imports
#   neither, tests/pe_check.py shows.
# - msimg32.dll: Wine's uxtheme.dll delay-loads it without the search
#   restriction that the program has set.
planted_names=(comctl32.dll comdlg32.dll dwmapi.dll oleacc.dll uxtheme.dll winhttp.dll winmm.dll winspool.drv)
native_first="comctl32,comdlg32,dwmapi,oleacc,uxtheme,winhttp,winmm,winspool.drv=n,b"

# wine_debug: Wine's trace channels for runwine (default none).
runwine() {
  TMPDIR="$wine_tmp" WINEDEBUG="${wine_debug:--all}" WINEDLLOVERRIDES="$native_first" /usr/lib/wine/wine64 "$@"
}
# A started program may leave children behind (the second uninstaller stage
# runs on after the first has ended), and Wine may hand back control before
# the last writes are visible: wait until every process of the prefix ended.
settle() { TMPDIR="$wine_tmp" timeout 120 /usr/lib/wine/wineserver64 -w; }
unix_path() { runwine winepath -u "$1" 2>/dev/null | tr -d '\r'; }
dos_path() { runwine winepath -w "$1" 2>/dev/null | tr -d '\r'; }

# reg_value KEY NAME: the value's data as `reg query` shows it; reg_type the
# same for its type. Nothing when the value isn't there.
reg_line() {
  runwine reg query "$1" /v "$2" 2>/dev/null | tr -d '\r' |
    awk -v name="$2" 'tolower($1) == tolower(name) && $2 ~ /^REG_/'
}
reg_value() { reg_line "$1" "$2" | sed -E 's/^ *[^ ]+ +REG_[A-Z_]+ +//'; }
reg_type() { reg_line "$1" "$2" | awk '{ print $2 }'; }

# The registered entry of $product, as `reg query` shows it, and one value.
entry() { runwine reg query "$uninstall_key\\$product" 2>/dev/null | tr -d '\r'; }
entry_value() { entry | awk -v name="$1" '$1 == name && $2 ~ /^REG_/ { sub(/^ *[^ ]+ +REG_[A-Z_]+ +/, ""); print }'; }

# The program directory as the registry names it (program_files), and the
# temporary directory of the Windows side (win_temp, temp_dir), where the
# debug log (debug_log) and each run's own directory go. Ends the script
# when the prefix has neither.
find_wine_places() {
  program_files=$(reg_value 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion' ProgramFilesDir)
  win_temp=$(runwine cmd /c 'echo %TEMP%' 2>/dev/null | tr -d '\r')
  temp_dir=$(unix_path "$win_temp")
  settle
  debug_log="$temp_dir/installer_debug.log"
  if [ -z "$program_files" ] || [ ! -d "$(unix_path "$program_files")" ] || [ ! -d "$temp_dir" ]; then
    echo "FAILED: no program directory or temporary directory in the prefix ($program_files, $win_temp)"
    exit 1
  fi
}

# plant_dlls DIR...: plants the DLL of tests/planted_dll.c (built beside the
# Windows program) under each of planted_names in each DIR.
planted_places=()
plant_dlls() {
  local dll dir name
  dll="$(dirname "$setup")/planted.dll"
  [ -f "$dll" ] || { echo "FAILED: $dll is missing"; exit 1; }
  for dir in "$@"; do
    for name in "${planted_names[@]}"; do
      cp "$dll" "$dir/$name" || { echo "FAILED: planting $dir/$name"; exit 1; }
    done
    planted_places+=("$dir")
  done
}

# check_planted: one check that no planted DLL was loaded (none left its
# "<name>.ran" beside it); then takes the planted DLLs away again, as some
# lie in the prefix that later tests use.
check_planted() {
  local dll dir name loaded=""
  dll="$(dirname "$setup")/planted.dll"
  for dir in "${planted_places[@]}"; do
    for name in "${planted_names[@]}"; do
      [ -e "$dir/$name.ran" ] && loaded="$loaded $dir/$name"
      rm -f -- "$dir/$name.ran"
      cmp -s "$dll" "$dir/$name" && rm -f -- "$dir/$name"
    done
  done
  planted_places=()
  check "no planted DLL was loaded:$loaded" test -z "$loaded"
}

# handover_dir: the newest run directory in the temporary directory, where
# an uninstaller's first stage put the copies it handed over.
handover_dir() { ls -td "$temp_dir"/qlux-?????? 2>/dev/null | head -n 1; }
