#!/usr/bin/env bash
# The Ansible example, run by Debian's ansible-core against localhost with a
# local connection and the sandbox as QLUX_ROOT: the demo product installs,
# a second run changes nothing, a newer version upgrades it, an older one is
# refused (exit code 4) and fails the play, and state absent removes it.
# The Windows variant of the role is checked for its syntax only.
here=$(cd "$(dirname "$0")" && pwd)
setup=$(realpath "$1")
pack=$(realpath "$2")
source "$here/lib.sh"
example="$here/../examples/ansible"

if ! command -v ansible-playbook >/dev/null; then
  echo "FAILED: ansible-playbook is missing (scripts/setup.sh installs ansible-core)"
  exit 1
fi

new_sandbox "ansible"
mkdir -p "$QLUX_ROOT/opt" "$QLUX_ROOT/etc"
: >"$QLUX_ROOT/etc/environment"
# Ansible keeps its own files in the home folder and its temporary folders:
# all of them go into the sandbox.
export HOME="$sandbox/home" ANSIBLE_LOCAL_TEMP="$sandbox/ansible/local" ANSIBLE_REMOTE_TEMP="$sandbox/ansible/remote"
export ANSIBLE_NOCOLOR=1 ANSIBLE_RETRY_FILES_ENABLED=0 ANSIBLE_GATHER_SUBSET='!all,min'
mkdir -p "$HOME"
printf '[qlux_hosts]\nlocalhost ansible_connection=local ansible_python_interpreter=/usr/bin/python3\n' \
  >"$sandbox/inventory"

# The demo in three versions: 1.1.0, 1.2.0 (as it is) and 1.3.0.
for minor in 1 2 3; do
  source_dir="$sandbox/source-$minor"
  cp -r "$here/../examples/demo" "$source_dir"
  cp "$setup" "$source_dir/qlux-uninstall.exe"
  sed -i "s|<MinorVersion>2</MinorVersion>|<MinorVersion>$minor</MinorVersion>|" "$source_dir/install.xml"
  "$pack" --stub "$setup" --template "$source_dir/install.xml" --source "$source_dir" \
    -o "$sandbox/qlux-demo-1.$minor.0-setup" >/dev/null || { echo "FAILED: packing 1.$minor.0"; exit 1; }
done

# play OPTION...: runs the playbook; `out` and `code`.
play() {
  out=$(ansible-playbook -i "$sandbox/inventory" "$example/deploy.yml" -e qlux_root="$QLUX_ROOT" \
    -e qlux_remote_dir="$sandbox/remote" "$@" 2>&1)
  code=$?
}
# recap FIELD: the number of the play recap's field (ok, changed, failed).
recap() { sed -n "s/^localhost *:.* $1=\([0-9]*\).*/\1/p" <<<"$out"; }
version=1.2.0
deploy() { play -e qlux_installer="$sandbox/qlux-demo-$1-setup" -e qlux_version="$1" "${@:2}"; }
product="$QLUX_ROOT/opt/Qlux Demo"
entry="$QLUX_ROOT/var/lib/qlux/registry/HKEY_LOCAL_MACHINE/Software/Microsoft/Windows/CurrentVersion/Uninstall/Qlux Demo/.values"
installed() { awk -F'\t' '$1 == "DisplayVersion" { print $3 }' "$entry" 2>/dev/null; }

deploy 1.2.0
check "install: the play succeeds, got $code" test "$code" -eq 0
check "install: the play reports a change" test "$(recap changed)" -gt 0
check "install: the product is installed" test -x "$product/bin/qlux-demo"
check "install: its entry names 1.2.0" test "$(installed)" = 1.2.0

deploy 1.2.0
check "again: the play succeeds, got $code" test "$code" -eq 0
check "again: the play reports no change" test "$(recap changed)" = 0

deploy 1.3.0
check "upgrade: the play succeeds, got $code" test "$code" -eq 0
check "upgrade: the play reports a change" test "$(recap changed)" -gt 0
check "upgrade: its entry names 1.3.0" test "$(installed)" = 1.3.0

before=$(cd "$QLUX_ROOT" && find . -type f ! -name '*-install.log' -exec sha256sum {} + | sort)
deploy 1.1.0
check "downgrade: the play fails, got $code" test "$code" -ne 0
check "downgrade: the play counts the failure" test "$(recap failed)" = 1
check "downgrade: refused with exit code 4" holds "$out" "qlux-setup ended with exit code 4"
check "downgrade: the reason is the result log's" holds "$out" "Qlux Demo 1.3.0 is installed, newer than this installer's 1.1.0"
check "downgrade: nothing changed" \
  test "$(cd "$QLUX_ROOT" && find . -type f ! -name '*-install.log' -exec sha256sum {} + | sort)" = "$before"

play -e qlux_state=absent
check "absent: the play succeeds, got $code" test "$code" -eq 0
check "absent: the play reports a change" test "$(recap changed)" -gt 0
# The quiet command waited: the product is gone when the play ends.
check "absent: the product is gone" test ! -e "$product"
check "absent: its entry is gone" test ! -e "$entry"
check "absent: the environment file is empty again" test ! -s "$QLUX_ROOT/etc/environment"
play -e qlux_state=absent
check "absent again: no change" test "$(recap changed)" = 0

# The Windows variant: the same role, read whole by a syntax check.
out=$(ansible-playbook -i "$sandbox/inventory" --syntax-check "$example/deploy.yml" 2>&1); code=$?
check "syntax check of both variants passes, got $code" test "$code" -eq 0
check "the Windows tasks use win_package" grep -q "ansible.windows.win_package" "$example/roles/qlux_product/tasks/windows.yml"

finish
