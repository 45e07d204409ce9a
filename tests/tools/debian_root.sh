# For scripts that try the product in a Debian of its own, as root; to be sourced.
#
# Everything happens in namespaces of the script's own: when it ends, however it ends, no mount and no
# process of it is left. A root has the package sources, the resolver and the certificates of this machine,
# and nothing else of it.

# enter_namespaces ARGUMENT …: starts the script again, from the tree's root, in namespaces of its own.
enter_namespaces() {
  [ "$(id -u)" -eq 0 ] || { echo "${0##*/}: must be root" >&2; exit 2; }
  [ -n "${ZEPHO_IN_NAMESPACES:-}" ] ||
    ZEPHO_IN_NAMESPACES=1 exec unshare --mount --pid --fork --kill-child --mount-proc "scripts/${0##*/}" "$@"
  trap 'exit 130' INT TERM
}

# The Debian sources of this machine, as lines of sources.list.
debian_sources() {
  local lines
  lines=$({ apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' \
    'Origin: Debian' 'Identifier: Packages' 2>/dev/null || true; } |
    awk '$2 ~ /^bookworm/ { print "deb", $0 }' | sort -u)
  echo "${lines:-deb http://deb.debian.org/debian bookworm main}"
}

# claim DIRECTORY: makes it, and keeps other runs out of it.
claim() {
  mkdir -p "$1"
  exec 9>"$1/lock"
  flock -n 9 || bad "another run is at work in $1"
}

# new_root DIRECTORY NAME: DIRECTORY/NAME becomes a bare Debian 12, and "${inside[@]}" the words before a
# command that root runs there, with the environment of a first login. What it is copied from is made once,
# and packages that have been fetched stay in the directory. To be called plainly: behind it an "||" would
# let every failed step of it pass.
new_root() {
  local directory=$1 base=$1/base mirror
  root=$1/$2
  inside=(env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root
          "${carried[@]}" chroot "$root")
  mkdir -p "$directory/archives/partial"
  if [ ! -d "$base" ]; then
    mirror=$(debian_sources | awk '$3 == "bookworm" { print $2; exit }')
    rm -rf "$base.new"
    debootstrap --variant=minbase bookworm "$base.new" "$mirror" >"$directory/debootstrap.txt" 2>&1 ||
      failed "$directory/debootstrap.txt" debootstrap
    mv "$base.new" "$base"
  fi
  rm -rf --one-file-system "$root"
  cp -a "$base" "$root"
  debian_sources >"$root/etc/apt/sources.list"
  echo 'Binary::apt::APT::Keep-Downloaded-Packages "true";' >"$root/etc/apt/apt.conf.d/10keep"
  cp -L /etc/resolv.conf /etc/hosts "$root/etc/"
  mkdir -p "$root/usr/local/share/ca-certificates"
  cp -r /usr/local/share/ca-certificates/. "$root/usr/local/share/ca-certificates/"
  mount -t proc proc "$root/proc"
  mount -t devpts -o newinstance,ptmxmode=0666,mode=0620,gid=5 devpts "$root/dev/pts"
  mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
  mount --bind "$directory/archives" "$root/var/cache/apt/archives"
}

# How this machine reaches the network is all that is carried over.
carried=()
for name in http_proxy https_proxy no_proxy; do
  [ -z "${!name:-}" ] || carried+=("$name=${!name}")
done

# One line a step: what it is, then how it ended.
step() { printf '%-58s' "$1"; }
good() { echo "ok${1:+  ($1)}"; }
bad() { echo "FAILED: $1" >&2; exit 1; }

# failed LOG WHAT: the end of what was said, then the verdict.
failed() { echo; tail -n 30 "$1" >&2; bad "$2; all of it is in $1"; }

# A free port instead of the usual one, which somebody may have, for the settings in a data root.
settle_port() { # data root
  port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  mkdir -p "$1/data"
  printf '{"server":{"port":%s,"bind":"127.0.0.1"}}' "$port" >"$1/data/config.json"
}

# start_service LOG COMMAND …: runs the command in the background, and returns when it has told that it
# listens at the settled port.
start_service() {
  local log=$1
  shift
  "$@" >"$log" 2>&1 &
  service=$!
  local end=$((SECONDS + 3000))
  until grep -qs "http://127\.0\.0\.1:$port" "$log"; do
    kill -0 "$service" 2>/dev/null || failed "$log" "the service ended"
    [ "$SECONDS" -lt "$end" ] || failed "$log" "the service told no address within 50 minutes"
    sleep 0.2
  done
}
end_service() {
  local code=0
  kill "$service"
  wait "$service" || code=$?
  [ "$code" -eq 0 ] || bad "the service ended with $code"
}

# wav_is_whole FILE: a RIFF file that is as long as it says.
wav_is_whole() {
  [ "$(head -c 4 "$1")" = RIFF ] && [ $(($(od -An -tu4 -j4 -N4 "$1") + 8)) -eq "$(stat -c %s "$1")" ]
}
