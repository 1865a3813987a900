#!/usr/bin/env bash
# The demo: installs what building needs, builds the native programs, packs
# examples/demo into an installer, installs it unattended into a fresh
# sandbox, shows what was installed and registered and what else of the
# machine it changed (the system environment, an INI key, a desktop entry, a
# registry value), removes it through the registered uninstall command as the
# list of installed programs would, and shows that nothing of it is left.
# Exits non-zero if anything is.
#
# Nothing of the machine is touched: QLUX_ROOT (every machine-wide place)
# and TMPDIR point into one temporary directory, removed at the end unless
# QLUX_DEMO_KEEP=1. QLUX_BUILD_DIR picks another build directory than build/.
set -euo pipefail
cd "$(dirname "$0")/.."
top=$(pwd)
build="$top/${QLUX_BUILD_DIR:-build}"

heading() { printf '\n== %s\n' "$*"; }

heading "Setting up and building"
bash scripts/setup.sh
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C "$build" qlux-setup qlux-pack >/dev/null
setup="$build/bin/qlux-setup"
pack="$build/bin/qlux-pack"
echo "built $setup and $pack"

sandbox=$(mktemp -d "${TMPDIR:-/tmp}/qlux-demo.XXXXXX")
cleanup() {
  cd /
  if [ "${QLUX_DEMO_KEEP:-0}" = 1 ]; then
    echo "The sandbox stays: $sandbox"
  elif [ -n "$sandbox" ] && [ -d "$sandbox" ]; then
    rm -rf -- "$sandbox"
  fi
}
trap cleanup EXIT
cd "$sandbox"

heading "Packing examples/demo"
# The uninstaller that the product carries is the installer program itself,
# without a package; it goes beside a copy of the product's files, under
# the name the template gives it.
cp -r "$top/examples/demo" "$sandbox/source"
cp "$setup" "$sandbox/source/qlux-uninstall.exe"
installer="$sandbox/qlux-demo-setup"
"$pack" --stub "$setup" --template "$sandbox/source/install.xml" --source "$sandbox/source" -o "$installer"

export QLUX_ROOT="$sandbox/root"
export TMPDIR="$sandbox/tmp"
mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc" "$TMPDIR"
product="$QLUX_ROOT/opt/Qlux Demo"
store="$QLUX_ROOT/var/lib/qlux/registry"
registry="$store/HKEY_LOCAL_MACHINE"
echo "sandbox: QLUX_ROOT=$QLUX_ROOT TMPDIR=$TMPDIR"

# The machine-wide environment of the sandbox, as a freshly set-up system
# has it; the product adds to it, and it must come back byte for byte.
environment="$QLUX_ROOT/etc/environment"
printf '%s\n' 'PATH="/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"' 'LANG=C.UTF-8' >"$environment"
cp -p "$environment" "$sandbox/environment.before"

# show_store: every key of the registry store with its values.
show_store() {
  if [ ! -d "$store" ]; then
    echo "  (empty)"
    return 0
  fi
  (cd "$store" && find . -mindepth 1 -type d | sort | while read -r key; do
    echo "  ${key#./}"
    if [ -f "$key/.values" ]; then sed 's/\t/  /g; s/^/      /' "$key/.values"; fi
  done)
}
# demo_keys: the keys of the store that belong to the demo.
demo_keys() {
  [ -d "$store" ] || return 0
  find "$store" -iname 'Qlux Demo*' -print 2>/dev/null
}

# entry_file: the values file of the product's entry in the list of
# installed programs, or nothing if there is no entry.
entry_file() {
  [ -d "$registry" ] || return 0
  find "$registry" -path '*/CurrentVersion/Uninstall/Qlux Demo/.values' -print -quit 2>/dev/null
}

heading "Installing unattended: qlux-demo-setup -gui=0 -auto"
"$installer" -gui=0 -auto </dev/null

heading "Installed files (mode, size, path below $QLUX_ROOT/opt)"
(cd "$QLUX_ROOT/opt" && find "Qlux Demo" -printf '%M %8s %p\n' | sort -k3)

heading "The machine-wide environment, $environment"
diff "$sandbox/environment.before" "$environment" | sed -n 's/^[<>] /  &/p' || true

heading "The INI file with the key the installation added, etc/demo.ini"
sed 's/^/  /' "$product/etc/demo.ini"

heading "The desktop entry, shortcuts/Qlux Demo.desktop"
sed 's/^/  /' "$product/shortcuts/Qlux Demo.desktop"

heading "The registry store, $store"
show_store

heading "Registered entry in the list of installed programs"
values=$(entry_file)
if [ -z "$values" ]; then
  echo "no entry was registered"
  exit 1
fi
sed 's/\t/  /g' "$values"
command=$(awk -F'\t' '$1 == "UninstallString" { print $3 }' "$values")

heading "Running the product: it writes files of its own into var/"
"$product/bin/qlux-demo"
"$product/bin/qlux-demo"
ls -l "$product/var"

heading "Uninstalling through the registered UninstallString"
echo "$command -gui=0"
sh -c "$command -gui=0" </dev/null
# The command only hands over to a copy of the program in the temporary
# directory; that copy deletes its copy of the log when it has finished.
for _ in $(seq 300); do
  [ -e "$TMPDIR/qluxuninst.log" ] || break
  sleep 0.1
done

heading "What is left"
left=0
if [ -e "$product" ]; then
  echo "left in the program directory:"
  find "$product" -printf '  %M %p\n'
  left=1
fi
if [ -n "$(entry_file)" ]; then
  echo "the entry is still registered: $(entry_file)"
  left=1
fi
if [ -n "$(demo_keys)" ]; then
  echo "keys of the demo are still in the registry store:"
  demo_keys | sed 's/^/  /'
  left=1
fi
if ! cmp -s "$sandbox/environment.before" "$environment"; then
  echo "the machine-wide environment is not as it was:"
  diff "$sandbox/environment.before" "$environment" | sed 's/^/  /'
  left=1
fi
if [ "$left" -ne 0 ]; then
  echo "FAILED: the uninstallation left things behind"
  exit 1
fi
echo "nothing: every file, directory, shortcut, INI key and registry value,"
echo "the registered entry and the environment changes are gone"
echo "program directory now: $(ls -A "$QLUX_ROOT/opt" | wc -l) entries"
echo "environment file: as before"
echo "registry store now:"
show_store
