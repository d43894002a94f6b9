#!/usr/bin/env bash
# Runs the README's two Quick start commands on a fresh minimal Debian 12: builds a throw-away
# root with debootstrap (--variant=minbase, plus git), puts a clean clone of the repository's
# committed HEAD into it and runs scripts/run-example.sh and scripts/build-and-test.sh there
# through chroot. This catches a package that scripts/setup.sh forgets, or a build step that
# leans on something only a developer's machine has.
#
# Where the root cannot be built (not root, no debootstrap and no way to install it, no package
# access) it prints that it skipped and why, and exits 0.
#
# The mounts it makes inside the root (/proc, /dev, /sys) are always undone on exit, interrupt or
# termination; the root is deleted only after no mount is left under it, and never across a file
# system boundary. Each stage prints the time it took.
#
#   scripts/fresh-machine-check.sh [WORK_PARENT]   (default: $TMPDIR or /tmp)
#
# Environment: VORX_FRESH_SUITE (default bookworm), VORX_FRESH_MIRROR (default: the Debian mirror
# configured for apt on this machine), VORX_FRESH_REVISION (default HEAD: the committed state,
# never the work tree), VORX_FRESH_KEEP=1 keeps the root for inspection (still unmounted). Each
# stage's output goes to a log in the work directory; a failing stage prints its end.
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$(pwd)
suite=${VORX_FRESH_SUITE:-bookworm}
started=$SECONDS

skip() {
  echo "fresh-machine: skipped: $*"
  exit 0
}

stage_start=0
stage() {
  stage_start=$SECONDS
  echo "fresh-machine: $* ..."
}
stage_done() {
  echo "fresh-machine: $1 took $((SECONDS - stage_start)) s"
}

# --- What this machine allows -------------------------------------------------------------------
[ "$(uname -s)" = Linux ] || skip "not a Linux machine"
[ "$(id -u)" -eq 0 ] || skip "needs root rights (debootstrap, chroot and mounts)"
command -v git >/dev/null || skip "git is not installed"
revision=${VORX_FRESH_REVISION:-HEAD}
git -C "$repo" rev-parse --verify -q "$revision^{commit}" >/dev/null || skip "$repo has no commit $revision"
command -v dpkg >/dev/null || skip "not a Debian machine (no dpkg)"

# The Debian mirror apt uses here: the first source that serves the suite itself (not -updates
# or -security), in either the one-line or the deb822 form.
find_mirror() {
  local f
  for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -r "$f" ] || continue
    awk -v suite="$suite" '
      $1 == "deb" {
        i = 2
        if ($i ~ /^\[/) { while ($i !~ /\]$/) i++; i++ }
        if ($(i + 1) == suite) { print $i; exit }
      }' "$f"
  done
  for f in /etc/apt/sources.list.d/*.sources; do
    [ -r "$f" ] || continue
    awk -v suite="$suite" '
      function flush() {
        if (types ~ /(^| )deb( |$)/ && enabled != "no" && (" " suites " ") ~ (" " suite " ")) {
          split(uris, u, " "); print u[1]; found = 1; exit
        }
        types = ""; uris = ""; suites = ""; enabled = ""
      }
      /^[ \t]*#/ { next }
      /^[ \t]*$/ { flush(); next }
      { key = tolower($1); sub(/:$/, "", key); $1 = ""; sub(/^ +/, "")
        if (key == "types") types = $0
        else if (key == "uris") uris = $0
        else if (key == "suites") suites = $0
        else if (key == "enabled") enabled = tolower($0) }
      END { if (!found) flush() }' "$f"
  done
}
mirror=${VORX_FRESH_MIRROR:-$(find_mirror | head -n 1)}
[ -n "$mirror" ] || skip "no Debian mirror for $suite is configured for apt on this machine"
echo "fresh-machine: suite $suite from $mirror"

if ! command -v debootstrap >/dev/null; then
  stage "installing debootstrap"
  if ! (export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq && apt-get install -y -qq --no-install-recommends debootstrap) >/dev/null 2>&1; then
    skip "debootstrap is missing and apt-get could not install it (no package access?)"
  fi
  stage_done "installing debootstrap"
fi

# --- The throw-away root and its guaranteed clean-up -------------------------------------------
work=$(mktemp -d "${1:-${TMPDIR:-/tmp}}/vorx-fresh-machine.XXXXXX")
root=$work/root
mkdir -p "$root"

# Every mount point under the root, deepest first.
mounts_under_root() {
  findmnt -rn -o TARGET | awk -v r="$root" 'index($0, r "/") == 1 || $0 == r' | sort -r
}

# The process group of the stage running now (its own session, so it can be ended whole).
child=

cleanup() {
  local status=$?
  trap - EXIT INT TERM
  set +e
  if [ -n "$child" ]; then
    echo "fresh-machine: stopped ($status); ending the running stage"
    kill -TERM -- "-$child" 2>/dev/null
    wait "$child" 2>/dev/null
  fi
  # Processes still running inside the root (a daemon a package started) would hold the mounts.
  local proc pid
  for proc in /proc/[0-9]*; do
    pid=${proc#/proc/}
    if [ "$(readlink "$proc/root" 2>/dev/null)" = "$root" ]; then
      kill -KILL "$pid" 2>/dev/null
    fi
  done
  local m
  for m in $(mounts_under_root); do
    umount "$m" 2>/dev/null || umount -l "$m"
  done
  if [ -n "$(mounts_under_root)" ]; then
    echo "fresh-machine: still mounted under $root, so it is left in place:" >&2
    mounts_under_root >&2
  elif [ "${VORX_FRESH_KEEP:-0}" = 1 ]; then
    echo "fresh-machine: root kept in $root"
  else
    local removing=$SECONDS
    rm -rf --one-file-system "$work"
    echo "fresh-machine: removing the root took $((SECONDS - removing)) s"
  fi
  exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Runs one stage in its own session with its output in $work/NAME.log; waits so that a signal is
# handled at once. Prints the time it took, and the end of its log when it fails.
run_stage() {
  local name=$1
  shift
  stage "$name"
  setsid "$@" >"$work/$name.log" 2>&1 &
  child=$!
  local rc=0
  wait "$child" || rc=$?
  child=
  if [ "$rc" -ne 0 ]; then
    echo "fresh-machine: $name failed ($rc) after $((SECONDS - stage_start)) s; the end of its output:"
    tail -n 60 "$work/$name.log"
    return "$rc"
  fi
  stage_done "$name"
}

if ! run_stage debootstrap debootstrap --variant=minbase --include=git "$suite" "$root" "$mirror"; then
  if grep -qiE "Failed getting release file|Couldn.t download|Temporary failure resolving|Could not resolve|Unable to connect" \
    "$work/debootstrap.log"; then
    skip "debootstrap could not reach $mirror (no package access)"
  fi
  exit 1
fi

stage "cloning $revision"
commit=$(git -C "$repo" rev-parse --verify "$revision^{commit}")
git clone -q --no-hardlinks "$repo" "$root/src/vorx"
git -C "$root/src/vorx" checkout -q --detach "$commit"
echo "fresh-machine: clean clone at $commit"
stage_done "cloning"

# The mounts are private: nothing mounted under them reaches this machine's own tree.
cp -L /etc/resolv.conf "$root/etc/resolv.conf" 2>/dev/null || true
mkdir -p "$root/proc" "$root/dev" "$root/sys"
mount -t proc proc "$root/proc"
mount --bind /dev "$root/dev"
mount --make-private "$root/dev"
mkdir -p "$root/dev/pts"
mount --bind /dev/pts "$root/dev/pts"
mount --make-private "$root/dev/pts"
mount --bind /sys "$root/sys"
mount --make-private "$root/sys"
mount -o remount,bind,ro "$root/sys" 2>/dev/null || true

# A clean login environment: nothing of this machine's build set-up leaks in.
in_root=(chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
  TERM=dumb LANG=C.UTF-8 ${http_proxy:+"http_proxy=$http_proxy"} ${https_proxy:+"https_proxy=$https_proxy"})

for command in scripts/run-example.sh scripts/build-and-test.sh; do
  run_stage "${command#scripts/}" "${in_root[@]}" /bin/bash -c "cd /src/vorx && $command"
  grep -E '^(setup: installing|[0-9a-f]{16}  |[0-9]+% tests passed)' "$work/${command#scripts/}.log" | sed 's/^/  /'
done

echo "fresh-machine: both Quick start commands passed on a fresh $suite in $((SECONDS - started)) s"
