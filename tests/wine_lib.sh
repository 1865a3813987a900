# Shared helpers of the end-to-end tests of the Windows program under Wine.
# Source after lib.sh, with WINEPREFIX set to a prefix that wineboot made.
#
# Wine keeps its server's socket under $TMPDIR: every Wine command runs with
# the TMPDIR that the prefix was made with (wine_tmp), or a second server
# would start on the same prefix.
wine_tmp=${wine_tmp:-${TMPDIR:-/tmp}}
uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall'

runwine() { TMPDIR="$wine_tmp" WINEDEBUG=-all /usr/lib/wine/wine64 "$@"; }
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
# hand-over copies and the debug log (debug_log) go. Ends the script when
# the prefix has neither.
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
