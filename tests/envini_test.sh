#!/usr/bin/env bash
# Environment, INI and modify-file actions, run for real: an unattended
# installation changes the machine-wide environment, an INI file and a text
# file under QLUX_ROOT and logs each change; removing the product through
# the registered command puts every one of those files back byte for byte.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
data="$here/data/envini"
uninstall_key="HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/Envini Product"

new_sandbox "envini"
mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc" "$sandbox/stage" "$sandbox/run" "$sandbox/before"
root="$QLUX_ROOT/opt/Envini"
etc="$QLUX_ROOT/etc"
log_file="$root/uninstall/install.log"

cp -r "$data/." "$sandbox/stage/"
cp "$setup" "$sandbox/stage/qlux-uninstall.exe"
"$pack" --stub "$setup" --template "$sandbox/stage/install.xml" --source "$sandbox/stage" \
  -o "$sandbox/run/envini-setup" >/dev/null || { echo "FAILED: packing"; exit 1; }

# The machine as it stands before: a system environment with a PATH, an INI
# file and a configuration file with two places for the modification.
cat >"$etc/environment" <<'END'
# system-wide environment
PATH="/usr/local/bin:/usr/bin:/bin"
TOOL_PLUGINS=/usr/lib/tool
TOOL_MODE=old
LANG=C
END
cat >"$etc/tool.ini" <<'END'
; tool settings
[Main]
Name=tool
Mode=fast

[Other]
Key=value
END
cat >"$etc/tool.conf" <<'END'
# tool configuration
# plugins
plugin = core
# plugins
END
cp -p "$etc/environment" "$etc/tool.ini" "$etc/tool.conf" "$sandbox/before/"

env_value() { sed -n "s/^$1=//p" "$etc/environment"; }

# --- Installing -------------------------------------------------------------------
out=$(cd "$sandbox/run" && timeout 120 ./envini-setup -gui=0 -auto </dev/null 2>&1); code=$?
check "install exits 0, got $code" test "$code" -eq 0
check "install succeeds" holds "$out" "Automatic installation was successful!"

check "PATH appended" test "$(env_value PATH)" = "\"/usr/local/bin:/usr/bin:/bin:$root/bin\""
check "TOOL_PLUGINS inserted" test "$(env_value TOOL_PLUGINS)" = "$root/plugins:/usr/lib/tool"
check "TOOL_MODE replaced" test "$(env_value TOOL_MODE)" = "installed"
check "ENVINI_HOME created" test "$(env_value ENVINI_HOME)" = "$root"
check "other lines kept" grep -qxF -e "LANG=C" "$etc/environment"
check "the condition kept NEVER out" test -z "$(env_value NEVER)"
check "no probe file left" test -z "$(find "$root" -name 'test$$$$*')"

check "INI keys placed" test "$(cat "$etc/tool.ini")" = "; tool settings
[Main]
Name=tool
Level=3
Mode=fast
Home=$root

[Other]
Key=value"
check "lines added after both matches" test "$(cat "$etc/tool.conf")" = "# tool configuration
# plugins
plugin = envini
plugin-dir = envini/plugins
plugin = core
# plugins
plugin = envini
plugin-dir = envini/plugins"
check "no file left beside the targets" test -z "$(find "$etc" -name '*.qlux-new')"

log=$(tr -d '\r' <"$log_file")
check "log ENV ADD for the append" grep -qxF "ENV	ADD	PATH	$root/bin" <<<"$log"
check "log ENV ADD for the insert" grep -qxF "ENV	ADD	TOOL_PLUGINS	$root/plugins:" <<<"$log"
check "log ENV REPLACE with the old value" grep -qxF "ENV	REPLACE	TOOL_MODE	old" <<<"$log"
check "log ENV CREATE" grep -qxF "ENV	CREATE	ENVINI_HOME" <<<"$log"
check "log INI CREATE without BeforeKey" grep -qxF "INI	CREATE	$etc/tool.ini	Main	Home	$root" <<<"$log"
check "log INI CREATE with BeforeKey" grep -qxF "INI	CREATE	$etc/tool.ini	Main	Level	3" <<<"$log"
check "log MODIFYFILE" grep -qxF "MODIFYFILE	ADDAFTER	$etc/tool.conf	$root/share/tool.mod" <<<"$log"
check "log the new INI file after its key" test "$(grep -A1 -F "INI	CREATE	$etc/envini/conf.d/envini.ini" <<<"$log" |
  tail -n 1)" = "INI	NEWFILE	$etc/envini/conf.d/envini.ini"
check "log the INI file's two new folders" grep -qxF "DIR	2	$etc/envini/conf.d/" <<<"$log"
check "nine action lines of these families" test "$(grep -cE '^(ENV|INI|MODIFYFILE)	' <<<"$log")" -eq 9
check "the INI file in a new folder is made" test "$(cat "$etc/envini/conf.d/envini.ini")" = "[Paths]
Home=$root"

# --- Removing through the registered command --------------------------------------
values="$QLUX_ROOT/var/lib/qlux/registry/$uninstall_key/.values"
command=$(awk -F'\t' '$1 == "UninstallString" { print $3 }' "$values" 2>/dev/null)
check "the uninstaller is registered" test -n "$command"
out=$(timeout 120 sh -c "$command -gui=0" </dev/null 2>&1); code=$?
check "uninstall exits 0, got $code" test "$code" -eq 0
for _ in $(seq 100); do [ -e "$root" ] || break; sleep 0.1; done
check "the product is gone" test ! -e "$root"
for file in environment tool.ini tool.conf; do
  check "$file is exactly as before" cmp -s "$sandbox/before/$file" "$etc/$file"
done
check "no file left beside the targets" test -z "$(find "$etc" -name '*.qlux-new')"
check "the new INI file and its folders are gone" test ! -e "$etc/envini"

# --- From an empty environment file -----------------------------------------------
# Debian ships /etc/environment empty. A PATH made there holds the system's
# default path before the product's folder, since the line replaces it; the
# uninstallation removes every line it made, and the file is empty again.
new_sandbox "empty-env"
etc="$QLUX_ROOT/etc"
root="$QLUX_ROOT/opt/Envini"
mkdir -p "$QLUX_ROOT/opt" "$etc"
cp -p "$sandbox/before/tool.ini" "$sandbox/before/tool.conf" "$etc/"
: >"$etc/environment"
out=$(cd "$sandbox/run" && timeout 120 ./envini-setup -gui=0 -auto </dev/null 2>&1); code=$?
check "install over an empty environment exits 0, got $code" test "$code" -eq 0
check "PATH keeps the system's default path" \
  test "$(env_value PATH)" = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin:$root/bin"
check "a new list holds the item alone" test "$(env_value TOOL_PLUGINS)" = "$root/plugins"
values="$QLUX_ROOT/var/lib/qlux/registry/$uninstall_key/.values"
command=$(awk -F'\t' '$1 == "UninstallString" { print $3 }' "$values" 2>/dev/null)
out=$(timeout 120 sh -c "$command -gui=0" </dev/null 2>&1); code=$?
for _ in $(seq 100); do [ -e "$root" ] || break; sleep 0.1; done
check "the product is gone" test ! -e "$root"
check "the environment file is empty again" test -f "$etc/environment" -a ! -s "$etc/environment"
for file in tool.ini tool.conf; do
  check "$file is exactly as before" cmp -s "$sandbox/before/$file" "$etc/$file"
done

finish
