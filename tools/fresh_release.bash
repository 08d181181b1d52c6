# Fresh installations of Debian releases in temporary folders, for scripts to source. Root only.
#
# The caller sets `root` to the checkout and `release` to the name of a release, then: open_work_folder, which sets
# `work`, and install_release, in_release and isolated as often as it likes. The work folder and everything that
# runs in it are gone when the script ends, interrupted or not.

# Runs a command whose processes and mounts are its own and end with it, or with this script.
isolated_pid=
isolated() {
  # In the background, because a signal to this script has to wait for what runs in the foreground.
  setpriv --pdeathsig KILL -- unshare --mount --pid --fork --kill-child -- "$@" <&0 &
  isolated_pid=$!
  local status=0
  wait "$isolated_pid" || status=$?
  isolated_pid=
  return "$status"
}

# in_release FOLDER COMMAND...: runs a command in the checkout there, with an environment of its own.
in_release() {
  # shellcheck disable=SC2016
  isolated bash -c '
    mount -t proc proc "$1/proc" &&
    mount -t devpts -o newinstance,ptmxmode=0666 devpts "$1/dev/pts" &&
    mount -t tmpfs -o mode=1777 tmpfs "$1/dev/shm" &&
    exec chroot "$1" env -i HOME=/root LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin \
      sh -c "cd /srv/checkout && exec \"\$@\"" sh "${@:2}"' bash "$@"
}

step() { printf '== %s: %s (%s)\n' "$release" "$1" "$(date +%T)"; }

# install_release FOLDER: a minimal system with a checkout.
install_release() {
  local folder=$1 output=$1.out
  step 'installing a minimal system'
  isolated debootstrap --variant=minbase "$release" "$folder" \
    "${HALVEX_DEBIAN_MIRROR:-http://deb.debian.org/debian}" >"$output" 2>&1 </dev/null ||
    { tail -n 20 "$output" && return 1; }
  cp -- /etc/resolv.conf "$folder/etc/resolv.conf"
  git clone --quiet --no-hardlinks "$root" "$folder/srv/checkout"
}

# Ends what runs, all of it at once with its first process, and removes the folder.
clean_up() {
  trap '' INT TERM HUP
  if [[ -n $isolated_pid ]]; then
    pkill -KILL -P "$isolated_pid" || kill -KILL "$isolated_pid" || true
    wait "$isolated_pid" || true
  fi 2>/dev/null
  rm -rf --one-file-system -- "$work"
}

open_work_folder() {
  work=$(mktemp -d -p "${TMPDIR:-/var/tmp}")
  trap clean_up EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  chmod 755 "$work"
}
