#!/bin/sh
# The install script and the Debian package, on the built programs, as an administrator runs them.
#   PackagingTest.sh SOURCE_DIR BUILD_DIR
# systemctl is a stand-in that records what it is asked; the package goes into a scratch root.
# Needs root and the account "backup" (Debian's own); exits 77 (skipped) without them.
set -u
source_dir=$1
build=$2

[ "$(id -u)" -eq 0 ] || { echo "skipped: installing needs root"; exit 77; }
id backup >/dev/null 2>&1 || { echo "skipped: needs the account backup"; exit 77; }

tmp=$(mktemp -d /tmp/tarnwick-packaging-XXXXXX)
trap 'rm -rf "$tmp"' EXIT
failures=0
check() {  # check DESCRIPTION COMMAND...
  description=$1
  shift
  if ! "$@"; then
    echo "FAILED: $description" >&2
    failures=$((failures + 1))
  fi
}
same() { [ "$1" = "$2" ] || { echo "  expected: $2" >&2; echo "  got:      $1" >&2; return 1; }; }
owner() { stat -c '%U:%G %a' "$1"; }
stripped() { file -L "$1" | grep -q ', stripped' || { file -L "$1" >&2; return 1; }; }
programs="TWService twctl DesktopRights TWExecutor twprocess TWCam TWPrintOut twmessage"

mkdir "$tmp/bin" "$tmp/units"
cat >"$tmp/bin/systemctl" <<EOF
#!/bin/sh
echo "\$@" >>"$tmp/calls"
if [ "\$1" = is-active ]; then [ -e "$tmp/active" ]; fi
EOF
chmod 755 "$tmp/bin/systemctl"
system_path=$PATH
PATH="$tmp/bin:$PATH"
export TARNWICK_UNIT_DIR="$tmp/units"

# install.sh: an application folder whose path systemd would misread unless escaped, with a
# settings file whose default destination lies in the test's folder, and a demo's variables in the
# installing shell.
prefix="$tmp/Tarn %n wick's opt"
mkdir "$prefix"
"$build/bin/twctl" --settings "$prefix/settings.db" config set general.default_destination "$tmp/archives"
export TARNWICK_HOME="$tmp/demo" TARNWICK_SETTINGS="$tmp/demo/settings.db" TARNWICK_SYSLOG_SOCKET="$tmp/log"
check "install.sh succeeds" sh "$source_dir/packaging/install.sh" --prefix "$prefix" --user backup --build "$build"
for program in $programs; do
  check "$program: root's, 0755" same "$(owner "$prefix/$program")" "root:root 755"
  check "$program is stripped" stripped "$prefix/$program"
done
check "the application folder: root's, the account's group, 1770" same "$(owner "$prefix")" "root:backup 1770"
check "settings.db is the account's" same "$(owner "$prefix/settings.db")" "backup:backup 600"
check "the default destination is made for the account" same "$(owner "$tmp/archives")" "backup:backup 700"
check "the installing shell's TARNWICK_HOME was not used" test ! -e "$tmp/demo"
unit="$tmp/units/wtarnwick.service"
check "the unit holds no TARNWICK_ variable" sh -c "! grep TARNWICK_ '$unit'"
check "the unit runs as the account" grep -qx "User=backup" "$unit"
check "systemd accepts the unit" systemd-analyze verify "$unit"
check "a first installation starts the service" same "$(cat "$tmp/calls")" \
  "daemon-reload
enable wtarnwick.service
is-active --quiet wtarnwick
start wtarnwick"

# Again, with the service running: an upgrade restarts it, even with --no-start.
: >"$tmp/active"
: >"$tmp/calls"
check "install.sh upgrades" sh "$source_dir/packaging/install.sh" --prefix "$prefix" --user backup --build "$build" --no-start
check "an upgrade restarts the running service" same "$(tail -n 1 "$tmp/calls")" "restart wtarnwick"

# A mistyped account leaves the installed unit alone.
cp "$unit" "$tmp/unit-before"
: >"$tmp/calls"
"$prefix/TWService" -setup no-such-account-here 2>"$tmp/err"
check "-setup with a missing account fails" same "$?" 1
check "-setup with a missing account says so" grep -q 'there is no account "no-such-account-here"' "$tmp/err"
check "-setup with a missing account leaves the unit" cmp -s "$unit" "$tmp/unit-before"
check "-setup with a missing account asks systemd nothing" same "$(cat "$tmp/calls")" ""
unset TARNWICK_HOME TARNWICK_SETTINGS TARNWICK_SYSLOG_SOCKET TARNWICK_UNIT_DIR
PATH=$system_path

# The Debian package.
check "cpack makes the package" sh -c "cpack --config '$build/CPackConfig.cmake' -G DEB -B '$tmp/package' >'$tmp/cpack.log' 2>&1"
deb=$(ls "$tmp"/package/tarnwick_*.deb)
dpkg-deb --info "$deb" >"$tmp/info"
dpkg-deb --contents "$deb" >"$tmp/contents"
for script in postinst prerm postrm; do
  check "the package has its $script" grep -Eq "^ +[0-9]+ bytes, +[0-9]+ lines +\\* +$script " "$tmp/info"
done
check "the package depends on tar and the shared libraries" grep -Eq '^ Depends: tar, .*libsqlite3-0' "$tmp/info"
for program in $programs; do
  check "the package holds $program" grep -Eq "^-rwxr-xr-x root/root .* ./opt/tarnwick/$program\$" "$tmp/contents"
done
check "the package holds the unit" grep -q ' ./lib/systemd/system/wtarnwick.service$' "$tmp/contents"

# Installed into a scratch root: the maintainer scripts run on this host with DPKG_ROOT set.
root="$tmp/root"
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/backups"
: >"$root/var/lib/dpkg/status"
check "dpkg installs the package" sh -c "dpkg --root='$root' --force-script-chrootless --force-depends -i '$deb' >'$tmp/dpkg.log' 2>&1"
for program in $programs; do check "$program is installed stripped" stripped "$root/opt/tarnwick/$program"; done
check "postinst: /opt/tarnwick is root's, group backup, 1770" same "$(owner "$root/opt/tarnwick")" "root:backup 1770"
check "postinst: settings.db is backup's" same "$(owner "$root/opt/tarnwick/settings.db")" "backup:backup 600"
check "postinst: the default destination is backup's" same "$(owner "$root/var/backups/tarnwick")" "backup:backup 700"
check "postinst: the service is enabled in that root" test -L "$root/etc/systemd/system/multi-user.target.wants/wtarnwick.service"
packaged="$root/lib/systemd/system/wtarnwick.service"
check "the packaged unit starts /opt/tarnwick/TWService as backup" sh -c \
  "grep -qx 'ExecStart=/opt/tarnwick/TWService' '$packaged' && grep -qx 'User=backup' '$packaged'"
# systemd checks that the program exists: the copy checked points into the scratch root.
mkdir "$tmp/check"
sed "s#/opt/tarnwick#$root/opt/tarnwick#g" "$packaged" >"$tmp/check/wtarnwick.service"
check "systemd accepts the packaged unit" systemd-analyze verify "$tmp/check/wtarnwick.service"
score=$(systemd-analyze security --offline=true "$packaged" | sed -n 's/.*Overall exposure level for wtarnwick.service: \([0-9.]*\).*/\1/p')
check "the packaged unit keeps its sandbox (exposure $score)" awk "BEGIN { exit !($score <= 2.9) }"
check "dpkg removes the package" sh -c "dpkg --root='$root' --force-script-chrootless -r tarnwick >>'$tmp/dpkg.log' 2>&1"
check "prerm: the service is disabled" test ! -e "$root/etc/systemd/system/multi-user.target.wants/wtarnwick.service"
check "removal takes the programs" test ! -e "$root/opt/tarnwick/TWService"
check "removal keeps the settings" test -e "$root/opt/tarnwick/settings.db"

if [ "$failures" -ne 0 ]; then
  for log in cpack.log dpkg.log; do [ -e "$tmp/$log" ] && sed "s/^/$log: /" "$tmp/$log" >&2; done
  echo "$failures check(s) failed" >&2
  exit 1
fi
echo "all checks passed"
