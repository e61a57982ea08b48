#!/bin/sh
# Installs the Tarnwick programs into an application folder and sets the service up under systemd.
# Run as root, or with sudo, from the repository after building:
#   packaging/install.sh [--prefix /opt/tarnwick] [--user ACCOUNT] [--build DIR] [--no-start]
# ACCOUNT is the account the service runs as: a local user name, or DOMAIN\user for a domain
# account (written user@DOMAIN in the unit, as SSSD names them). Without it the service runs as
# root, which can read everything it is asked to back up. Run again, it upgrades: the programs are
# replaced and a running service is restarted. --build names the build folder (default: build).
set -eu

prefix=/opt/tarnwick
user=""
start=yes
build="$(dirname "$0")/../build"
while [ $# -gt 0 ]; do
  case "$1" in
    --prefix) prefix="$2"; shift 2 ;;
    --user) user="$2"; shift 2 ;;
    --build) build="$2"; shift 2 ;;
    --no-start) start=no; shift ;;
    -h|--help) sed -n '2,9p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "install.sh: unknown option $1 (try --help)" >&2; exit 2 ;;
  esac
done
[ "$(id -u)" -eq 0 ] || { echo "install.sh: run as root, or with sudo" >&2; exit 1; }
[ -x "$build/bin/TWService" ] || { echo "install.sh: build first: no $build/bin/TWService" >&2; exit 1; }
case "$prefix" in /*) ;; *) prefix="$PWD/$prefix" ;; esac

# Every program into the prefix itself, stripped, root's, mode 0755.
cmake --install "$build" --prefix "$prefix" --strip >/dev/null

# -setup checks the account, writes and registers the unit, gives the account the service's data
# and makes the default destination. The service works in the folder of its programs: variables of
# this shell that point the programs elsewhere (a demo's TARNWICK_HOME) stay out of it.
env -u TARNWICK_HOME -u TARNWICK_SETTINGS -u TARNWICK_SYSLOG_SOCKET "$prefix/TWService" -setup ${user:+"$user"}

if systemctl is-active --quiet wtarnwick; then
  # An upgrade: the service runs the new programs from now on.
  systemctl restart wtarnwick
elif [ "$start" = yes ]; then
  systemctl start wtarnwick
fi
echo "Tarnwick is installed in $prefix. Console: $prefix/twctl --help"
