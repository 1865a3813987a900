#!/usr/bin/env bash
# docs/tutorial.md, followed word by word: its sh blocks run as they stand,
# one after the other, in an empty folder of the sandbox, with the built
# programs on PATH (the only thing the tutorial leaves to the reader).
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
new_sandbox "tutorial"

# The programs under the names the tutorial uses.
mkdir -p "$sandbox/bin"
ln -s "$setup" "$sandbox/bin/qlux-setup"
ln -s "$pack" "$sandbox/bin/qlux-pack"

awk '/^```sh$/ { run = 1; next } /^```/ { run = 0; next } run { print }' "$here/../docs/tutorial.md" \
  >"$sandbox/tutorial.sh"
check "the tutorial has commands to run" test "$(wc -l <"$sandbox/tutorial.sh")" -gt 10

mkdir "$sandbox/work"
out=$(cd "$sandbox/work" && PATH="$sandbox/bin:$PATH" timeout 300 bash -e "$sandbox/tutorial.sh" </dev/null 2>&1)
code=$?
check "every command of the tutorial succeeds, got $code" test "$code" -eq 0
acme="$sandbox/work/acme"
check "the check printed nothing, and the installer was packed" test -x "$acme/acme-setup"
check "the installation succeeded" holds "$out" "Automatic installation was successful!"
check "the installed program ran" holds "$out" "Acme Editor 1.0"
check "the uninstall data and the result log were there" \
  holds "$out" "uninstall:"$'\nAcme Editor-install.log\nbackup.bin\ninstall.log\ninstall.xml\nuninstall\n'
check "the answers were written for the next machine" test -s "$acme/config.xml"
check "the uninstaller removed it all" holds "$out" "Automatic uninstallation was successful!"
check "nothing is left of the product" test -z "$(ls -A "$acme/trial/opt")"
check "the installation stayed in the tutorial's folder" test -z "$(ls -A "$QLUX_ROOT")"

# The mistake that the tutorial shows gives the messages it shows.
sed 's/<FileSet /<FileSett /; s/<\/FileSet>/<\/FileSett>/' "$acme/install.xml" >"$acme/broken.xml"
shown=$(grep '^install.xml:' "$here/../docs/tutorial.md" | sed 's/^install.xml:/broken.xml:/')
got=$(cd "$acme" && "$pack" --check --template broken.xml --source product 2>&1)
check "the tutorial's mistake reads as shown" test "$got" = "$shown"
[ "$failures" -eq 0 ] || echo "$out"

finish
