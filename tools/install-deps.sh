#!/bin/sh
# install-deps.sh GROUP...: installs the Debian and npm packages of the groups that are missing.
# Groups: build run test bench lint. Says nothing when nothing is missing; works as root, else
# through sudo. The lists below are the one place where a dependency is named.
set -eu

apt_build="make cmake ninja-build g++ ccache pkg-config git ca-certificates
  libflac-dev libopusfile-dev libwavpack-dev libsoxr-dev libasound2-dev libpipewire-0.3-dev libsdbus-c++-dev libsystemd-dev
  libboost1.81-dev libplist-dev nlohmann-json3-dev libfmt-dev libcli11-dev libsqlite3-dev libcairo2-dev
  libtag1-dev libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libswresample-dev
  libjpeg62-turbo-dev libpng-dev libutf8proc-dev"
# Nothing beyond what the build brings: the desktop has its own sound server, and without one the
# program plays into its paced null output.
apt_run=""
apt_test="libgtest-dev flac ffmpeg wavpack opus-tools libjmac-java default-jre-headless
  libfuse3-dev fuse3 e2fsprogs mount pipewire pipewire-bin wireplumber pipewire-alsa alsa-utils
  dbus dbus-bin python3 python3-dbusmock playerctl dunst xvfb
  desktop-file-utils appstream systemd"
apt_bench="sqlite3 libavfilter-dev"
apt_lint="clang clang-format clang-tidy libclang-rt-14-dev libgtest-dev"

npm_build=""
npm_run=""
npm_test=""
npm_bench=""
npm_lint=""

usage() {
  echo "usage: tools/install-deps.sh GROUP...   (build run test bench lint)" >&2
  exit 2
}

[ $# -gt 0 ] || usage
apt_wanted=""
npm_wanted=""
for group in "$@"; do
  case "$group" in
    build | run | test | bench | lint) ;;
    *) usage ;;
  esac
  eval "apt_wanted=\"\$apt_wanted \$apt_$group\" npm_wanted=\"\$npm_wanted \$npm_$group\""
done

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null 2>&1; then
    sudo "$@"
  else
    echo "install-deps.sh: run this as root: $*" >&2
    exit 1
  fi
}

# Names that dpkg does not report as installed. One call for all; unknown names only go to stderr.
missing_packages() {
  # shellcheck disable=SC2086
  set -- $1
  [ $# -gt 0 ] || return 0
  installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "$@" 2>/dev/null |
    sed -n 's/^installed //p' || true)
  for package in "$@"; do
    printf '%s\n' "$installed" | grep -qxF "$package" || printf '%s ' "$package"
  done
}

missing=$(missing_packages "$apt_wanted")
if [ -n "$missing" ]; then
  if ! command -v apt-get >/dev/null 2>&1; then
    echo "install-deps.sh: no apt-get here; install what these Debian packages hold: $missing" >&2
    exit 1
  fi
  echo "Installing: $missing"
  # The lists of a fresh machine are empty, those of an old one out of date: refresh them only when
  # the names do not resolve or the files are gone.
  # shellcheck disable=SC2086
  install() {
    as_root env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y -q --no-install-recommends $missing </dev/null
  }
  # shellcheck disable=SC2086
  apt-get install -s --no-install-recommends $missing >/dev/null 2>&1 && install || {
    as_root apt-get update -q
    install
  }
fi

for package in $npm_wanted; do
  # "name@version"; installed ones are found by the folder of the name.
  [ -d "node_modules/${package%@*}" ] || npm install --no-save --ignore-scripts "$package"
done
