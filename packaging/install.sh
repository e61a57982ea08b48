#!/bin/sh
# Installs the Tarnwick programs into an application folder and sets the service up under systemd.
# Run as root from the repository after building (programs in build/bin):
#   packaging/install.sh [--prefix /opt/tarnwick] [--user ACCOUNT] [--no-start]
# ACCOUNT is the account the service runs as: a local user name, or DOMAIN\user for a domain
# account (written user@DOMAIN in the unit, as SSSD names them). Without it the service runs as
# root, which can read everything it is asked to back up.
set -eu

prefix=/opt/tarnwick
user=""
start=yes
bin="$(dirname "$0")/../build/bin"
while [ $# -gt 0 ]; do
  case "$1" in
    --prefix) prefix="$2"; shift 2 ;;
    --user) user="$2"; shift 2 ;;
    --no-start) start=no; shift ;;
    -h|--help) sed -n '2,7p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "install.sh: unknown option $1 (try --help)" >&2; exit 2 ;;
  esac
done
[ "$(id -u)" -eq 0 ] || { echo "install.sh: run as root" >&2; exit 1; }
[ -x "$bin/TWService" ] || { echo "install.sh: build first: no $bin/TWService" >&2; exit 1; }

install -d -m 0755 "$prefix"
for program in TWService twctl DesktopRights TWExecutor twprocess TWCam TWPrintOut twmessage; do
  if [ -x "$bin/$program" ]; then install -m 0755 "$bin/$program" "$prefix/$program"; fi
done

# -setup installs the unit (and retries once after removing an old one).
if [ -n "$user" ]; then "$prefix/TWService" -setup "$user"; else "$prefix/TWService" -setup; fi

# The service keeps its data beside the programs; the account it runs as must own it.
if [ -n "$user" ]; then
  owner="$(echo "$user" | sed 's/^\(.*\)\\\(.*\)$/\2@\1/')"
  chown "$owner" "$prefix"
  for data in settings.db settings.db-wal settings.db-shm Logs Reports Spool; do
    [ -e "$prefix/$data" ] && chown -R "$owner" "$prefix/$data"
  done
fi

if [ "$start" = yes ]; then systemctl start wtarnwick; fi
echo "Tarnwick is installed in $prefix. Console: $prefix/twctl --help"
